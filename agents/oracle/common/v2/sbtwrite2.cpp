// sbtwrite2: one block of the piece, sent at once or gathered in the transfer buffer.
#include <cstring>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/velotrace.h"
#include "agents/oracle/common/session/backup.h"
#include "common/cu/cu64.h"

namespace
{

// Adds the block to the transfer buffer. True when the buffer must be sent now.
bool gather(orcObj_t *ctx, const void *buffer, const char *name)
{
    if (ctx->veloBuffFill < ctx->veloBuffSize && ctx->veloBuffFlush == 1) {
        return true; // called by the close, to send what the buffer holds
    }
    std::memcpy(ctx->veloBuffP + ctx->veloBuffFill, buffer, ctx->blockSize);
    ctx->veloBuffEmpty = 0;
    ctx->veloBuffFill += ctx->blockSize;
    ORC_TRACE(2, " %s: memcpy %d bytes of data into orcCtxP->veloBuffP\n", name,
              static_cast<int>(ctx->blockSize));
    return ctx->veloBuffFill >= ctx->veloBuffSize;
}

// The piece is lost: reports why and ends its transaction.
void failPiece(orcObj_t *ctx, std::int16_t rc, const char *name)
{
    const int handle = static_cast<int>(ctx->hoxHandle);
    ctx->prevError = 1;
    ctx->sbtErrCode = SBT_FAILED;
    veloReportApiFailure(ctx, rc);
    std::uint16_t reason = 0;
    if (rc != HOX_RC_WILL_ABORT) {
        ORC_TRACE(2, " %s: hoxHandle = %d Calling HOXENDTXN() with vote = HOX_VOTE_ABORT\n", name,
                  handle);
        veloEndTxn(ctx, HOX_VOTE_ABORT, &reason);
        return;
    }
    // The server will abort whatever the vote; a vote to commit makes it return the reason.
    hoxApi().dhoxEndSendObj(HoxApiStatusObjP, ctx->hoxHandle);
    ORC_TRACE(2, " %s: hoxHandle = %d Calling HOXENDTXN() with vote = HOX_VOTE_COMMIT\n", name,
              handle);
    const std::int16_t endRc = veloEndTxn(ctx, HOX_VOTE_COMMIT, &reason);
    if (endRc != HOX_RC_OK) {
        veloLogApiText(ctx->hoxHandle, endRc);
    }
}

int send(orcObj_t *ctx, char *data, std::uint32_t size, EntryScope &scope)
{
    DataBlk block{};
    block.stVersion = HOX_DATABLK_VERSION;
    block.bufferLen = size;
    block.bufferPtr = data;
    veloWriteTestData(ctx, data, size);
    veloTestDelay();
    const std::int16_t rc = hoxApi().dhoxSendData(HoxApiStatusObjP, ctx->hoxHandle, &block);
    if (rc != HOX_RC_OK) {
        failPiece(ctx, rc, scope.name());
        SCOPE_EXIT(scope, " %s: Exit HOXSENDDATA() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return -1;
    }
    ++ctx->buffersSent;
    ctx->bytesTransferred += size;
    if (trTest(TR_ORCLEVEL2) || rmanTraceOn(RMANTR_DETAIL)) {
        char bytes[cu64TextSize];
        cuU64ToText(ctx->bytesTransferred, bytes, 10);
        ORC_TRACE_BOTH(2, RMANTR_DETAIL, " %s: Buffers sent to ARCA = %d.\n", scope.name(),
                       static_cast<int>(ctx->buffersSent));
        ORC_TRACE_BOTH(2, RMANTR_DETAIL, " %s: Bytes sent to ARCA = %s.\n", scope.name(), bytes);
    }
    return 0;
}

} // namespace

int sbtwrite2(void *context, unsigned long /*flags*/, void *buffer)
{
    EntryScope scope("sbtwrite2()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    ctx->errText[0] = '\0';
    if (ctx->prevError != 0) {
        veloReportMessage(ctx, OrcMessage(2539, scope.name(), "buf"));
        SCOPE_EXIT(scope,
                   " %s: Exit - Error from previous call detected no data sent to ARCA API\n",
                   scope.name());
        return -1;
    }
    if (buffer == nullptr) {
        ctx->sbtErrCode = SBT_FAILED;
        ctx->prevError = 1;
        veloReportMessage(ctx, OrcMessage(2539, scope.name(), "buf"));
        SCOPE_EXIT(scope, " %s: Exit - NULL Oracle data buffer\n", scope.name());
        return -1;
    }
    auto *data = static_cast<char *>(buffer);
    veloTraceBuffer(data, ctx->blockSize);
    if (rmanTraceOn(RMANTR_DETAIL)) {
        RMAN_TRACE(RMANTR_DETAIL, " \n Buffer: ");
        rmanTrcClass->trPrintStr(static_cast<unsigned char *>(buffer),
                                 static_cast<int>(ctx->blockSize < 32 ? ctx->blockSize : 32),
                                 RMANTR_FORM_HEX);
    }
    if (ctx->veloBuffP == nullptr) {
        return send(ctx, data, ctx->blockSize, scope);
    }
    if (!gather(ctx, buffer, scope.name())) {
        SCOPE_EXIT_FLOW(scope, " %s: orcCtxP->veloBuffP NOT FULL. Exit - OK\n\n", scope.name());
        return 0;
    }
    const std::uint32_t held = ctx->veloBuffFill;
    ctx->veloBuffEmpty = 1;
    ctx->veloBuffFlush = 0;
    ctx->veloBuffFill = 0;
    return send(ctx, ctx->veloBuffP, held, scope);
}
