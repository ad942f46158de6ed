// veloPrepSend: everything between an open session and the first block of a piece.
#include <cstdlib>
#include <cstring>

#include "agents/common/clinkedlist.h"
#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/veloquery.h"
#include "agents/oracle/common/session/velosession.h"
#include "common/cu/cu64.h"
#include "common/string/ststring.h"

namespace
{

struct objMCInfo_t {
    std::uint32_t copyNumber;
    char mcName[HOX_MAX_MC_NAME + 1];
};

struct Sending {
    orcObj_t *ctx;
    TraceScope &scope;
    CEventLog events;
    CLinkedList<objMCInfo_t> classes; // released on every path
    char mcName[ORC_OPTION_SIZE] = "";

    Sending(orcObj_t *context, TraceScope &traceScope)
        : ctx(context), scope(traceScope), events(traceScope.name())
    {
        events.initNodeName(context->nodeName);
    }
    [[nodiscard]] int handle() const { return static_cast<int>(ctx->hoxHandle); }
    // Reports in the error text, the error log and both event logs.
    void report(std::int16_t rc)
    {
        veloReportApiFailure(ctx, rc);
        events.logApiMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, rc);
    }
};

std::uint16_t bindClass(Sending &sending)
{
    mcBindKey binding{};
    binding.stVersion = HOX_MCBIND_VERSION;
    const std::int16_t rc =
        hoxApi().dhoxBindMC(HoxApiStatusObjP, sending.ctx->hoxHandle, &sending.ctx->hoxName,
                            HOX_SEND_BACKUP_BIND, &binding);
    if (rc != HOX_RC_OK) {
        sending.report(rc);
        SCOPE_EXIT(sending.scope, " %s: Exit - HOXBINDMC() failed. hoxHandle = %d, rc = %d\n\n",
                   sending.scope.name(), sending.handle(), rc);
        return static_cast<std::uint16_t>(rc);
    }
    binding.mcName[HOX_MAX_MC_NAME] = '\0';
    stCopy(sending.mcName, binding.mcName);
    return ORC_RC_OK;
}

// Looks up the class: its storage pool for the trace, and the proof that it exists.
std::uint16_t queryClass(Sending &sending)
{
    const char *name = sending.scope.name();
    qryRespMCData found{};
    const std::int16_t rc =
        veloQueryClass(sending.ctx, sending.mcName, name, &found,
                       [&sending](std::int16_t failure) { sending.report(failure); });
    if (rc != HOX_RC_OK) {
        SCOPE_EXIT(sending.scope, " %s: Exit - management class '%s'. hoxHandle = %d, rc = %d\n\n",
                   name, sending.mcName, sending.handle(), rc);
    }
    return static_cast<std::uint16_t>(rc);
}

// Copies 2 to 4 each have a separate class, which the option file names.
std::uint16_t chooseClass(Sending &sending)
{
    orcObj_t *ctx = sending.ctx;
    const char *name = sending.scope.name();
    const std::uint32_t copy = ctx->copyNumber;
    if (copy <= 1) {
        return ORC_RC_OK;
    }
    if (copy > 4) {
        veloReportMessage(ctx, OrcMessage(2511, copy));
        sending.events.logOrcMsg(ctx->hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, 2511, copy);
        SCOPE_EXIT(
            sending.scope,
            " %s: Exit - copy number exceeds 4. hoxHandle = %d, rc = %d, Copy Number = %d\n\n",
            name, sending.handle(), ORC_RC_COPY_NUMBER, static_cast<int>(copy));
        return ORC_RC_COPY_NUMBER;
    }
    stCopy(sending.mcName, ctx->options[OPT_VELO_MGMT_CLASS_2 + static_cast<int>(copy) - 2]);
    if (sending.mcName[0] == '\0') {
        sending.report(HOX_RC_NO_MC_NAME);
        SCOPE_EXIT(sending.scope,
                   " %s: Exit - Empty MClass Name in options file. hoxHandle = %d, rc = %d, "
                   "Copy Number = %d\n\n",
                   name, sending.handle(), HOX_RC_NO_MC_NAME, static_cast<int>(copy));
        return HOX_RC_NO_MC_NAME;
    }
    ORC_TRACE(2, " %s: Copy Number = %d, Management Class = '%s'\n", name, static_cast<int>(copy),
              sending.mcName);
    return queryClass(sending);
}

