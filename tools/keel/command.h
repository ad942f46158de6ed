// What the verbs have in common. A verb has a file of its own, adds itself to the program, and
// fails by throwing (failure.h). One thread.
#ifndef KEEL_TOOLS_KEEL_COMMAND_H
#define KEEL_TOOLS_KEEL_COMMAND_H

#include "tools/common/command/options.h"
#include "tools/keel/channel/channel.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace keel
{

using Json = nlohmann::ordered_json;

/// The command line, read: options that every verb takes, and the verb that was chosen.
struct Command {
    ChannelOptions channel;
    std::string optionFile; ///< empty: as the agent finds it
    bool json = false;
    bool quiet = false;
    std::string logFile;  ///< gets a line about the outcome; empty: no file does
    std::string dataFile; ///< that the verb reads or writes, as /dev/stdin; empty: none
    bool timing = false;  ///< of the verbs that transfer: show where the time went
    std::string verb;
    std::string subject; ///< for messages: the piece it is about; empty when there are several

    /// Does the work and returns the exit status. Fills the object that --json prints; prints for
    /// people itself when `json` is false. Throws Failure or UsageError.
    std::function<int(Json &)> run;
};

// Each adds its verb to the program.
void addBackup(tools::Verb app, Command &command);
void addRestore(tools::Verb app, Command &command);
void addBench(tools::Verb app, Command &command);
void addDoctor(tools::Verb app, Command &command);
void addInfo(tools::Verb app, Command &command);
void addPasswd(tools::Verb app, Command &command);
void addRman(tools::Verb app, Command &command);
void addRemove(tools::Verb app, Command &command);
void addTrace(tools::Verb app, Command &command);

/// Adds the options that every verb takes.
void addCommonOptions(tools::Verb verb, Command &command);

/// Adds --block-size, in bytes or with a unit, from 1 byte to 64 MiB.
void addBlockSize(tools::Verb verb, std::size_t &blockSize);

/// Throws UsageError for a block size that the second interface does not take. The first one gets
/// any size, so that the agent's own answer can be seen.
void checkBlockSize(const Command &command, std::size_t blockSize);

constexpr std::size_t kDefaultBlockSize = std::size_t{256} << 10;

/// Returns Command::subject for a verb that takes several names.
[[nodiscard]] std::string subjectOf(const std::vector<std::string> &names);

/// Adds the figures of a transfer to `result`. With --timing it adds where the time went, too, or
/// prints that on standard error when there is no --json.
void reportTransfer(const Command &command, Json &result, std::uint64_t bytes, double seconds);

} // namespace keel

#endif
