// arca show: shows one piece with its attributes, its group and its readers.
#include "agents/common/maint/mtaccess.h"
#include "agents/common/maint/mtpolicy.h"
#include "client/base/text.h"
#include "tools/arca/client/client_session.h"
#include "tools/arca/moment.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/arca/piece_name.h"
#include "tools/arca/selection.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"

#include <ctime>
#include <optional>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace arca::tool
{

namespace
{

struct Asked {
    Selection selection;
    bool fromStandardInput = false;
};

/// A version, its group and its readers.
struct Version {
    dhoxBackupObject_t object;
    std::vector<std::string> group; // the members of the group that it leads
    // Nodes that may read it; nothing when that is not this node's to know.
    std::optional<std::vector<std::string>> readers;
};

bool covers(const qryRespAccessData &rule, const hoxObjName &name)
{
    const auto matches = [](std::string_view asked, std::string_view given) {
        return asked == "/*" || asked == given;
    };
    return std::string_view(rule.objName.fsName) == name.fsName &&
           matches(rule.objName.hlName, name.hlName) && matches(rule.objName.llName, name.llName);
}

/// Returns the access rules; nothing in a session for another node's pieces, whose rules are not
/// this node's to see.
Result<std::optional<std::vector<qryRespAccessData>>> rulesOf(ClientSession &client)
{
    std::vector<qryRespAccessData> rules;
    const int rc = mtAccessRules(client.session(), rules);
    if (rc == HOX_RC_ACCESS_DENIED)
        return std::optional<std::vector<qryRespAccessData>>();
    ARCA_CHECK(answered(rc));
    return std::optional(std::move(rules));
}

std::string readersText(const Version &version)
{
    if (!version.readers)
        return "known to the node that stored it";
    return version.readers->empty() ? "this node only"
                                    : fmt::format("{}", fmt::join(*version.readers, ", "));
}

Result<std::vector<Version>> versionsOf(ClientSession &client, const Asked &asked)
{
    mtFilter_t filter = filterFrom(asked.selection);
    filter.objState = HOX_STATE_ANY;
    std::vector<Version> versions;
    // A literal name is meant, but the filter takes * and ? in it for wildcards.
    const auto exact = [&](const hoxObjName &name) {
        return pieceOf(name) == asked.selection.pattern ||
               pieceText(name) == asked.selection.pattern;
    };
    ARCA_CHECK(answered(mtQueryObjects(client.session(), filter, mtOrder_t::inserted,
                                       [&](const dhoxBackupObject_t &object) {
                                           if (exact(object.objName))
                                               versions.push_back({object, {}, std::nullopt});
                                           return true;
                                       })));
    ARCA_TRY(const auto rules, rulesOf(client));
    for (Version &version : versions) {
        ARCA_CHECK(answered(mtQueryGroup(client.session(), version.object.objId,
                                         [&](const dhoxBackupObject_t &member) {
                                             if (member.objId != version.object.objId)
                                                 version.group.push_back(pieceOf(member.objName));
                                             return true;
                                         })));
        if (rules)
            version.readers.emplace();
        for (const qryRespAccessData &rule : rules.value_or(std::vector<qryRespAccessData>()))
            if (covers(rule, version.object.objName))
                version.readers->emplace_back(rule.nodeName);
    }
    return versions;
}

std::string limitText(std::uint16_t value, const char *unlimited, const char *unit)
{
    return value == mtNoLimit ? unlimited : fmt::format("{} {}", value, unit);
}

std::string classText(const std::string &name, const std::vector<mtClass_t> &classes)
{
    for (const mtClass_t &known : classes)
        if (known.name == name)
            return fmt::format("{} (inactive: {}, {}{})", name,
                               limitText(known.versionsKept, "any number", "versions"),
                               limitText(known.daysKept, "for ever", "days"),
                               known.isDeleted ? "; the class is deleted" : "");
    return name + " (not defined, or its record cannot be read)";
}

std::string savingsText(const dhoxBackupObject_t &object)
{
    if (object.size == 0 || object.storedSize >= object.size)
        return "";
    return fmt::format(" ({:.1f} % saved)", 100.0 - 100.0 * static_cast<double>(object.storedSize) /
                                                        static_cast<double>(object.size));
}

std::string expiryText(const hoxDate &date)
{
    return date.year == 0 ? "never by age"
                          : fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", date.year,
                                        date.month, date.day, date.hour, date.minute, date.second);
}

void line(const char *label, const std::string &text)
{
    tools::print("{:<12}{}\n", label, printable(text, 4000));
}

void print(const Version &version, const std::vector<mtClass_t> &classes)
{
    const dhoxBackupObject_t &object = version.object;
    const std::int64_t now = std::time(nullptr);
    Json told;
    describe(told, object);
    line("Piece", pieceText(object.objName));
    line("Identifier", idText(object.objId));
    line("State", object.inactTime == 0
                      ? "active"
                      : "inactive since " + tools::localTimeText(object.inactTime));
    line("Stored",
         tools::localTimeText(object.insTime) + " (" + ageText(now - object.insTime) + " ago)");
    line("Size", fmt::format("{} ({} bytes)", sizeText(object.size), object.size));
    line("Added", sizeText(object.storedSize) + " to the repository" + savingsText(object));
    line("Treated", fmt::format("compressed: {}, duplicates looked for: {}, encryption: {}",
                                object.objCompressed != 0 ? "yes" : "no",
                                object.objDeduplicated != 0 ? "yes" : "no",
                                told["encryption"].get<std::string>()));
    line("Class", classText(object.mcName, classes));
    line("Expires", object.inactTime == 0 ? "not while it is active" : expiryText(object.expDate));
    line("Owner", object.owner[0] == '\0' ? "none" : object.owner);
    line("Information", object.objInfo);
    if (!version.group.empty())
        line("Leads", fmt::format("{}", fmt::join(version.group, ", ")));
    line("Readers", readersText(version));
}

Json jsonOfVersion(const Version &version)
{
    Json told;
    describe(told, version.object);
    told["expires"] =
        version.object.expDate.year == 0 ? Json(nullptr) : Json(expiryText(version.object.expDate));
    told["leads"] = version.group;
    told["readers"] = version.readers ? Json(*version.readers) : Json(nullptr);
    return told;
}

Result<void> show(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    ARCA_TRY(const auto versions, versionsOf(*client, asked));
    std::vector<mtClass_t> classes;
    // The piece is shown all the same; that of its class is left out when it cannot be read.
    if (const int rc = mtClasses(client->session(), true, classes); rc != HOX_RC_REPOSITORY_DAMAGED)
        ARCA_CHECK(answered(rc));
    Json &shown = result["versions"] = Json::array();
    for (const Version &version : versions) {
        shown.push_back(jsonOfVersion(version));
        if (!command.json) {
            tools::print("{}", &version == versions.data() ? "" : "\n");
            print(version, classes);
        }
    }
    if (versions.empty())
        return Error{ErrorKind::notFound, "there is no piece " +
                                              printable(asked.selection.pattern) +
                                              "; arca ls shows those there are"};
    return {};
}

} // namespace

void addShow(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("show", "Show everything that is known of a piece");
    auto asked = std::make_shared<Asked>();
    verb.addOption("PIECE", asked->selection.pattern, "Name of the piece, to the letter")
        .required();
    verb.addOption("--filespace", asked->selection.filespace, "Only in that filespace")
        .valueName("NAME");
    addCommonOptions(verb, command);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer("Example: arca show df_12_1\n"
                "All versions are shown, active and inactive, the oldest first.");
    verb.onChosen([&command, asked] {
        command.verb = "show";
        command.run = [&command, asked](Json &result) { return show(command, *asked, result); };
    });
}

} // namespace arca::tool
