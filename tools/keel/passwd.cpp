// keel passwd: writes the password file that the agent logs on with.
#include "tools/common/command/streams.h"
#include "tools/common/text.h"
#include "tools/keel/agent_options.h"
#include "tools/keel/channel/context_channel.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/command.h"
#include "tools/keel/password.h"

#include <filesystem>
#include <memory>

#include <fmt/format.h>

namespace keel
{

namespace
{

struct Place {
    std::string optionFile;
    std::string clientOptions;
    std::string node;
    std::filesystem::path directory;

    [[nodiscard]] std::filesystem::path file() const { return directory / ("VELO." + node); }
};

Place findPlace()
{
    const AgentOptions options;
    return {options.file(), options.clientFile(), options.value("VELO_NODE"),
            options.passwordDirectory()};
}

/// Throws Failure when the agent would not use a password file.
void checkNeeded(ContextChannel &channel, const Place &place)
{
    if (channel.clientKeepsPassword()) {
        throw Failure(fmt::format(
            "no password file is needed: the storage client keeps the password itself. To use "
            "one, set PASSWORDACCESS prompt in {}",
            tools::printable(place.clientOptions)));
    }
    if (place.node.empty()) {
        throw Failure(
            fmt::format("no password file is needed: {} names no node. To use one, set VELO_NODE "
                        "there and PASSWORDACCESS prompt in {}",
                        tools::printable(place.optionFile), tools::printable(place.clientOptions)));
    }
}

const char *meaning(std::uint16_t code)
{
    switch (code) {
    case 167:
        return "its directory cannot be made";
    case 2519:
        return "what was written could not be read back, so the file is as it was";
    case 2521:
        return "its directory cannot be used";
    default:
        return "the file cannot be written";
    }
}

void writeFile(ContextChannel &channel, Password &password, const Place &place)
{
    const std::string file = tools::printable(place.file().string());
    if (const std::uint16_t code = channel.updatePassword(password.data()); code != 0)
        throw Failure(fmt::format("cannot write {}: {} (code {})", file, meaning(code), code));
}

int run(bool fromStandardInput, const Command &command, Json &result)
{
    ContextChannel channel(command.channel);
    const Place place = findPlace();
    checkNeeded(channel, place);
    Password password;
    if (fromStandardInput)
        password.read();
    else
        password.ask(fmt::format("Password of node {}", tools::printable(place.node)));
    writeFile(channel, password, place);
    result["node"] = place.node;
    result["file"] = place.file().string();
    if (!command.json && !command.quiet) {
        tools::print("The password of node {} is in {}.\n"
                     "The agent logs on with it when these are set:\n"
                     "    in {}:\n"
                     "        VELO_NODE       {}\n"
                     "        VELO_PSWDPATH   {}\n"
                     "    in {}:\n"
                     "        PASSWORDACCESS  prompt\n",
                     tools::printable(place.node), tools::printable(place.file().string()),
                     tools::printable(place.optionFile), tools::printable(place.node),
                     tools::printable(place.directory.string()),
                     tools::printable(place.clientOptions));
    }
    return kExitDone;
}

} // namespace

void addPasswd(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb(
        "passwd", "Write the password file that the agent logs on with (PASSWORDACCESS prompt)");
    auto fromStandardInput = std::make_shared<bool>(false);
    verb.addFlag("--stdin", *fromStandardInput,
                 "Read the password, one line, from standard input and do not ask");
    addCommonOptions(verb, command);
    verb.footer(
        "Example: keel passwd --optfile /etc/keel/velo.opt\n"
        "Asks twice, without showing what is typed. The node is VELO_NODE of the option file; the\n"
        "password is written to VELO.<node> in VELO_PSWDPATH, else in HOXI_ORC_DIR. It has at\n"
        "most 64 characters, and is never taken from the command line, where others could see it.\n"
        "In the repository it is set with arca; this file must say the same.");
    verb.onChosen([fromStandardInput, &command] {
        command.verb = "passwd";
        command.run = [fromStandardInput, &command](Json &result) {
            return run(*fromStandardInput, command, result);
        };
    });
}

} // namespace keel
