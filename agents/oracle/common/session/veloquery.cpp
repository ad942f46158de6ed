// The existence check of the backup and restore paths.
#include "agents/oracle/common/session/veloquery.h"

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "common/cu/cu64.h"

BackupQuery::BackupQuery(const orcObj_t *ctx, const hoxObjName &name) : handle_(ctx->hoxHandle)
{
    request_.stVersion = HOX_QRY_BACKUP_VERSION;
    request_.objName = &name;
    request_.owner = ctx->options[OPT_VELO_OWNER];
    request_.objState = HOX_STATE_ACTIVE;
}

std::int16_t BackupQuery::begin()
{
    return hoxApi().dhoxBeginQuery(HoxApiStatusObjP, handle_, HOX_QUERY_BACKUP, &request_);
}

std::int16_t BackupQuery::next()
{
    response_ = qryRespBackupData{};
    response_.stVersion = HOX_QRY_RESP_BACKUP_VERSION;
    DataBlk block{};
    block.stVersion = HOX_DATABLK_VERSION;
    block.bufferLen = sizeof response_;
    block.bufferPtr = reinterpret_cast<char *>(&response_);
    const std::int16_t rc = hoxApi().dhoxGetNextQObj(HoxApiStatusObjP, handle_, &block, &answer_);
    answered_ = answered_ || rc == HOX_RC_MORE_DATA || (rc == HOX_RC_OK && block.numBytes != 0);
    return rc;
}

std::int16_t BackupQuery::end()
{
    return hoxApi().dhoxEndQuery(HoxApiStatusObjP, handle_);
}

std::int16_t veloQueryClass(const orcObj_t *ctx, const char *mcName, const char *caller,
                            qryRespMCData *last, const std::function<void(std::int16_t)> &report)
{
    const std::uint32_t handle = ctx->hoxHandle;
    const qryMCData request{HOX_QRY_MC_VERSION, mcName, 1};
    std::int16_t rc =
        hoxApi().dhoxBeginQuery(HoxApiStatusObjP, handle, HOX_QUERY_MGMT_CLASS, &request);
    if (rc != HOX_RC_OK) {
        report(rc);
        return rc;
    }
    do {
        qryRespMCData answer{};
        answer.stVersion = HOX_QRY_RESP_MC_VERSION;
        DataBlk block{};
        block.stVersion = HOX_DATABLK_VERSION;
        block.bufferLen = sizeof answer;
        block.bufferPtr = reinterpret_cast<char *>(&answer);
        rc = hoxApi().dhoxGetNextQObj(HoxApiStatusObjP, handle, &block, nullptr);
        if (rc == HOX_RC_MORE_DATA) {
            answer.mcName[HOX_MAX_MC_NAME] = '\0';
            answer.stgPool[HOX_MAX_POOL_NAME] = '\0';
            ORC_TRACE(2, " %s: hoxHandle = %d, rc = %d, Stg Pool  = %s\n", caller,
                      static_cast<int>(handle), rc, answer.stgPool);
            *last = answer;
        }
    } while (rc == HOX_RC_MORE_DATA);
    if (rc == HOX_RC_FINISHED) {
        rc = HOX_RC_OK;
    }
    if (rc != HOX_RC_OK) {
        report(rc);
    }
    hoxApi().dhoxEndQuery(HoxApiStatusObjP, handle);
    return rc;
}

std::uint16_t veloQueryObj(orcObj_t *ctx)
{
    TraceScope scope("veloQueryObj()");
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return ORC_RC_NULL_CONTEXT;
    }
    const int handle = static_cast<int>(ctx->hoxHandle);
    const hoxObjName &name = ctx->hoxName;
    const char *owner = ctx->options[OPT_VELO_OWNER];
    BackupQuery query(ctx, name);

    std::int16_t rc = query.begin();
    if (rc == HOX_RC_FS_UNKNOWN) {
        // For the first piece of a filespace it is always unknown, which is no failure.
        if (ctx->state != ORC_STATE_BACKUP) {
            veloReportApiFailure(ctx, rc);
        }
        SCOPE_EXIT(scope,
                   " %s: Exit - File Space Not Found. hoxHandle = %d, Object Name = '%s%s%s', "
                   "Owner = %s, Object State = %d\n",
                   scope.name(), handle, name.fsName, name.hlName, name.llName, owner,
                   HOX_STATE_ACTIVE);
        return ORC_RC_NOT_FOUND;
    }
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(scope,
                   " %s: Exit - HOXBEGINQUERY() failed. hoxHandle = %d, rc = %d, "
                   "Object Name = '%s%s%s', Owner = %s, Object State = %d\n\n",
                   scope.name(), handle, rc, name.fsName, name.hlName, name.llName, owner,
                   HOX_STATE_ACTIVE);
        return 0xFFFF;
    }

    while ((rc = query.next()) == HOX_RC_MORE_DATA) {
        ctx->objId = {cuHigh32(query.answer().objId), cuLow32(query.answer().objId)};
        ORC_TRACE(2, " %s: HOXGETNEXTQOBJ() more data, hoxHandle = %d, rc = %d\n", scope.name(),
                  handle, rc);
    }
    if (rc == HOX_RC_FINISHED && !query.answered() && ctx->state != ORC_STATE_BACKUP) {
        // There is no identifier to read by. A backup still takes the end for "found", as it must
        // not begin where something may be stored.
        rc = HOX_RC_NO_MATCH;
    }
    if (rc == HOX_RC_FINISHED) {
        ORC_TRACE(2, " %s: calling HOXENDQUERY(), hoxHandle = %d\n", scope.name(), handle);
        query.end();
        if (ctx->state == ORC_STATE_BACKUP) {
            veloReportMessage(ctx, OrcMessage(2503, name.fsName, name.hlName, name.llName));
        }
        return ORC_RC_FOUND;
    }
    query.end();
    if (rc == HOX_RC_NO_MATCH) {
        if (ctx->state == ORC_STATE_RESTORE) {
            veloReportApiFailure(ctx, rc);
            SCOPE_EXIT(scope,
                       " %s: Exit - file doesn't exist. hoxHandle = %d, rc = %d, "
                       "Object Name = '%s%s%s', Owner = %s, Object State = %d\n",
                       scope.name(), handle, rc, name.fsName, name.hlName, name.llName, owner,
                       HOX_STATE_ACTIVE);
        }
        return ORC_RC_NOT_FOUND;
    }
    if (rc == HOX_RC_REPOSITORY_DAMAGED && ctx->state == ORC_STATE_BACKUP) {
        // The piece of that name cannot be read. The storage client sets it aside when the new
        // piece begins, or refuses to.
        ORC_TRACE(1, " %s: what is stored as '%s%s%s' is damaged, hoxHandle = %d\n", scope.name(),
                  name.fsName, name.hlName, name.llName, handle);
        return ORC_RC_NOT_FOUND;
    }
    veloReportApiFailure(ctx, rc);
    SCOPE_EXIT(scope,
               " %s: Exit - HOXGETNEXTQOBJ() failed. hoxHandle = %d, rc = %d, "
               "Object Name = '%s%s%s', Owner = %s, Object State = %d\n\n",
               scope.name(), handle, rc, name.fsName, name.hlName, name.llName, owner,
               HOX_STATE_ACTIVE);
    return static_cast<std::uint16_t>(rc);
}
