// Registering a node in a repository, with a password that is generated and kept here, or asked
// for.
#ifndef KEEL_TOOLS_ARCA_NODES_REGISTRATION_H
#define KEEL_TOOLS_ARCA_NODES_REGISTRATION_H

#include "client/config/options.h"
#include "client/store/nodes/repository.h"

#include <string>

namespace arca::tool
{

/// Registers the node, durably. Returns false when it is registered already, and with
/// PASSWORDACCESS generate its password is kept here. The next run finishes an interrupted one.
/// Errors: badArgument (the name, or what was typed), noPassword (registered, and its password is
/// not kept here), exists (another host registered it meanwhile), and those of writing. Throws
/// UsageError as secrets.h says.
Result<bool> registerNode(store::Repository &repository, const config::Options &options,
                          const std::string &node, bool fromStandardInput);

/// Prints the lines that report the registration to a person; `now` is what registerNode()
/// returned.
void showRegistration(const config::Options &options, const std::string &node, bool now);

} // namespace arca::tool

#endif
