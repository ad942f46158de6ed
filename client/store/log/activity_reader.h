// Reading the activity log back, and taking away what is old, for the administrator. See
// activity_log.h for its form.
#ifndef KEEL_CLIENT_STORE_LOG_ACTIVITY_READER_H
#define KEEL_CLIENT_STORE_LOG_ACTIVITY_READER_H

#include "client/store/log/activity_log.h"

#include <deque>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace arca::store
{

struct LoggedEvent {
    std::string time; // UTC, 2026-11-21T08:31:00Z: as text it sorts as in time
    Event event;
    bool sealed = false; // for another node: `event` has no text
};

/// Which events are wanted.
struct LogSelection {
    std::string since; // in the form of LoggedEvent::time, within; empty: from the beginning
    Severity atLeast = Severity::info;
    std::string node;        // empty: all
    std::string before = {}; // not within; empty: to the end
};

/// Parses one line without its line feed; returns nothing when it is no line of the log, or is one
/// of `node` that its key does not open. A text that is sealed for another node is left out.
std::optional<LoggedEvent> parseLogLine(std::string_view line, const std::string &node,
                                        const LogSeal &seal);

/// Returns how many lines of a blob are none of the log's, or were changed. Errors: damaged when it
/// is longer than 4 MiB, what opening and reading say.
Result<std::size_t> unreadableLines(blob::BlobStore &store, const std::string &blobName,
                                    const std::string &node, const LogSeal &seal);

/// Reads events a day at a time, so that the memory is that of a day, and a few bytes for each
/// sealed line: the days on which events were published, and those of a day in the order of time. A
/// sealed line is taken once, as no two are alike: what else has it is a copy. Belongs to one
/// thread; must not outlive the store.
class ActivityReader
{
public:
    /// For `node`, whose seal is given.
    static Result<ActivityReader> open(blob::BlobStore &store, LogSelection selection,
                                       std::string node, LogSeal seal);

    /// Returns nothing after the last one. What cannot be read is counted by unreadable(), and no
    /// error.
    Result<std::optional<LoggedEvent>> next();
    /// Returns how many lines of the days that were begun are none of the log's or were changed. A
    /// blob that cannot be read counts as one.
    std::size_t unreadable() const { return unreadable_; }

private:
    ActivityReader(blob::BlobStore &store, LogSelection selection, std::string node, LogSeal seal)
        : store_(&store), selection_(std::move(selection)), node_(std::move(node)),
          seal_(std::move(seal))
    {
    }
    Result<void> readDay(const std::string &day);
    void addLines(std::string_view text);

    blob::BlobStore *store_;
    LogSelection selection_;
    std::string node_;
    LogSeal seal_;
    std::deque<std::string> days_; // that are left
    std::deque<LoggedEvent> events_;
    std::unordered_set<std::uint64_t> seen_; // checksums of sealed lines
    std::size_t unreadable_ = 0;
};

/// Removes what was published on days (UTC) that were over at that time: seconds since 1970. After
/// an error some of it may be gone; call it again.
Result<void> pruneActivityLog(blob::BlobStore &store, std::int64_t before);

/// The form of LoggedEvent::time (seconds before 1970 become 1970), and back; 0 when it is none.
std::string logTimeOf(std::int64_t seconds);
std::int64_t secondsOf(const std::string &logTime);

} // namespace arca::store

#endif
