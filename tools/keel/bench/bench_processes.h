// The channels of keel bench as processes that work at the same time.
#ifndef KEEL_TOOLS_KEEL_BENCH_BENCH_PROCESSES_H
#define KEEL_TOOLS_KEEL_BENCH_BENCH_PROCESSES_H

#include "tools/common/progress.h"
#include "tools/keel/bench/bench_channel.h"

#include <vector>

namespace keel
{

/// The course of one channel.
struct BenchChannel {
    BenchReport last;
    std::vector<double> rates; ///< bytes in a second, one for each report
};

struct BenchRound {
    std::vector<BenchChannel> channels;
    double seconds = 0; ///< from the start of the first process to the end of the last

    // Sums over all channels.
    [[nodiscard]] std::uint64_t bytes() const;
    [[nodiscard]] double processorSeconds() const;
};

/// Runs all channels at once and waits for them, adding their bytes to `progress`. Throws Failure,
/// with the SBT code of the channel, when one fails, or when a signal comes: the others are ended
/// (SIGTERM) and waited for first. Pieces that were committed stay; the caller removes them. The
/// calling process must not have loaded the agent, and must have one thread: it forks.
[[nodiscard]] BenchRound runBenchRound(const BenchPlan &plan, BenchWork work, unsigned day,
                                       tools::Progress &progress);

} // namespace keel

#endif
