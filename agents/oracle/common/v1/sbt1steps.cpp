// The storage steps of the version-1 interface, in its older order.
#include <cstring>

#include "agents/common/cfirstfailurerc.h"
#include "agents/oracle/common/context/secret.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/restore.h"
#include "agents/oracle/common/session/veloquery.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/common/v1/sbt1.h"
#include "agents/oracle/unx/psnaming.h"
#include "common/cu/cu64.h"
#include "common/string/ststring.h"

namespace
{

/// Returns rc, and makes a failure the exit text of the routine.
std::uint16_t exitWith(TraceScope &scope, hoxHandle_t handle, std::uint16_t rc)
{
    if (rc != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - hoxHandle = %d, rc = %d\n\n", scope.name(),
                   static_cast<int>(handle), static_cast<std::int16_t>(rc));
    }
    return rc;
}

void traceSessionOptions(const orcObj_t *ctx, const char *name)
{
    optStruct options{};
    if (hoxApi().dhoxQuerySessOptions(HoxApiStatusObjP, ctx->hoxHandle, &options) != HOX_RC_OK) {
        return;
    }
    ORC_TRACE(2,
              " %s:\n  HOXI_DIR            >%s<\n  HOXI_CONFIG         >%s<\n"
              "  serverName          >%s<\n  commMethod           %d\n"
              "  serverAddress       >%s<\n  compress             %d\n"
              "  compressalways       %d\n  passwordAccess       %d\n",
              name, options.hoxiDir, options.hoxiConfig, options.serverName, options.commMethod,
              options.serverAddress, options.compression, options.compressAlways,
              options.passwordAccess);
}

} // namespace

std::uint16_t ohoxSess(Sbt1Call &call)
{
    TraceScope scope("ohoxSess()");
    orcObj_t *ctx = call.ctx();
    veloEndSession(ctx); // the session of an earlier file
    SessionPassword password;
    if (const std::uint16_t rc = veloSessionSecrets(ctx, password, scope); rc != ORC_RC_OK) {
        return rc;
    }
    const bool prompt = ctx->bUsePwGenerate == 0;
    const hoxApiVersion level{7, 1, 3};
    hoxHandle_t handle = 0;
    const std::int16_t rc = DHoxApi::StartSession([&](int, std::int16_t) {
        return hoxApi().dhoxInit(
            HoxApiStatusObjP, &handle, &level, prompt ? ctx->options[OPT_VELO_NODE] : nullptr,
            prompt ? ctx->options[OPT_VELO_OWNER] : nullptr, password.text, "KEEL Oracle SUN",
            ctx->options[OPT_HOXI_ORC_CONFIG], ctx->sessionOptions);
    });
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(scope, " %s: Exit - hoxInit() failed, hoxHandle = %d rc       : %d\n\n",
                   scope.name(), static_cast<int>(handle), rc);
        return static_cast<std::uint16_t>(rc);
    }
    ctx->hoxHandle = handle;
    InsertOrcHandle(handle);
    traceSessionOptions(ctx, scope.name());
    return ORC_RC_OK;
}

std::uint16_t queryObj(Sbt1Call &call, const char *fileName, dhoxBackupObject_t *found)
{
    TraceScope scope("queryObj()");
    orcObj_t *ctx = call.ctx();
    psfillObjName(fileName, ctx->options[OPT_VELO_FS], &ctx->hoxName);
    BackupQuery query(ctx, ctx->hoxName);
    std::int16_t rc = query.begin();
    if (rc == HOX_RC_OK) {
        while ((rc = query.next()) == HOX_RC_MORE_DATA) {
        }
        query.end();
    }
    *found = query.answer();
    ctx->objId = {}; // the answer of an earlier query must not be taken for that of this one
    if (query.answered() && (rc == HOX_RC_FINISHED || rc == HOX_RC_OK)) {
        ctx->objId = {cuHigh32(found->objId), cuLow32(found->objId)};
        return ORC_RC_OK;
    }
    // A damaged description does not prevent writing: the storage client sets the piece aside when
    // the new one begins, or refuses to.
    const bool setAside = rc == HOX_RC_REPOSITORY_DAMAGED && call.state() == ORC_STATE_BACKUP;
    if (rc == HOX_RC_NO_MATCH || rc == HOX_RC_FS_UNKNOWN || setAside) {
        SCOPE_EXIT_FLOW(scope, " %s: Exit - File Not Found (OK). hoxHandle = %d, rc = %d\n\n",
                        scope.name(), call.handle(), rc);
        return HOX_RC_NO_MATCH;
    }
    rc = rc == HOX_RC_OK ? HOX_RC_FINISHED : rc;
    veloReportApiFailure(ctx, rc);
    SCOPE_EXIT(scope, " %s: Exit - hoxHandle = %d, rc = %d\n\n", scope.name(), call.handle(), rc);
    return static_cast<std::uint16_t>(rc);
}

std::uint16_t queryMC(Sbt1Call &call, const char *fileName, const char *mcName)
{
    TraceScope scope("queryMC()");
    qryRespMCData answer{};
    const std::int16_t rc =
        veloQueryClass(call.ctx(), mcName, scope.name(), &answer, [&call](std::int16_t failure) {
            veloReportApiFailure(call.ctx(), failure);
        });
    if (rc != HOX_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - hoxHandle = %d, rc = %d\n\n", scope.name(), call.handle(),
                   rc);
        return static_cast<std::uint16_t>(rc);
    }
    ORC_TRACE(2, " %s: hoxHandle = %d, File '%s' is on Storage Pool %s\n", scope.name(),
              call.handle(), fileName, answer.stgPool);
    return ORC_RC_OK;
}

