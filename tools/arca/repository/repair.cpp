// arca repair: makes pieces whole again from copies of their blocks.
#include "client/store/upkeep/repair.h"
#include "agents/common/maint/mttiming.h"
#include "client/base/text.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    bool dryRun = false;
    bool fromStandardInput = false;
};

using tools::counted;

void fill(const store::RepairOutcome &outcome, Json &result)
{
    result["damagedPacks"] = outcome.damagedPacks;
    result["healed"] = outcome.healed;
    result["mendedPacks"] = outcome.mendedPacks;
    result["foundBlocks"] = outcome.foundBlocks;
    result["foundBytes"] = outcome.foundBytes;
    result["lostBlocks"] = outcome.lostBlocks;
    result["lostPacks"] = outcome.lostPacks;
    result["lostPieces"] = outcome.lostPieces;
    result["stuckPacks"] = outcome.stuckPacks;
    result["broughtBack"] = outcome.broughtBack;
    result["waitingPacks"] = outcome.waitingPacks;
    result["waitingFor"] = outcome.waitingFor;
}

void print(const store::RepairOutcome &outcome, bool dryRun)
{
    tools::print("Looked at   {}\n", counted(outcome.damagedPacks, "damaged pack"));
    tools::print("{}  {}, with copies of {} ({})\n", dryRun ? "Would mend" : "Mended    ",
                 counted(outcome.mendedPacks, "pack"), counted(outcome.foundBlocks, "block"),
                 tools::byteText(static_cast<double>(outcome.foundBytes)));
    if (outcome.healed != 0)
        tools::print("Right again {}\n", counted(outcome.healed, "part"));
    if (outcome.waitingPacks != 0)
        tools::print("Later       {}\n", counted(outcome.waitingPacks, "pack"));
}

/// Returns a failure when anything is left to do, the gravest first.
Result<void> verdict(const store::RepairOutcome &outcome)
{
    if (outcome.lostPieces != 0)
        return Error{ErrorKind::damaged,
                     counted(outcome.lostPieces, "piece") +
                         " cannot be made whole now; a later backup of the same data may bring "
                         "copies of what is missing, then run it again"};
    if (outcome.stuckPacks != 0)
        return Error{ErrorKind::damaged, counted(outcome.stuckPacks, "pack") +
                                             " could not be read or mended now; see to the disk, "
                                             "then run it again"};
    if (outcome.waitingPacks != 0)
        return Error{ErrorKind::conflict,
                     counted(outcome.waitingPacks, "pack") +
                         " cannot be mended while streams that began before are still open; run "
                         "it again when they have ended"};
    return {};
}

Result<void> perform(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const NodeSession session, logOn(command, asked.fromStandardInput, result));
    const mtTimed timed(MT_TIME_CLIENT);
    Json &packs = result["packs"] = Json::array();
    Json &pieces = result["lost"] = Json::array();
    Json &returned = result["setAside"] = Json::array();
    store::RepairWatcher watcher;
    watcher.pack = [&](const std::string &name, const std::string &what) {
        if (command.json)
            packs.push_back({{"name", name}, {"what", what}});
        else
            tools::print("Pack {}: {}\n", printable(name, 4000), printable(what, 4000));
    };
    watcher.lostPiece = [&](const store::LostPiece &piece) {
        if (command.json)
            pieces.push_back({{"name", piece.name}, {"reason", piece.reason}});
        else
            tools::print("Lost piece  {}: {}\n", printable(piece.name, 4000),
                         printable(piece.reason, 4000));
    };
    watcher.setAside = [&](const store::SetAside &aside) {
        const bool stays = aside.now.empty();
        if (command.json)
            returned.push_back({{"piece", aside.piece},
                                {"blob", stays ? aside.blobName : aside.now},
                                {"reason", aside.reason},
                                {"dropped", aside.dropped}});
        else if (aside.dropped)
            tools::print("{}  {}, which can be read again: {}\n",
                         asked.dryRun ? "Would drop" : "Dropped", printable(aside.piece, 4000),
                         printable(aside.reason, 4000));
        else if (stays)
            tools::print("Kept aside  {}, which can be read again: {}\n",
                         printable(aside.piece, 4000), printable(aside.reason, 4000));
        else
            tools::print("{}  {}, which can be read again, as {}\n",
                         asked.dryRun ? "Would return" : "Brought back",
                         printable(aside.piece, 4000), aside.now);
    };
    watcher.goOn = [] { return !interrupted(); };
    if (!asked.dryRun)
        catchInterrupts();
    auto done = store::repair(*session.space, asked.dryRun, watcher);
    if (interrupted())
        return interruption("what was mended is durable; the next run goes on");
    ARCA_TRY(const store::RepairOutcome outcome, std::move(done));
    result["dryRun"] = asked.dryRun;
    fill(outcome, result);
    if (!command.json)
        print(outcome, asked.dryRun);
    return verdict(outcome);
}

} // namespace

void addRepair(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("repair", "Make pieces whole again from copies of their damaged blocks");
    addCommonOptions(verb, command);
    const auto asked = std::make_shared<Asked>();
    verb.addFlag("--dry-run", asked->dryRun, "Say what would be done; change nothing");
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer(
        "Example: arca verify --read-data; arca repair\n"
        "It mends what verifying or a restore found damaged, and may run beside backups and "
        "restores. A piece that was set aside as damaged and can be read again gets its name back, "
        "or becomes an inactive one when another piece has it.\n"
        "Exit status 1, and a line for each, when pieces stay lost or packs cannot be mended now.\n"
        "It is about what NODENAME keeps itself; ASNODE changes nothing.");
    verb.onChosen([&command, asked] {
        command.verb = "repair";
        command.run = [&command, asked](Json &result) { return perform(command, *asked, result); };
    });
}

} // namespace arca::tool
