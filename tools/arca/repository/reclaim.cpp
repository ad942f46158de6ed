// arca reclaim: frees the space of what no piece needs any more.
#include "client/store/upkeep/reclaim.h"
#include "agents/common/maint/mttiming.h"

#include "client/base/text.h"
#include "client/blob/temporary_name.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/arca/repository/grace.h"
#include "tools/common/command/streams.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"

#include <limits>
#include <optional>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

std::string sizeText(std::uint64_t bytes)
{
    if (bytes < (std::uint64_t{1} << 20))
        return tools::counted(bytes, "byte");
    return fmt::format("{:.1f} MiB", static_cast<double>(bytes) / (1 << 20));
}

Json jsonOf(const store::ReclaimTotals &totals)
{
    return {{"purgedPieces", totals.purgedPieces},
            {"purgedDamaged", totals.purgedDamaged},
            {"keptPieces", totals.keptPieces},
            {"missingPieces", totals.missingPieces},
            {"damagedNotes", totals.damagedNotes},
            {"uncounted", totals.uncounted},
            {"packs", totals.packs},
            {"packBytes", totals.packBytes},
            {"deadPacks", totals.deadPacks},
            {"rewrittenPacks", totals.rewrittenPacks},
            {"freedBytes", totals.freedBytes},
            {"waitingPacks", totals.waitingPacks},
            {"waitingBytes", totals.waitingBytes},
            {"waitingFor", totals.waitingFor},
            {"damagedManifests", totals.damagedManifests},
            {"damagedPacks", totals.damagedPacks},
            {"damagedMark", totals.damagedMark}};
}

std::string processesOf(const std::vector<std::string> &claims)
{
    std::set<std::string> processes;
    for (const std::string &claim : claims)
        processes.emplace(blob::processIn(claim));
    std::string text;
    for (const std::string &process : processes)
        text += (text.empty() ? "" : ", ") + process;
    return text;
}

void show(const store::ReclaimTotals &totals, bool dryRun, bool graceWaived)
{
    if (totals.purgedPieces != 0)
        tools::print("{}  {} whose grace time is {}{}\n", dryRun ? "Would purge" : "Purged    ",
                     tools::counted(totals.purgedPieces, "removed piece"),
                     graceWaived ? "over or waived" : "over",
                     totals.purgedDamaged == 0
                         ? ""
                         : fmt::format(", {} of them damaged", totals.purgedDamaged));
    if (totals.keptPieces != 0)
        tools::print("Kept        {} whose grace time is not over (arca ls --removed)\n",
                     tools::counted(totals.keptPieces, "removed piece"));
    if (totals.missingPieces != 0)
        tools::print("Missing     {}, taken as lost for good\n",
                     tools::counted(totals.missingPieces, "piece"));
    if (totals.damagedNotes != 0)
        tools::print(
            "Damaged     {} of what was stored (arca verify names what is damaged): pieces "
            "that only such a note names were not looked for\n",
            tools::counted(totals.damagedNotes, "note"));
    tools::print("Packs       {}, {}\n", totals.packs, sizeText(totals.packBytes));
    tools::print("{}  {} in {} and {}\n", dryRun ? "Would free" : "Freed     ",
                 sizeText(totals.freedBytes), tools::counted(totals.deadPacks, "dead pack"),
                 tools::counted(totals.rewrittenPacks, "mostly dead one"));
    if (totals.waitingPacks != 0)
        tools::print("Later       {} in {}: streams that may count on that are still open in "
                     "process {}\n",
                     sizeText(totals.waitingBytes), tools::counted(totals.waitingPacks, "pack"),
                     processesOf(totals.waitingFor));
}

void showDamage(const store::ReclaimTotals &totals, bool dryRun)
{
    for (const std::string &pack : totals.damagedPacks)
        tools::print("Kept        {}: it cannot be read, and pieces need it (arca repair)\n", pack);
    if (!totals.damagedMark.empty())
        tools::print("Damaged     {}, which said what packs were being reclaimed: {}\n",
                     totals.damagedMark, dryRun ? "the next run replaces it" : "it was replaced");
    for (const std::string &manifest : totals.damagedManifests)
        tools::print(
            "Kept        all packs that were there when {} was found damaged, as nobody can "
            "tell which of them it needs; arca rm --blob gives it up\n",
            manifest);
}

/// While the record of the grace time is damaged, removed pieces stay, and nothing else waits.
constexpr std::int64_t kUnknownGrace = std::numeric_limits<std::int64_t>::max();

