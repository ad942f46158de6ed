// keel bench: how fast this installation stores, and how much of it.
#include "client/blob/directory/location_text.h"
#include "tools/common/command/streams.h"
#include "tools/common/plot.h"
#include "tools/common/table.h"
#include "tools/common/terminal.h"
#include "tools/common/text.h"
#include "tools/keel/agent_options.h"
#include "tools/keel/bench/bench_processes.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/open_channel.h"
#include "tools/keel/command.h"
#include "tools/keel/option_lines.h"

#include <ctime>
#include <filesystem>
#include <optional>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace
{

namespace fs = std::filesystem;

struct Asked {
    BenchPlan plan;
    bool restore = false;
};

/// Removes the pieces that were stored, in its destructor: however the work ends.
class Leftovers
{
public:
    explicit Leftovers(const BenchPlan &plan) : plan_(plan) {}
    ~Leftovers()
    {
        try {
            remove();
        } catch (const std::exception &error) {
            try {
                tools::complain(fmt::format("keel bench: pieces named {}-... are left: {}\n",
                                            plan_.prefix, error.what()));
            } catch (const std::exception &) {
                return; // there is no way left to report it
            }
        }
    }
    Leftovers(const Leftovers &) = delete;
    Leftovers &operator=(const Leftovers &) = delete;

    /// Notes the names of a day's pieces, before the first of them is stored.
    void expect(unsigned day)
    {
        for (unsigned i = 0; i < plan_.channels; ++i)
            names_.push_back(plan_.pieceOf(day, i));
    }

    void remove()
    {
        std::vector<std::string> names;
        std::swap(names, names_);
        if (names.empty())
            return;
        const auto channel = openChannel(plan_.channel);
        std::vector<std::string> present;
        for (const PieceInfo &piece : channel->info(names)) {
            if (piece.found)
                present.push_back(piece.name);
        }
        if (!present.empty())
            channel->remove(present);
    }

private:
    const BenchPlan &plan_;
    std::vector<std::string> names_;
};

/// Returns the bytes in the repository, when it is a directory of this host.
std::optional<std::uint64_t> repositoryBytes()
{
    std::string repository;
    for (const auto &[keyword, value] : readOptionLines(AgentOptions().clientFile())) {
        if (keyword == "REPOSITORY")
            repository = value;
    }
    const auto directory = arca::blob::directoryNamed(repository);
    if (!directory)
        return std::nullopt;
    std::uint64_t bytes = 0;
    std::error_code error;
    fs::recursive_directory_iterator walk(*directory, fs::directory_options::skip_permission_denied,
                                          error);
    for (; !error && walk != fs::recursive_directory_iterator(); walk.increment(error)) {
        std::error_code gone; // another session may remove its temporary file meanwhile
        const std::uint64_t size = walk->is_regular_file(gone) ? walk->file_size(gone) : 0;
        bytes += gone ? 0 : size;
    }
    return error ? std::nullopt : std::optional(bytes);
}

double rateOf(std::uint64_t bytes, double seconds)
{
    return static_cast<double>(bytes) / std::max(seconds, 1e-6);
}

std::string rateText(double rate)
{
    return tools::byteText(rate) + "/s";
}

Json jsonOf(const BenchRound &round)
{
    Json channels = Json::array();
    for (const BenchChannel &channel : round.channels)
        channels.push_back({{"bytes", channel.last.bytes},
                            {"seconds", channel.last.seconds},
                            {"bytesPerSecond", rateOf(channel.last.bytes, channel.last.seconds)},
                            {"sourceSeconds", channel.last.sourceSeconds},
                            {"processorSeconds", channel.last.processorSeconds}});
    return {{"bytes", round.bytes()},
            {"seconds", round.seconds},
            {"bytesPerSecond", rateOf(round.bytes(), round.seconds)},
            {"processorSeconds", round.processorSeconds()},
            {"channels", std::move(channels)}};
}

void print(const std::string &title, const BenchRound &round,
           const std::optional<std::uint64_t> &stored)
{
    const bool terminal = tools::isTerminal(STDOUT_FILENO);
    tools::print("{}{}\n", title,
                 stored ? fmt::format(": stored {}", tools::byteText(static_cast<double>(*stored)))
                        : "");
    tools::Table table({{"CHANNEL"},
                        {"SIZE", tools::Align::kRight},
                        {"SECONDS", tools::Align::kRight},
                        {"RATE", tools::Align::kRight},
                        {"PROCESSOR", tools::Align::kRight},
                        {terminal ? "RATE OVER TIME" : ""}});
    const auto add = [&](const std::string &name, std::uint64_t bytes, double seconds,
                         double processor, const std::string &plot) {
        table.add({name, tools::byteText(static_cast<double>(bytes)),
                   fmt::format("{:.2f}", seconds), rateText(rateOf(bytes, seconds)),
                   fmt::format("{:.2f} s", processor), plot});
    };
    for (std::size_t i = 0; i < round.channels.size(); ++i) {
        const BenchChannel &channel = round.channels[i];
        add(std::to_string(i + 1), channel.last.bytes, channel.last.seconds,
            channel.last.processorSeconds,
            terminal ? tools::sparkline(channel.rates, 32) : std::string());
    }
    add("all", round.bytes(), round.seconds, round.processorSeconds(), "");
    tools::print("{}\n", table.text());
}

void printDays(const Json &days)
{
    std::vector<tools::PlotLine> lines;
    for (const Json &day : days) {
        if (!day["storedBytes"].is_number())
            return;
        const auto stored = day["storedBytes"].get<double>();
        lines.push_back(
            {fmt::format("Stored on day {}", lines.size()), stored, tools::byteText(stored)});
    }
    if (lines.size() > 1 && tools::isTerminal(STDOUT_FILENO))
        tools::print("{}", tools::barPlot(lines, tools::terminalWidth(STDOUT_FILENO)));
}

BenchPlan checkedPlan(const Asked &asked, const Command &command)
{
    BenchPlan plan = asked.plan;
    checkBlockSize(command, plan.blockSize);
    plan.channel = command.channel;
    plan.prefix = fmt::format("keel-bench-{}-{}", ::getpid(), std::time(nullptr));
    if (!plan.input.empty()) {
        std::error_code error;
        if (plan.days > 1)
            throw UsageError("--days is for blocks that are made, not for --input");
        plan.bytes = fs::file_size(plan.input, error);
        if (error)
            throw Failure(
                fmt::format("cannot read {}: {}", tools::printable(plan.input), error.message()));
    }
    if (plan.bytes / 8192 < plan.channels)
        throw UsageError("there is less than a block of 8 KiB for each channel");
    return plan;
}

BenchRound round(const BenchPlan &plan, BenchWork work, unsigned day, const Command &command)
{
    const std::string title = work == BenchWork::kBackup ? fmt::format("Day {}", day)
                                                         : fmt::format("Restore of day {}", day);
    tools::Progress progress(title, plan.bytes, command.quiet);
    return runBenchRound(plan, work, day, progress);
}

int run(const Asked &asked, const Command &command, Json &result)
{
    const BenchPlan plan = checkedPlan(asked, command);
    result["channels"] = plan.channels;
    result["blockSize"] = plan.blockSize;
    Json &days = result["days"] = Json::array();
    Leftovers leftovers(plan);
    std::optional<std::uint64_t> before = repositoryBytes();
    for (unsigned day = 0; day < plan.days; ++day) {
        leftovers.expect(day);
        const BenchRound done = round(plan, BenchWork::kBackup, day, command);
        const auto after = repositoryBytes();
        std::optional<std::uint64_t> stored;
        if (before && after)
            stored = *after - std::min(*after, *before);
        before = after;
        days.push_back(jsonOf(done));
        days.back()["storedBytes"] = stored ? Json(*stored) : Json(nullptr);
        if (!command.json)
            print(fmt::format("Day {}", day), done, stored);
    }
    if (asked.restore) {
        const BenchRound done = round(plan, BenchWork::kRestore, plan.days - 1, command);
        result["restore"] = jsonOf(done);
        if (!command.json)
            print(fmt::format("Restore of day {}, compared", plan.days - 1), done, std::nullopt);
    }
    if (!command.json)
        printDays(days);
    leftovers.remove();
    return kExitDone;
}

void addSize(tools::Verb verb, Asked &asked)
{
    verb.addOption("--size", asked.plan.bytes, "Bytes a day, of all channels (default: 1G)")
        .inBytes()
        .valueName("SIZE");
}

} // namespace

