// What an mtTimed costs: timing_scopes COUNT [on]. Opens and closes so many scopes, with measuring
// off unless it is to be on; `perf stat -e instructions:u` of two counts tells the instructions of
// one, which no other load touches.
#include "agents/common/maint/mttiming.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fputs("usage: timing_scopes COUNT [on]\n", stderr);
        return 2;
    }
    const long count = std::strtol(argv[1], nullptr, 10);
    mtMeasure(argc > 2);
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < count; ++i) {
        const mtTimed timed(MT_TIME_CLIENT);
        std::atomic_signal_fence(std::memory_order_seq_cst); // what a scope is there for
    }
    const std::chrono::duration<double, std::nano> passed =
        std::chrono::steady_clock::now() - start;
    std::printf("%ld scopes %s: %.2f ns each\n", count, argc > 2 ? "on" : "off",
                passed.count() / static_cast<double>(count > 0 ? count : 1));
    return 0;
}
