// Composing event messages and handing them to the storage client.
#include "agents/oracle/common/diagnostics/eventlog.h"

#include <cstdarg>
#include <cstdio>
#include <unistd.h>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/orcmessage.h"
#include "common/string/ststring.h"

namespace
{

constexpr std::size_t kLineSize = 1025;
constexpr int kNeverLogged = HOX_RC_LOG_UNAVAILABLE;

logMsgInfo_t messageFor(std::uint32_t hoxHandle, logType_t type, std::uint32_t severity)
{
    logMsgInfo_t message{};
    message.hoxHandle = hoxHandle;
    message.logType = type;
    message.severity = severity;
    return message;
}

// Without a session there is no server's log.
logType_t destinationOf(const logMsgInfo_t &message)
{
    return message.hoxHandle != 0 ? message.logType : HOX_LOG_LOCAL;
}

// Formats the texts that the destination needs.
void formatOrcTexts(logMsgInfo_t &message, logType_t destination, int msgNum, va_list arguments)
{
    if (destination != HOX_LOG_SERVER) {
        va_list copy;
        va_copy(copy, arguments);
        stCopy(message.nlsText, OrcMessage(OrcMessage::Localised, msgNum, copy).text());
        va_end(copy);
    }
    if (destination != HOX_LOG_LOCAL) {
        va_list copy;
        va_copy(copy, arguments);
        stCopy(message.engText, OrcMessage(OrcMessage::English, msgNum, copy).text());
        va_end(copy);
    }
}

void fetchApiTexts(logMsgInfo_t &message, std::int16_t rc)
{
    veloGetApiMsg(message.hoxHandle, 1, rc, message.engText);
    if (!veloGetLocalMsg(message.hoxHandle, rc, message.nlsText)) {
        stCopy(message.nlsText, message.engText);
    }
}

hoxLogEventExIn_t eventRecord(const char *application, const char *platform)
{
    hoxLogEventExIn_t event{};
    event.stVersion = HOX_LOGEVENTEX_VERSION;
    stCopy(event.appName, application);
    stCopy(event.platform, platform);
    std::snprintf(event.appVersion, sizeof event.appVersion, "%d.%d.%d.%d", 7, 1, 3, 0);
    return event;
}

} // namespace

CEventLog::CEventLog(const char *name) : funcName{}, nodeName{}
{
    const TraceScope scope("CEventLog::CEventLog()");
    stCopy(funcName, name);
}

CEventLog::~CEventLog()
{
    const TraceScope scope("CEventLog::~CEventLog()");
    if (!refused) {
        logQueuedMsgs();
    }
    msgList.freeAll();
}

void CEventLog::initNodeName(const char *node)
{
    stCopy(nodeName, node);
}

std::int16_t CEventLog::sendLine(const logMsgInfo_t &message, logType_t type, const char *text,
                                 Arrow arrow)
{
    char line[kLineSize];
    std::snprintf(line, sizeof line,
                  arrow == Arrow::Tight ? "KEEL for Oracle: (%d): =>(%s) %s"
                                        : "KEEL for Oracle: (%d): => (%s) %s",
                  static_cast<int>(getpid()), nodeName, text);
    hoxLogEventExIn_t event = eventRecord("KEEL Oracle SUN", "64bit");
    stCopy(event.messageId, "RBQ0599");
    event.severity = message.severity;
    event.logType = type;
    event.message = line;
    hoxLogEventExOut_t answer{};
    return hoxApi().dhoxLogEventEx(HoxApiStatusObjP, message.hoxHandle, &event, &answer);
}

// Returns the code of the last send.
std::int16_t CEventLog::send(const logMsgInfo_t &message, logType_t destination, Arrow arrow)
{
    std::int16_t rc = HOX_RC_OK;
    if (destination != HOX_LOG_SERVER) {
        rc = sendLine(message, HOX_LOG_LOCAL, message.nlsText, arrow);
    }
    if (destination != HOX_LOG_LOCAL) {
        rc = sendLine(message, HOX_LOG_SERVER, message.engText, arrow);
    }
    return rc;
}

void CEventLog::logOrcMsg(std::uint32_t hoxHandle, logType_t type, std::uint32_t severity,
                          int msgNum, ...)
{
    TraceScope scope("CEventLog::logOrcMsg()");
    if (msgNum == kNeverLogged) {
        return;
    }
    logMsgInfo_t message = messageFor(hoxHandle, type, severity);
    const logType_t destination = destinationOf(message);
    va_list arguments;
    va_start(arguments, msgNum);
    formatOrcTexts(message, destination, msgNum, arguments);
    va_end(arguments);
    send(message, destination, Arrow::Tight);
}

void CEventLog::queueOrcMsg(std::uint32_t hoxHandle, logType_t type, std::uint32_t severity,
                            int msgNum, ...)
{
    TraceScope scope("CEventLog::queueOrcMsg()");
    if (msgNum == kNeverLogged) {
        return;
    }
    logMsgInfo_t message = messageFor(hoxHandle, type, severity);
    va_list arguments;
    va_start(arguments, msgNum);
    // The destination is decided at the sending, so both texts may be needed.
    formatOrcTexts(message, HOX_LOG_BOTH, msgNum, arguments);
    va_end(arguments);
    msgList.addTail(message);
}

void CEventLog::logApiMsg(std::uint32_t hoxHandle, logType_t type, std::uint32_t severity,
                          std::int16_t rc)
{
    TraceScope scope("CEventLog::logApiMsg()");
    logMsgInfo_t message = messageFor(hoxHandle, type, severity);
    fetchApiTexts(message, rc);
    send(message, destinationOf(message), Arrow::Spaced);
}

void CEventLog::queueApiMsg(std::uint32_t hoxHandle, logType_t type, std::uint32_t severity,
                            std::int16_t rc)
{
    TraceScope scope("CEventLog::queueApiMsg()");
    logMsgInfo_t message = messageFor(hoxHandle, type, severity);
    fetchApiTexts(message, rc);
    msgList.addTail(message);
}

void CEventLog::logQueuedMsgs()
{
    TraceScope scope("CEventLog::logQueuedMsgs()");
    refused = false;
    auto *node = msgList.head();
    while (node != nullptr) {
        const std::int16_t rc = send(node->record, destinationOf(node->record), Arrow::Tight);
        if (rc == HOX_RC_LOG_UNAVAILABLE) {
            refused = true;
            SCOPE_EXIT(scope, " %s: Exit - messages not sent: %u. rc = %d\n\n", scope.name(),
                       msgList.count(), rc);
            return;
        }
        node = msgList.remove(node);
    }
}

void veloLogSessionEvent(const orcObj_t *ctx, std::uint16_t kind)
{
    hoxLogEventExIn_t event = eventRecord("KEEL Oracle", "Sol");
    event.kind = kind;
    event.logType = HOX_LOG_SERVER;
    event.message = "";
    hoxLogEventExOut_t answer{};
    hoxApi().dhoxLogEventEx(HoxApiStatusObjP, ctx->hoxHandle, &event, &answer);
}