struct Asked {
    std::string grace, acceptMissing;
    std::optional<std::uint64_t> maxFreed;
    bool dryRun = false;
    bool passwordFromStandardInput = false;
};

Result<store::ReclaimRequest> requestFrom(const Asked &asked, const NodeSession &session)
{
    store::ReclaimRequest request;
    if (asked.maxFreed)
        request.maxFreed = static_cast<unsigned>(*asked.maxFreed);
    if (!asked.grace.empty())
        request.grace = graceFrom(asked.grace, "--grace");
    else if (const auto kept = session.repository->grace().read(); kept)
        request.grace = *kept;
    else if (kept.error().kind == ErrorKind::damaged)
        request.grace = kUnknownGrace;
    else
        return kept.error();
    request.acceptMissing = !asked.acceptMissing.empty();
    if (request.acceptMissing && asked.acceptMissing != session.space->node())
        return Error{ErrorKind::badArgument,
                     "--accept-missing names the node " + printable(asked.acceptMissing) +
                         ", but the option file names " + printable(session.space->node())};
    return request;
}

Result<void> perform(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const NodeSession session, logOn(command, asked.passwordFromStandardInput, result));
    ARCA_TRY(const store::ReclaimRequest request, requestFrom(asked, session));
    const mtTimed timed(MT_TIME_CLIENT);
    store::Reclaim reclaim(*session.space, request);
    tools::Progress progress("Freeing");
    const auto step = [&](const store::ReclaimTotals &totals) {
        progress.add(totals.freedBytes - progress.bytes());
        return !interrupted();
    };
    if (!asked.dryRun) {
        catchInterrupts();
        (void)session.space->tidyOutcomes(); // what cannot be removed now is harmless
    }
    auto done = asked.dryRun ? reclaim.plan() : reclaim.run(step);
    progress.clear();
    ARCA_TRY(const store::ReclaimTotals totals, std::move(done));
    if (interrupted())
        return interruption(sizeText(totals.freedBytes) + " freed; the next run goes on");
    result["dryRun"] = asked.dryRun;
    result.update(jsonOf(totals));
    const bool unknownGrace = request.grace == kUnknownGrace;
    result["graceDamaged"] = unknownGrace;
    if (!command.json)
        show(totals, asked.dryRun, !asked.grace.empty());
    if (unknownGrace && !command.json)
        tools::print("Damaged     the record of the grace time (arca verify names it): no removed "
                     "piece was purged; arca grace sets it anew, --grace says it for one run\n");
    if (!command.json)
        showDamage(totals, asked.dryRun);
    if (totals.damagedPacks.empty())
        return {};
    return Error{ErrorKind::damaged,
                 fmt::format("{} that pieces need cannot be read, and {} left as {}; run arca "
                             "repair",
                             tools::counted(totals.damagedPacks.size(), "pack"),
                             totals.damagedPacks.size() == 1 ? "was" : "were",
                             totals.damagedPacks.size() == 1 ? "it is" : "they are")};
}

} // namespace

void addReclaim(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("reclaim", "Free the space of what no piece of the node needs any more");
    addCommonOptions(verb, command);
    const auto asked = std::make_shared<Asked>();
    verb.addFlag("--dry-run", asked->dryRun, "Say what would be freed; change nothing");
    verb.addOption("--grace", asked->grace,
                   "Keep removed pieces for that time only (12h, 7d; 0: not at all) in this run")
        .valueName("TIME");
    verb.addOption("--accept-missing", asked->acceptMissing,
                   "Go on although pieces of that node are missing: they are lost for good")
        .valueName("NODE");
    verb.addOption("--max-freed", asked->maxFreed,
                   "Free up to that part of what is stored that no removal explains. If nothing "
                   "is said: 50; 0 while notes of what was stored are damaged or not there")
        .valueName("PERCENT")
        .between(0, 100);
    addPasswordOption(verb, asked->passwordFromStandardInput);
    verb.footer(
        "Example: arca reclaim --optfile /etc/arca/main.opt --dry-run\n"
        "It may run beside backups and restores. What one of them may count on is left for "
        "the next run.\nAn interrupted run does no harm; the next one goes on.\n"
        "A removed piece keeps its space until its grace time is over (arca grace); --grace 0 "
        "frees it at once, for good.\n"
        "It is about what NODENAME keeps itself; ASNODE changes nothing.");
    verb.onChosen([&command, asked] {
        command.verb = "reclaim";
        command.run = [&command, asked](Json &result) { return perform(command, *asked, result); };
    });
}

} // namespace arca::tool
