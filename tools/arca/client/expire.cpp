// arca expire: removes the inactive versions that their management classes no longer keep.
#include "agents/common/maint/mtexpire.h"
#include "agents/common/maint/mtlog.h"
#include "client/base/text.h"
#include "tools/arca/client/client_session.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/arca/selection.h"
#include "tools/common/command/streams.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"

#include <algorithm>
#include <ctime>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    Selection selection;
    bool dryRun = false, yes = false, fromStandardInput = false;
};

struct Expired : mtExpired_t {
    int damage = HOX_RC_OK; // pieces that cannot be read were passed over
};

std::string amountText(const mtExpired_t &totals)
{
    return fmt::format("{} of {}, {}, {} stored", totals.deleted,
                       tools::counted(totals.inactive, "inactive version"), sizeText(totals.size),
                       sizeText(totals.storedSize));
}

Result<Expired> expire(ClientSession &client, const mtExpiry_t &expiry,
                       const mtRemovalReport_t &report)
{
    ARCA_TRY(mtSession *const changing, client.second());
    Expired totals;
    const int rc = mtExpire(client.session(), *changing, expiry, report, totals);
    if (!expiry.dryRun && totals.deleted != 0)
        (void)mtLogAppend(*changing, HOX_SEVERITY_INFO, "ARCA011",
                          "arca expire: " + amountText(totals) + " deleted");
    if (rc == HOX_RC_ABORTED && (expiry.dryRun || totals.deleted == 0))
        ARCA_CHECK(expectUninterrupted());
    if (rc == HOX_RC_ABORTED && interrupted())
        return interruption(amountText(totals) + " expired; run it again for the rest");
    if (rc == HOX_RC_REPOSITORY_DAMAGED)
        totals.damage = rc;
    else
        ARCA_CHECK(answered(rc));
    return totals;
}

/// Finds the versions that would be removed and adds their identifiers to `going`, ascending;
/// prints them when `named`.
Result<Expired> rehearse(ClientSession &client, mtExpiry_t expiry, bool named, mtObjectIds_t &going)
{
    expiry.dryRun = true;
    expiry.names.progress = shownQuery(named ? "" : "Looking through the versions");
    auto done = expire(client, expiry, [&](const mtObject_t &object, int) {
        going.push_back(object.objId);
        if (named)
            tools::print("{}  {:>10}  {}\n", idText(object.objId), sizeText(object.size),
                         printable(object.fsName + object.hlName + object.llName, 2400));
        return !interrupted();
    });
    std::ranges::sort(going);
    return done;
}

Result<Expired> carryOut(ClientSession &client, mtExpiry_t expiry, std::uint64_t planned)
{
    constexpr const char *kLabel = "Expiring";
    // Without a count from rehearse() the progress is that of the versions looked at.
    expiry.names.progress = shownQuery(planned == 0 ? kLabel : "");
    tools::Progress progress(kLabel, std::nullopt, planned == 0);
    std::uint64_t done = 0;
    return expire(client, expiry, [&](const mtObject_t &, int) {
        progress.show(++done, planned, 0);
        return !interrupted();
    });
}

Result<Expired> perform(ClientSession &client, const Command &command, const Asked &asked,
                        const mtExpiry_t &expiry)
{
    mtObjectIds_t going;
    if (asked.dryRun)
        return rehearse(client, expiry, !command.json, going);
    if (asked.yes)
        return carryOut(client, expiry, 0);
    ARCA_TRY(Expired planned, rehearse(client, expiry, false, going));
    if (planned.deleted == 0)
        return planned;
    ARCA_CHECK(confirm(amountText(planned) +
                           (planned.deleted == 1 ? " is removed. Go on?" : " are removed. Go on?"),
                       false));
    ARCA_CHECK(expectUninterrupted());
    mtExpiry_t shown = expiry;
    shown.among = &going;
    ARCA_TRY(const Expired done, carryOut(client, shown, planned.deleted));
    if (done.deleted < planned.deleted && !command.json)
        tools::print("{} of those {} not there any more, or kept by now\n",
                     planned.deleted - done.deleted,
                     planned.deleted - done.deleted == 1 ? "is" : "are");
    return done;
}

/// What is wrong with the classes: nothing expires by one that cannot be read.
Result<std::string> damageOfClasses(ClientSession &client)
{
    std::vector<mtClass_t> classes;
    const int rc = mtClasses(client.session(), true, classes);
    if (rc == HOX_RC_REPOSITORY_DAMAGED)
        return failureOf(rc).text;
    ARCA_CHECK(answered(rc));
    return std::string();
}

Result<void> expireAll(const Command &command, const Asked &asked, Json &result)
{
    const mtFilter_t names = filterFrom(asked.selection);
    catchInterrupts();
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    ARCA_CHECK(client->expectOwnPieces());
    const mtExpiry_t expiry{names, std::time(nullptr), false, nullptr};
    ARCA_TRY(const std::string damage, damageOfClasses(*client));
    ARCA_TRY(const Expired totals, perform(*client, command, asked, expiry));
    if (totals.looked == 0 && totals.damage == HOX_RC_OK && !asked.selection.pattern.empty())
        return noMatch(asked.selection);
    result["dryRun"] = asked.dryRun;
    result["versions"] = totals.looked;
    result["inactive"] = totals.inactive;
    result["expired"] = totals.deleted;
    result["size"] = totals.size;
    result["storedSize"] = totals.storedSize;
    if (!command.json)
        tools::print("{}  {}\n", asked.dryRun ? "Would expire" : "Expired", amountText(totals));
    if (!damage.empty())
        return Error{ErrorKind::damaged,
                     damage + "; what is bound to such a class stays (arca verify)"};
    return answered(totals.damage);
}

} // namespace

void addExpire(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("expire", "Delete inactive versions that their classes let go");
    auto asked = std::make_shared<Asked>();
    verb.addOption("PATTERN", asked->selection.pattern, "Only of pieces of such names");
    verb.addOption("--filespace", asked->selection.filespace,
                   "Only of filespaces of that name or pattern")
        .valueName("PATTERN");
    verb.addFlag("--dry-run", asked->dryRun, "Say what would go; change nothing");
    addYesOption(verb, asked->yes);
    addCommonOptions(verb, command);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer(
        "Example: arca expire --dry-run\n"
        "A version goes when it has been inactive for as many days as its class keeps it, or when "
        "as many newer inactive ones stay as its class keeps. The active version of a name never "
        "goes; where there is none, the newest inactive one stays.\n"
        "Interrupt it as you like; run it again for the rest. Space is given back by arca "
        "reclaim.");
    verb.onChosen([&command, asked] {
        command.verb = "expire";
        command.run = [&command, asked](Json &result) {
            return expireAll(command, *asked, result);
        };
    });
}

} // namespace arca::tool
