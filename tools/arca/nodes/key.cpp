// arca key: looks after keys; arca key check says whether a recovery key is the right one.
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/nodes/key_verbs.h"
#include "tools/arca/secrets.h"
#include "tools/common/command/streams.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

Result<void> check(const Command &command, bool fromStandardInput, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    ARCA_TRY(const auto expected, store::recoveryHalf(repository->blobs()));
    ARCA_TRY(const SecretKey key, recoveryKey(fromStandardInput));
    ARCA_TRY(const store::PublicKey half, store::publicHalfOf(key));
    result["repository"] = repository->shownName();
    if (!expected || *expected != half)
        return Error{ErrorKind::authentication,
                     "this is not the recovery key of the repository " + repository->shownName()};
    if (!command.json)
        tools::print("This is the recovery key of the repository {}\n", repository->shownName());
    return {};
}

} // namespace

void addKey(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("key", "Look after the keys of nodes and of the repository");
    verb.requireVerb();
    verb.footer("Example: arca key export --output dbhost1.key");
    addKeyExport(verb, command);
    addKeyImport(verb, command);
    const tools::Verb checking =
        verb.addVerb("check", "Tell whether a recovery key is that of the repository");
    addCommonOptions(checking, command);
    auto fromStandardInput = std::make_shared<bool>(false);
    checking.addFlag("--stdin", *fromStandardInput,
                     "Read the key from standard input instead of the terminal");
    checking.footer("Example: arca key check --optfile /etc/arca/main.opt\n"
                    "Type the key as arca init showed it; blanks and case do not matter.");
    checking.onChosen([&command, fromStandardInput] {
        command.verb = "key check";
        command.run = [&command, fromStandardInput](Json &result) {
            return check(command, *fromStandardInput, result);
        };
    });
}

} // namespace arca::tool
