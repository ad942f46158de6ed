// What the verbs have in common.
#include "tools/arca/command.h"

#include "agents/common/maint/mtprompt.h"
#include "client/base/text.h"
#include "keel_paths.h"
#include "tools/arca/interrupt.h"
#include "tools/timing/timing.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include <fmt/format.h>

namespace arca::tool
{

constexpr const char *kInstalledOptionFile = KEEL_CLIENT_ROOT "/api/bin64/arca.opt";

void addCommonOptions(tools::Verb verb, Command &command)
{
    verb.addOption("--optfile", command.givenOptionFile,
                   std::string("Option file of the storage client (default: $ARCA_OPTFILE, else ") +
                       kInstalledOptionFile + ")")
        .valueName("FILE");
    verb.addOption("--log", command.logFile,
                   "Append a line about the outcome to this file, which wraps at 10 MiB")
        .valueName("FILE");
    verb.addFlag("--json", command.json, "Print one JSON object instead of text");
    tools::addTimingOption(verb, command.timing);
}

UsageError mixedOutput(const std::string &file)
{
    return UsageError("--json prints to standard output, which " + printable(file) +
                      " leads to, too; it needs an --output FILE of its own");
}

void beginJson(Command &command, const char *name, const Json &value)
{
    command.jsonBegun = true;
    std::printf("{\n  %s: %s,\n", Json(name).dump().c_str(), value.dump().c_str());
}

void addYesOption(tools::Verb verb, bool &yes)
{
    verb.addFlag("--yes,-y", yes, "Do not ask");
}

Result<void> confirm(const std::string &question, bool yes)
{
    if (yes)
        return {};
    catchInterrupts();
    bool agreed = false;
    mtAsk_t code = MT_ASK_NO_TERMINAL;
    if (::isatty(STDIN_FILENO) == 1)
        code = mtAskYesNo(question.c_str(), false, mtAskFrom::terminal, agreed);
    if (code == MT_ASK_NO_TERMINAL)
        throw UsageError("nobody is there to be asked; --yes does it without asking");
    if (code != MT_ASK_OK)
        return Error{ErrorKind::badArgument,
                     std::string("nothing was changed: ") + mtAskText(code)};
    if (!agreed)
        return Error{ErrorKind::badArgument, "nothing was changed"};
    return {};
}

std::string optionFileOf(const Command &command)
{
    if (!command.givenOptionFile.empty())
        return command.givenOptionFile;
    const char *named = std::getenv("ARCA_OPTFILE");
    return named != nullptr && *named != '\0' ? named : kInstalledOptionFile;
}

Result<config::Options> optionsOf(const Command &command)
{
    const std::string chosen = optionFileOf(command);
    // Kept passwords lie beside the option file, and messages show them with their full path.
    std::error_code error;
    const auto full = std::filesystem::absolute(chosen, error);
    auto read = config::readOptionFile(error ? chosen : full.lexically_normal().string());
    if (!read && !std::filesystem::exists(chosen, error))
        read.error().text += "; --optfile or ARCA_OPTFILE names another";
    ARCA_TRY(config::Options options, std::move(read));
    if (options.repository.empty())
        return Error{ErrorKind::badOption,
                     "the option file " + options.file + " names no REPOSITORY"};
    return options;
}

} // namespace arca::tool