std::uint16_t regFS(orcObj_t *ctx)
{
    TraceScope scope("regFS()");
    const std::uint16_t rc = veloRegFS(ctx);
    return rc == HOX_RC_FS_REGISTERED ? ORC_RC_OK : exitWith(scope, ctx->hoxHandle, rc);
}

namespace
{

void fillObjAttr(const orcObj_t *ctx, const char *mcName, ObjAttr *attributes)
{
    TraceScope scope("fillObjAttr()");
    veloFillObjAttr(ctx, mcName, scope.name(), attributes);
}

// Begins the transaction, binds the class and begins the object. On failure the transaction is
// ended; the caller ends the session.
std::uint16_t beginSend(orcObj_t *ctx, TraceScope &scope)
{
    const auto fail = [&](std::int16_t rc, const char *what) {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(scope, " %s: Exit - %s failed. hoxHandle = %d, rc = %d\n\n", scope.name(), what,
                   static_cast<int>(ctx->hoxHandle), rc);
        return static_cast<std::uint16_t>(rc);
    };
    if (const std::int16_t rc = hoxApi().dhoxBeginTxn(HoxApiStatusObjP, ctx->hoxHandle); rc != 0) {
        return fail(rc, "HOXBEGINTXN()");
    }
    mcBindKey binding{};
    binding.stVersion = HOX_MCBIND_VERSION;
    std::int16_t rc = hoxApi().dhoxBindMC(HoxApiStatusObjP, ctx->hoxHandle, &ctx->hoxName,
                                          HOX_SEND_BACKUP_BIND, &binding);
    const char *step = "HOXBINDMC()";
    if (rc == HOX_RC_OK) {
        binding.mcName[HOX_MAX_MC_NAME] = '\0';
        ObjAttr attributes{};
        fillObjAttr(ctx, binding.mcName, &attributes);
        step = "HOXSENDOBJ()";
        rc = hoxApi().dhoxSendObj(HoxApiStatusObjP, ctx->hoxHandle, HOX_SEND_BACKUP, nullptr,
                                  &ctx->hoxName, &attributes, nullptr);
    }
    if (rc == HOX_RC_OK) {
        return ORC_RC_OK;
    }
    const std::uint16_t code = fail(rc, step);
    std::uint16_t reason = 0;
    veloEndTxn(ctx, HOX_VOTE_COMMIT, &reason);
    return code;
}

} // namespace

std::uint16_t prepareSend(Sbt1Call &call, const char *fileName)
{
    TraceScope scope("prepareSend()");
    orcObj_t *ctx = call.ctx();
    std::memset(ctx->objInfo, 0, sizeof ctx->objInfo);
    stCopy(ctx->objInfo, "stStream");
    dhoxBackupObject_t existing{};
    std::uint16_t rc = queryObj(call, fileName, &existing);
    if (rc == ORC_RC_OK || rc == HOX_RC_FINISHED) { // 121: a query that ended without an object
        const hoxObjName &name = ctx->hoxName;
        veloReportMessage(ctx, OrcMessage(2503, name.fsName, name.hlName, name.llName));
        SCOPE_EXIT(scope, " %s: Exit - Object '%s' Exists\n\n", scope.name(), fileName);
        return 2503;
    }
    if (rc != HOX_RC_NO_MATCH || (rc = regFS(ctx)) != ORC_RC_OK) {
        return exitWith(scope, ctx->hoxHandle, rc);
    }
    return beginSend(ctx, scope);
}

std::uint16_t prepareGet(Sbt1Call &call, const char *fileName)
{
    TraceScope scope("prepareGet()");
    dhoxBackupObject_t found{};
    const std::uint16_t rc = queryObj(call, fileName, &found);
    if (rc == HOX_RC_NO_MATCH) {
        veloReportApiFailure(call.ctx(), HOX_RC_NO_MATCH);
        SCOPE_EXIT(scope, " %s: Exit - Object not found for restore\n", scope.name());
        return rc;
    }
    return exitWith(scope, call.ctx()->hoxHandle, rc != ORC_RC_OK ? rc : veloPrepGet(call.ctx()));
}

std::uint16_t closeSend(std::uint32_t th)
{
    TraceScope scope("closeSend()");
    CFirstFailureRc rc(hoxApi().dhoxEndSendObj(HoxApiStatusObjP, th));
    std::uint16_t reason = 0;
    const std::int16_t ended = hoxApi().dhoxEndTxn(HoxApiStatusObjP, th, HOX_VOTE_COMMIT, &reason);
    if (ended == HOX_RC_CHECK_REASON) {
        ORC_TRACE(0, " %s: HOXENDTXN() reason = %d\n", scope.name(), reason);
    }
    rc = ended == HOX_RC_CHECK_REASON && reason != 0 ? reason : ended;
    return exitWith(scope, th, static_cast<std::uint16_t>(static_cast<std::int32_t>(rc)));
}

std::uint16_t closeGet(std::uint32_t th)
{
    TraceScope scope("closeGet()");
    CFirstFailureRc rc(hoxApi().dhoxEndGetObj(HoxApiStatusObjP, th));
    rc = hoxApi().dhoxEndGetData(HoxApiStatusObjP, th);
    return exitWith(scope, th, static_cast<std::uint16_t>(static_cast<std::int32_t>(rc)));
}
