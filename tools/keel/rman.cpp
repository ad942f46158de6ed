// keel rman: prints the commands that make the database's backup tool use this installation.
#include "tools/common/command/streams.h"
#include "tools/keel/agent_options.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/command.h"

#include <filesystem>

#include <fmt/format.h>

namespace keel
{

namespace
{

struct Asked {
    unsigned channels = 1;
    std::string format = "%U";
    std::string duplicateFrom;
    bool runBlock = false;
};

/// Throws UsageError unless the text may be put in single quotes for the backup tool. `forbidden`
/// are further characters: within the parentheses of ENV commas and parentheses.
void checkQuotable(const std::string &what, const std::string &text, const char *forbidden)
{
    if (text.empty() || text.find_first_of(forbidden) != std::string::npos ||
        text.find_first_of("'\"\n\r\t") != std::string::npos)
        throw UsageError(fmt::format("{} '{}' cannot be written into a channel's parameters; "
                                     "choose one without quotes, commas and parentheses",
                                     what, text));
}

std::string absolute(const std::string &file)
{
    std::error_code error;
    const auto full = std::filesystem::absolute(file, error);
    return error ? file : full.lexically_normal().string();
}

std::string parmsOf(const ChannelOptions &channel, const AgentOptions &options)
{
    const std::string library = absolute(channel.library);
    const std::string file = absolute(options.file());
    checkQuotable("the agent", library, ",()");
    checkQuotable("the option file", file, ",()");
    return fmt::format("PARMS\n    'SBT_LIBRARY={},\n     ENV=(VELO_OPTFILE={})'", library, file);
}

std::string configureCommands(const Asked &asked, const std::string &parms)
{
    return fmt::format("CONFIGURE CHANNEL DEVICE TYPE 'SBT_TAPE' {}\n    FORMAT '{}';\n"
                       "CONFIGURE DEVICE TYPE 'SBT_TAPE' PARALLELISM {};\n"
                       "CONFIGURE DEFAULT DEVICE TYPE TO 'SBT_TAPE';\n",
                       parms, asked.format, asked.channels);
}

std::string runBlock(const Asked &asked, const std::string &parms)
{
    std::string block = "RUN {\n";
    for (unsigned i = 1; i <= asked.channels; ++i)
        block += fmt::format("  ALLOCATE CHANNEL c{} DEVICE TYPE 'SBT_TAPE' {}\n    FORMAT '{}';\n",
                             i, parms, asked.format);
    block += "  BACKUP DATABASE PLUS ARCHIVELOG;\n";
    for (unsigned i = 1; i <= asked.channels; ++i)
        block += fmt::format("  RELEASE CHANNEL c{};\n", i);
    return block + "}\n";
}

/// For pieces of another node, which must have granted this one access.
std::string duplicateBlock(const Asked &asked, const std::string &parms)
{
    std::string block = "RUN {\n";
    for (unsigned i = 1; i <= asked.channels; ++i)
        block += fmt::format("  ALLOCATE AUXILIARY CHANNEL a{} DEVICE TYPE 'SBT_TAPE' {}\n"
                             "    SEND '-asnode={}';\n",
                             i, parms, asked.duplicateFrom);
    return block + "  DUPLICATE TARGET DATABASE TO copy NOFILENAMECHECK;\n}\n";
}

int run(const Asked &asked, const Command &command, Json &result)
{
    checkQuotable("the format", asked.format, "");
    const AgentOptions options;
    const std::string parms = parmsOf(command.channel, options);
    if (!asked.duplicateFrom.empty()) {
        checkQuotable("the node", asked.duplicateFrom, ",() ");
        result["duplicate"] = duplicateBlock(asked, parms);
        if (!command.json)
            tools::print("# On {}, once, so that this node may read its pieces:\n"
                         "#     arca access grant THIS-NODE\n"
                         "# Here, connected to the auxiliary database (copy: its name):\n\n{}",
                         asked.duplicateFrom, duplicateBlock(asked, parms));
        return kExitDone;
    }
    result["configure"] = configureCommands(asked, parms);
    result["run"] = runBlock(asked, parms);
    if (!command.json)
        tools::print("{}",
                     asked.runBlock ? runBlock(asked, parms) : configureCommands(asked, parms));
    return kExitDone;
}

} // namespace

void addRman(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb(
        "rman", "Print the RMAN commands that configure channels for this installation");
    auto asked = std::make_shared<Asked>();
    verb.addOption("--channels", asked->channels,
                   "Channels that work at the same time (default: 1)")
        .between(1, 255)
        .valueName("N");
    verb.addFlag("--run", asked->runBlock, "A block for one backup instead of the configuration");
    verb.addOption("--format", asked->format, "Names of the pieces (default: %U)")
        .valueName("FORMAT");
    verb.addOption("--duplicate-from", asked->duplicateFrom,
                   "Duplicate a database whose pieces that node has stored")
        .valueName("NODE");
    addCommonOptions(verb, command);
    verb.footer(
        "Example: keel rman --channels 4 --optfile /etc/keel/velo.opt | rman target /\n"
        "It changes nothing by itself. Without --run the commands hold for every backup from "
        "then on.");
    verb.onChosen([asked, &command] {
        command.verb = "rman";
        command.run = [asked, &command](Json &result) { return run(*asked, command, result); };
    });
}

} // namespace keel
