// arca rm: deletes pieces, or makes them inactive.
#include "agents/common/maint/mtlog.h"
#include "agents/common/maint/mtremove.h"
#include "client/base/text.h"
#include "tools/arca/client/client_session.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/arca/piece_name.h"
#include "tools/arca/repository/rm_blob.h"
#include "tools/arca/selection.h"
#include "tools/common/command/streams.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    Selection selection;
    std::vector<std::string> ids, blobs;
    bool deactivate = false, dryRun = false, yes = false, fromStandardInput = false;

    mtAction_t action() const { return deactivate ? mtAction_t::deactivate : mtAction_t::remove; }
};

struct Totals {
    std::uint64_t objects = 0, size = 0, missing = 0, damaged = 0;
    bool sizeIsKnown = true; // of a piece that was removed by identifier alone it is not
    mtObjectIds_t ids;       // of the objects that look() found, ascending
    int damage = HOX_RC_OK;  // the code that look() ended with when it passed over damaged pieces

    std::uint64_t seen() const { return objects + missing + damaged; }
};

/// Returns true for one literal name without filters: only that can be matched with a damaged
/// manifest.
bool namesOnePiece(const Asked &asked)
{
    Selection others = asked.selection;
    others.filespace.clear();
    return !others.pattern.empty() && others.pattern.find_first_of("*?") == std::string::npos &&
           !hasFilters(others);
}

std::string amountText(const Totals &totals)
{
    return fmt::format("{}{}", tools::counted(totals.objects, "piece"),
                       totals.size == 0 ? "" : ", " + sizeText(totals.size));
}

/// Finds and counts the pieces that are meant, before anything is asked or changed; prints them
/// when `named`.
Result<Totals> look(ClientSession &client, mtFilter_t filter, bool named)
{
    filter.progress = shownQuery(named ? "" : "Looking through the pieces");
    Totals totals;
    const int rc = mtQueryObjects(client.session(), filter, mtOrder_t::inserted,
                                  [&](const dhoxBackupObject_t &object) {
                                      ++totals.objects;
                                      totals.size += object.size;
                                      totals.ids.push_back(object.objId);
                                      if (named)
                                          tools::print("{}  {}\n", idText(object.objId),
                                                       printable(pieceText(object.objName), 2400));
                                      return true;
                                  });
    ARCA_CHECK(expectUninterrupted());
    // Damaged pieces are passed over; conclude() reports them.
    if (rc == HOX_RC_REPOSITORY_DAMAGED)
        totals.damage = rc;
    else
        ARCA_CHECK(answered(rc));
    std::ranges::sort(totals.ids);
    return totals;
}

std::string question(const Asked &asked, const Totals &totals)
{
    const bool one = totals.objects == 1;
    return asked.deactivate
               ? fmt::format("{} {} inactive: {}, and expiry takes {} when the class lets {} go. "
                             "Go on?",
                             amountText(totals), one ? "becomes" : "become",
                             one ? "its name is free" : "their names are free", one ? "it" : "them",
                             one ? "it" : "them")
               : fmt::format("{} {} removed. Go on?", amountText(totals), one ? "is" : "are");
}

std::string goneText(std::uint64_t id, const Asked &asked)
{
    return fmt::format("{} is of no piece that is there{}\n", idText(id),
                       asked.deactivate ? ", or of one that is not active" : "");
}

/// Counts the outcome of each piece, and shows the progress.
class Watcher
{
public:
    Watcher(const Command &command, const Asked &asked, std::uint64_t planned)
        : command_(command), asked_(asked), planned_(planned),
          progress_(asked.deactivate ? "Making inactive" : "Deleting")
    {
    }

    mtRemovalReport_t report()
    {
        return [this](const mtObject_t &object, int rc) {
            const bool damaged = rc == HOX_RC_REPOSITORY_DAMAGED;
            ++(rc == HOX_RC_OK ? done_.objects : damaged ? done_.damaged : done_.missing);
            done_.size += rc == HOX_RC_OK ? object.size : 0;
            done_.sizeIsKnown &= rc != HOX_RC_OK || !object.fsName.empty();
            if (damaged && !command_.json)
                tools::print("{} {} is damaged\n", idText(object.objId),
                             printable(object.fsName + object.hlName + object.llName, 2400));
            else if (rc != HOX_RC_OK && !command_.json)
                tools::print("{}", goneText(object.objId, asked_));
            progress_.show(done_.seen(), planned_, 0);
            return !interrupted();
        };
    }

    Totals done()
    {
        progress_.clear();
        return done_;
    }

private:
    const Command &command_;
    const Asked &asked_;
    const std::uint64_t planned_;
    tools::Progress progress_;
    Totals done_;
};

