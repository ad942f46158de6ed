// arca log: shows what sessions reported to the activity log of the repository.
#include "client/base/text.h"
#include "client/store/activity_reader.h"
#include "client/store/repository.h"
#include "tools/arca/command.h"

#include <ctime>
#include <map>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string since;
    store::Severity severity = store::Severity::info;
    std::string node;
};

const std::map<std::string, store::Severity> kSeverities = {
    {"info", store::Severity::info},
    {"warning", store::Severity::warning},
    {"error", store::Severity::error},
    {"severe", store::Severity::severe},
};

const std::string &nameOf(store::Severity severity)
{
    for (const auto &[name, known] : kSeverities)
        if (known == severity)
            return name;
    return kSeverities.begin()->first;
}

std::string timeText(std::time_t time)
{
    std::tm utc{};
    char text[32] = "";
    if (gmtime_r(&time, &utc) != nullptr)
        (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

/// "90m", "12h", "7d": that long ago.
std::optional<std::string> timeAgo(const std::string &text)
{
    const std::map<char, std::time_t> units = {{'m', 60}, {'h', 3600}, {'d', 86400}};
    const auto unit = text.empty() ? units.end() : units.find(text.back());
    const std::string digits = text.substr(0, text.empty() ? 0 : text.size() - 1);
    if (unit == units.end() || digits.empty() || digits.size() > 6 ||
        digits.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return timeText(std::time(nullptr) - std::stol(digits) * unit->second);
}

/// "2026-11-21", "2026-11-21T08:31", "2026-11-21T08:31:00Z": UTC.
std::optional<std::string> timeGiven(const std::string &text)
{
    for (const char *form : {"%Y-%m-%d", "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%SZ"}) {
        std::tm utc{};
        const char *end = strptime(text.c_str(), form, &utc);
        if (end != nullptr && *end == '\0')
            return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", utc.tm_year + 1900,
                               utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    }
    return std::nullopt;
}

Result<store::LogSelection> selectionFrom(const Asked &asked)
{
    store::LogSelection selection{{}, asked.severity, asked.node};
    if (asked.since.empty())
        return selection;
    auto since = timeAgo(asked.since);
    if (!since)
        since = timeGiven(asked.since);
    if (!since)
        return Error{ErrorKind::badArgument,
                     "--since takes a time ago (90m, 12h, 7d) or a UTC time such as 2026-11-21 or "
                     "2026-11-21T08:31, not '" +
                         printable(asked.since, 40) + "'"};
    selection.since = *since;
    return selection;
}

/// Without its empty fields: an event of an application has a name and a message, one of a session
/// perhaps neither.
void print(const store::LoggedEvent &logged)
{
    const store::Event &event = logged.event;
    std::string line = logged.time + " " + fmt::format("{:<7}", nameOf(event.severity));
    for (const std::string *field :
         {&event.node, &event.application, &event.messageId, &event.text})
        if (!field->empty())
            line += "  " + printable(*field, 4000);
    fmt::print("{}\n", line);
}

Result<void> showLog(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const store::LogSelection selection, selectionFrom(asked));
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    ARCA_TRY(const store::LogContent content,
             store::readActivityLog(repository->blobs(), selection));
    result["repository"] = repository->shownName();
    result["unreadable"] = content.unreadable;
    Json &events = result["events"] = Json::array();
    for (const store::LoggedEvent &logged : content.events) {
        const store::Event &event = logged.event;
        if (command.json)
            events.push_back({{"time", logged.time},
                              {"severity", nameOf(event.severity)},
                              {"node", event.node},
                              {"application", event.application},
                              {"messageId", event.messageId},
                              {"text", event.text}});
        else
            print(logged);
    }
    if (content.unreadable != 0 && !command.json)
        fmt::print(stderr, "arca log: {} lines of the activity log cannot be read\n",
                   content.unreadable);
    return {};
}

} // namespace

void addLog(CLI::App &app, Command &command)
{
    CLI::App *verb =
        app.add_subcommand("log", "Show what sessions reported to the repository's activity log");
    addCommonOptions(*verb, command);
    auto asked = std::make_shared<Asked>();
    verb->add_option("--since", asked->since,
                     "Events since then: a time ago (90m, 12h, 7d) or a UTC time")
        ->type_name("TIME");
    verb->add_option("--severity", asked->severity, "Events as severe as that, or worse")
        ->transform(CLI::CheckedTransformer(kSeverities, CLI::ignore_case))
        ->type_name("info|warning|error|severe");
    verb->add_option("--node", asked->node, "Events of that node only")->type_name("NAME");
    verb->footer("Example: arca log --since 24h --severity error\n"
                 "Times are UTC. A session's events appear when it ends, errors at once.");
    verb->callback([&command, asked] {
        command.verb = "log";
        command.run = [&command, asked](Json &result) { return showLog(command, *asked, result); };
    });
}

} // namespace arca::tool
