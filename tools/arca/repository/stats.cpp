// arca stats: what the node keeps, in numbers.
#include "agents/common/maint/mttiming.h"
#include "client/store/upkeep/statistics.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/common/command/streams.h"
#include "tools/common/plot.h"
#include "tools/common/terminal.h"
#include "tools/common/text.h"

#include <algorithm>
#include <unistd.h>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

constexpr std::int64_t kDay = 86400;
constexpr std::size_t kPlotDays = 14;

/// Returns the bytes that compressing saved, less those that sealing added.
std::uint64_t compressionBytes(const store::PieceSums &sums)
{
    return sums.newBytes - std::min(sums.newBytes, sums.storedBytes);
}

std::string dayText(std::int64_t day)
{
    return tools::utcTimeText(day * kDay).substr(0, 10);
}

Json jsonOf(const store::PieceSums &sums)
{
    return {{"pieces", sums.pieces},
            {"logicalBytes", sums.streamBytes},
            {"storedBytes", sums.storedBytes},
            {"savedByZeros", sums.zeroBytes},
            {"savedByDuplicates", sums.duplicateBytes},
            {"savedByCompression", compressionBytes(sums)}};
}

void fill(const store::Statistics &statistics, Json &result)
{
    result.update(jsonOf(statistics.all));
    result["manifestBytes"] = statistics.manifestBytes;
    result["packs"] = statistics.packs;
    result["packBytes"] = statistics.packBytes;
    result["unreadable"] = statistics.unreadable;
    result["damagedParts"] = statistics.damagedParts;
    result["quarantined"] = statistics.quarantined;
    Json &days = result["days"] = Json::array();
    for (const auto &[day, sums] : statistics.days) {
        Json line = {{"day", dayText(day)}};
        line.update(jsonOf(sums));
        days.push_back(std::move(line));
    }
}

/// Plots the last days on which something was stored, each with a bar of the bytes that it added.
void plot(const std::map<std::int64_t, store::PieceSums> &days)
{
    std::vector<tools::PlotLine> lines;
    auto from = days.end();
    for (std::size_t i = 0; i < kPlotDays && from != days.begin(); ++i)
        --from;
    for (; from != days.end(); ++from) {
        const store::PieceSums &sums = from->second;
        lines.push_back({dayText(from->first), static_cast<double>(sums.storedBytes),
                         fmt::format("{:>14}  {:>10} logical  {:>10} stored",
                                     tools::counted(sums.pieces, "piece"),
                                     sizeText(sums.streamBytes), sizeText(sums.storedBytes))});
    }
    if (!lines.empty())
        tools::print("\n{}", tools::barPlot(lines, tools::terminalWidth(STDOUT_FILENO)));
}

void print(const store::Statistics &statistics)
{
    const store::PieceSums &all = statistics.all;
    const auto row = [&](const char *label, std::uint64_t bytes, const char *what) {
        const double share = all.streamBytes == 0 ? 0.0
                                                  : 100.0 * static_cast<double>(bytes) /
                                                        static_cast<double>(all.streamBytes);
        tools::print("{:<12}{:>10}  {:5.1f} %  {}\n", label, sizeText(bytes), share, what);
    };
    tools::print("{:<12}{:>10}\n", "Pieces", all.pieces);
    row("Logical", all.streamBytes, "as the application sent them");
    row("Zeros", all.zeroBytes, "not stored");
    row("Duplicates", all.duplicateBytes, "not stored, they were there already");
    row("Compression", compressionBytes(all), "saved on what was new");
    row("Stored", all.storedBytes, "for these pieces");
    row("Manifests", statistics.manifestBytes, "of these pieces");
    row("Packs", statistics.packBytes,
        fmt::format("in {}, with what no piece needs any more",
                    tools::counted(statistics.packs, "pack"))
            .c_str());
    if (statistics.unreadable != 0)
        tools::print("{} cannot be read: arca verify names what is damaged\n",
                     tools::counted(statistics.unreadable, "piece or pack", "pieces or packs"));
    if (statistics.damagedParts != 0)
        tools::print("{} of packs {} damaged: arca repair mends what has copies\n",
                     tools::counted(statistics.damagedParts, "part"),
                     statistics.damagedParts == 1 ? "is" : "are");
    if (statistics.quarantined != 0)
        tools::print("{} set aside, damaged: arca reclaim names what it keeps for that\n",
                     tools::counted(statistics.quarantined, "manifest is", "manifests are"));
    plot(statistics.days);
}

Result<void> showStats(const Command &command, bool fromStandardInput, Json &result)
{
    ARCA_TRY(const NodeSession session, logOn(command, fromStandardInput, result));
    const mtTimed timed(MT_TIME_CLIENT);
    ARCA_TRY(const store::Statistics statistics,
             store::gatherStatistics(*session.space, shownProgress("Counting")));
    fill(statistics, result);
    if (!command.json)
        print(statistics);
    return {};
}

} // namespace

void addStats(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb(
        "stats", "Show how much this node keeps, and what duplicates and compression save");
    addCommonOptions(verb, command);
    auto fromStandardInput = std::make_shared<bool>(false);
    addPasswordOption(verb, *fromStandardInput);
    verb.footer("Example: arca stats --json\n"
                "With a bar for each of the last days: what was stored for its pieces.\n"
                "It is about what NODENAME keeps itself; ASNODE changes nothing.");
    verb.onChosen([&command, fromStandardInput] {
        command.verb = "stats";
        command.run = [&command, fromStandardInput](Json &result) {
            return showStats(command, *fromStandardInput, result);
        };
    });
}

} // namespace arca::tool
