// The activity log of the repository: what sessions report.
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
    bool allNodes = false;                      // instead of one
};

struct mtLogEvent_t {
    std::int64_t time = 0;
    std::uint32_t severity = HOX_SEVERITY_INFO;
    std::string node, application, messageId, message;
    bool sealed = false; // for another node: the message is not shown
};

/// Writes an event in the name of this application; one of severity error or worse is durable on
/// return, the others when the session ends.
int mtLogAppend(const mtSession &session, std::uint32_t severity, const std::string &messageId,
                const std::string &message);

/// Calls `visit` with each event, day by day in the order of time; false ends the query.
/// `unreadable` counts lines that are none of the log's.
int mtLogQuery(const mtSession &session, const mtLogFilter_t &filter,
               const std::function<bool(const mtLogEvent_t &event)> &visit,
               std::uint32_t &unreadable);

/// Deletes the events of the days (UTC) that were over at that moment. What an interrupted pruning
/// left is pruned by the next one.
int mtLogPrune(const mtSession &session, std::int64_t before);

#endif
