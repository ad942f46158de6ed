// sbtrestore: opens a stored piece for reading.
#include <ctime>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/eventlog.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/restore.h"
#include "agents/oracle/common/session/veloquery.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/unx/psnaming.h"

namespace
{

// True when the call may begin to read. Until then nothing of an open piece may change. A refusal
// is reported.
bool acceptable(orcObj_t *ctx, const char *pieceName, unsigned long blockSize, EntryScope &scope)
{
    if (ctx->state != ORC_STATE_INITIALISED && ctx->state != ORC_STATE_IDLE) {
        veloReportWrongState(ctx, scope.name());
        SCOPE_EXIT(scope, " %s: Exit - wrong state, state = %d, hoxHandle: %d\n\n", scope.name(),
                   ctx->state, static_cast<int>(ctx->hoxHandle));
        return false;
    }
    if (!psveloPieceNameFits(pieceName)) {
        ctx->sbtErrCode = SBT_NOT_FOUND;
        veloReportMessage(ctx, OrcMessage(2701, scope.name()));
        SCOPE_EXIT(scope, " %s: Exit - piece name\n\n", scope.name());
        return false;
    }
    if (blockSize == 0 || blockSize > UINT32_MAX) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportMessage(
            ctx, OrcMessage(2702, scope.name(), static_cast<unsigned long long>(blockSize)));
        SCOPE_EXIT(scope, " %s: Exit - block size\n\n", scope.name());
        return false;
    }
    return true;
}

} // namespace

std::uint16_t veloPrepGet(orcObj_t *ctx)
{
    TraceScope scope("veloPrepGet()");
    const int handle = static_cast<int>(ctx->hoxHandle);
    const hoxGetList list{HOX_GETLIST_VERSION, 1, &ctx->objId};
    ORC_TRACE(2, " %s: Calling HOXBEGINGETDATA(). hoxHandle = %d, Object ID = %d%d\n", scope.name(),
              handle, static_cast<int>(ctx->objId.hi), static_cast<int>(ctx->objId.lo));
    std::int16_t rc =
        hoxApi().dhoxBeginGetData(HoxApiStatusObjP, ctx->hoxHandle, 1, HOX_GET_BACKUP, &list);
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(scope, " %s: Exit - HOXBEGINGETDATA() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), handle, rc);
        return static_cast<std::uint16_t>(rc);
    }
    rc = hoxApi().dhoxGetObj(HoxApiStatusObjP, ctx->hoxHandle, &ctx->objId, nullptr);
    if (rc != HOX_RC_MORE_DATA) {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(scope, " %s: Exit - HOXGETOBJ() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), handle, rc);
        // An object that does not begin is a failure even when the code says success.
        return rc == HOX_RC_OK ? ORC_RC_EXISTS_ALREADY : static_cast<std::uint16_t>(rc);
    }
    return ORC_RC_OK;
}

std::uint16_t closeGet(orcObj_t *ctx)
{
    TraceScope scope("closeGet()");
    const int handle = static_cast<int>(ctx->hoxHandle);
    CEventLog events(scope.name());
    events.initNodeName(ctx->nodeName);
    std::int16_t rc = hoxApi().dhoxEndGetObj(HoxApiStatusObjP, ctx->hoxHandle);
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        ORC_TRACE(0, " %s: HOXENDGETOBJ() failed. hoxHandle = %d, rc = %d, '%s'\n", scope.name(),
                  handle, rc, ctx->errText);
        events.queueApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_INFO, rc);
    }
    rc = hoxApi().dhoxEndGetData(HoxApiStatusObjP, ctx->hoxHandle);
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        events.queueApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_INFO, rc);
        SCOPE_EXIT(scope, " %s: Exit HOXENDGETDATA() failed. hoxHandle = %d, rc  = %d\n\n",
                   scope.name(), handle, rc);
    }
    events.logQueuedMsgs();
    return static_cast<std::uint16_t>(rc);
}

int sbtrestore(void *context, unsigned long /*flags*/, const char *pieceName,
               unsigned long blockSize)
{
    EntryScope scope("sbtrestore()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    if (!acceptable(ctx, pieceName, blockSize, scope)) {
        return -1;
    }
    ctx->hoxName = hoxObjName{};
    ctx->errText[0] = '\0';
    ctx->bytesTransferred = 0;
    ctx->blockSize = static_cast<std::uint32_t>(blockSize);
    ctx->buffersSent = 0;
    ctx->prevError = 0;
    ctx->objId = {};
    ctx->startTime = std::time(nullptr);

    const char *name = scope.name();
    if (const std::int16_t rc = veloSession(ctx); rc != 0) {
        ctx->sbtErrCode = SBT_FAILED;
        SCOPE_EXIT(scope, " %s: Exit veloSession() failed, hoxHandle = %d, rc       : %d\n\n", name,
                   static_cast<int>(ctx->hoxHandle), rc);
        return -1;
    }
    ctx->state = ORC_STATE_RESTORE;
    veloLogSessionEvent(ctx, HOX_EVENT_SESSION);
    psveloFillObjName(ctx, pieceName);
    if (const std::uint16_t rc = veloQueryObj(ctx); rc != ORC_RC_FOUND) {
        ctx->sbtErrCode = SBT_NOT_FOUND;
        SCOPE_EXIT(scope, " %s: Exit File Not Found, hoxHandle = %d, rc =  %d\n\n", name,
                   static_cast<int>(ctx->hoxHandle), static_cast<std::int16_t>(rc));
        return -1;
    }
    if (const std::uint16_t rc = veloPrepGet(ctx); rc != ORC_RC_OK) {
        ctx->sbtErrCode = SBT_FAILED;
        SCOPE_EXIT(scope, " %s: Exit veloPrepGet() failed, hoxHandle = %d, rc %d\n\n", name,
                   static_cast<int>(ctx->hoxHandle), rc);
        return -1;
    }
    veloOpenTestData(ctx, pieceName, ".GET");
    return 0;
}
