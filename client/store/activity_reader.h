// Reading the activity log back, and taking away what is old, for the administrator. See
// activity_log.h for its form.
#ifndef KEEL_CLIENT_STORE_ACTIVITY_READER_H
#define KEEL_CLIENT_STORE_ACTIVITY_READER_H

#include "client/store/activity_log.h"

#include <deque>
#include <optional>
#include <string_view>
#include <vector>

namespace arca::store
{

struct LoggedEvent {
    std::string time; // UTC, 2026-11-21T08:31:00Z: as text it sorts as in time
    Event event;
};

/// Which events are wanted.
struct LogSelection {
    std::string since; // in the form of LoggedEvent::time; empty: from the beginning
    Severity atLeast = Severity::info;
    std::string node;        // empty: all
    std::string before = {}; // empty: to the end
};

struct LogContent {
    std::vector<LoggedEvent> events; // in the order of time; of one session, as they came
    std::size_t unreadable = 0;      // lines that are none of ours
};

/// One line without its line feed; nothing when it is no line of the log.
std::optional<LoggedEvent> parseLogLine(std::string_view line);

/// The same a day at a time, so that the memory is that of a day: the days on which events were
/// published, and those of a day in the order of time. Belongs to one thread; must not outlive the
/// store.
class ActivityReader
{
public:
    static Result<ActivityReader> open(blob::BlobStore &store, LogSelection selection);

    /// Nothing after the last one.
    Result<std::optional<LoggedEvent>> next();
    /// Of the days that were begun.
    std::size_t unreadable() const { return unreadable_; }

private:
    ActivityReader(blob::BlobStore &store, LogSelection selection)
        : store_(&store), selection_(std::move(selection))
    {
    }

    blob::BlobStore *store_;
    LogSelection selection_;
    std::deque<std::string> days_; // that are left
    std::deque<LoggedEvent> events_;
    std::size_t unreadable_ = 0;
};

/// Removes what was published on days (UTC) that were over at that time: seconds since 1970.
Result<void> pruneActivityLog(blob::BlobStore &store, std::int64_t before);

/// The form of LoggedEvent::time, and back; 0 when it is none.
std::string logTimeOf(std::int64_t seconds);
std::int64_t secondsOf(const std::string &logTime);

Result<LogContent> readActivityLog(blob::BlobStore &store, const LogSelection &selection);

} // namespace arca::store

#endif