int removeIds(const mtSession &session, const mtObjectIds_t &ids, mtAction_t action,
              const mtRemovalReport_t &report)
{
    mtRemoval removal(session, action, report);
    for (const std::uint64_t id : ids) {
        mtObject_t object;
        object.objId = id;
        if (const int rc = removal.add(std::move(object)); rc != HOX_RC_OK)
            return rc;
    }
    return removal.finish();
}

const char *verbText(const Asked &asked)
{
    return asked.deactivate ? "made inactive" : "deleted";
}

/// `client` may be null for a dry run.
Result<void> conclude(ClientSession *client, const Command &command, const Asked &asked,
                      const Totals &done, int rc, Json &result)
{
    result["dryRun"] = asked.dryRun;
    result[asked.deactivate ? "deactivated" : "deleted"] = done.objects;
    result["missing"] = done.missing;
    result["damaged"] = done.damaged;
    result["size"] = done.sizeIsKnown ? Json(done.size) : Json(nullptr);
    const std::string told = amountText(done) + " " + verbText(asked);
    if (!asked.dryRun && done.objects != 0)
        (void)mtLogAppend(client->session(), HOX_SEVERITY_INFO, "ARCA010", "arca rm: " + told);
    if (rc == HOX_RC_ABORTED && done.objects == 0)
        ARCA_CHECK(expectUninterrupted());
    if (rc == HOX_RC_ABORTED && interrupted())
        return interruption(told + ", the rest is as it was");
    // What was done is printed before the failure of the rest.
    if (!command.json && (rc == HOX_RC_OK || done.objects != 0))
        tools::print("{}{}\n", asked.dryRun ? "Would be: " : "", told);
    ARCA_CHECK(answered(rc));
    if (done.objects == 0 && done.missing != 0)
        return Error{ErrorKind::notFound, "nothing of it is there"};
    return {};
}

/// Removes the pieces that were counted and shown, and none that was stored since; those that are
/// gone by now are reported.
Result<void> carryOut(ClientSession &client, const Command &command, const Asked &asked,
                      const mtFilter_t &filter, const Totals &counted, Json &result)
{
    mtFilter_t shown = filter;
    shown.among = &counted.ids;
    ARCA_TRY(mtSession *const changing, client.second());
    Watcher watcher(command, asked, counted.objects);
    ARCA_CHECK(expectUninterrupted());
    const int rc =
        mtRemoveObjects(client.session(), *changing, shown, asked.action(), watcher.report());
    Totals done = watcher.done();
    const bool all = rc == HOX_RC_OK || rc == HOX_RC_REPOSITORY_DAMAGED;
    const std::uint64_t gone =
        all && done.seen() < counted.objects ? counted.objects - done.seen() : 0;
    done.missing += gone;
    if (gone != 0 && !command.json)
        tools::print("{} of the {} {} not there any more, or not as asked for\n", gone,
                     tools::counted(counted.objects, "piece"), gone == 1 ? "is" : "are");
    return conclude(&client, command, asked, done, rc, result);
}

Result<void> removeMatching(const Command &command, const Asked &asked, const mtObjectIds_t &ids,
                            Json &result)
{
    mtFilter_t filter = filterFrom(asked.selection);
    if (!ids.empty()) {
        filter.among = &ids;
        if (!asked.selection.inactive)
            filter.objState = HOX_STATE_ANY;
    }
    if (asked.deactivate)
        filter.objState = HOX_STATE_ACTIVE;
    catchInterrupts();
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    ARCA_CHECK(client->expectOwnPieces());
    ARCA_TRY(Totals counted, look(*client, filter, asked.dryRun && !command.json));
    const bool oneDamaged = counted.objects == 0 && counted.damage != HOX_RC_OK;
    if (oneDamaged && namesOnePiece(asked) && asked.deactivate)
        return Error{ErrorKind::damaged,
                     printable(asked.selection.pattern, 1300) +
                         " is damaged, and a damaged piece cannot be made inactive; arca rm "
                         "without --deactivate sets it aside, which frees its name"};
    if (oneDamaged && namesOnePiece(asked))
        return removeDamagedPiece(command, asked.selection,
                                  {{}, asked.dryRun, asked.yes, asked.fromStandardInput}, result);
    if (counted.objects == 0)
        ARCA_CHECK(answered(counted.damage));
    if (counted.objects == 0)
        return ids.empty() ? noMatch(asked.selection)
                           : Error{ErrorKind::notFound,
                                   "no identifier that was given is of a piece that fits"};
    if (counted.objects < ids.size() && !command.json)
        tools::print("{} of the {} {} of no piece that fits\n", ids.size() - counted.objects,
                     tools::counted(ids.size(), "identifier"),
                     ids.size() - counted.objects == 1 ? "is" : "are");
    if (asked.dryRun)
        return conclude(client.get(), command, asked, counted, counted.damage, result);
    ARCA_CHECK(confirm(question(asked, counted), asked.yes));
    return carryOut(*client, command, asked, filter, counted, result);
}

