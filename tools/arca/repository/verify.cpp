// arca verify: proves that everything the node keeps is there and undamaged.
#include "client/store/upkeep/verify.h"
#include "agents/common/maint/mttiming.h"
#include "client/base/text.h"
#include "tools/arca/node_session.h"
#include "tools/common/command/streams.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"

#include <map>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    store::VerifyRequest request;
    std::string maxDuration;
    bool fromStandardInput = false;
};

/// Returns the duration from "90s", "10m", "2h"; more than 0. Throws UsageError.
std::chrono::seconds durationFrom(const std::string &text)
{
    const std::map<char, int> units = {{'s', 1}, {'m', 60}, {'h', 3600}};
    const auto unit = text.empty() ? units.end() : units.find(text.back());
    const std::string digits = text.substr(0, text.empty() ? 0 : text.size() - 1);
    if (unit == units.end() || digits.empty() || digits.size() > 6 ||
        digits.find_first_not_of("0123456789") != std::string::npos || std::stoi(digits) == 0)
        throw UsageError("--max-duration takes a time such as 90s, 10m or 2h, not '" +
                         printable(text, 40) + "'");
    return std::chrono::seconds(std::stol(digits) * unit->second);
}

const char *nameOf(store::Checked what)
{
    return what == store::Checked::piece  ? "piece"
           : what == store::Checked::pack ? "pack"
                                          : "record";
}

Json timeOrNull(std::int64_t time)
{
    return time == 0 ? Json(nullptr) : Json(tools::utcTimeText(time));
}

void fill(const store::VerifyOutcome &outcome, Json &result)
{
    result["pieces"] = outcome.pieces;
    result["packs"] = outcome.packs;
    result["records"] = outcome.records;
    result["bytesRead"] = outcome.bytesRead;
    result["recorded"] = outcome.recorded;
    result["healed"] = outcome.healed;
    result["quarantined"] = outcome.quarantined;
    result["missing"] = outcome.missing;
    result["onlyPacks"] = outcome.onlyPacks;
    result["uncounted"] = outcome.uncounted;
    result["roundEnded"] = outcome.roundEnded;
    result["roundBegan"] = timeOrNull(outcome.round.began);
    result["hurtInRound"] = outcome.round.hurt;
    result["provenSince"] = timeOrNull(outcome.round.proven);
}

void print(const store::VerifyRequest &request, const store::VerifyOutcome &outcome)
{
    tools::print("Checked     {}, {}, {}{}\n", tools::counted(outcome.pieces, "piece"),
                 tools::counted(outcome.packs, "pack"), tools::counted(outcome.records, "record"),
                 request.readData
                     ? ", " + tools::byteText(static_cast<double>(outcome.bytesRead)) + " read"
                     : "; contents not read (--read-data)");
    if (!outcome.roundEnded)
        tools::print(
            "Stopped     the next run with --percent or --max-duration goes on; this round "
            "began {}, {} found hurt in it so far\n",
            tools::utcTimeText(outcome.round.began), outcome.round.hurt);
    else if (outcome.round.hurt > outcome.hurt())
        tools::print("Round       ended; {} found hurt in it, most in runs before\n",
                     outcome.round.hurt);
    if (outcome.recorded != 0)
        tools::print(
            "Recorded    {} of packs: backups store the blocks again, and arca repair makes "
            "pieces whole from such copies\n",
            tools::counted(outcome.recorded, "damaged part"));
    if (outcome.round.proven != 0)
        tools::print("Proven      everything, since {}\n",
                     tools::utcTimeText(outcome.round.proven));
}

std::string quarantineText(const store::VerifyOutcome &outcome)
{
    if (outcome.quarantined == 0)
        return {};
    return fmt::format("; {} in the quarantine: arca repair brings back what can be read, arca rm "
                       "--blob gives up the rest",
                       outcome.quarantined);
}

Error uncountedError(const std::string &node)
{
    return {ErrorKind::damaged,
            "what is there is right, but nothing says how many pieces there should be: no note of "
            "what was stored is in inventory/; bring the missing files back, or run arca reclaim "
            "--accept-missing " +
                printable(node) + " to note those that are there"};
}

Result<void> verifyAll(const Command &command, const Asked &asked, Json &result)
{
    store::VerifyRequest request = asked.request;
    if (!asked.maxDuration.empty())
        request.maxDuration = durationFrom(asked.maxDuration);
    ARCA_TRY(const NodeSession session, logOn(command, asked.fromStandardInput, result));
    request.shared = session.repository->sharedSeal();
    const mtTimed timed(request.readData ? MT_TIME_TRANSFER : MT_TIME_CLIENT);
    Json &hurt = result["hurt"] = Json::array();
    tools::Progress progress("Verifying");
    store::VerifyWatcher watcher;
    watcher.hurt = [&](const store::Hurt &found) {
        progress.clear();
        if (command.json)
            hurt.push_back(
                {{"what", nameOf(found.what)}, {"name", found.name}, {"reason", found.reason}});
        else
            tools::print("Hurt {:<7}{}: {}\n", nameOf(found.what), printable(found.name, 4000),
                         printable(found.reason, 4000));
    };
    watcher.progress = [&](const store::VerifyProgress &now) {
        progress.show(now.done, now.planned, now.bytes);
    };
    ARCA_TRY(const store::VerifyOutcome outcome, store::verify(*session.space, request, watcher));
    progress.clear();
    fill(outcome, result);
    if (!command.json)
        print(request, outcome);
    if (outcome.hurt() == 0)
        return outcome.uncounted ? Result<void>(uncountedError(session.space->node()))
                                 : Result<void>();
    const std::string hurtText =
        fmt::format("hurt: {}, {}, {}{}", tools::counted(outcome.hurtPieces, "piece"),
                    tools::counted(outcome.hurtPacks, "pack"),
                    tools::counted(outcome.hurtRecords, "record"), quarantineText(outcome));
    if (outcome.missing != 0)
        return Error{ErrorKind::damaged,
                     fmt::format("{} stored and never purged, and {} not there; {}",
                                 tools::counted(outcome.missing, "piece was", "pieces were"),
                                 outcome.missing == 1 ? "is" : "are", hurtText)};
    if (outcome.onlyPacks)
        return Error{ErrorKind::damaged,
                     "there are packs and no piece at all: if none should be there, arca reclaim "
                     "--max-freed 100 frees them, else bring the missing files back"};
    return Error{ErrorKind::damaged, hurtText};
}

} // namespace

void addVerify(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("verify", "Prove that what this node keeps is all there and all right");
    addCommonOptions(verb, command);
    auto asked = std::make_shared<Asked>();
    verb.addFlag("--read-data", asked->request.readData,
                 "Read every pack and every piece to its end, and compare the digests");
    verb.addOption("--percent", asked->request.percent,
                   "Check at most that part, 1 to 100, beginning where the run before stopped")
        .valueName("NUMBER")
        .between(1, 100);
    verb.addOption("--max-duration", asked->maxDuration,
                   "Stop after that time (90s, 10m, 2h), beginning where the run before stopped")
        .valueName("TIME");
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer(
        "Example: arca verify --read-data --max-duration 2h\n"
        "It writes nothing but records of damaged packs, which backups then do not count on, and "
        "may run beside backups and restores. Exit status 1, and a line for each, when "
        "something is hurt or lies in the quarantine.\n"
        "It is about what NODENAME keeps itself; ASNODE changes nothing.");
    verb.onChosen([&command, asked] {
        command.verb = "verify";
        command.run = [&command, asked](Json &result) {
            return verifyAll(command, *asked, result);
        };
    });
}

} // namespace arca::tool
