// arca: looks after the repository.
#include "agents/common/maint/mtwrap.h"
#include "client/base/text.h"
#include "tools/arca/command.h"
#include "tools/common/command/command_line.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"
#include "tools/timing/timing.h"

#include <chrono>
#include <cstdio>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

void complain(const Command &command, const std::string &text)
{
    tools::complain(fmt::format("arca {}: {}\n", command.verb, printable(text, 4000)));
}

/// Appends the outcome to the log. A failure is reported and does not change the exit status: the
/// verb's work is done.
void logOutcome(const Command &command, const std::string &outcome)
{
    if (command.logFile.empty())
        return;
    const std::string line = tools::outcomeLine("arca", command.verb, outcome);
    mtWrapLimits_t limits;
    limits.isLog = tools::isOutcomeLine;
    if (const int error = mtWrapAppend(command.logFile.c_str(), limits, line); error != 0)
        complain(command,
                 fmt::format("cannot write {}: {}", command.logFile, tools::logFailureText(error)));
}

int runVerb(const Command &command, Json &result)
{
    Result<void> done = Error{ErrorKind::internal, "the verb was not run"};
    int status = kExitFailed;
    try {
        done = command.run(result);
    } catch (const UsageError &error) {
        done = Error{ErrorKind::badArgument, error.what()};
        status = kExitUsage;
    } catch (const std::exception &error) {
        done = Error{ErrorKind::internal, error.what()};
    }
    if (done)
        return 0;
    logOutcome(command, done.error().text);
    result["ok"] = false;
    result["error"] = done.error().text;
    complain(command, done.error().text);
    return status;
}

int perform(const Command &command)
{
    Json result = {{"verb", command.verb}, {"ok", true}};
    const auto began = std::chrono::steady_clock::now();
    const int status = runVerb(command, result);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - began;
    if (command.timing && command.json)
        result["timing"] = tools::timesJson();
    else if (command.timing)
        tools::complain(tools::timesText(passed.count()));
    if (command.json && !command.ownJson) {
        const std::string object = result.dump(2, ' ', false, Json::error_handler_t::replace);
        std::puts(object.c_str() + (command.jsonBegun ? object.find('\n') + 1 : 0));
    }
    const bool written = tools::isPrinted();
    if (status != 0)
        return status;
    logOutcome(command, written ? "done" : tools::kReportUnwritten);
    if (written)
        return 0;
    complain(command, tools::kReportUnwritten);
    return kExitFailed;
}

} // namespace

} // namespace arca::tool

int main(int argc, char **argv)
{
    tools::secureStandardStreams();
    tools::Program app(
        "arca", "Looks after the repository in which the storage client keeps backup pieces.");
    app.requireVerb();
    app.footer(
        "Example: arca init --optfile /etc/arca/main.opt\n"
        "Exit status: 0 done; 1 failed, or refused by what is there, the reason in one line; 2 the "
        "command line is wrong by itself, or a question has nobody to answer it, and nothing was "
        "begun.\n"
        "arca VERB --help tells more of a verb.");
    arca::tool::Command command;
    arca::tool::addAccess(app, command);
    arca::tool::addClass(app, command);
    arca::tool::addExpire(app, command);
    arca::tool::addGrace(app, command);
    arca::tool::addInit(app, command);
    arca::tool::addKey(app, command);
    arca::tool::addLog(app, command);
    arca::tool::addLs(app, command);
    arca::tool::addMetrics(app, command);
    arca::tool::addNode(app, command);
    arca::tool::addReclaim(app, command);
    arca::tool::addRepair(app, command);
    arca::tool::addRm(app, command);
    arca::tool::addShow(app, command);
    arca::tool::addStats(app, command);
    arca::tool::addUndelete(app, command);
    arca::tool::addUnlock(app, command);
    arca::tool::addVerify(app, command);
    int status = 0;
    if (!app.read("arca 7.1.3.0", argc, argv, status))
        return status;
    return arca::tool::perform(command);
}
