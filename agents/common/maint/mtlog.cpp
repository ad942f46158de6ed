// The activity log: see the header.
#include "agents/common/maint/mtlog.h"

#include "common/cu/cu64.h"
#include "common/string/ststring.h"

int mtLogAppend(const mtSession &session, std::uint32_t severity, const std::string &messageId,
                const std::string &message)
{
    hoxLogEventExIn_t event{};
    event.stVersion = HOX_LOGEVENTEX_VERSION;
    event.kind = HOX_EVENT_MESSAGE;
    event.severity = severity;
    event.logType = HOX_LOG_SERVER;
    event.message = message.c_str();
    stCopy(event.messageId, messageId);
    stCopy(event.appName, "ARCA");
    stCopy(event.platform, "64bit");
    stCopy(event.appVersion, "7.1.3.0");
    hoxLogEventExOut_t answer{};
    return mtApi()->dhoxLogEventEx(mtStatus(), session.handle(), &event, &answer);
}

int mtLogQuery(const mtSession &session, const mtLogFilter_t &filter,
               const std::function<bool(const mtLogEvent_t &event)> &visit,
               std::uint32_t &unreadable)
{
    unreadable = 0;
    const qryLogData asked{HOX_QRY_LOG_VERSION, filter.since, filter.before, filter.severity,
                           filter.allNodes ? HOX_ALL_NODES : filter.node.c_str()};
    int rc = mtApi()->dhoxBeginQuery(mtStatus(), session.handle(), HOX_QUERY_LOG, &asked);
    if (rc != HOX_RC_OK) {
        return rc;
    }
    qryRespLogData answer{};
    DataBlk block{HOX_DATABLK_VERSION, sizeof answer, 0, reinterpret_cast<char *>(&answer)};
    while ((rc = mtApi()->dhoxGetNextQObj(mtStatus(), session.handle(), &block, nullptr)) ==
           HOX_RC_MORE_DATA) {
        const auto time = static_cast<std::int64_t>(cuMake64(answer.time.hi, answer.time.lo));
        if (!visit({time, answer.severity, answer.nodeName, answer.application, answer.messageId,
                    answer.message, answer.sealed != 0})) {
            rc = HOX_RC_FINISHED;
            break;
        }
    }
    // Those met before the last event, or, at the end, all of them.
    unreadable = answer.unreadable;
    const int ended = mtApi()->dhoxEndQuery(mtStatus(), session.handle());
    return rc == HOX_RC_FINISHED || rc == HOX_RC_NO_MATCH ? ended : rc;
}

int mtLogPrune(const mtSession &session, std::int64_t before)
{
    hoxDelInfo info{};
    info.log.stVersion = HOX_DELBACK_VERSION;
    info.log.before = before;
    return mtApi()->dhoxDeleteObj(mtStatus(), session.handle(), HOX_DELETE_LOG, &info);
}
