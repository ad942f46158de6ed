// What one channel of keel bench does, in a process of its own, and what it reports to the process
// that started it.
#ifndef KEEL_TOOLS_KEEL_BENCH_BENCH_CHANNEL_H
#define KEEL_TOOLS_KEEL_BENCH_BENCH_CHANNEL_H

#include "tools/keel/channel/channel.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace keel
{

struct BenchPlan {
    ChannelOptions channel;
    unsigned channels = 1;
    std::uint64_t bytes = 0; ///< of all channels
    std::size_t blockSize = 0;
    unsigned days = 1;
    double changeRate = 3.0; ///< per cent of the database blocks, from day to day
    std::string input;       ///< file to store; empty: data are generated
    std::string prefix;      ///< of the pieces' names

    /// Returns the name of the piece that the channel stores on that day, "PREFIX-DAY-N"; channels
    /// count from 0, N from 1.
    [[nodiscard]] std::string pieceOf(unsigned day, unsigned channelNumber) const;
};

enum class BenchWork { kBackup, kRestore };

/// One record on the pipe between the two: no larger than PIPE_BUF, so that it arrives whole.
struct BenchReport {
    enum Kind : std::uint32_t { kProgress, kDone, kFailed } kind = kProgress;
    std::uint32_t sbtCode = 0;
    std::uint64_t bytes = 0;     ///< so far
    double seconds = 0;          ///< since the channel was opened
    double sourceSeconds = 0;    ///< of these, making or reading what is stored
    double processorSeconds = 0; ///< of the process, less those of making or reading
    char text[400] = "";         ///< why it failed, cut to fit
};

/// Does the work and reports to the descriptor, the last time with kDone or kFailed; throws nothing
/// of its own. When the descriptor's reader is gone, it gives the piece up. For a new process that
/// has not loaded the agent; it installs signal handlers.
void runBenchChannel(const BenchPlan &plan, BenchWork work, unsigned day, unsigned channelNumber,
                     int descriptor);

} // namespace keel

#endif
