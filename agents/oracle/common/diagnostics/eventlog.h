// CEventLog: messages to the event logs of the storage client: the server's, the local one, or
// both.
//
// A local object of one call and one thread: made on entry, given the node's name, used, destroyed.
// The destructor sends what is still queued, unless the log has refused the queue before. A message
// that cannot be sent or queued is lost; no call reports that. Lines are cut silently at 1,024
// bytes.
#ifndef KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_EVENTLOG_H
#define KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_EVENTLOG_H

#include <cstdint>

#include "agents/common/clinkedlist.h"
#include "agents/oracle/common/orcobj.h"

using logType_t = std::uint32_t; // HOX_LOG_

struct logMsgInfo_t {
    std::uint32_t hoxHandle; // 0: none
    logType_t logType;
    char engText[1025]; // for the server's log
    char nlsText[1027]; // for the local log
    std::uint32_t severity;
};

class CEventLog
{
public:
    /// funcName is copied, cut at 30 characters.
    explicit CEventLog(const char *funcName);
    ~CEventLog();
    CEventLog(const CEventLog &) = delete;
    CEventLog &operator=(const CEventLog &) = delete;

    /// Sets the node's name that every line shows, cut at 64 characters.
    void initNodeName(const char *node);

    /// Send at once, or queue, a numbered message of this library with its inserts: in English to
    /// the server's log, in the host's language to the local one. Without a session (handle 0) a
    /// message is sent to the local log only. Number 2041, by which a log says that it is
    /// unavailable, is never logged.
    void logOrcMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, int msgNum, ...);
    void queueOrcMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, int msgNum, ...);

    /// Send at once, or queue, the storage client's message for a code, in the same languages.
    void logApiMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, std::int16_t rc);
    void queueApiMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, std::int16_t rc);

    /// Sends the queue from its head and empties it; call it before the session of its messages
    /// ends, or they are lost. When the log answers 2041 the rest stays queued: a later call tries
    /// it again, the destructor drops it unsent.
    void logQueuedMsgs();

private:
    // "=>(" of numbered and of queued messages, "=> (" of the client's when sent at once.
    enum class Arrow { Tight, Spaced };

    std::int16_t send(const logMsgInfo_t &message, logType_t destination, Arrow arrow);
    std::int16_t sendLine(const logMsgInfo_t &message, logType_t type, const char *text,
                          Arrow arrow);

    char funcName[31];
    char nodeName[65];
    CLinkedList<logMsgInfo_t> msgList;
    bool refused = false; // the last flush met 2041: what is left in msgList is not offered again
};

/// Sends the server's log an event without a text: the application begins its work in this session.
/// kind: HOX_EVENT_SESSION or HOX_EVENT_SESSION_RESUMED. A failure is ignored.
void veloLogSessionEvent(const orcObj_t *ctx, std::uint16_t kind);

#endif
