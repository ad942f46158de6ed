// What the verbs have in common. A verb has a file of its own, adds itself to the program, and
// fails by returning the Error of what it called. main() prints that, sets the exit status and
// prints the object of --json.
#ifndef KEEL_TOOLS_ARCA_COMMAND_H
#define KEEL_TOOLS_ARCA_COMMAND_H

#include "client/base/result.h"
#include "client/config/options.h"
#include "tools/common/command/options.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <stdexcept>
#include <string>

namespace arca::tool
{

using Json = nlohmann::ordered_json;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

/// The command line is wrong by itself, whatever the repository holds, or a question has nobody to
/// answer it; nothing was changed: exit status 2. What depends on the repository, the option file
/// or an answer is an Error: exit status 1.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// For --json with a file that leads to standard output, too.
[[nodiscard]] UsageError mixedOutput(const std::string &file);

/// The command line, read: options that every verb takes, and the verb that was chosen.
struct Command {
    std::string givenOptionFile; ///< by --optfile; empty: none was given
    bool json = false;
    bool ownJson = false;   // the verb printed its object itself, and perform() prints none
    bool jsonBegun = false; // beginJson() printed its first member, and perform() prints the rest
    std::string logFile;    ///< gets a line about the outcome; empty: no file does
    bool timing = false;    ///< show at the end where the time went
    std::string verb;

    /// Does the work. Fills the object that --json prints, and prints for people when there is no
    /// --json. May throw UsageError.
    std::function<Result<void>(Json &)> run;
};

// Each adds its verb to the program.
void addAccess(tools::Verb app, Command &command);
void addClass(tools::Verb app, Command &command);
void addExpire(tools::Verb app, Command &command);
void addGrace(tools::Verb app, Command &command);
void addInit(tools::Verb app, Command &command);
void addKey(tools::Verb app, Command &command);
void addLog(tools::Verb app, Command &command);
void addLs(tools::Verb app, Command &command);
void addMetrics(tools::Verb app, Command &command);
void addNode(tools::Verb app, Command &command);
void addReclaim(tools::Verb app, Command &command);
void addRepair(tools::Verb app, Command &command);
void addRm(tools::Verb app, Command &command);
void addShow(tools::Verb app, Command &command);
void addStats(tools::Verb app, Command &command);
void addUndelete(tools::Verb app, Command &command);
void addUnlock(tools::Verb app, Command &command);
void addVerify(tools::Verb app, Command &command);

/// Begins the object of --json with a member that must be shown before the work goes on; the object
/// that the verb fills does without it. The caller flushes standard output.
void beginJson(Command &command, const char *name, const Json &value);

/// Adds the options that every verb takes.
void addCommonOptions(tools::Verb verb, Command &command);

/// Adds --yes, for the verbs that destroy.
void addYesOption(tools::Verb verb, bool &yes);
/// Succeeds when `yes` is set, or a person answers yes on the terminal to the question, which says
/// what will be done. Before it asks it calls catchInterrupts(). Errors: badArgument ("nothing was
/// changed") for any other answer and for a signal. Throws UsageError when standard input is no
/// terminal, or there is none to ask on.
Result<void> confirm(const std::string &question, bool yes);

/// Returns the option file in force: that of --optfile, else that of ARCA_OPTFILE, else the
/// installed one. The environment is read here and never by the command-line library, which would
/// let it override the command line.
std::string optionFileOf(const Command &command);

/// Returns the options in force; `file` is the option file's full path. Errors: badOption, also
/// when they name no repository.
Result<config::Options> optionsOf(const Command &command);

} // namespace arca::tool

#endif
