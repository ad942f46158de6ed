// Sessions: opening one for a context, and what a session needs before the first piece is sent.
#include "agents/oracle/common/session/velosession.h"

#include <cstdio>
#include <cstring>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/context/secret.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/unx/psfilespace.h"
#include "agents/oracle/unx/pspassword.h"
#include "common/string/ststring.h"

namespace
{

// Reports a failure in the error text and the error log, and traces the text.
void reportWithText(orcObj_t *ctx, std::int16_t rc, const TraceScope &scope)
{
    veloReportApiFailure(ctx, rc);
    ORC_TRACE(0, " %s: '%s'\n", scope.name(), ctx->errText);
}

// Not fatal: the options of the session serve in the trace only.
void readSessionOptions(orcObj_t *ctx, const TraceScope &scope)
{
    const int handle = static_cast<int>(ctx->hoxHandle);
    optStruct options{};
    ORC_TRACE(2, " %s: Calling HOXQUERYSESSOPTIONS(). hoxHandle = %d\n", scope.name(), handle);
    const std::int16_t rc =
        hoxApi().dhoxQuerySessOptions(HoxApiStatusObjP, ctx->hoxHandle, &options);
    if (rc != HOX_RC_OK) {
        reportWithText(ctx, rc, scope);
        ORC_TRACE(2, " %s: HOXQUERYSESSOPTIONS() failed. hoxHandle = %d, rc = %d\n", scope.name(),
                  handle, rc);
    }
    // The heading names the call that follows, as it always has; traces are searched for it.
    ORC_TRACE(2,
              " %s: Calling HOXQUERYSESSINFO().\n hoxHandle      = %d\n HOXI_CONFIG    = %s\n"
              " Server Name    = %s\n Server Address = %s\n Node Name      = %s\n"
              " Compression    = %d\n PW Access      = %d\n\n",
              scope.name(), handle, options.hoxiConfig, options.serverName, options.serverAddress,
              options.nodeName, options.compression, options.passwordAccess);
}

void traceSessionInfo(const orcObj_t *ctx, const ApiSessInfo &info, const TraceScope &scope)
{
    ORC_TRACE(2,
              " %s\n hoxHandle         = %d\n Server Host       = %s\n Server Port       = %d\n"
              " Server Type       = %s\n Server Level      = %d.%d.%d.%d\n"
              " Delete Permission = %s\n Max Obj Per Txn   = %d\n Domain Name       = %s\n"
              " Policy Set Name   = %s\n\n",
              scope.name(), static_cast<int>(ctx->hoxHandle), info.serverHost, info.serverPort,
              info.serverType, info.serverVersion, info.serverRelease, info.serverLevel,
              info.serverSubLevel, info.backupDelete == 1 ? "YES" : "NO", info.maxObjPerTxn,
              info.domainName, info.policySetName);
}

} // namespace

std::uint16_t veloSessionSecrets(orcObj_t *ctx, SessionPassword &password, TraceScope &scope)
{
    if (ctx->bUsePwGenerate != 0) {
        // In this mode the option string that the client is given always holds a blank.
        if (std::strchr(ctx->sessionOptions, ' ') == nullptr) {
            stAppend(ctx->sessionOptions, " ");
        }
        return ORC_RC_OK;
    }
    const std::uint16_t rc = psveloReadPswd(password.text, ctx);
    if (rc != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit psReadPswd() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
    }
    return rc;
}

std::int16_t veloSession(orcObj_t *ctx)
{
    TraceScope scope("veloSession()");
    SessionPassword password;
    if (const std::uint16_t rc = veloSessionSecrets(ctx, password, scope); rc != ORC_RC_OK) {
        return static_cast<std::int16_t>(rc);
    }
    hoxApiVersionEx level{HOX_API_VERSION_EX_VERSION, 7, 1, 3, 0};
    hoxInitExIn_t request{};
    request.stVersion = HOX_INITEX_IN_VERSION;
    request.apiVersion = &level;
    if (ctx->bUsePwGenerate == 0) {
        request.nodeName = ctx->options[OPT_VELO_NODE];
        request.ownerName = ctx->options[OPT_VELO_OWNER];
    }
    request.password = password.text;
    request.applicationType = "KEEL Oracle SUN";
    request.configFile = ctx->options[OPT_HOXI_ORC_CONFIG];
    request.options = ctx->sessionOptions;
    request.clientClass = HOX_CLIENT_DATABASE_AGENT;

    hoxHandle_t handle = 0;
    std::int16_t rc = DHoxApi::StartSession([&](int attempt, std::int16_t last) {
        ORC_TRACE(
            2, " %s: Calling HOXINITEX(). hoxInit() retry = %d, node = %s, owner = %s, rc = %d\n",
            scope.name(), attempt, ctx->options[OPT_VELO_NODE], ctx->options[OPT_VELO_OWNER], last);
        hoxInitExOut_t answer{};
        answer.stVersion = HOX_INITEX_OUT_VERSION;
        return hoxApi().dhoxInitEx(HoxApiStatusObjP, &handle, &request, &answer);
    });
    password.wipe();
    if (rc != HOX_RC_OK) {
        ctx->state = ORC_STATE_INITIALISED;
        reportWithText(ctx, rc, scope);
        SCOPE_EXIT(scope, " %s: Exit - hoxInit() failed, hoxHandle = %d rc       : %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return rc;
    }
    ctx->hoxHandle = handle;
    readSessionOptions(ctx, scope);

    ApiSessInfo info{};
    info.stVersion = HOX_SESSINFO_VERSION;
    rc = hoxApi().dhoxQuerySessInfo(HoxApiStatusObjP, ctx->hoxHandle, &info);
    if (rc != HOX_RC_OK) {
        reportWithText(ctx, rc, scope);
        SCOPE_EXIT(scope, " Exit %s: HOXQUERYSESSINFO() failed, hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return rc;
    }
    ctx->maxObjPerTxn = info.maxObjPerTxn;
    traceSessionInfo(ctx, info, scope);
    return HOX_RC_OK;
}

void veloEndSession(orcObj_t *ctx)
{
    if (ctx->hoxHandle != 0) {
        hoxApi().dhoxTerminate(HoxApiStatusObjP, ctx->hoxHandle);
        ctx->hoxHandle = 0;
    }
}

std::uint16_t veloRegFS(orcObj_t *ctx)
{
    TraceScope scope("veloRegFS()");
    regFSData data{};
    data.stVersion = HOX_REGFS_VERSION;
    data.fsName = ctx->options[OPT_VELO_FS];
    data.fsType = "ORACLE";
    psveloInitFSAttrib(&data.fsAttr);
    const std::int16_t rc = hoxApi().dhoxRegisterFS(HoxApiStatusObjP, ctx->hoxHandle, &data);
    if (rc != HOX_RC_OK && rc != HOX_RC_FS_REGISTERED) {
        const int handle = static_cast<int>(ctx->hoxHandle);
        veloReportApiFailure(ctx, rc);
        ORC_TRACE(0, " %s: hoxHandle = %d, '%s'\n", scope.name(), handle, ctx->errText);
        SCOPE_EXIT(scope, " %s: Exit - HOXREGISTERFS() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), handle, rc);
    }
    return static_cast<std::uint16_t>(rc);
}
