// sbtbackup: opens a new piece for writing.
#include <algorithm>
#include <cstring>
#include <ctime>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/velotrace.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/veloquery.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/unx/psnaming.h"
#include "common/string/ststring.h"
#include "common/ut/utmem.h"

namespace
{

struct BackupRequest {
    const char *pieceName;
    const sbtPair *objects;
    unsigned long blockSize;
    unsigned long maxSize;
    unsigned long copyNumber;
    unsigned long mediaPool;
};

// True when the call may begin a piece. Until then nothing of an open piece may change. A refusal
// is reported.
bool acceptable(orcObj_t *ctx, const BackupRequest &request, EntryScope &scope)
{
    if (ctx->state != ORC_STATE_INITIALISED && ctx->state != ORC_STATE_IDLE) {
        veloReportWrongState(ctx, scope.name());
        SCOPE_EXIT(scope, " %s: Exit - wrong state. hoxHandle = %d, state = %d\n\n", scope.name(),
                   static_cast<int>(ctx->hoxHandle), ctx->state);
        return false;
    }
    if (!psveloPieceNameFits(request.pieceName)) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportMessage(ctx, OrcMessage(2701, scope.name()));
        SCOPE_EXIT(scope, " %s: Exit - piece name\n\n", scope.name());
        return false;
    }
    if (request.blockSize == 0 || request.blockSize > UINT32_MAX) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportMessage(ctx, OrcMessage(2702, scope.name(),
                                          static_cast<unsigned long long>(request.blockSize)));
        SCOPE_EXIT(scope, " %s: Exit - block size\n\n", scope.name());
        return false;
    }
    return true;
}

void traceObjectItem(const char *name, int index, const sbtPair &item)
{
    if (!trTest(TR_ORCLEVEL2)) {
        return; // read the value for the trace only: some databases pass no valid pointer
    }
    switch (item.code) {
    case SBTOBJECT_DBNAME:
        ORC_TRACE(2, "%s: sbtobject array [%d]: type DBNAME, value %s.\n", name, index,
                  item.value == nullptr ? "" : static_cast<const char *>(item.value));
        break;
    case SBTOBJECT_DBID:
        ORC_TRACE(2, "%s: sbtobject array [%d]: type DBID, value %lu.\n", name, index,
                  reinterpret_cast<unsigned long>(item.value));
        break;
    case SBTOBJECT_FILETYPE: {
        const unsigned long type =
            item.value == nullptr ? 0 : *static_cast<const std::uint64_t *>(item.value);
        static const char *const known[] = {nullptr, "DATAFILE", "ARCHLOG", "OTHER"};
        if (type >= SBT_FILETYPE_DATAFILE && type <= SBT_FILETYPE_OTHER) {
            ORC_TRACE(2, "%s: sbtobject array [%d]: type FILETYPE, value %s.\n", name, index,
                      known[type]);
        } else {
            ORC_TRACE(2, "%s: sbtobject array [%d]: type FILETYPE, value UNKNOWN(%lu).\n", name,
                      index, type);
        }
        break;
    }
    default:
        ORC_TRACE(2, "%s: sbtobject array [%d]: type UNKNOWN(%lu), value UNKNOWN(%p).\n", name,
                  index, item.code, item.value);
        break;
    }
}

// The display name: the names of the databases, in list order, in double quotes.
void readObjectList(orcObj_t *ctx, const sbtPair *objects, const char *name)
{
    stCopy(ctx->objName, "\"");
    for (int i = 0; objects != nullptr && objects[i].code != SBTOBJECT_END; ++i) {
        traceObjectItem(name, i, objects[i]);
        if (objects[i].code == SBTOBJECT_DBNAME && objects[i].value != nullptr) {
            // Room for the closing quote stays.
            stAppend(ctx->objName, sizeof ctx->objName - 1,
                     static_cast<const char *>(objects[i].value));
        }
    }
    stAppend(ctx->objName, "\"");
}

void beginPiece(orcObj_t *ctx, const BackupRequest &request, const char *name)
{
    ctx->hoxName = hoxObjName{};
    ctx->sendTotals = hoxEndSendObjExOut_t{};
    ctx->buffersSent = 0;
    ctx->bytesTransferred = 0;
    ctx->prevError = 0;
    ctx->blockSize = static_cast<std::uint32_t>(request.blockSize);
    ctx->maxSize = static_cast<std::int64_t>(request.maxSize);
    ctx->copyNumber =
        static_cast<std::uint32_t>(std::min<unsigned long>(request.copyNumber, UINT32_MAX));
    ctx->mediaPool = static_cast<std::uint32_t>(request.mediaPool);
    std::memset(ctx->objInfo, 0, sizeof ctx->objInfo);
    stCopy(ctx->objInfo, "stStream");
    ctx->startTime = std::time(nullptr);
    readObjectList(ctx, request.objects, name);
    ctx->state = ORC_STATE_BACKUP;
    ORC_TRACE_BOTH(
        2, RMANTR_DETAIL,
        " %s \n backup_file_name = %s\n block_size       = %d \n max_size         = %d \n"
        " copy_number      = %d \n media_pool       = %d \n",
        name, request.pieceName, static_cast<int>(ctx->blockSize), static_cast<int>(ctx->maxSize),
        static_cast<int>(ctx->copyNumber), static_cast<int>(ctx->mediaPool));
}

