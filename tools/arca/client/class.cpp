// arca class: the management classes of the repository, and what is bound to them.
#include "agents/common/maint/mtpolicy.h"
#include "client/base/text.h"
#include "tools/arca/client/actions.h"
#include "tools/arca/client/client_session.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/arca/selection.h"
#include "tools/common/command/streams.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

/// The properties of a class that the command line gives; those not given are not changed.
struct Asked {
    std::string name;
    std::optional<std::string> pool, versions, days, description;
    Selection selection;
    bool dryRun = false, yes = false, fromStandardInput = false;
};

std::optional<std::uint16_t> limitFrom(const std::optional<std::string> &text,
                                       std::string_view unlimited, int least)
{
    if (!text)
        return std::nullopt;
    if (equalIgnoringCase(*text, unlimited))
        return mtNoLimit;
    const bool digits = !text->empty() && text->size() <= 5 &&
                        text->find_first_not_of("0123456789") == std::string::npos;
    const int value = digits ? std::stoi(*text) : -1;
    if (value < least || value >= mtNoLimit)
        throw UsageError(fmt::format("'{}' is neither a number from {} to 65534 nor {}",
                                     printable(*text, 40), least, unlimited));
    return static_cast<std::uint16_t>(value);
}

std::string limitText(std::uint16_t value, std::string_view unlimited)
{
    return value == mtNoLimit ? std::string(unlimited) : std::to_string(value);
}

/// Returns the changes, all checked: nothing may be changed before the last of them was read.
mtClassChange_t changesIn(const Asked &asked)
{
    mtClassChange_t change;
    change.versionsKept = limitFrom(asked.versions, "nolimit", 1);
    change.daysKept = limitFrom(asked.days, "forever", 0);
    change.stgPool = asked.pool;
    change.description = asked.description;
    return change;
}

Json jsonOf(const mtClass_t &known)
{
    const auto limit = [](std::uint16_t value) {
        return value == mtNoLimit ? Json(nullptr) : Json(value);
    };
    return {{"name", known.name},
            {"default", known.isDefault},
            {"storagePool", known.stgPool},
            {"versionsKept", limit(known.versionsKept)},
            {"daysKept", limit(known.daysKept)},
            {"description", known.description}};
}

struct Classes {
    std::vector<mtClass_t> known;
    int damage = HOX_RC_OK; // classes that cannot be read were passed over
};

Result<Classes> classesOf(ClientSession &client)
{
    Classes classes;
    classes.damage = mtClasses(client.session(), false, classes.known);
    if (classes.damage != HOX_RC_REPOSITORY_DAMAGED)
        ARCA_CHECK(answered(classes.damage));
    return classes;
}

using Work = Result<void> (*)(ClientSession &, const Command &, const Asked &, Json &);

Result<void> list(ClientSession &client, const Command &command, const Asked &, Json &result)
{
    ARCA_TRY(const auto classes, classesOf(client));
    Json &shown = result["classes"] = Json::array();
    if (!command.json)
        tools::print("{:<30}  {:<30}  {:>8}  {:>7}  {}\n", "Class", "Storage pool", "Versions",
                     "Days", "Description");
    for (const mtClass_t &known : classes.known) {
        shown.push_back(jsonOf(known));
        if (!command.json)
            tools::print("{:<30}  {:<30}  {:>8}  {:>7}  {}\n", known.name, printable(known.stgPool),
                         limitText(known.versionsKept, "nolimit"),
                         limitText(known.daysKept, "forever"), printable(known.description));
    }
    return answered(classes.damage);
}

/// Translates the code of a call that names a class.
Result<void> answeredFor(const Asked &asked, int rc)
{
    if (rc == HOX_RC_MC_UNKNOWN)
        return Error{ErrorKind::notFound, "there is no class " + printable(asked.name) +
                                              "; arca class list shows those there are"};
    return answered(rc);
}

