// See times.h.
#include "tools/common/times.h"

#include "tools/common/table.h"

#include <algorithm>

#include <fmt/format.h>

namespace tools
{

std::string timesText(const std::vector<Spent> &all, double jobSeconds)
{
    Table table(
        {{"TIME"}, {"CALLS", Align::kRight}, {"SECONDS", Align::kRight}, {"SHARE", Align::kRight}});
    for (const Spent &one : all)
        table.add({one.what, std::to_string(one.calls), fmt::format("{:.3f}", one.seconds),
                   fmt::format("{:.0f} %", 100 * one.seconds / std::max(jobSeconds, 1e-6))});
    return table.text();
}

} // namespace tools