// The transfer buffer that gathers several blocks to a send, for tests of large sends.
bool makeTransferBuffer(orcObj_t *ctx, EntryScope &scope)
{
    utFree(ctx->veloBuffP);
    ctx->veloBuffP = nullptr;
    long blocks = 0;
    if (!veloTestNumber("TEST_BUFFERORACLEDATA", &blocks)) {
        return true;
    }
    const std::uint64_t size =
        static_cast<std::uint64_t>(blocks > 0 ? std::min(blocks, 65536L) : 1) * ctx->blockSize;
    if (size <= UINT32_MAX) {
        ctx->veloBuffP = static_cast<char *>(utMalloc(size));
    }
    if (ctx->veloBuffP == nullptr) {
        // The object has begun: without this a close would commit it empty.
        std::uint16_t reason = 0;
        veloEndTxn(ctx, HOX_VOTE_ABORT, &reason);
        ctx->prevError = 1;
        ctx->sbtErrCode = SBT_FAILED;
        veloReportNoMemory(ctx);
        SCOPE_EXIT(scope, " %s: Exit - No Memory\n\n", scope.name());
        return false;
    }
    ctx->veloBuffSize = static_cast<std::uint32_t>(size);
    ctx->veloBuffFill = 0;
    ctx->veloBuffFlush = 0;
    ctx->veloBuffEmpty = 1;
    ORC_TRACE(2, " %s: TEST_BUFFERORACLEDATA is set. Creating Keel Oracle Buffer of %d bytes\n",
              scope.name(), static_cast<int>(ctx->veloBuffSize));
    return true;
}

int openPiece(orcObj_t *ctx, const BackupRequest &request, EntryScope &scope)
{
    const char *name = scope.name();
    if (const std::int16_t rc = veloSession(ctx); rc != 0) {
        ctx->sbtErrCode = SBT_FAILED;
        SCOPE_EXIT(scope, " %s: Exit - veloSession() failed. hoxHandle = %d, rc = %d\n\n", name,
                   static_cast<int>(ctx->hoxHandle), rc);
        return -1;
    }
    veloLogSessionEvent(ctx, ctx->resumedPiece > 0 ? HOX_EVENT_SESSION_RESUMED : HOX_EVENT_SESSION);
    psveloFillObjName(ctx, request.pieceName);

    if (const std::uint16_t rc = veloQueryObj(ctx); rc != ORC_RC_NOT_FOUND) {
        ctx->sbtErrCode = SBT_EXISTS;
        SCOPE_EXIT(scope, " %s: Exit - veloQueryObj() failed. hoxHandle = %d, rc = %d\n\n", name,
                   static_cast<int>(ctx->hoxHandle), static_cast<std::int16_t>(rc));
        scope.leave();
        veloEndSession(ctx);
        ctx->state = ORC_STATE_IDLE;
        return -1;
    }
    if (const std::uint16_t rc = veloPrepSend(ctx); rc != ORC_RC_OK) {
        ctx->sbtErrCode = SBT_FAILED;
        const hoxObjName &object = ctx->hoxName;
        SCOPE_EXIT(scope,
                   " %s: Exit - veloPrepSend().hoxHandle = %d, rc = %d, Object Name = %s%s%s\n",
                   name, static_cast<int>(ctx->hoxHandle), rc, object.fsName, object.hlName,
                   object.llName);
        return -1;
    }
    if (!makeTransferBuffer(ctx, scope)) {
        return -1;
    }
    veloOpenTestData(ctx, request.pieceName, ".SEND");
    if (!trTestFlag("TEST_ORCPROTECTSIZE", nullptr)) {
        ctx->dbSize = protectSize();
    }
    return 0;
}

} // namespace

int sbtbackup(void *context, unsigned long /*flags*/, const char *pieceName, const sbtPair *objects,
              unsigned long blockSize, unsigned long maxSize, unsigned long copyNumber,
              unsigned long mediaPool)
{
    EntryScope scope("sbtbackup()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    const BackupRequest request{pieceName, objects, blockSize, maxSize, copyNumber, mediaPool};
    if (!acceptable(ctx, request, scope)) {
        return -1;
    }
    beginPiece(ctx, request, scope.name());
    return openPiece(ctx, request, scope);
}
