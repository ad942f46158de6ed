// A verb's log-on as the node of the option file, for work that needs its keys. One thread.
#ifndef KEEL_TOOLS_ARCA_NODE_SESSION_H
#define KEEL_TOOLS_ARCA_NODE_SESSION_H

#include "client/store/nodes/repository.h"
#include "tools/arca/command.h"

#include <memory>

namespace arca::tool
{

/// `space` refers to `repository` and is destroyed first.
struct NodeSession {
    std::unique_ptr<store::Repository> repository;
    std::unique_ptr<store::NodeSpace> space;
};

/// Logs the node of the option file on, with the password that the client keeps or, with
/// PASSWORDACCESS prompt, one that is asked for on the terminal or read from standard input. Puts
/// "repository" and "node" into `result`, also when the password is wrong. Warns on standard error
/// when the node's record was changed without the node's key. Errors: badOption, noRepository,
/// authentication, noPassword, badArgument (no password was typed). Throws UsageError as secrets.h
/// says.
Result<NodeSession> logOn(const Command &command, bool passwordFromStandardInput, Json &result);

/// Adds --stdin, for the verbs that log on.
void addPasswordOption(tools::Verb verb, bool &fromStandardInput);

} // namespace arca::tool

#endif
