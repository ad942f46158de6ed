// The channels of keel bench as processes that work at the same time.
#ifndef KEEL_TOOLS_KEEL_BENCH_PROCESSES_H
#define KEEL_TOOLS_KEEL_BENCH_PROCESSES_H

#include "tools/common/progress.h"
#include "tools/keel/bench_channel.h"

#include <vector>

namespace keel
{

/// How a channel has fared.
struct BenchChannel {
    BenchReport last;
    std::vector<double> rates; ///< bytes in a second, one for each report
};

struct BenchRound {
    std::vector<BenchChannel> channels;
    double seconds = 0; ///< from the first process to the end of the last

    [[nodiscard]] std::uint64_t bytes() const;
    [[nodiscard]] double processorSeconds() const;
};

/// Runs all channels at once and waits for them. Failure when one of them fails, or a signal comes:
/// the others are ended first, and none is left. The calling process must not have loaded the
/// agent.
[[nodiscard]] BenchRound runBenchRound(const BenchPlan &plan, BenchWork work, unsigned day,
                                       tools::Progress &progress);

} // namespace keel

#endif
