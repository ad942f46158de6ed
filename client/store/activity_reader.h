// Reading the activity log back, for the administrator. See activity_log.h for its form.
#ifndef KEEL_CLIENT_STORE_ACTIVITY_READER_H
#define KEEL_CLIENT_STORE_ACTIVITY_READER_H

#include "client/store/activity_log.h"

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
    std::string node; // empty: all
};

struct LogContent {
    std::vector<LoggedEvent> events; // in the order of time; of one session, as they came
    std::size_t unreadable = 0;      // lines that are none of ours
};

/// One line without its line feed; nothing when it is no line of the log.
std::optional<LoggedEvent> parseLogLine(std::string_view line);

Result<LogContent> readActivityLog(blob::BlobStore &store, const LogSelection &selection);

} // namespace arca::store

#endif
