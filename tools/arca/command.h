// What the verbs have in common. A verb lives in a file of its own, adds itself to the program, and
// fails by returning the Error of what it called.
#ifndef KEEL_TOOLS_ARCA_COMMAND_H
#define KEEL_TOOLS_ARCA_COMMAND_H

#include "client/base/result.h"
#include "client/config/options.h"
#include "tools/common/options.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <stdexcept>
#include <string>

namespace arca::tool
{

using Json = nlohmann::ordered_json;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

/// The program was used wrongly, as only the work could tell: exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The command line, read: options that every verb takes, and the verb that was chosen.
struct Command {
    std::string givenOptionFile; ///< by --optfile; empty: none was given
    bool json = false;
    bool ownJson = false; // the verb printed its object itself, and perform() prints none
    std::string logFile;  ///< a line about the outcome goes there; empty: nowhere
    bool timing = false;  ///< the end shows where the time went
    std::string verb;

    /// Does the work. Fills the object that --json prints, and prints for people when there is no
    /// --json.
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

/// The options that every verb takes.
void addCommonOptions(tools::Verb verb, Command &command);

/// --yes, of the verbs that destroy.
void addYesOption(tools::Verb verb, bool &yes);
/// Goes on when `yes`, or when a person answers so to the question, which says what will be done.
/// Throws UsageError when nobody is there to be asked.
Result<void> confirm(const std::string &question, bool yes);

/// The option file in force: that of --optfile, else that of ARCA_OPTFILE, else the installed one.
/// The environment is read here and never by the command-line library, which lets it replace what
/// was given to a verb with what it reads for the others.
std::string optionFileOf(const Command &command);

/// The options in force; `badOption` also when they name no repository.
Result<config::Options> optionsOf(const Command &command);

} // namespace arca::tool

#endif