/// Shows the class after a change that returned `rc`; fails when `rc` is a failure.
Result<void> conclude(ClientSession &client, const Command &command, const Asked &asked, int rc,
                      const char *done, Json &result)
{
    ARCA_CHECK(answeredFor(asked, rc));
    ARCA_TRY(const auto classes, classesOf(client));
    std::string name = asked.name;
    for (const mtClass_t &known : classes.known) {
        if (!equalIgnoringCase(known.name, asked.name))
            continue;
        result["class"] = jsonOf(known);
        name = known.name;
    }
    if (!command.json)
        tools::print("Class       {} ({})\n", printable(name), done);
    return {};
}

Result<void> define(ClientSession &client, const Command &command, const Asked &asked, Json &result)
{
    const mtClassChange_t change = changesIn(asked);
    return conclude(client, command, asked, mtClassDefine(client.session(), asked.name, change),
                    "defined now", result);
}

Result<void> change(ClientSession &client, const Command &command, const Asked &asked, Json &result)
{
    if (!asked.pool && !asked.versions && !asked.days && !asked.description)
        throw UsageError("it takes at least one of --pool, --versions, --days and --description");
    const mtClassChange_t changes = changesIn(asked);
    return conclude(client, command, asked, mtClassChange(client.session(), asked.name, changes),
                    "changed now", result);
}

Result<void> retire(ClientSession &client, const Command &command, const Asked &asked, Json &result)
{
    return conclude(client, command, asked, mtClassDelete(client.session(), asked.name),
                    "deleted now", result);
}

/// The pieces that were bound, or would be: those that were not bound to the class before.
struct Bound {
    std::uint64_t gone = 0; // planned, but gone or bound by another when their turn came
    mtObjectIds_t ids;
    int damage = HOX_RC_OK; // pieces that cannot be read were passed over
};

std::string pieces(std::uint64_t number)
{
    return tools::counted(number, "piece");
}

/// Binds the pieces that match. `planned` is null for a dry run; else it holds the pieces that the
/// dry run found, and no other is bound.
int bindMatching(const mtSession &finding, const mtSession &changing, const Asked &asked,
                 mtFilter_t filter, const mtObjectIds_t *planned, Bound &bound)
{
    const bool dryRun = planned == nullptr;
    filter.progress = shownQuery(dryRun ? "Looking through the pieces" : "");
    filter.among = planned;
    tools::Progress progress("Binding", std::nullopt, dryRun);
    const int rc = mtBindObjects(
        finding, changing, filter, asked.name, dryRun, [&](const mtObject_t &object, int outcome) {
            if (outcome == HOX_RC_OK)
                bound.ids.push_back(object.objId);
            progress.show(bound.ids.size(), dryRun ? 0 : planned->size(), 0);
            return !interrupted();
        });
    std::ranges::sort(bound.ids);
    const bool damaged = rc == HOX_RC_REPOSITORY_DAMAGED;
    bound.damage = damaged ? rc : HOX_RC_OK;
    if (!dryRun && (rc == HOX_RC_OK || damaged))
        bound.gone = planned->size() - bound.ids.size();
    return damaged ? HOX_RC_OK : rc;
}

/// Returns true when any piece matches, bound to the class or not.
Result<bool> matchesAny(ClientSession &client, const mtFilter_t &filter)
{
    bool any = false;
    const auto found = [&](const dhoxBackupObject_t &) { return !(any = true); };
    const int rc = mtQueryObjects(client.session(), filter, mtOrder_t::inserted, found);
    ARCA_CHECK(expectUninterrupted());
    ARCA_CHECK(answered(rc));
    return any;
}

