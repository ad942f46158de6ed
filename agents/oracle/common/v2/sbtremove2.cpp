// sbtremove2: deletes pieces by name, in two phases. Nothing is deleted before every name was
// looked up; then each object is deleted in a separate transaction, so those before a failure stay
// deleted.
#include <cstring>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/eventlog.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/veloquery.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/unx/psnaming.h"
#include "common/cu/cu64.h"
#include "common/string/ststring.h"
#include "common/ut/utmem.h"

namespace
{

struct objFileInfo_t {
    hoxObjName name;
    std::uint32_t copyGroup;
    hox64_t objId; // 0: the object's description is damaged; it is deleted by its name
};

// The names are counted up to here; a longer list must lack its null pointer.
constexpr std::size_t kMostNames = 1 << 24;

struct Removal {
    orcObj_t *ctx;
    EntryScope &scope;
    CEventLog events;
    utOwned<objFileInfo_t> found;
    std::size_t foundCount = 0;

    Removal(orcObj_t *context, EntryScope &entry) : ctx(context), scope(entry), events(entry.name())
    {
    }
    [[nodiscard]] int handle() const { return static_cast<int>(ctx->hoxHandle); }
};

std::uint16_t veloDelBackObj(orcObj_t *ctx, const objFileInfo_t &object)
{
    TraceScope scope("veloDelBackObj()");
    const int handle = static_cast<int>(ctx->hoxHandle);
    const hoxObjName &name = object.name;
    CEventLog events(scope.name());
    events.initNodeName(ctx->nodeName);
    const auto fail = [&](std::int16_t code) {
        ctx->sbtErrCode = SBT_FAILED;
        veloGetApiMsg(ctx->hoxHandle, 1, code, ctx->errText);
    };
    std::int16_t rc = hoxApi().dhoxBeginTxn(HoxApiStatusObjP, ctx->hoxHandle);
    if (rc != HOX_RC_OK) {
        fail(rc);
        events.logApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, rc);
        ORC_TRACE(0, " %s: '%s'\n", scope.name(), ctx->errText);
        SCOPE_EXIT(scope, " %s: Exit HOXBEGINTXN() failed, hoxHandle = %d, rc = %d\n\n",
                   scope.name(), handle, rc);
        return static_cast<std::uint16_t>(rc);
    }
    ORC_TRACE(2, " %s: Calling HOXDELETEOBJ(), hoxHandle = %d\n", scope.name(), handle);
    hoxDelInfo request{};
    request.backID.stVersion = HOX_DELBACK_VERSION;
    request.backID.objId = object.objId;
    std::uint8_t type = HOX_DELETE_BACKUP_ID;
    if (object.objId.hi == 0 && object.objId.lo == 0) {
        type = HOX_DELETE_BACKUP_NAME;
        request.backName.objName = &name;
    }
    const std::int16_t deleted =
        hoxApi().dhoxDeleteObj(HoxApiStatusObjP, ctx->hoxHandle, type, &request);
    if (deleted != HOX_RC_OK) {
        fail(deleted);
        events.queueApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, deleted);
        ORC_TRACE(0,
                  " %s: hoxDeletObj() failed\n rc       : %d\n hoxHandle: %d\n Object ID: %d%d\n"
                  " Filename : %s%s%s\n\n",
                  scope.name(), deleted, handle, static_cast<int>(object.objId.hi),
                  static_cast<int>(object.objId.lo), name.fsName, name.hlName, name.llName);
        ORC_TRACE(2, " %s: Calling HOXENDTXN(), hoxHandle = %d\n", scope.name(), handle);
    }

    // The transaction is ended in either case, and its code is the result.
    std::uint16_t reason = 0;
    rc = veloEndTxn(ctx, HOX_VOTE_COMMIT, &reason);
    const bool ended = rc == HOX_RC_OK && reason == 0;
    if (!ended) {
        fail(rc);
        const auto tell = deleted == HOX_RC_OK ? &CEventLog::logApiMsg : &CEventLog::queueApiMsg;
        (events.*tell)(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, rc);
        if (deleted != HOX_RC_OK) {
            ORC_TRACE(0,
                      " %s: HOXENDTXN() failed\n rc       : %d\n hoxHandle: %d\n reason   : %d\n\n",
                      scope.name(), rc, handle, reason);
        }
    }
    events.logQueuedMsgs();
    if (deleted != HOX_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - HOXDELETEOBJ() failed\n\n", scope.name());
    } else if (!ended) {
        SCOPE_EXIT(scope, " %s: Exit HOXENDTXN() failed, hoxHandle = %d, rc = %d, reason = %d\n\n",
                   scope.name(), handle, rc, reason);
    } else {
        ORC_TRACE(2, " %s: hoxHandle = %d, Deleted file '%s%s%s'\n", scope.name(), handle,
                  name.fsName, name.hlName, name.llName);
        SCOPE_EXIT_FLOW(scope, " %s: Exit - OK\n", scope.name());
    }
    return static_cast<std::uint16_t>(rc);
}

