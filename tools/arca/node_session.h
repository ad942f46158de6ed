// A verb's log-on as the node of the option file, for what needs its keys.
#ifndef KEEL_TOOLS_ARCA_NODE_SESSION_H
#define KEEL_TOOLS_ARCA_NODE_SESSION_H

#include "client/store/repository.h"
#include "tools/arca/command.h"

#include <memory>

namespace arca::tool
{

struct NodeSession {
    std::unique_ptr<store::Repository> repository;
    std::unique_ptr<store::NodeSpace> space;
};

/// With the password that the client keeps, or one that is asked for on the terminal or read from
/// standard input. Tells repository and node in `result`.
Result<NodeSession> logOn(const Command &command, bool passwordFromStandardInput, Json &result);

/// The option of the verbs that log on.
void addPasswordOption(tools::Verb verb, bool &fromStandardInput);

} // namespace arca::tool

#endif
