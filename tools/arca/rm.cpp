// arca rm: deletes pieces, or makes them inactive.
#include "agents/common/maint/mtlog.h"
#include "agents/common/maint/mtremove.h"
#include "client/base/text.h"
#include "tools/arca/client_session.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/arca/rm_blob.h"
#include "tools/arca/selection.h"
#include "tools/common/progress.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    Selection selection;
    std::vector<std::string> ids, blobs;
    bool deactivate = false, dryRun = false, yes = false, fromStandardInput = false;

    mtAction_t action() const
    {
        return dryRun       ? mtAction_t::nothing
               : deactivate ? mtAction_t::deactivate
                            : mtAction_t::remove;
    }
};

struct Totals {
    std::uint64_t objects = 0, size = 0, missing = 0;
    int damage = HOX_RC_OK; // what the look ended with, if it met pieces that cannot be read
};

bool isLiteral(const std::string &pattern)
{
    return pattern.find_first_of("*?") == std::string::npos;
}

std::string amountText(const Totals &totals)
{
    return fmt::format("{} {}{}", totals.objects, totals.objects == 1 ? "piece" : "pieces",
                       totals.size == 0 ? "" : ", " + sizeText(totals.size));
}

/// What is meant: counted before anything is asked or done.
Result<Totals> look(ClientSession &client, mtFilter_t filter)
{
    filter.progress = shownQuery("Looking through the pieces");
    Totals totals;
    const int rc = mtQueryObjects(client.session(), filter, mtOrder_t::inserted,
                                  [&](const dhoxBackupObject_t &object) {
                                      ++totals.objects;
                                      totals.size += object.size;
                                      return true;
                                  });
    ARCA_CHECK(expectUninterrupted());
    // What is damaged is passed over, and told in the end.
    if (rc == HOX_RC_REPOSITORY_DAMAGED)
        totals.damage = rc;
    else
        ARCA_CHECK(answered(rc));
    return totals;
}

std::string question(const Asked &asked, const Totals &totals)
{
    return asked.deactivate
               ? fmt::format("{} become inactive: their names are free, and expiry takes them when "
                             "their class lets them go. Go on?",
                             amountText(totals))
               : fmt::format("{} go for good. Delete them?", amountText(totals));
}

/// Counts what becomes of each, and shows how far it is. A dry run names them.
class Watcher
{
public:
    Watcher(const Command &command, const Asked &asked, std::uint64_t planned)
        : command_(command), asked_(asked), planned_(planned),
          progress_(asked.deactivate ? "Making inactive" : "Deleting", std::nullopt, asked.dryRun)
    {
    }

    mtRemovalReport_t report()
    {
        return [this](const mtObject_t &object, int rc) {
            ++(rc == HOX_RC_OK ? done_.objects : done_.missing);
            done_.size += rc == HOX_RC_OK ? object.size : 0;
            if (rc != HOX_RC_OK && asked_.selection.pattern.empty() && !command_.json)
                fmt::print("{} is not there any more\n", idText(object.objId));
            if (asked_.dryRun && !command_.json)
                fmt::print("{}  {}\n", idText(object.objId),
                           printable(object.fsName + object.hlName + object.llName, 2400));
            progress_.show(done_.objects + done_.missing, planned_, 0);
            return !interrupted();
        };
    }