void reportMissing(Removal &removal, const hoxObjName &name)
{
    orcObj_t *ctx = removal.ctx;
    ctx->sbtErrCode = SBT_FAILED;
    veloGetApiMsg(ctx->hoxHandle, 1, HOX_RC_NO_MATCH, ctx->errText);
    removal.events.queueOrcMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_WARNING, 2604,
                               name.fsName, name.hlName, name.llName);
    ORC_TRACE(1, " %s: hoxHandle = %d, Object '%s%s%s' not found.\n", removal.scope.name(),
              removal.handle(), name.fsName, name.hlName, name.llName);
}

void keepFound(Removal &removal, const dhoxBackupObject_t &object, const hoxObjName &name)
{
    objFileInfo_t &record = removal.found.get()[removal.foundCount++];
    record.name = name;
    record.copyGroup = object.copyGroup;
    record.objId = {cuHigh32(object.objId), cuLow32(object.objId)};
    ORC_TRACE(2,
              " %s: hoxHandle = %d, Object ID = %d%d, File Name = '%s%s%s', "
              "Current file count = %d\n",
              removal.scope.name(), removal.handle(), static_cast<int>(record.objId.hi),
              static_cast<int>(record.objId.lo), name.fsName, name.hlName, name.llName,
              static_cast<int>(removal.foundCount));
}

// A look-up that could not begin leaves the session open; the next call opens another one.
int failBegin(Removal &removal, const hoxObjName &name, std::int16_t rc)
{
    orcObj_t *ctx = removal.ctx;
    ctx->sbtErrCode = SBT_FAILED;
    veloGetApiMsg(ctx->hoxHandle, 1, rc, ctx->errText);
    removal.events.logApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, rc);
    SCOPE_EXIT(removal.scope,
               " %s: Exit HOXBEGINQUERY() failed, hoxHandle = %d, rc = %d, "
               "Object Name = '%s%s%s', Owner =  '%s', Object State = %d\n",
               removal.scope.name(), removal.handle(), rc, name.fsName, name.hlName, name.llName,
               ctx->options[OPT_VELO_OWNER], HOX_STATE_ACTIVE);
    ctx->state = ORC_STATE_IDLE;
    return -1;
}

int failFetch(Removal &removal, BackupQuery &query, const hoxObjName &name, std::int16_t rc)
{
    orcObj_t *ctx = removal.ctx;
    ctx->sbtErrCode = SBT_FAILED;
    veloGetApiMsg(ctx->hoxHandle, 1, rc, ctx->errText);
    query.end();
    removal.events.logApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, rc);
    SCOPE_EXIT(removal.scope,
               " %s: Exit HOXGETNEXTQOBJ() failed, hoxHandle = %d, rc = %d, "
               "Object Name = '%s%s%s', Owner = %s, Object State = %d\n\n",
               removal.scope.name(), removal.handle(), rc, name.fsName, name.hlName, name.llName,
               ctx->options[OPT_VELO_OWNER], HOX_STATE_ACTIVE);
    removal.scope.leave();
    query.end();
    removal.events.logQueuedMsgs();
    veloEndSession(ctx);
    ctx->state = ORC_STATE_IDLE;
    return -1;
}

int lookUp(Removal &removal, const char *pieceName)
{
    orcObj_t *ctx = removal.ctx;
    hoxObjName name{};
    psfillObjName(pieceName, ctx->options[OPT_VELO_FS], &name);
    if (!psveloPieceNameFits(pieceName)) {
        reportMissing(removal, name);
        removal.events.logQueuedMsgs();
        return 0;
    }
    BackupQuery query(ctx, name);
    ORC_TRACE(2, " %s: Calling HOXBEGINQUERY(), hoxHandle = %d\n", removal.scope.name(),
              removal.handle());
    std::int16_t rc = query.begin();
    if (rc != HOX_RC_OK) {
        return failBegin(removal, name, rc);
    }
    ORC_TRACE(2, " %s: Calling HOXGETNEXTQOBJ(), hoxHandle = %d\n", removal.scope.name(),
              removal.handle());
    while ((rc = query.next()) == HOX_RC_MORE_DATA) {
    }
    const bool finished = rc == HOX_RC_FINISHED || rc == HOX_RC_OK;
    if (finished && query.answered()) {
        keepFound(removal, query.answer(), name);
    } else if (rc == HOX_RC_REPOSITORY_DAMAGED) {
        keepFound(removal, dhoxBackupObject_t{}, name);
    } else if (rc == HOX_RC_NO_MATCH || finished) {
        // Also an end without an answer: a record without an identifier would be deleted by its
        // name.
        reportMissing(removal, name);
    } else {
        return failFetch(removal, query, name, rc);
    }
    query.end();
    removal.events.logQueuedMsgs();
    return 0;
}