void addBench(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb(
        "bench", "Measure how fast pieces are stored here, by channels that work at the same time");
    auto asked = std::make_shared<Asked>();
    asked->plan.bytes = std::uint64_t{1} << 30;
    asked->plan.blockSize = kDefaultBlockSize;
    verb.addOption("--channels", asked->plan.channels,
                   "Processes, each with a channel (default: 1)")
        .between(1, 64)
        .valueName("N");
    addSize(verb, *asked);
    verb.addOption("--input,-i", asked->plan.input,
                   "Store this file, a part in each channel, instead of made-up database blocks")
        .valueName("FILE");
    verb.addOption("--days", asked->plan.days,
                   "Store the database again as it is later (default: 1)")
        .between(1, 365)
        .valueName("N");
    verb.addOption("--change-rate", asked->plan.changeRate,
                   "Per cent of the blocks that change in a day (default: 3)")
        .between(0.0, 100.0)
        .valueName("PERCENT");
    verb.addFlag("--restore", asked->restore, "Also read the last day's pieces back and compare");
    addBlockSize(verb, asked->plan.blockSize);
    addCommonOptions(verb, command);
    verb.footer(
        "Example: keel bench --channels 4 --size 4G --days 3 --restore\n"
        "It stores pieces in the repository that the options name, and removes them at the\n"
        "end, also when it is interrupted; arca reclaim gives their space back once their\n"
        "grace time is over, and arca reclaim --grace 0 at once. What is stored is told when the\n"
        "repository is a directory, and counts what others store meanwhile. Processor time is that "
        "of the channels, without making the data.");
    verb.onChosen([asked, &command] {
        command.verb = "bench";
        command.dataFile = asked->plan.input;
        command.run = [asked, &command](Json &result) { return run(*asked, command, result); };
    });
}

} // namespace keel
