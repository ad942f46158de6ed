// arca node passwd: a new password for a node that lost its own.
#include "client/base/crypto/hash.h"
#include "client/base/crypto/password.h"
#include "client/base/text.h"
#include "client/config/node_keys.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/nodes/node_verbs.h"
#include "tools/arca/secrets.h"
#include "tools/common/command/streams.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string node;
    bool recovery = false;
    bool fromStandardInput = false;
};

/// Gives the node a new password. With PASSWORDACCESS generate it is kept, durably, before the
/// repository knows it, beside the one that holds until then.
Result<void> changePassword(const Asked &asked, const config::Options &options,
                            store::Repository &repository, const SecretKey &key)
{
    const bool prompt = options.passwordAccess == config::PasswordAccess::prompt;
    ARCA_TRY(std::string password,
             prompt ? newPassword(asked.node, asked.fromStandardInput) : generatePassword());
    const auto change = [&] { return repository.nodes().recover(asked.node, key, password); };
    const auto prove = [&](const std::string &kept) -> Result<void> {
        ARCA_CHECK(repository.authenticate(asked.node, kept));
        return {};
    };
    auto done = prompt ? change()
                       : config::NodeKeys(options.file)
                             .recover(repository.uuid(), asked.node, password, prove, change);
    wipe(password);
    return done;
}

Result<void> recover(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    ARCA_TRY(const SecretKey key, recoveryKey(asked.fromStandardInput));
    // Proved before anything is asked for or replaced: a wrong recovery key must not cost the
    // password that is kept now.
    ARCA_CHECK(repository->nodes().recover(asked.node, key));
    ARCA_CHECK(changePassword(asked, options, *repository, key));

    const bool generate = options.passwordAccess == config::PasswordAccess::generate;
    const std::string kept = config::NodeKeys(options.file).path();
    result["repository"] = repository->shownName();
    result["node"] = asked.node;
    if (generate)
        result["passwordFile"] = kept;
    if (!command.json)
        tools::print("Node {} has a new password, {}\n", printable(asked.node),
                     generate ? "kept in " + kept + "; keep a copy in a safe place"
                              : "supplied by the application (PASSWORDACCESS prompt)");
    return {};
}

} // namespace

void addNodePasswd(tools::Verb verb, Command &command)
{
    const tools::Verb passwd =
        verb.addVerb("passwd", "Give a node whose password is lost a new one, by the recovery key");
    addCommonOptions(passwd, command);
    auto asked = std::make_shared<Asked>();
    passwd.addOption("NODE", asked->node, "Name of the node").required();
    passwd.addFlag("--recovery", asked->recovery, "Prove it with the recovery key").required();
    passwd.addFlag("--stdin", asked->fromStandardInput,
                   "Read the recovery key, and with PASSWORDACCESS prompt the new password, from "
                   "standard input: a line each");
    passwd.footer("Example: arca node passwd dbhost1 --recovery --optfile /etc/arca/main.opt\n"
                  "The recovery key is what arca init showed when it made the repository. What the "
                  "node has stored stays as it is.");
    passwd.onChosen([&command, asked] {
        command.verb = "node passwd";
        command.run = [&command, asked](Json &result) { return recover(command, *asked, result); };
    });
}

} // namespace arca::tool
