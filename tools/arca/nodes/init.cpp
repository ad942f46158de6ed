// arca init: makes the repository that an option file names, and registers the node. What is there
// already is left as it is, so that running it again does no harm and finishes an interrupted run.
#include "client/base/crypto/hash.h"
#include "client/base/crypto/password.h"
#include "client/base/text.h"
#include "client/config/node_keys.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/command.h"
#include "tools/arca/nodes/registration.h"
#include "tools/common/command/streams.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

// The key stands alone on its line: it is copied, and typed again, as a whole.
constexpr auto kRecoveryText =
    "Recovery    write down the key in the next line, and keep it away from this machine\n"
    "{}\n"
    "            It is shown this once and kept nowhere. When the password of a node is lost,\n"
    "            it gives the node a new one (arca node passwd); without it, what that node\n"
    "            has stored is lost, too. Whoever has it can read everything in the repository.\n";

struct Opened {
    std::unique_ptr<store::Repository> repository;
    bool made;
};

Result<Opened> openOrMake(const std::string &location)
{
    auto opened = store::Repository::open(location);
    if (opened) {
        ARCA_CHECK((*opened)->writeDefaults());
        return Opened{std::move(opened).value(), false};
    }
    if (opened.error().kind != ErrorKind::noRepository)
        return std::move(opened).error();
    ARCA_TRY(auto made, store::Repository::create(location));
    return Opened{std::move(made), true};
}

/// Shows the recovery key before the repository gets its public half, so that no key is in force
/// that was never shown. After a run that stopped in between the next one makes and shows another
/// key.
Result<void> makeRecoveryKey(store::Repository &repository, Command &command)
{
    ARCA_TRY(const auto present, store::recoveryHalf(repository.blobs()));
    if (present)
        return {};
    ARCA_TRY(const SecretKey key, SecretKey::random());
    ARCA_TRY(const store::PublicKey half, store::publicHalfOf(key));
    ARCA_TRY(std::string written, store::writtenRecoveryKey(key));
    if (command.json)
        beginJson(command, "recoveryKey", written);
    else
        tools::print(kRecoveryText, written);
    wipe(written);
    if (!tools::isPrinted())
        return Error{ErrorKind::io, "the recovery key cannot be shown on standard output"};
    auto published = store::publishRecoveryHalf(repository.blobs(), half);
    if (!published && published.error().kind == ErrorKind::exists)
        return Error{ErrorKind::conflict,
                     "another arca init made the recovery key at the same time: the one that was "
                     "shown here is worth nothing; run it again"};
    return published;
}

Result<void> init(Command &command, bool fromStandardInput, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const std::string node, config::nodeNameFor(options));
    ARCA_TRY(const Opened opened, openOrMake(options.repository));
    store::Repository &repository = *opened.repository;
    result["repository"] = repository.shownName();
    result["uuid"] = repository.uuid();
    result["made"] = opened.made;
    if (!command.json)
        tools::print("Repository  {} ({})\n", repository.shownName(),
                     opened.made ? "made now" : "was there, left as it is");
    ARCA_CHECK(makeRecoveryKey(repository, command));
    ARCA_TRY(const bool registered, registerNode(repository, options, node, fromStandardInput));
    repository.blobs().keepReserve();

    result["node"] = node;
    result["registered"] = registered;
    if (options.passwordAccess == config::PasswordAccess::generate)
        result["passwordFile"] = config::NodeKeys(options.file).path();
    if (command.json)
        return {};
    showRegistration(options, node, registered);
    return {};
}

} // namespace

void addInit(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb(
        "init", "Make the repository that the option file names, and register this node");
    addCommonOptions(verb, command);
    auto fromStandardInput = std::make_shared<bool>(false);
    verb.addFlag("--stdin", *fromStandardInput,
                 "With PASSWORDACCESS prompt: read the new password from standard input");
    verb.footer("Example: arca init --optfile /etc/arca/main.opt\n"
                "Safe to run again: what is there already is left as it is.");
    verb.onChosen([&command, fromStandardInput] {
        command.verb = "init";
        command.run = [&command, fromStandardInput](Json &result) {
            return init(command, *fromStandardInput, result);
        };
    });
}

} // namespace arca::tool