Result<void> bind(ClientSession &client, const Command &command, const Asked &asked, Json &result)
{
    const mtFilter_t filter = filterFrom(asked.selection);
    ARCA_CHECK(client.expectOwnPieces());
    ARCA_TRY(mtSession *const changing, client.second());
    Bound bound;
    const int found = bindMatching(client.session(), *changing, asked, filter, nullptr, bound);
    ARCA_CHECK(expectUninterrupted());
    ARCA_CHECK(answeredFor(asked, found));
    if (bound.ids.empty() && bound.damage == HOX_RC_OK) {
        ARCA_TRY(const bool any, matchesAny(client, filter));
        if (!any)
            return noMatch(asked.selection);
    }
    if (!asked.dryRun && !bound.ids.empty()) {
        ARCA_CHECK(confirm(fmt::format("{} {} bound to {}, which says from then on how long {} "
                                       "kept. Go on?",
                                       pieces(bound.ids.size()),
                                       bound.ids.size() == 1 ? "is" : "are", printable(asked.name),
                                       bound.ids.size() == 1 ? "it is" : "they are"),
                           asked.yes));
        ARCA_CHECK(expectUninterrupted());
        const mtObjectIds_t planned = std::exchange(bound.ids, {});
        const int rc = bindMatching(client.session(), *changing, asked, filter, &planned, bound);
        if (rc == HOX_RC_ABORTED && interrupted())
            return interruption(pieces(bound.ids.size()) + " bound; run it again for the rest");
        ARCA_CHECK(answered(rc));
    }
    result["dryRun"] = asked.dryRun;
    result["bound"] = bound.ids.size();
    result["missing"] = bound.gone;
    if (!command.json && bound.gone != 0)
        tools::print("{} {} not there any more, {}\n", pieces(bound.gone),
                     bound.gone == 1 ? "is" : "are",
                     bound.damage == HOX_RC_OK ? "or bound by now" : "bound by now, or damaged");
    if (!command.json)
        tools::print("{} {} to {}; what was bound to it stays so\n",
                     asked.dryRun ? "Would bind" : "Bound", pieces(bound.ids.size()),
                     printable(asked.name));
    return answered(bound.damage);
}

Result<void> perform(const Command &command, const Asked &asked, Work work, Json &result)
{
    if (work == bind) // it may take long
        catchInterrupts();
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    return work(*client, command, asked, result);
}

void addSettings(tools::Verb verb, Asked &asked)
{
    verb.addOption("--pool", asked.pool, "Storage pool").valueName("NAME");
    verb.addOption("--versions", asked.versions, "Inactive versions kept of a piece")
        .valueName("NUMBER|nolimit");
    verb.addOption("--days", asked.days, "Days a version is kept since it was made inactive")
        .valueName("NUMBER|forever");
    verb.addOption("--description", asked.description, "What the class is for").valueName("TEXT");
}

void addOperands(tools::Verb verb, Work work, Asked &asked)
{
    if (work != list)
        verb.addOption("NAME", asked.name, "Name of the class, in any case").required();
    if (work == define || work == change)
        addSettings(verb, asked);
    if (work == bind) {
        verb.addOption("PATTERN", asked.selection.pattern, "Names of pieces").required();
        verb.addOption("--filespace", asked.selection.filespace,
                       "Of filespaces of that name or pattern")
            .valueName("PATTERN");
        verb.addFlag("--dry-run", asked.dryRun, "Say how many it would be; change nothing");
        addYesOption(verb, asked.yes);
    }
}

} // namespace

void addClass(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("class", "Define, list, change and delete management classes");
    verb.footer("Example: arca class define GOLD --pool FASTPOOL --versions nolimit --days 365");
    addActions<Asked, Work>(
        verb, command,
        {{"define", "Define a class",
          "Example: arca class define GOLD --pool FASTPOOL --days 365\n"
          "What is left out: the pool of STANDARD, one version, for ever.",
          define},
         {"list", "Show the classes, the default first", "Example: arca class list --json", list},
         {"change", "Change what is given of a class",
          "Example: arca class change STANDARD --days 90\nWhat is left out stays as it is.",
          change},
         {"delete", "Delete a class",
          "Example: arca class delete GOLD\n"
          "Nothing new is bound to it; pieces that are bound to it keep it. STANDARD stays.",
          retire},
         {"bind", "Bind pieces to another class",
          "Example: arca class bind GOLD 'monthly_*'\n"
          "Inactive versions keep the class they have.",
          bind}},
        addOperands, perform);
}

} // namespace arca::tool
