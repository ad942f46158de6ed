// sbtread2: one block of the piece that is being read.
#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/velotrace.h"
#include "agents/oracle/common/session/backup.h"
#include "common/cu/cu64.h"

namespace
{

void countBlock(orcObj_t *ctx, const DataBlk &block, const char *name)
{
    ++ctx->buffersSent;
    ctx->bytesTransferred += block.numBytes;
    if (!trTest(TR_ORCLEVEL2) && !rmanTraceOn(RMANTR_DETAIL)) {
        return;
    }
    char bytes[cu64TextSize];
    cuU64ToText(ctx->bytesTransferred, bytes, 10);
    ORC_TRACE_BOTH(2, RMANTR_DETAIL, " %s: Return from HOXGETDATA() with %d byte data buffer.\n",
                   name, static_cast<int>(block.numBytes));
    ORC_TRACE_BOTH(2, RMANTR_DETAIL, " %s: Buffers received from ARCA = %d.\n", name,
                   static_cast<int>(ctx->buffersSent));
    ORC_TRACE_BOTH(2, RMANTR_DETAIL, " %s: Bytes received from ARCA = %s.\n", name, bytes);
}

void dump(const orcObj_t *ctx, const char *buffer, const DataBlk &block)
{
    veloTraceBuffer(buffer, block.numBytes < ctx->blockSize ? block.numBytes : ctx->blockSize);
    if (rmanTraceOn(RMANTR_DETAIL)) {
        RMAN_TRACE(RMANTR_DETAIL, " \n Buffer: ");
        rmanTrcClass->trPrintStr(reinterpret_cast<const unsigned char *>(buffer),
                                 static_cast<int>(ctx->blockSize < 32 ? ctx->blockSize : 32),
                                 RMANTR_FORM_HEX);
    }
}

} // namespace

int sbtread2(void *context, unsigned long /*flags*/, void *buffer)
{
    EntryScope scope("sbtread2()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    if (buffer == nullptr) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportMessage(ctx, OrcMessage(2539, scope.name(), "buf"));
        SCOPE_EXIT(scope, " %s: Exit - NULL Oracle data buffer\n", scope.name());
        return -1;
    }
    const int handle = static_cast<int>(ctx->hoxHandle);
    if (ctx->state == ORC_STATE_RESTORE_END) {
        ctx->sbtErrCode = SBT_END_OF_FILE;
        SCOPE_EXIT_END_OF_FILE(scope, " %s: Exit, End of File, hoxHandle = %d\n\n", scope.name(),
                               handle);
        return -1;
    }
    veloTestDelay();
    auto *data = static_cast<char *>(buffer);
    DataBlk block{};
    block.stVersion = HOX_DATABLK_VERSION;
    block.bufferLen = ctx->blockSize;
    block.bufferPtr = data;
    std::int16_t rc = hoxApi().dhoxGetData(HoxApiStatusObjP, ctx->hoxHandle, &block);
    if (rc == HOX_RC_MORE_DATA && block.numBytes != ctx->blockSize) {
        rc = HOX_RC_INTERNAL; // only the last block may be short: the rest of this one is no data
    }
    if (rc == HOX_RC_FINISHED) {
        ctx->state = ORC_STATE_RESTORE_END;
        ORC_TRACE_BOTH(2, RMANTR_DETAIL, " %s: End of File, hoxHandle = %d, rc = %d\n",
                       scope.name(), handle, rc);
        if (block.numBytes == 0) {
            ctx->errText[0] = '\0';
            ctx->sbtErrCode = SBT_END_OF_FILE;
            SCOPE_EXIT_END_OF_FILE(scope, " %s: Exit - EOF, hoxHandle = %d\n", scope.name(),
                                   handle);
            return -1;
        }
    } else if (rc != HOX_RC_MORE_DATA) {
        veloReportApiFailure(ctx, rc);
        ctx->sbtErrCode = SBT_FAILED;
        SCOPE_EXIT(scope, " %s: Exit HOXGETDATA() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), handle, rc);
        return -1;
    }
    // The copy gets a full block even for a short last one, so that its blocks stay aligned.
    veloWriteTestData(ctx, data, ctx->blockSize);
    countBlock(ctx, block, scope.name());
    dump(ctx, data, block);
    return 0;
}
