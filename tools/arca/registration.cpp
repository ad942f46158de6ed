// Registering nodes: see the header.
#include "tools/arca/registration.h"

#include "client/base/hash.h"
#include "client/base/password.h"
#include "client/base/text.h"
#include "client/config/node_keys.h"
#include "tools/arca/secrets.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

/// The kept password is durable before the node is registered: a run that stops in between leaves a
/// password that the next run uses, never a node whose password nobody knows.
Result<bool> registerGenerated(store::Repository &repository, const config::Options &options,
                               const std::string &node)
{
    const config::NodeKeys keys(options.file);
    ARCA_TRY(const bool registered, repository.nodes().isRegistered(node));
    auto kept =
        keys.find(repository.uuid(), node, [&](const std::string &password) -> Result<void> {
            if (registered)
                ARCA_CHECK(repository.nodes().authenticate(node, password));
            return {};
        });
    if (registered && !kept && kept.error().kind == ErrorKind::noPassword)
        return Error{ErrorKind::noPassword,
                     "node " + printable(node) + " is registered in " + repository.shownName() +
                         ", but its password is not kept here; bring back " + keys.path() +
                         " from where the node was registered, or make a new password with: arca "
                         "node passwd " +
                         printable(node) + " --recovery"};
    if (registered) {
        ARCA_TRY(std::string password, std::move(kept));
        wipe(password);
        return false;
    }
    if (!kept) {
        ARCA_TRY(kept, generatePassword());
        ARCA_CHECK(keys.keep(repository.uuid(), node, *kept));
    }
    ARCA_CHECK(repository.nodes().registerNode(node, *kept));
    wipe(*kept);
    return true;
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
    return options.passwordAccess == config::PasswordAccess::generate
               ? registerGenerated(repository, options, node)
               : registerPrompted(repository, node, fromStandardInput);
}

void showRegistration(const config::Options &options, const std::string &node, bool now)
{
    fmt::print("Node        {} ({})\n", printable(node), now ? "registered now" : "was registered");
    if (options.passwordAccess == config::PasswordAccess::generate)
        fmt::print("Password    kept in {}; keep a copy in a safe place\n",
                   config::NodeKeys(options.file).path());
    else
        fmt::print("Password    supplied by the application (PASSWORDACCESS prompt)\n");
}

} // namespace arca::tool
