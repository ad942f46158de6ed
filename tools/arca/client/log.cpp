// arca log: shows what sessions reported to the activity log of the repository, and prunes it.
#include "agents/common/maint/mtlog.h"
#include "client/base/text.h"
#include "tools/arca/client/client_session.h"
#include "tools/arca/moment.h"
#include "tools/arca/node_session.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"

#include <cstdio>
#include <ctime>
#include <utility>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string since, before;
    std::uint32_t severity = HOX_SEVERITY_INFO;
    std::string node;
    bool allNodes = false;
    int pruneDays = 0;
    bool yes = false, fromStandardInput = false;
};

constexpr std::pair<const char *, std::uint32_t> kSeverities[] = {
    {"info", HOX_SEVERITY_INFO},
    {"warning", HOX_SEVERITY_WARNING},
    {"error", HOX_SEVERITY_ERROR},
    {"severe", HOX_SEVERITY_SEVERE},
};

const char *nameOf(std::uint32_t severity)
{
    for (const auto &[name, known] : kSeverities)
        if (known == severity)
            return name;
    return "error";
}

mtLogFilter_t filterFrom(const Asked &asked)
{
    mtLogFilter_t filter;
    filter.severity = asked.severity;
    filter.node = asked.node;
    filter.allNodes = asked.allNodes;
    if (!asked.since.empty())
        filter.since = momentFrom(asked.since, "--since");
    if (!asked.before.empty())
        filter.before = momentFrom(asked.before, "--before");
    return filter;
}

/// Prints an event without its empty fields: an event of a session may have neither application nor
/// message.
void print(const mtLogEvent_t &event)
{
    std::string line =
        tools::utcTimeText(event.time) + " " + fmt::format("{:<7}", nameOf(event.severity));
    for (const std::string *field :
         {&event.node, &event.application, &event.messageId, &event.message})
        if (!field->empty())
            line += "  " + printable(*field, 4000);
    if (event.sealed)
        line += "  (sealed for its node)";
    tools::print("{}\n", line);
}

Json jsonOf(const mtLogEvent_t &event)
{
    return {{"time", tools::utcTimeText(event.time)},
            {"severity", nameOf(event.severity)},
            {"node", event.node},
            {"application", event.application},
            {"messageId", event.messageId},
            {"text", event.message},
            {"sealed", event.sealed}};
}

Result<void> showLog(ClientSession &client, const Command &command, const Asked &asked,
                     Json &result)
{
    const mtLogFilter_t filter = filterFrom(asked);
    Json &events = result["events"] = Json::array();
    std::uint32_t unreadable = 0;
    const int rc = mtLogQuery(
        client.session(), filter,
        [&](const mtLogEvent_t &event) {
            if (command.json)
                events.push_back(jsonOf(event));
            else
                print(event);
            return std::ferror(stdout) == 0;
        },
        unreadable);
    ARCA_CHECK(answered(rc));
    result["unreadable"] = unreadable;
    if (unreadable != 0 && !command.json)
        tools::complain(fmt::format("arca log: {} of the activity log cannot be read\n",
                                    tools::counted(unreadable, "line or file", "lines or files")));
    return {};
}

/// Prunes the log. It is the log of all nodes, so an event in it says which node pruned it.
Result<void> prune(ClientSession &client, const Command &command, const Asked &asked, Json &result)
{
    constexpr std::int64_t kDay = 86400;
    const std::int64_t before = std::time(nullptr) - asked.pruneDays * kDay;
    const std::string told =
        fmt::format("events of all nodes from before {}", tools::utcTimeText(before).substr(0, 10));
    ARCA_CHECK(confirm("The " + told + " go for good. Delete them?", asked.yes));
    ARCA_CHECK(answered(mtLogPrune(client.session(), before)));
    (void)mtLogAppend(client.session(), HOX_SEVERITY_INFO, "ARCA012", "arca log: pruned " + told);
    result["prunedBefore"] = tools::utcTimeText(before).substr(0, 10) + "T00:00:00Z";
    if (!command.json)
        tools::print("Deleted the {}\n", told);
    return {};
}

Result<void> perform(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    return asked.pruneDays > 0 ? prune(*client, command, asked, result)
                               : showLog(*client, command, asked, result);
}

} // namespace

void addLog(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("log", "Show what sessions reported to the repository's activity log");
    addCommonOptions(verb, command);
    auto asked = std::make_shared<Asked>();
    verb.addOption("--since", asked->since,
                   "Events since then: a time ago (90m, 12h, 7d) or a UTC time")
        .valueName("TIME");
    verb.addOption("--before", asked->before, "Events before then").valueName("TIME");
    verb.addChoice("--severity", asked->severity, "Events as severe as that, or worse", kSeverities)
        .valueName("info|warning|error|severe");
    const tools::Option node =
        verb.addOption("--node", asked->node, "Events of that node instead of NODENAME");
    node.valueName("NAME");
    verb.addFlag("--all-nodes", asked->allNodes, "Events of all nodes").excludes(node);
    const tools::Option prune =
        verb.addOption("--prune", asked->pruneDays,
                       "Delete the events of all nodes of days (UTC) that were over that many "
                       "days ago")
            .valueName("DAYS")
            .between(1, 36500);
    for (const char *filter : {"--since", "--before", "--severity", "--node", "--all-nodes"})
        prune.excludes(verb.option(filter));
    addYesOption(verb, asked->yes);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer(
        "Example: arca log --since 24h --severity error\n"
        "Times are UTC. A session's events appear when it ends, errors at once. Texts of other "
        "nodes are sealed for them, and only said to be there.");
    verb.onChosen([&command, asked] {
        command.verb = "log";
        command.run = [&command, asked](Json &result) { return perform(command, *asked, result); };
    });
}

} // namespace arca::tool
