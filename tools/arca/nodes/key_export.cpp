// arca key export: a node's password for another host, sealed under a passphrase.
#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/config/node_keys.h"
#include "client/store/keys/exported_key.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/nodes/key_verbs.h"
#include "tools/arca/secrets.h"
#include "tools/common/command/streams.h"
#include "tools/common/command/written_file.h"

#include <unistd.h>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string node, output = "-";
    bool fromStandardInput = false;
};

Result<std::string> keptPassword(const config::Options &options, store::Repository &repository,
                                 const std::string &node)
{
    if (options.passwordAccess == config::PasswordAccess::prompt)
        return Error{ErrorKind::noPassword,
                     "with PASSWORDACCESS prompt no password is kept here that could be exported"};
    return config::NodeKeys(options.file)
        .find(repository.uuid(), node, [&](const std::string &one) -> Result<void> {
            ARCA_CHECK(repository.authenticate(node, one));
            return {};
        });
}

Result<void> exportKey(const Command &command, const Asked &asked, Json &result)
{
    const bool isMixed = asked.output != "-" && tools::isMixed(asked.output, STDOUT_FILENO);
    if (isMixed && command.json)
        throw mixedOutput(asked.output);
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const std::string own, config::nodeNameFor(options));
    const std::string node = asked.node.empty() ? own : asked.node;
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    result["repository"] = repository->shownName();
    result["node"] = node;
    store::ExportedKey key{repository->uuid(), node, {}};
    const WipedAtEnd wiping(key.password);
    ARCA_TRY(key.password, keptPassword(options, *repository, node));
    ARCA_TRY(std::string phrase, newPassphrase(asked.fromStandardInput));
    const WipedAtEnd wipingPhrase(phrase);
    ARCA_TRY(const store::SealedExport sealed, store::sealExport(key, phrase));
    const std::string text = store::writtenExport(sealed);
    if (asked.output != "-") {
        tools::writeWhole(asked.output, text, {tools::Existing::keep, "", 0600, true});
        result["file"] = asked.output;
    } else if (command.json) {
        result["key"] = text;
    }
    if (!command.json && asked.output == "-")
        tools::print("{}", text);
    else if (!command.json && !isMixed)
        tools::print("The key of node {} is in {}; on the other host: arca key import {}\n",
                     printable(node), printable(asked.output), printable(asked.output));
    return {};
}

} // namespace

void addKeyExport(tools::Verb verb, Command &command)
{
    const tools::Verb inner =
        verb.addVerb("export", "Seal the password of a node under a passphrase, for another host");
    auto asked = std::make_shared<Asked>();
    inner.addOption("NODE", asked->node, "Name of the node; left out: that of the option file");
    inner.addOption("--output,-o", asked->output, "New file for it; - is standard output")
        .valueName("FILE")
        .showDefault();
    inner.addFlag("--stdin", asked->fromStandardInput,
                  "Read the passphrase from standard input instead of the terminal");
    addCommonOptions(inner, command);
    inner.footer("Example: arca key export --output dbhost1.key\n"
                 "Whoever has it and the passphrase can act as the node; take it another way than "
                 "the passphrase.");
    inner.onChosen([&command, asked] {
        command.verb = "key export";
        command.run = [&command, asked](Json &result) {
            return exportKey(command, *asked, result);
        };
    });
}

} // namespace arca::tool