/// Removes by identifier alone: it works where a search fails.
Result<void> removeByIds(const Command &command, const Asked &asked, const mtObjectIds_t &ids,
                         Json &result)
{
    catchInterrupts();
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    ARCA_CHECK(client->expectOwnPieces());
    Totals meant;
    meant.objects = ids.size();
    ARCA_CHECK(confirm(question(asked, meant), asked.yes));
    Watcher watcher(command, asked, ids.size());
    ARCA_CHECK(expectUninterrupted());
    const int rc = removeIds(client->session(), ids, asked.action(), watcher.report());
    return conclude(client.get(), command, asked, watcher.done(), rc, result);
}

/// With ASNODE the deletion would be refused, so the dry run is, too.
Result<void> refuseForAnotherNode(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const std::string node, config::nodeNameFor(options));
    if (options.asNodeName.empty() || options.asNodeName == node)
        return {};
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    return client->expectOwnPieces();
}

/// The dry run of removeByIds(): it looks as the deletion does, so that a piece is found by the
/// identifiers that it had before it was renamed or brought back, too.
Result<void> showByIds(const Command &command, const Asked &asked, const mtObjectIds_t &ids,
                       Json &result)
{
    ARCA_CHECK(refuseForAnotherNode(command, asked, result));
    ARCA_TRY(const NodeSession session, logOn(command, asked.fromStandardInput, result));
    Totals found;
    std::optional<Error> damage;
    for (const std::uint64_t id : ids) {
        const auto piece = session.space->find(id);
        if (!piece && piece.error().kind == ErrorKind::damaged) {
            ++found.damaged;
            damage = piece.error();
        } else if (!piece && piece.error().kind != ErrorKind::notFound) {
            return piece.error();
        } else if (!piece || (asked.deactivate && !piece->isActive())) {
            ++found.missing;
            if (!command.json)
                tools::print("{}", goneText(id, asked));
        } else {
            ++found.objects;
            found.size += piece->totals.streamBytes;
            if (!command.json)
                tools::print("{}  {}\n", idText(piece->id),
                             printable(piece->description.name.joined(), 2400));
        }
    }
    auto done = conclude(nullptr, command, asked, found, HOX_RC_OK, result);
    if (damage)
        return *damage;
    return done;
}

Result<void> remove(const Command &command, const Asked &asked, Json &result)
{
    if (!asked.blobs.empty()) {
        if (!asked.ids.empty() || !asked.selection.pattern.empty() || asked.deactivate ||
            hasFilters(asked.selection))
            throw UsageError(
                "--blob stands alone: it takes no PATTERN, --id, --deactivate or filter");
        return removeBlobs(command, {asked.blobs, asked.dryRun, asked.yes, asked.fromStandardInput},
                           result);
    }
    if (asked.ids.empty() == asked.selection.pattern.empty())
        throw UsageError("it takes a PATTERN or --id, one of the two ('*' means every piece)");
    if (asked.deactivate && asked.selection.inactive)
        throw UsageError("--deactivate is for active pieces, and --inactive names the others");
    mtObjectIds_t ids;
    for (const std::string &text : asked.ids) {
        ids.push_back(idFrom(text));
    }
    std::ranges::sort(ids);
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    if (ids.empty() || hasFilters(asked.selection))
        return removeMatching(command, asked, ids, result);
    return asked.dryRun ? showByIds(command, asked, ids, result)
                        : removeByIds(command, asked, ids, result);
}

} // namespace

void addRm(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("rm", "Delete pieces, or make them inactive");
    auto asked = std::make_shared<Asked>();
    verb.addOption("PATTERN", asked->selection.pattern,
                   "Names of pieces: * stands for anything, ? for one character");
    verb.addOption("--id", asked->ids,
                   "By identifier, as arca ls --long shows it, active or inactive")
        .valueName("ID");
    verb.addOption("--blob", asked->blobs,
                   "A damaged blob, as verify, repair or reclaim named it: a manifest is set "
                   "aside first, and deleted from the quarantine; a record is deleted")
        .valueName("NAME");
    verb.addFlag("--deactivate", asked->deactivate,
                 "Make them inactive, so that expiry takes them, instead of deleting them");
    verb.addFlag("--dry-run", asked->dryRun, "Say which it would be; change nothing");
    addYesOption(verb, asked->yes);
    addSelectionOptions(verb, asked->selection);
    addCommonOptions(verb, command);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer("Example: arca rm 'df_*' --older 90d --dry-run\n"
                "What is interrupted may be run again; nothing is half-deleted. Until the grace "
                "time is over arca undelete brings a piece back; then arca reclaim frees its "
                "space.");
    verb.onChosen([&command, asked] {
        command.verb = "rm";
        command.run = [&command, asked](Json &result) { return remove(command, *asked, result); };
    });
}

} // namespace arca::tool