    const Totals &done()
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

int removeIds(const mtSession &session, const std::vector<mtObject_t> &objects, mtAction_t action,
              const mtRemovalReport_t &report)
{
    mtRemoval removal(session, action, report);
    for (const mtObject_t &object : objects)
        if (const int rc = removal.add(object); rc != HOX_RC_OK)
            return rc;
    return removal.finish();
}

const char *verbText(const Asked &asked)
{
    return asked.deactivate ? "made inactive" : "deleted";
}

Result<void> conclude(ClientSession &client, const Command &command, const Asked &asked,
                      const Totals &done, int rc, Json &result)
{
    result["dryRun"] = asked.dryRun;
    result[asked.deactivate ? "deactivated" : "deleted"] = done.objects;
    result["missing"] = done.missing;
    result["size"] = done.size;
    const std::string told = amountText(done) + " " + verbText(asked);
    if (!asked.dryRun && done.objects != 0)
        (void)mtLogAppend(client.session(), HOX_SEVERITY_INFO, "ARCA010", "arca rm: " + told);
    if (rc == HOX_RC_ABORTED && done.objects == 0)
        ARCA_CHECK(expectUninterrupted());
    if (rc == HOX_RC_ABORTED && interrupted())
        return interruption(told + ", the rest is as it was");
    ARCA_CHECK(answered(rc));
    if (!command.json)
        fmt::print("{}{}\n", asked.dryRun ? "Would be: " : "", told);
    if (done.objects == 0 && done.missing != 0)
        return Error{ErrorKind::notFound, "nothing of it is there any more"};
    return {};
}

Result<void> removeMatching(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const mtFilter_t filter, filterFrom(asked.selection));
    catchInterrupts();
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    ARCA_TRY(const Totals planned, look(*client, filter));
    if (planned.objects == 0 && planned.damage != HOX_RC_OK && isLiteral(asked.selection.pattern))
        return removeDamagedPiece(command, asked.selection.filespace, asked.selection.pattern,
                                  {{}, asked.dryRun, asked.yes, asked.fromStandardInput}, result);
    if (planned.objects == 0)
        ARCA_CHECK(answered(planned.damage));
    if (planned.objects == 0)
        return noMatch(asked.selection);
    if (!asked.dryRun)
        ARCA_CHECK(confirm(question(asked, planned), asked.yes));
    ARCA_TRY(mtSession *const changing, client->second());
    Watcher watcher(command, asked, planned.objects);
    ARCA_CHECK(expectUninterrupted());
    const int rc =
        mtRemoveObjects(client->session(), *changing, filter, asked.action(), watcher.report());
    return conclude(*client, command, asked, watcher.done(), rc, result);
}

Result<void> removeByIds(const Command &command, const Asked &asked, Json &result)
{
    std::vector<mtObject_t> objects;
    for (const std::string &text : asked.ids) {
        objects.emplace_back();
        ARCA_TRY(objects.back().objId, idFrom(text));
    }
    catchInterrupts();
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    if (!asked.dryRun)
        ARCA_CHECK(confirm(question(asked, {objects.size(), 0, 0}), asked.yes));
    Watcher watcher(command, asked, objects.size());
    ARCA_CHECK(expectUninterrupted());
    const int rc = removeIds(client->session(), objects, asked.action(), watcher.report());
    return conclude(*client, command, asked, watcher.done(), rc, result);
}

Result<void> remove(const Command &command, const Asked &asked, Json &result)
{
    if (!asked.blobs.empty()) {
        if (!asked.ids.empty() || !asked.selection.pattern.empty() || asked.deactivate)
            throw UsageError("--blob stands alone: it takes no PATTERN, --id or --deactivate");
        return removeBlobs(command, {asked.blobs, asked.dryRun, asked.yes, asked.fromStandardInput},
                           result);
    }
    if (asked.ids.empty() == asked.selection.pattern.empty())
        throw UsageError("it takes a PATTERN or --id, one of the two ('*' means every piece)");
    return asked.ids.empty() ? removeMatching(command, asked, result)
                             : removeByIds(command, asked, result);
}

} // namespace

void addRm(CLI::App &app, Command &command)
{
    CLI::App *verb = app.add_subcommand("rm", "Delete pieces, or make them inactive");
    auto asked = std::make_shared<Asked>();
    verb->add_option("PATTERN", asked->selection.pattern,
                     "Names of pieces: * stands for anything, ? for one character");
    verb->add_option("--id", asked->ids, "By identifier, as arca ls --long shows it")
        ->type_name("ID");
    verb->add_option("--blob", asked->blobs,
                     "A damaged blob, as verify, repair or reclaim named it: a manifest is set "
                     "aside first, and deleted from the quarantine; a record is deleted")
        ->type_name("NAME");
    verb->add_flag("--deactivate", asked->deactivate,
                   "Make them inactive, so that expiry takes them, instead of deleting them");
    verb->add_flag("--dry-run", asked->dryRun, "Say which it would be; change nothing");
    addYesOption(*verb, asked->yes);
    addSelectionOptions(*verb, asked->selection);
    addCommonOptions(*verb, command);
    addPasswordOption(*verb, asked->fromStandardInput);
    verb->footer("Example: arca rm 'df_*' --older 90d --dry-run\n"
                 "What is interrupted may be run again; nothing is half-deleted. Space is given "
                 "back by arca reclaim.");
    verb->callback([&command, asked] {
        command.verb = "rm";
        command.run = [&command, asked](Json &result) { return remove(command, *asked, result); };
    });
}

} // namespace arca::tool
