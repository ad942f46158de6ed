// arca key import: takes the password of a node that another host exported.
#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/blob/files/file_layer.h"
#include "client/config/node_keys.h"
#include "client/store/keys/exported_key.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/nodes/key_verbs.h"
#include "tools/arca/secrets.h"
#include "tools/common/command/streams.h"

#include <filesystem>
#include <iostream>
#include <iterator>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

constexpr std::size_t kMostBytes = 65536;

struct Asked {
    std::string file;
    bool fromStandardInput = false;
};

Result<std::string> readInput(const std::string &name)
{
    std::string text(kMostBytes, '\0');
    if (name == "-") {
        std::cin.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::size_t>(std::cin.gcount()));
        return text;
    }
    std::error_code error;
    ARCA_TRY(const auto file,
             blob::systemFiles().open(std::filesystem::absolute(name, error).string()));
    ARCA_TRY(const std::size_t got, file->readAt(0, std::as_writable_bytes(std::span(text))));
    text.resize(got);
    return text;
}

/// Keeps the imported password, after checking that it is of this repository and holds there: a
/// wrong one would replace a kept password that holds.
Result<void> keep(const config::Options &options, store::Repository &repository,
                  const store::ExportedKey &key)
{
    if (key.repository != repository.uuid())
        return Error{ErrorKind::badArgument,
                     "the exported key is of another repository than " + repository.shownName()};
    return config::NodeKeys(options.file)
        .keep(repository.uuid(), key.node, key.password,
              [&](const std::string &password) -> Result<void> {
                  ARCA_CHECK(repository.authenticate(key.node, password));
                  return {};
              });
}

Result<void> importKey(const Command &command, const Asked &asked, Json &result)
{
    if (asked.file == "-" && asked.fromStandardInput)
        throw UsageError("standard input is either the key or the passphrase");
    ARCA_TRY(const config::Options options, optionsOf(command));
    if (options.passwordAccess == config::PasswordAccess::prompt)
        return Error{ErrorKind::badOption, "the option file " + options.file +
                                               " says PASSWORDACCESS prompt, so no password is "
                                               "kept beside it"};
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    ARCA_TRY(const std::string text, readInput(asked.file));
    ARCA_TRY(const store::SealedExport sealed, store::readExport(text));
    ARCA_TRY(std::string phrase, passphrase(asked.fromStandardInput));
    const WipedAtEnd wipingPhrase(phrase);
    ARCA_TRY(store::ExportedKey key, store::openExport(sealed, phrase));
    const WipedAtEnd wiping(key.password);
    ARCA_CHECK(keep(options, *repository, key));
    const std::string kept = config::NodeKeys(options.file).path();
    result["repository"] = repository->shownName();
    result["node"] = key.node;
    result["passwordFile"] = kept;
    if (!command.json)
        tools::print("Node {} can log on from here; its password is kept in {}\n",
                     printable(key.node), kept);
    return {};
}

} // namespace

void addKeyImport(tools::Verb verb, Command &command)
{
    const tools::Verb inner =
        verb.addVerb("import", "Take the password of a node that another host exported");
    auto asked = std::make_shared<Asked>();
    inner.addOption("FILE", asked->file, "What arca key export wrote; - is standard input")
        .required();
    inner.addFlag("--stdin", asked->fromStandardInput,
                  "Read the passphrase from standard input instead of the terminal");
    addCommonOptions(inner, command);
    inner.footer("Example: arca key import dbhost1.key\n"
                 "The option file names the same repository as on the other host.");
    inner.onChosen([&command, asked] {
        command.verb = "key import";
        command.run = [&command, asked](Json &result) {
            return importKey(command, *asked, result);
        };
    });
}

} // namespace arca::tool
