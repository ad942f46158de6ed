// Registering a node in a repository, with a password that is made and kept here, or asked for.
#ifndef KEEL_TOOLS_ARCA_REGISTRATION_H
#define KEEL_TOOLS_ARCA_REGISTRATION_H

#include "client/config/options.h"
#include "client/store/repository.h"

#include <string>

namespace arca::tool
{

/// False when the node is registered already, and with PASSWORDACCESS generate its password is kept
/// here. An interrupted run is finished by the next.
Result<bool> registerNode(store::Repository &repository, const config::Options &options,
                          const std::string &node, bool fromStandardInput);

/// The lines that tell a person of it.
void showRegistration(const config::Options &options, const std::string &node, bool now);

} // namespace arca::tool

#endif
