// Reading the activity log: see the header.
#include "client/store/log/activity_reader.h"

#include "client/base/crypto/hash.h"
#include "common/cu/cutime.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <set>

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
    return logged.time >= selection.since &&
           (selection.before.empty() || logged.time < selection.before) &&
           logged.event.severity >= selection.atLeast &&
           (selection.node.empty() || selection.node == logged.event.node);
}

} // namespace

std::optional<LoggedEvent> parseLogLine(std::string_view line, const std::string &node,
                                        const LogSeal &seal)
{
    if (std::count(line.begin(), line.end(), '\t') != 5)
        return std::nullopt;
    LoggedEvent logged;
    const std::string_view head = line.substr(0, line.rfind('\t'));
    logged.time = nextField(line);
    const std::string_view severity = nextField(line);
    const auto rank = kSeverities.find(severity);
    if (!isTime(logged.time) || severity.size() != 1 || rank == std::string_view::npos)
        return std::nullopt;
    logged.event.severity = static_cast<Severity>(rank);
    for (std::string *field : {&logged.event.node, &logged.event.application,
                               &logged.event.messageId, &logged.event.text})
        *field = nextField(line);
    std::string &text = logged.event.text;
    if (!LogSeal::isSealed(text))
        return logged; // by an earlier release
    logged.sealed = logged.event.node != node;
    if (logged.sealed) {
        text.clear();
        return logged;
    }
    auto opened = seal.open(head, text);
    if (!opened && seal.isOfEarlier(head, text)) {
        logged.sealed = true;
        text.clear();
        return logged;
    }
    if (!opened)
        return std::nullopt;
    text = std::move(*opened);
    return logged;
}

namespace
{

template <class Visit> void eachLine(std::string_view text, Visit visit)
{
    while (!text.empty()) {
        const auto end = text.find('\n');
        visit(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
}

/// Earlier releases wrote texts in clear, and the same one again when the same thing happened.
bool isFirst(std::string_view line, std::unordered_set<std::uint64_t> &seen)
{
    return !LogSeal::isSealed(line.substr(line.rfind('\t') + 1)) ||
           seen.insert(checksum64(viewOf(line))).second;
}

/// The days that have blobs, as log/<day>/.
Result<std::set<std::string>> daysOf(blob::BlobStore &store)
{
    std::set<std::string> days;
    ARCA_CHECK(store.list("log/", [&](const std::string &name) {
        if (!publishedAt(name).empty())
            days.insert(name.substr(0, name.rfind('/') + 1));
        return true;
    }));
    return days;
}

std::string dayOf(const std::string &logTime)
{
    return "log/" + logTime.substr(0, 4) + logTime.substr(5, 2) + logTime.substr(8, 2) + "/";
}

} // namespace

Result<ActivityReader> ActivityReader::open(blob::BlobStore &store, LogSelection selection,
                                            std::string node, LogSeal seal)
{
    ActivityReader reader(store, std::move(selection), std::move(node), std::move(seal));
    ARCA_TRY(const auto days, daysOf(store));
    const std::string &since = reader.selection_.since;
    for (const std::string &day : days)
        if (since.empty() || day >= dayOf(since))
            reader.days_.push_back(day);
    return reader;
}

Result<std::size_t> unreadableLines(blob::BlobStore &store, const std::string &blobName,
                                    const std::string &node, const LogSeal &seal)
{
    ARCA_TRY(const Bytes bytes, blob::readWhole(store, blobName, kMaxBlobBytes));
    std::size_t unreadable = 0;
    eachLine(textOf(bytes),
             [&](std::string_view line) { unreadable += parseLogLine(line, node, seal) ? 0 : 1; });
    return unreadable;
}

void ActivityReader::addLines(std::string_view text)
{
    eachLine(text, [&](std::string_view line) {
        auto logged = parseLogLine(line, node_, seal_);
        if (!logged)
            ++unreadable_;
        else if (isWanted(*logged, selection_) && isFirst(line, seen_))
            events_.push_back(std::move(*logged));
    });
}

Result<void> ActivityReader::readDay(const std::string &day)
{
    std::vector<std::string> names;
    ARCA_CHECK(store_->list(day, [&](const std::string &name) {
        const std::string published = publishedAt(name);
        if (published.empty() || published >= selection_.since)
            names.push_back(name);
        return true;
    }));
    std::sort(names.begin(), names.end());
    for (const std::string &name : names) {
        const auto bytes = blob::readWhole(*store_, name, kMaxBlobBytes);
        if (!bytes && bytes.error().kind == ErrorKind::notFound)
            continue; // pruned since the listing
        if (bytes)
            addLines(textOf(*bytes));
        else if (isUnreadable(bytes.error()))
            ++unreadable_;
        else
            return bytes.error();
    }
    std::stable_sort(events_.begin(), events_.end(),
                     [](const LoggedEvent &a, const LoggedEvent &b) { return a.time < b.time; });
    return {};
}

Result<std::optional<LoggedEvent>> ActivityReader::next()
{
    while (events_.empty() && !days_.empty()) {
        const std::string day = std::move(days_.front());
        days_.pop_front();
        ARCA_CHECK(readDay(day));
    }
    if (events_.empty())
        return std::optional<LoggedEvent>();
    std::optional<LoggedEvent> event(std::move(events_.front()));
    events_.pop_front();
    return event;
}

Result<void> pruneActivityLog(blob::BlobStore &store, std::int64_t before)
{
    const std::string firstKept = dayOf(logTimeOf(before));
    ARCA_TRY(const auto days, daysOf(store));
    for (const std::string &day : days) {
        if (day >= firstKept)
            break;
        std::vector<std::string> names;
        ARCA_CHECK(store.list(day, [&](const std::string &name) {
            names.push_back(name);
            return true;
        }));
        for (const std::string &name : names) {
            const auto blob = store.open(name);
            auto removed = blob ? store.remove(name, **blob) : Result<void>(blob.error());
            if (!removed && removed.error().kind != ErrorKind::notFound)
                return removed;
        }
    }
    return {};
}

std::string logTimeOf(std::int64_t seconds)
{
    const auto time = static_cast<std::time_t>(std::clamp<std::int64_t>(seconds, 0, 253402300799));
    std::tm utc{};
    char text[32] = "";
    if (cuUtcTime(time, &utc))
        (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::int64_t secondsOf(const std::string &logTime)
{
    if (!isTime(logTime))
        return 0;
    const auto number = [&](std::size_t at, std::size_t length) {
        return std::atoi(logTime.substr(at, length).c_str());
    };
    // Days since 1970 of a date, by counting from the 1st of March, so that a leap day ends a year.
    const std::int64_t month = (number(5, 2) + 9) % 12;
    const std::int64_t year = number(0, 4) - month / 10;
    const std::int64_t days = 365 * year + year / 4 - year / 100 + year / 400 +
                              (153 * month + 2) / 5 + number(8, 2) - 1 - 719468;
    return days * 86400 + number(11, 2) * 3600 + number(14, 2) * 60 + number(17, 2);
}

} // namespace arca::store
