// What the verbs have in common.
#ifndef KEEL_TOOLS_KEEL_COMMAND_H
#define KEEL_TOOLS_KEEL_COMMAND_H

#include "tools/common/options.h"
#include "tools/keel/channel.h"

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
    std::string logFile; ///< a line about the outcome goes there; empty: nowhere
    bool timing = false; ///< of the verbs that transfer: show where the time went
    std::string verb;
    std::string subject; ///< for messages: the piece it is about; empty when there are several

    /// Does the work and returns the exit status. Fills the object that --json prints.
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

/// The options that every verb takes.
void addCommonOptions(tools::Verb verb, Command &command);

/// --block-size, in bytes or with a unit.
void addBlockSize(tools::Verb verb, std::size_t &blockSize);

/// UsageError for a block size that does not fit the interface in use. That of older databases gets
/// any, so that what the agent says to it can be seen.
void checkBlockSize(const Command &command, std::size_t blockSize);

constexpr std::size_t kDefaultBlockSize = std::size_t{256} << 10;

/// The subject of a verb that takes several names.
[[nodiscard]] std::string subjectOf(const std::vector<std::string> &names);

/// The end of a transfer: for --json, and with --timing where the time went.
void reportTransfer(const Command &command, Json &result, std::uint64_t bytes, double seconds);

} // namespace keel

#endif
