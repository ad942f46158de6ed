// See timing.h.
#include "tools/timing/timing.h"

#include "agents/common/maint/mttiming.h"
#include "tools/common/table.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

namespace tools
{

namespace
{

struct Spent {
    std::string what;
    std::uint64_t calls;
    double seconds;
};

std::vector<Spent> spent()
{
    std::vector<Spent> all;
    for (unsigned i = 0; i < MT_TIME_CATEGORIES; ++i) {
        const auto category = static_cast<mtCategory_t>(i);
        const mtMeasured_t measured = mtMeasured(category);
        all.push_back({mtCategoryName(category), measured.count,
                       static_cast<double>(measured.nanoseconds) * 1e-9});
    }
    return all;
}

} // namespace

void addTimingOption(tools::Verb verb, bool &asked)
{
    verb.addFlag(
        "--timing",
        [&asked] {
            asked = true;
            mtMeasure(true);
        },
        "Tell at the end where the time went");
}

nlohmann::ordered_json timesJson()
{
    nlohmann::ordered_json told;
    for (const Spent &one : spent())
        told[one.what] = {{"calls", one.calls}, {"seconds", one.seconds}};
    return told;
}

std::string timesText(double jobSeconds)
{
    Table table(
        {{"TIME"}, {"CALLS", Align::kRight}, {"SECONDS", Align::kRight}, {"SHARE", Align::kRight}});
    for (const Spent &one : spent())
        table.add({one.what, std::to_string(one.calls), fmt::format("{:.3f}", one.seconds),
                   fmt::format("{:.0f} %", 100 * one.seconds / std::max(jobSeconds, 1e-6))});
    return table.text();
}

} // namespace tools
