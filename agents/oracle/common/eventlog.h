// CEventLog: messages to the event logs of the storage client, the server's, the local one, or
// both.
//
// A short-lived local object of one call: made on entry, told the node, used, and let go; what is
// still queued then is sent, unless the log has refused it before. What cannot be sent is lost;
// nothing is reported to the caller.
#ifndef KEEL_AGENTS_ORACLE_COMMON_EVENTLOG_H
#define KEEL_AGENTS_ORACLE_COMMON_EVENTLOG_H

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
    explicit CEventLog(const char *funcName);
    ~CEventLog();
    CEventLog(const CEventLog &) = delete;
    CEventLog &operator=(const CEventLog &) = delete;

    void initNodeName(const char *node);

    /// A numbered message of this library with its inserts, sent at once or queued. Without a
    /// session (handle 0) it goes to the local log whatever was asked. Number 2041 is never logged.
    void logOrcMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, int msgNum, ...);
    void queueOrcMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, int msgNum, ...);

    /// The storage client's own message for a code, sent at once or queued.
    void logApiMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, std::int16_t rc);
    void queueApiMsg(std::uint32_t hoxHandle, logType_t, std::uint32_t severity, std::int16_t rc);

    /// Sends the queue from its head. When the log answers 2041 the rest stays queued: a later
    /// call tries it again, the end of the object drops it unsent.
    void logQueuedMsgs();

private:
    enum class Arrow { Tight, Spaced }; // "=>(" of numbered messages, "=> (" of the client's

    std::int16_t send(const logMsgInfo_t &message, logType_t destination, Arrow arrow);
    std::int16_t sendLine(const logMsgInfo_t &message, logType_t type, const char *text,
                          Arrow arrow);

    char funcName[31];
    char nodeName[65];
    CLinkedList<logMsgInfo_t> msgList;
    bool refused = false; // the last flush met 2041: what is left in msgList is not offered again
};

/// Tells the server's log that the application begins its work in this session: an event without a
/// text. kind: HOX_EVENT_SESSION or HOX_EVENT_SESSION_RESUMED.
void veloLogSessionEvent(const orcObj_t *ctx, std::uint16_t kind);

#endif
