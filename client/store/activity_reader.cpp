// Reading the activity log: see the header.
#include "client/store/activity_reader.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::size_t kMaxBlobBytes = std::size_t{4} << 20;
constexpr std::string_view kSeverities = "IWES";
constexpr std::string_view kTimeForm = "0000-00-00T00:00:00Z";

bool isTime(std::string_view text)
{
    return text.size() == kTimeForm.size() &&
           std::equal(text.begin(), text.end(), kTimeForm.begin(), [](char c, char form) {
               return form == '0' ? c >= '0' && c <= '9' : c == form;
           });
}

/// The text to the next tab, which is taken away with it.
std::string_view nextField(std::string_view &line)
{
    const auto tab = line.find('\t');
    const std::string_view field = line.substr(0, tab);
    line = tab == std::string_view::npos ? std::string_view() : line.substr(tab + 1);
    return field;
}

/// When a blob was published, in the form of an event's time; its events are not younger. Empty
/// when its name does not tell.
std::string publishedAt(const std::string &name)
{
    constexpr std::string_view kForm = "log/20261121/083100-";
    if (name.size() < kForm.size())
        return {};
    const std::string day = name.substr(4, 8), time = name.substr(13, 6);
    std::string text = day.substr(0, 4) + "-" + day.substr(4, 2) + "-" + day.substr(6) + "T" +
                       time.substr(0, 2) + ":" + time.substr(2, 2) + ":" + time.substr(4) + "Z";
    return isTime(text) ? text : std::string();
}

bool isWanted(const LoggedEvent &logged, const LogSelection &selection)
{
    return logged.time >= selection.since && logged.event.severity >= selection.atLeast &&
           (selection.node.empty() || selection.node == logged.event.node);
}

void addLines(std::string_view text, const LogSelection &selection, LogContent &content)
{
    while (!text.empty()) {
        const auto end = text.find('\n');
        auto logged = parseLogLine(text.substr(0, end));
        if (!logged)
            ++content.unreadable;
        else if (isWanted(*logged, selection))
            content.events.push_back(std::move(*logged));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
}

} // namespace

std::optional<LoggedEvent> parseLogLine(std::string_view line)
{
    if (std::count(line.begin(), line.end(), '\t') != 5)
        return std::nullopt;
    LoggedEvent logged;
    logged.time = nextField(line);
    const std::string_view severity = nextField(line);
    const auto rank = kSeverities.find(severity);
    if (!isTime(logged.time) || severity.size() != 1 || rank == std::string_view::npos)
        return std::nullopt;
    logged.event.severity = static_cast<Severity>(rank);
    for (std::string *field : {&logged.event.node, &logged.event.application,
                               &logged.event.messageId, &logged.event.text})
        *field = nextField(line);
    return logged;
}

Result<LogContent> readActivityLog(blob::BlobStore &store, const LogSelection &selection)
{
    std::vector<std::string> names;
    ARCA_CHECK(store.list("log/", [&](const std::string &name) {
        const std::string published = publishedAt(name);
        if (published.empty() || published >= selection.since)
            names.push_back(name);
        return true;
    }));
    std::sort(names.begin(), names.end());
    LogContent content;
    for (const std::string &name : names) {
        ARCA_TRY(const Bytes bytes, blob::readWhole(store, name, kMaxBlobBytes));
        addLines(textOf(bytes), selection, content);
    }
    std::stable_sort(content.events.begin(), content.events.end(),
                     [](const LoggedEvent &a, const LoggedEvent &b) { return a.time < b.time; });
    return content;
}

} // namespace arca::store
