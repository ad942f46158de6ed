// keel: drives the agent as the database's backup tool does.
#include "agents/common/maint/mtwrap.h"
#include "keel_paths.h"
#include "tools/common/command/command_line.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"
#include "tools/keel/agent_options.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/interrupt.h"
#include "tools/keel/command.h"
#include "tools/keel/trace_file.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

namespace keel
{

namespace
{

namespace fs = std::filesystem;

/// Returns the agent of the installation that this program belongs to, else the one of the
/// compiled-in place.
std::string defaultLibrary(const char *program)
{
    std::error_code error;
    fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error)
        self = fs::canonical(program, error);
    if (!error) {
        const fs::path beside = self.parent_path() / "../oracle/bin64/libobk.so";
        if (fs::exists(beside, error))
            return fs::weakly_canonical(beside, error).string();
    }
    return KEEL_CLIENT_ROOT "/oracle/bin64/libobk.so";
}

void chooseOptionFile(const std::string &file)
{
    // Refused here, because the agent would silently ignore it and take the installed file, which
    // may lead to another repository.
    constexpr std::size_t kLongest = 1024;
    if (isQuoted(file))
        throw UsageError(fmt::format("the agent would take the quotation marks off {} and read "
                                     "another file; give it with its directory, as ./{}",
                                     tools::printable(file), tools::printable(file)));
    const char *inherited = std::getenv("VELO_OPTFILE");
    if (file.size() > kLongest)
        throw UsageError("the name of the option file is longer than 1024 characters");
    if (file.empty() && inherited && std::strlen(inherited) > kLongest)
        throw UsageError("the name of the option file in VELO_OPTFILE is longer than 1024 "
                         "characters; unset it or give --optfile");
    if (!file.empty() && ::setenv("VELO_OPTFILE", file.c_str(), 1) != 0)
        throw Failure("not enough memory");
}

void printJson(const Json &result)
{
    // Names are bytes: one that is no UTF-8 must not make the whole object unreadable.
    std::puts(result.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

/// Appends the outcome to the log. A failure is reported and does not change the exit status: the
/// verb's work is done.
void logOutcome(const Command &command, const std::string &outcome)
{
    if (command.logFile.empty())
        return;
    const std::string work = command.verb + (command.subject.empty() ? "" : " " + command.subject);
    const std::string line = tools::outcomeLine("keel", work, outcome);
    mtWrapLimits_t limits;
    limits.isLog = tools::isOutcomeLine;
    if (const int error = mtWrapAppend(command.logFile.c_str(), limits, line); error != 0)
        tools::complain(fmt::format("keel {}: cannot write {}: {}\n", command.verb,
                                    tools::printable(command.logFile),
                                    tools::logFailureText(error)));
}

int report(const Command &command, Json &result, const std::string &text, std::uint32_t sbtCode,
           int status = kExitFailed)
{
    logOutcome(command, text);
    if (command.json) {
        result["ok"] = false;
        if (sbtCode != 0)
            result["sbtCode"] = sbtCode;
        result["error"] = text;
        printJson(result);
    }
    tools::complain(fmt::format("keel {}{}{}: {}{}\n", command.verb,
                                command.subject.empty() ? "" : " ",
                                tools::printable(command.subject),
                                sbtCode != 0 ? fmt::format("SBT {}: ", sbtCode) : "", text));
    return status;
}

/// Prints and logs how the verb ended, and returns the exit status: that of the verb, or a failure
/// when its report cannot be written. What the verb did is done all the same, and the line says so.
int conclude(const Command &command, Json &result, int status)
{
    result["ok"] = status == kExitDone;
    if (command.json)
        printJson(result);
    const bool written = tools::isPrinted();
    if (!written)
        tools::complain(fmt::format("keel {}: {}\n", command.verb, tools::kReportUnwritten));
    logOutcome(command, !written              ? tools::kReportUnwritten
                        : status == kExitDone ? "done"
                                              : "not all of it was found");
    return written ? status : kExitFailed;
}

int perform(Command &command, const char *program)
{
    Json result = {{"verb", command.verb}, {"ok", true}};
    try {
        chooseOptionFile(command.optionFile);
        if (command.channel.library.empty())
            command.channel.library = defaultLibrary(program);
        expectTraceFile(command.channel.traceFile, {command.dataFile, command.logFile});
        const std::string log = std::exchange(command.logFile, {}); // a refusal is not logged there
        expectLogFile(log, command.dataFile);
        command.logFile = log;
        catchInterrupts();
        return conclude(command, result, command.run(result));
    } catch (const UsageError &error) {
        return report(command, result, error.what(), 0, kExitUsage);
    } catch (const Failure &error) {
        return report(command, result, error.what(), error.sbtCode());
    } catch (const std::exception &error) {
        return report(command, result, error.what(), 0);
    }
}

} // namespace

} // namespace keel

int main(int argc, char **argv)
{
    tools::secureStandardStreams();
    tools::Program app(
        "keel", "Drives the KEEL for Oracle agent, libobk.so, as the database's backup tool does:\n"
                "stores, restores, describes and removes backup pieces.");
    app.requireVerb();
    app.footer(
        "Example: keel backup data-monday --input data.dbf\n"
        "Exit status: 0 done; 1 failed, or refused by what is there, the reason in one line; 2 the "
        "command line is wrong by itself, or a question has nobody to answer it, and nothing was "
        "begun.\n"
        "keel VERB --help tells more of a verb.");
    keel::Command command;
    app.addFlag("--sbt1", command.channel.firstVersion,
                "Use the interface of older databases, its first version: keel --sbt1 VERB ...");
    keel::addBackup(app, command);
    keel::addRestore(app, command);
    keel::addInfo(app, command);
    keel::addRemove(app, command);
    keel::addPasswd(app, command);
    keel::addRman(app, command);
    keel::addDoctor(app, command);
    keel::addBench(app, command);
    keel::addTrace(app, command);
    int status = keel::kExitDone;
    if (!app.read("keel 7.1.3.0", argc, argv, status))
        return status;
    return keel::perform(command, argv[0]);
}
