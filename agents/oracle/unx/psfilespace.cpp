// The filespace that holds the pieces: its attributes, and its update after a backup.
#include "agents/oracle/unx/psfilespace.h"
#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/context/orcblock.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/eventlog.h"
#include "common/cu/cu64.h"
#include "common/string/ststring.h"

namespace
{

constexpr std::uint32_t kUpdateMask =
    HOX_FSUPD_OCCUPANCY | HOX_FSUPD_CAPACITY | HOX_FSUPD_PROTECTED_SIZE;
static_assert(kUpdateMask == 0x200030, "the fields that a backup updates");

void fillAttributes(hoxFSAttr &attributes)
{
    static constexpr std::string_view text = "KEEL for Oracle";
    stCopy(attributes.info, text);
    attributes.infoLength = text.size();
}

std::int16_t updateFS(std::uint32_t hoxHandle, const orcObj_t *ctx, std::uint64_t occupancy,
                      void (*initAttributes)(hoxFSAttr *), const TraceScope &scope)
{
    const int handle = static_cast<int>(hoxHandle);
    hoxFSUpd update{};
    update.stVersion = HOX_FSUPD_VERSION;
    update.fsType = "ORACLE";
    update.occupancy = {cuHigh32(occupancy), cuLow32(occupancy)};
    update.protectedSize = ctx->dbSize >> 20;
    ORC_TRACE(2, " %s: Calling psveloInitFSAttrib(). hoxHandle  = %d\n", scope.name(), handle);
    initAttributes(&update.fsAttr);
    ORC_TRACE(2, " %s: Calling HOXUPDATEFS(). hoxHandle = %d\n", scope.name(), handle);
    return hoxApi().dhoxUpdateFS(HoxApiStatusObjP, hoxHandle, ctx->options[OPT_VELO_FS], &update,
                                 kUpdateMask);
}

} // namespace

void psveloInitFSAttrib(hoxFSAttr *attributes)
{
    static const char *const name = "psveloInitFSAttrib()";
    ORC_TRACE(1, " %s: Enter\n", name);
    fillAttributes(*attributes);
    ORC_TRACE(2, " %s: File Space Info = %s, File Space Length = %d\n", name, attributes->info,
              attributes->infoLength);
    ORC_TRACE(1, " %s: Exit\n\n", name);
}

void psinitFSAttrib(hoxFSAttr *attributes)
{
    static const char *const name = "psinitFSAttrib()";
    ORC_TRACE(1, " %s: Enter\n", name);
    fillAttributes(*attributes);
    ORC_TRACE(1, " %s: Exit- OK\n\n", name);
}

std::uint16_t psveloUpdateFS(orcObj_t *ctx)
{
    TraceScope scope("psveloUpdateFS()");
    const int handle = static_cast<int>(ctx->hoxHandle);
    const std::int16_t rc =
        updateFS(ctx->hoxHandle, ctx, ctx->bytesTransferred, psveloInitFSAttrib, scope);
    if (rc != HOX_RC_OK) {
        veloGetApiMsg(ctx->hoxHandle, 1, rc, ctx->errText);
        veloErrorMsg(ctx->errText);
        ORC_TRACE(0, " %s: hoxHandle = %d, '%s'\n", scope.name(), handle, ctx->errText);
        SCOPE_EXIT(scope, " %s: Exit HOXUPDATEFS() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), handle, rc);
    }
    return static_cast<std::uint16_t>(rc);
}

std::uint16_t psUpdateFS(std::uint32_t hoxHandle, std::int16_t tableIndex, const orcObj_t *ctx)
{
    TraceScope scope("psUpdateFS()");
    const int handle = static_cast<int>(hoxHandle);
    std::uint64_t bytesDone = 0;
    {
        psMutexGuard lock(orcMutex);
        bytesDone = pOrcBlock[tableIndex].bytesDone;
    }
    CEventLog events(scope.name());
    events.initNodeName(ctx->nodeName);
    const std::int16_t rc = updateFS(hoxHandle, ctx, bytesDone, psinitFSAttrib, scope);
    if (rc != HOX_RC_OK) {
        char text[ORC_ERRTEXT_SIZE];
        veloGetApiMsg(hoxHandle, 1, rc, text);
        events.logApiMsg(hoxHandle, HOX_LOG_BOTH, HOX_SEVERITY_SEVERE, rc);
        ORC_TRACE(0, " %s: hoxHandle = %d, '%s'\n", scope.name(), handle, text);
        SCOPE_EXIT(scope, " %s: Exit HOXUPDATEFS() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), handle, rc);
    }
    return static_cast<std::uint16_t>(rc);
}
