// The activity log of the repository: the events that sessions report. Each call returns the
// storage client's code, 0 for success; the session is idle.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTLOG_H
#define KEEL_AGENTS_COMMON_MAINT_MTLOG_H

#include <functional>

#include "agents/common/maint/mtsession.h"

/// Times are seconds since 1970, UTC; 0: no limit.
struct mtLogFilter_t {
    std::int64_t since = 0;
    std::int64_t before = 0;
    std::uint32_t severity = HOX_SEVERITY_INFO; // this one or worse
    std::string node;                           // empty: the session's own
    bool allNodes = false;                      // true: of every node, and node is not used
};

struct mtLogEvent_t {
    std::int64_t time = 0;
    std::uint32_t severity = HOX_SEVERITY_INFO;
    std::string node, application, messageId, message;
    bool sealed = false; // for another node: the message is not shown
};

/// Writes an event in the name of this application. An event of severity error or worse is durable
/// on return, any other when the session ends. messageId is cut silently at 8 bytes, the message at
/// HOX_MAX_LOG_TEXT; its control characters become '?'. HOX_RC_LOG_UNAVAILABLE: the log cannot be
/// written now, and the session's next event brings this one along.
int mtLogAppend(const mtSession &session, std::uint32_t severity, const std::string &messageId,
                const std::string &message);

/// Calls `visit` with each event, day by day in the order of time; false ends the query, which then
/// returns 0. `visit` must not use the session or throw. Returns 0 also when there is no event.
/// `unreadable` is the number of lines that are no events of the log, and of its files that cannot
/// be read: all of them at the end, also when there is no event; else those that were met so far.
int mtLogQuery(const mtSession &session, const mtLogFilter_t &filter,
               const std::function<bool(const mtLogEvent_t &event)> &visit,
               std::uint32_t &unreadable);

/// Deletes the events of the days (UTC) that had ended at `before` (seconds since 1970, UTC), of
/// all nodes. Days that an interrupted call left are deleted by the next call.
int mtLogPrune(const mtSession &session, std::int64_t before);

#endif
