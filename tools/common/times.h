// Where the time of a job went, as both programs show it.
#ifndef KEEL_TOOLS_COMMON_TIMES_H
#define KEEL_TOOLS_COMMON_TIMES_H

#include <cstdint>
#include <string>
#include <vector>

namespace tools
{

struct Spent {
    std::string what;
    std::uint64_t calls = 0;
    double seconds = 0;
};

/// A line for each, with its share of the whole job.
std::string timesText(const std::vector<Spent> &all, double jobSeconds);

} // namespace tools

#endif
