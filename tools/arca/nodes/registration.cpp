// Registering nodes: see the header.
#include "tools/arca/nodes/registration.h"

#include "client/base/crypto/hash.h"
#include "client/base/crypto/password.h"
#include "client/base/text.h"
#include "client/config/node_keys.h"
#include "tools/arca/secrets.h"
#include "tools/common/command/streams.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

/// The kept password is durable before the node is registered: a run that stops in between leaves a
/// password that the next run uses, and never a registered node whose password is lost.
Result<bool> registerGenerated(store::Repository &repository, const config::Options &options,
                               const std::string &node)
{
    const config::NodeKeys keys(options.file);
    auto nodes = repository.nodes();
    auto done = keys.introduce(
        repository.uuid(), node,
        {[&] { return nodes.isRegistered(node); },
         [&](const std::string &password) -> Result<void> {
             ARCA_CHECK(nodes.authenticate(node, password));
             return {};
         },
         [] { return generatePassword(); },
         [&](const std::string &password) { return nodes.registerNode(node, password); }});
    if (!done && done.error().kind == ErrorKind::noPassword)
        return Error{ErrorKind::noPassword,
                     "node " + printable(node) + " is registered in " + repository.shownName() +
                         ", but its password is not kept here; bring back " + keys.path() +
                         " from where the node was registered, or make a new password with: arca "
                         "node passwd " +
                         printable(node) + " --recovery"};
    return done;
}

Result<bool> registerPrompted(store::Repository &repository, const std::string &node,
                              bool fromStandardInput)
{
    ARCA_TRY(const bool registered, repository.nodes().isRegistered(node));
    if (registered)
        return false;
    ARCA_TRY(std::string password, newPassword(node, fromStandardInput));
    auto done = repository.nodes().registerNode(node, password);
    wipe(password);
    ARCA_CHECK(std::move(done));
    return true;
}

} // namespace

Result<bool> registerNode(store::Repository &repository, const config::Options &options,
                          const std::string &node, bool fromStandardInput)
{
    ARCA_CHECK(store::NodeRegistry::expectName(node));
    return options.passwordAccess == config::PasswordAccess::generate
               ? registerGenerated(repository, options, node)
               : registerPrompted(repository, node, fromStandardInput);
}

void showRegistration(const config::Options &options, const std::string &node, bool now)
{
    tools::print("Node        {} ({})\n", printable(node),
                 now ? "registered now" : "was registered");
    if (options.passwordAccess == config::PasswordAccess::generate)
        tools::print("Password    kept in {}; keep a copy in a safe place\n",
                     config::NodeKeys(options.file).path());
    else
        tools::print("Password    supplied by the application (PASSWORDACCESS prompt)\n");
}

} // namespace arca::tool