int deleteFound(Removal &removal)
{
    for (std::size_t i = 0; i < removal.foundCount; ++i) {
        if (veloDelBackObj(removal.ctx, removal.found.get()[i]) != ORC_RC_OK) {
            ORC_TRACE(2, " %s: Calling HOXTERMINATE()\n", removal.scope.name());
            removal.events.logQueuedMsgs();
            veloEndSession(removal.ctx);
            removal.ctx->state = ORC_STATE_IDLE;
            SCOPE_EXIT(removal.scope, " %s: Exit - veloDelBackObj() failed.\n",
                       removal.scope.name());
            return -1;
        }
    }
    return 0;
}

int removeAll(orcObj_t *ctx, char **pieceNames, EntryScope &scope)
{
    Removal removal(ctx, scope);
    std::size_t count = 0;
    while (count < kMostNames && pieceNames[count] != nullptr) {
        ++count;
    }
    ORC_TRACE(2, " %s: hoxHandle = %d, Files to query = %d\n", scope.name(), removal.handle(),
              static_cast<int>(count));
    removal.found.reset(static_cast<objFileInfo_t *>(utCalloc(
        count == 0 ? 1 : count, sizeof(objFileInfo_t)))); // an empty list is no lack of memory
    if (removal.found == nullptr) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportNoMemory(ctx);
        SCOPE_EXIT(scope, " %s: Exit - No memory. hoxHandle = %d\n\n", scope.name(),
                   removal.handle());
        veloEndSession(ctx);
        ctx->state = ORC_STATE_IDLE;
        return -1;
    }
    removal.events.initNodeName(ctx->nodeName);
    for (std::size_t i = 0; i < count; ++i) {
        if (lookUp(removal, pieceNames[i]) != 0) {
            return -1;
        }
    }
    if (deleteFound(removal) != 0) {
        return -1;
    }
    removal.events.logQueuedMsgs();
    ORC_TRACE(2, " %s: Calling HOXTERMINATE(), hoxHandle = %d\n", scope.name(), removal.handle());
    veloEndSession(ctx);
    ctx->state = ORC_STATE_IDLE;
    return 0;
}

} // namespace

int sbtremove2(void *context, unsigned long /*flags*/, char **pieceNames)
{
    EntryScope scope("sbtremove2()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    const int handle = static_cast<int>(ctx->hoxHandle);
    if (pieceNames == nullptr) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportMessage(ctx, OrcMessage(2501, scope.name()));
        // The texts of the two traces differ.
        RMAN_TRACE(RMANTR_ERROR, " %s: Exit File Name is NULL, hoxHandle = %d\n", scope.name(),
                   handle);
        SCOPE_EXIT_AGENT(scope, " %s: Exit - NULL filename, hoxHandle = %d\n", scope.name(),
                         handle);
        return -1;
    }
    if (ctx->state != ORC_STATE_INITIALISED && ctx->state != ORC_STATE_IDLE) {
        veloReportWrongState(ctx, scope.name());
        RMAN_TRACE(RMANTR_ERROR, " %s: Exit - Wrong State, hoxHandle = %d, state = %d\n",
                   scope.name(), handle, ctx->state);
        SCOPE_EXIT_AGENT(scope, " %s: Exit - wrong state, hoxHandle = %d, state = %d\n",
                         scope.name(), handle, ctx->state);
        return -1;
    }
    ORC_TRACE(2, " %s: Calling veloSession(), hoxHandle = %d\n", scope.name(), handle);
    if (const std::int16_t rc = veloSession(ctx); rc != 0) {
        ctx->sbtErrCode = SBT_FAILED;
        SCOPE_EXIT(scope, " %s: Exit veloSession() failed, hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return -1;
    }
    ctx->state = ORC_STATE_REMOVE;
    return removeAll(ctx, pieceNames, scope);
}
