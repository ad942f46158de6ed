// sbtclose2: ends the piece that is being written or read, and the session with it.
#include "agents/common/cfirstfailurerc.h"
#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/restore.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/unx/psfilespace.h"
#include "common/ut/utmem.h"

namespace
{

void freeTransferBuffer(orcObj_t *ctx)
{
    utFree(ctx->veloBuffP);
    ctx->veloBuffP = nullptr;
    ctx->veloBuffSize = 0;
    ctx->veloBuffFill = 0;
}

// Sends what the transfer buffer holds and frees it. False when that failed: the writes of those
// blocks were acknowledged, so the close must fail.
bool flushTransferBuffer(orcObj_t *ctx, const TraceScope &scope)
{
    int rc = 0;
    if (ctx->veloBuffP != nullptr && ctx->veloBuffEmpty == 0 && ctx->prevError == 0) {
        ORC_TRACE(2,
                  " %s: orcCtxP->veloBuffP is not Emtpy. Calling sbtwrite2() with final buffer\n",
                  scope.name());
        ctx->veloBuffFlush = 1;
        rc = sbtwrite2(ctx, 0, ctx->veloBuffP);
    }
    freeTransferBuffer(ctx);
    return rc == 0;
}

std::uint16_t abortSend(orcObj_t *ctx, TraceScope &scope)
{
    ctx->prevError = 1;
    std::uint16_t reason = 0;
    const std::int16_t rc = veloEndTxn(ctx, HOX_VOTE_ABORT, &reason);
    if (rc != HOX_RC_OK || reason != 0) {
        veloReportApiFailure(ctx, reason != 0 ? static_cast<std::int16_t>(reason) : rc);
    }
    ORC_TRACE(1, " %s: SBTCLOSE2_ABORT - no data committed to ARCA Server\n", scope.name());
    return ORC_RC_OK;
}

// Ends the object and commits. Both calls are made; the first failure is the result.
std::uint16_t commitSend(orcObj_t *ctx, TraceScope &scope)
{
    hoxEndSendObjExIn_t input{HOX_ENDSENDEX_VERSION};
    ctx->sendTotals = hoxEndSendObjExOut_t{};
    ctx->sendTotals.stVersion = HOX_ENDSENDEX_VERSION;
    CFirstFailureRc rc(
        hoxApi().dhoxEndSendObjEx(HoxApiStatusObjP, ctx->hoxHandle, &input, &ctx->sendTotals));
    std::uint16_t reason = 0;
    rc = veloEndTxn(ctx, HOX_VOTE_COMMIT, &reason);
    if (rc != 0) {
        const auto code = static_cast<std::int16_t>(static_cast<std::int32_t>(rc));
        CEventLog events(scope.name());
        events.initNodeName(ctx->nodeName);
        veloReportApiFailure(ctx, code);
        events.logApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, code);
        SCOPE_EXIT(scope, " %s: Exit - hoxHandle = %d, rc = %d, reason = %d\n\n", scope.name(),
                   static_cast<int>(ctx->hoxHandle), code, reason);
    }
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(rc));
}

std::uint16_t closeBackup(orcObj_t *ctx, unsigned long flags, CEventLog &events)
{
    std::uint16_t rc = closeSend(ctx, flags);
    if (rc == ORC_RC_OK && ctx->prevError == 0) {
        rc = psveloUpdateFS(ctx);
        veloBackupStatistics(ctx, events);
    } else if (ctx->prevError != 0) {
        veloErrorMsg(OrcMessage(2528).text());
    }
    return rc;
}

std::uint16_t closeRestore(orcObj_t *ctx, CEventLog &events)
{
    const std::uint16_t rc = closeGet(ctx);
    if (rc == ORC_RC_OK) {
        veloRestoreStatistics(ctx, events);
    }
    return rc;
}

} // namespace

std::uint16_t closeSend(orcObj_t *ctx, unsigned long flags)
{
    TraceScope scope("closeSend()");
    if (flags == SBT_CLOSE_ABORT) {
        const std::uint16_t rc = abortSend(ctx, scope);
        freeTransferBuffer(ctx);
        return rc;
    }
    if (!flushTransferBuffer(ctx, scope)) {
        SCOPE_EXIT(scope, " %s: Exit - the last buffer was not sent. hoxHandle = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle));
        return ORC_RC_EXISTS_ALREADY;
    }
    if (ctx->prevError != 0) {
        return ORC_RC_OK; // the transaction was ended when the transfer failed
    }
    return commitSend(ctx, scope);
}

int sbtclose2(void *context, unsigned long flags)
{
    EntryScope scope("sbtclose2()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    CEventLog events(scope.name());
    events.initNodeName(ctx->nodeName);
    std::uint16_t rc = ORC_RC_OK;
    switch (ctx->state) {
    case ORC_STATE_INITIALISED:
    case ORC_STATE_QUERY:
    case ORC_STATE_REMOVE:
        break;
    case ORC_STATE_BACKUP:
        rc = closeBackup(ctx, flags, events);
        break;
    case ORC_STATE_RESTORE:
    case ORC_STATE_RESTORE_END:
        rc = closeRestore(ctx, events);
        break;
    default:
        veloReportWrongState(ctx, scope.name());
        ORC_TRACE_BOTH(0, RMANTR_ERROR, " %s: Exit - Wrong state, hoxHandle = %d, State = %d\n\n",
                       scope.name(), static_cast<int>(ctx->hoxHandle), ctx->state);
        break; // reported, but the close returns 0
    }

    veloCloseTestData(ctx);
    ctx->state = ORC_STATE_IDLE;
    events.logQueuedMsgs();
    const int handle = static_cast<int>(ctx->hoxHandle);
    veloEndSession(ctx);
    if (rc != ORC_RC_OK) {
        ctx->sbtErrCode = SBT_FAILED;
        SCOPE_EXIT(scope, " %s: Exit, hoxHandle = %d, rc = %d\n\n", scope.name(), handle, rc);
        return -1;
    }
    return 0;
}
