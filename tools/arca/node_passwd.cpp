// arca node passwd: a new password for a node that lost its own.
#include "client/base/hash.h"
#include "client/base/password.h"
#include "client/base/text.h"
#include "client/config/node_keys.h"
#include "client/store/repository.h"
#include "tools/arca/node_verbs.h"
#include "tools/arca/secrets.h"

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

/// Returns the new password. With PASSWORDACCESS generate it replaces the kept one, durably, before
/// the repository knows it: after a run that stops in between the node cannot log on until the verb
/// is run again.
Result<std::string> freshPassword(const Asked &asked, const config::Options &options,
                                  const std::string &uuid)
{
    if (options.passwordAccess == config::PasswordAccess::prompt)
        return newPassword(asked.node, asked.fromStandardInput);
    ARCA_TRY(std::string password, generatePassword());
    auto kept = config::NodeKeys(options.file).keep(uuid, asked.node, password);
    if (kept)
        return password;
    wipe(password);
    return std::move(kept).error();
}

Result<void> recover(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    ARCA_TRY(const SecretKey key, recoveryKey(asked.fromStandardInput));
    // Proved before anything is asked for or replaced: a wrong recovery key must not cost the
    // password that is kept now.
    ARCA_CHECK(repository->nodes().recover(asked.node, key));
    ARCA_TRY(std::string password, freshPassword(asked, options, repository->uuid()));
    auto done = repository->nodes().recover(asked.node, key, password);
    wipe(password);
    ARCA_CHECK(std::move(done));

    const bool generate = options.passwordAccess == config::PasswordAccess::generate;
    const std::string kept = config::NodeKeys(options.file).path();
    result["repository"] = repository->shownName();
    result["node"] = asked.node;
    if (generate)
        result["passwordFile"] = kept;
    if (!command.json)
        fmt::print("Node {} has a new password, {}\n", printable(asked.node),
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