std::uint64_t estimateSize(const orcObj_t *ctx, const char *name)
{
    constexpr long defaultMegabytes = 50;
    long value = std::strtol(ctx->options[OPT_VELO_AVG_SIZE], nullptr, 10);
    if (value == defaultMegabytes && ctx->maxSize != 0) {
        // The largest size that was announced stands in for the default, and is taken as megabytes
        // too.
        value = static_cast<long>(static_cast<std::uint64_t>(ctx->maxSize) & 0xFFFFFFFFU);
    }
    const std::uint64_t estimate = value > 0 ? static_cast<std::uint64_t>(value) * 1048576U : 0;
    ORC_TRACE(2, " %s: hoxHandle = %d, Estimated Bkup file size = %d\n", name,
              static_cast<int>(ctx->hoxHandle), static_cast<int>(estimate));
    return estimate;
}

std::uint16_t beginObject(Sending &sending)
{
    orcObj_t *ctx = sending.ctx;
    const char *name = sending.scope.name();
    ObjAttr attributes{};
    veloFillObjAttr(ctx, sending.mcName, name, &attributes);
    const std::int16_t rc = hoxApi().dhoxSendObj(HoxApiStatusObjP, ctx->hoxHandle, HOX_SEND_BACKUP,
                                                 nullptr, &ctx->hoxName, &attributes, nullptr);
    if (rc == HOX_RC_OK) {
        return ORC_RC_OK;
    }
    sending.report(rc);
    const hoxObjName &object = ctx->hoxName;
    SCOPE_EXIT(sending.scope,
               " %s : HOXSENDOBJ failed - Calling HOXENDTXN(). hoxHandle = %d, rc = %d, "
               "Object Name =  '%s%s%s'\n\n",
               name, sending.handle(), rc, object.fsName, object.hlName, object.llName);
    sending.scope.leave(); // it announces the call that follows
    std::uint16_t reason = 0;
    const std::int16_t endRc = veloEndTxn(ctx, HOX_VOTE_COMMIT, &reason);
    if (endRc != HOX_RC_OK) {
        veloLogApiText(ctx->hoxHandle, endRc);
        ORC_TRACE(0, " %s : HOXENDTXN failed, hoxHandle = %d, rc = %d, reason = %d\n\n", name,
                  sending.handle(), endRc, reason);
    }
    return static_cast<std::uint16_t>(rc);
}

} // namespace

void veloFillObjAttr(const orcObj_t *ctx, const char *mcName, const char *caller,
                     ObjAttr *attributes)
{
    const std::uint64_t estimate = estimateSize(ctx, caller);
    *attributes = ObjAttr{};
    attributes->stVersion = HOX_OBJATTR_VERSION;
    stCopy(attributes->owner, ctx->options[OPT_VELO_OWNER]);
    attributes->sizeEstimate = {cuHigh32(estimate), cuLow32(estimate)};
    attributes->objInfoLength = HOX_MAX_OBJ_INFO;
    attributes->objInfo = ctx->objInfo;
    attributes->mcNameP = mcName;
}

std::int16_t veloEndTxn(orcObj_t *ctx, std::uint8_t vote, std::uint16_t *reason)
{
    *reason = 0;
    const std::int16_t rc = hoxApi().dhoxEndTxn(HoxApiStatusObjP, ctx->hoxHandle, vote, reason);
    return rc == HOX_RC_CHECK_REASON && *reason != 0 ? static_cast<std::int16_t>(*reason) : rc;
}

std::uint16_t veloPrepSend(orcObj_t *ctx)
{
    TraceScope scope("veloPrepSend()");
    Sending sending(ctx, scope);
    std::uint16_t rc = veloRegFS(ctx);
    if (rc != ORC_RC_OK && rc != HOX_RC_FS_REGISTERED) {
        SCOPE_EXIT(scope, " %s: Exit - veloRegFS() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), sending.handle(), rc);
        return rc;
    }
    if ((rc = bindClass(sending)) != ORC_RC_OK || (rc = chooseClass(sending)) != ORC_RC_OK) {
        return rc;
    }
    const std::int16_t begun = hoxApi().dhoxBeginTxn(HoxApiStatusObjP, ctx->hoxHandle);
    if (begun != HOX_RC_OK) {
        sending.report(begun);
        SCOPE_EXIT(scope, " Exit %s: Error HOXBEGINTXN. hoxHandle = %d, rc = %d\n\n", scope.name(),
                   sending.handle(), begun);
        return static_cast<std::uint16_t>(begun);
    }
    return beginObject(sending);
}
