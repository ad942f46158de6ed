// sbtremove: deletes one stored file.
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/v1/sbt1.h"

namespace
{

// Deletes the object in one transaction. Returns the code of the deletion when that failed, else
// that of the transaction. A failure is reported.
std::uint16_t deleteFound(Sbt1Call &call, const char *fileName)
{
    orcObj_t *ctx = call.ctx();
    std::int16_t rc = hoxApi().dhoxBeginTxn(HoxApiStatusObjP, ctx->hoxHandle);
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        return static_cast<std::uint16_t>(rc);
    }
    hoxDelInfo request{};
    request.backID.stVersion = HOX_DELBACK_VERSION;
    request.backID.objId = ctx->objId;
    const std::int16_t deleted =
        hoxApi().dhoxDeleteObj(HoxApiStatusObjP, ctx->hoxHandle, HOX_DELETE_BACKUP_ID, &request);
    if (deleted == HOX_RC_OK) {
        ORC_TRACE(2, " %s: After HOXDELETEOBJ(). Deleted '%s' from server\n", call.name(),
                  fileName);
    }
    std::uint16_t reason = 0;
    rc = veloEndTxn(ctx, HOX_VOTE_COMMIT, &reason);
    if (deleted != HOX_RC_OK) {
        veloReportApiFailure(ctx, deleted);
        return static_cast<std::uint16_t>(deleted);
    }
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(call.scope(), " %s: Exit - HOXENDTXN() failed. hoxHandle = %d, reason = %d\n\n",
                   call.name(), call.handle(), reason);
        return static_cast<std::uint16_t>(rc);
    }
    return ORC_RC_OK;
}

} // namespace

int sbtremove(bserc *error, char *fileName)
{
    Sbt1Call call("sbtremove()", error);
    if (!call.reportable()) {
        return -1;
    }
    if (!call.hasEntry()) {
        return call.failNoEntry(SBT1_NO_ENTRY);
    }
    call.exportNode();
    if (!sbt1FileNameFits(fileName)) {
        SCOPE_EXIT(call.scope(), " %s: Exit - oer = %d, errno = %d\n\n", call.name(),
                   static_cast<int>(SBT1_FILE_NAME), 2501);
        return call.fail(SBT1_FILE_NAME, 2501, OrcMessage(2501, call.name()));
    }
    dhoxBackupObject_t object{};
    std::uint16_t rc = ohoxSess(call);
    if (rc == ORC_RC_OK && (rc = queryObj(call, fileName, &object)) == ORC_RC_OK) {
        rc = deleteFound(call, fileName);
    } else if (rc == HOX_RC_NO_MATCH) {
        veloReportApiFailure(call.ctx(), HOX_RC_NO_MATCH);
    }
    if (rc != ORC_RC_OK) {
        if (!call.scope().failed()) {
            SCOPE_EXIT(call.scope(), " %s: Exit - oer = %d, errno = %d\n\n", call.name(),
                       static_cast<int>(SBT1_FAILED), rc);
        }
        return call.failStep(SBT1_FAILED, rc);
    }
    return 0;
}
