// The beginning and the end of a channel, step by step. Every helper runs with initMutex held,
// except forgetParent, which runs before any other call of a forked child.
#include "agents/oracle/common/session/veloinit.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "agents/common/callpin.h"
#include "agents/common/unx/sun/dhoxapidl.h"
#include "agents/oracle/common/context/orcblock.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/velotrace.h"
#include "agents/oracle/common/session/velooptions.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/common/veloprocess.h"
#include "agents/oracle/unx/early/pserrorlog.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "agents/oracle/unx/psnode.h"
#include "common/nls/nls.h"
#include "common/string/ststring.h"

namespace
{

constexpr int kClientType = 9;

void deleteTraces()
{
    delete keelTrcClass;
    keelTrcClass = nullptr;
    delete rmanTrcClass;
    rmanTrcClass = nullptr;
}

std::uint16_t openFirstCatalogue()
{
    char directory[ORC_OPTION_SIZE];
    char line[ORC_OPTION_SIZE + 256];
    if (const int rc = psveloGetVeloDir(directory); rc != 0) {
        if (rc == ORC_RC_NO_INSTALL_PATH) {
            psNonNlsErrorMsg(
                "RBQ2601E There is no Registry entry for KEEL for Oracle install path.\n");
        } else {
            std::snprintf(line, sizeof line,
                          "ERROR: Could not find KEEL for Oracle install path, rc = %d\n", rc);
            psNonNlsErrorMsg(line);
        }
        return static_cast<std::uint16_t>(rc);
    }
    char file[ORC_OPTION_SIZE];
    psgetMsgFileName(directory, file);
    nlsReturnInfo_t info{};
    const int rc = nlinit(file, 10, directory, kClientType, 1, 1, 1, &info, file);
    if (rc != 0) {
        std::snprintf(
            line, sizeof line,
            "Error: Could not initialize NLS object. Check that the message file, %s, exists "
            "in the Keel for Oracle installation directory. rc = %d\n",
            file, rc);
        psNonNlsErrorMsg(line);
        return static_cast<std::uint16_t>(rc);
    }
    bNlsSetUp = true;
    return ORC_RC_OK;
}

std::uint16_t failTable(const TraceScope &scope, std::uint16_t rc)
{
    char line[128];
    std::snprintf(line, sizeof line, " %s: Error - Could not initialize InitOrcBlock()",
                  scope.name());
    psNonNlsErrorMsg(line);
    return rc;
}

// Makes what only the first channel of a process makes, before the options are known.
std::uint16_t makeProcessObjects(const TraceScope &scope)
{
    if (pOrcBlock != nullptr) {
        // A channel that has not ended, or calls that are still inside after its release: the
        // objects are in use.
        return failTable(scope, InitOrcBlock());
    }
    nlsOutputFns outputs{};
    outputs.error = veloFirstErrorRoutine;
    outputs.console = writeToConsole;
    if (newNlsGlobalObject(&outputs, NLS_PROVISIONAL_START) == nullptr) {
        psNonNlsErrorMsg("RBQ2522E There is not enough system memory to complete command.");
        return ORC_RC_NO_MEMORY;
    }
    if (const std::uint16_t rc = openFirstCatalogue(); rc != ORC_RC_OK) {
        return rc;
    }
    deleteTraces();
    keelTrcClass = new (std::nothrow) KEELCTrace;
    rmanTrcClass = new (std::nothrow) RMANTrace;
    if (keelTrcClass == nullptr || rmanTrcClass == nullptr) {
        nlMessage(2538);
        return ORC_RC_NO_MEMORY;
    }
    if (const std::uint16_t rc = InitOrcBlock(); rc != ORC_RC_OK) {
        return failTable(scope, rc);
    }
    return ORC_RC_OK;
}

// From here on the context's settings hold: the error log, the catalogue, the formats.
std::uint16_t adoptSettings(const orcObj_t *ctx, const TraceScope &scope)
{
    nlsSetErrorRoutine(veloErrorRoutine);
    const std::uint16_t rc = callNlinit(ctx);
    if (rc != ORC_RC_OK) {
        bNlsSetUp = false;
        char line[128];
        std::snprintf(line, sizeof line, " %s: Nls initialization failed. rc = %d\n", scope.name(),
                      rc);
        veloErrorMsg(line);
    }
    return rc;
}

std::uint16_t loadStorageClient()
{
    // The status lives as long as the library: a call that is shut out may be reading the pointer.
    static DHoxApiStatus status;
    status.totalTime = 0;
    status.calls = 0;
    gHoxApiObjP = new (std::nothrow) DHoxApiDL;
    HoxApiStatusObjP = &status;
    if (gHoxApiObjP == nullptr) {
        veloReportNoMemory(nullptr);
        return ORC_RC_NO_MEMORY;
    }
    const int rc = gHoxApiObjP->Setup();
    if (rc != 0) {
        nlMessage(156, DHoxApiDL::kLibrary, rc);
    }
    return static_cast<std::uint16_t>(rc);
}

std::uint16_t setUpStorageClient(orcObj_t *ctx, const TraceScope &scope)
{
    if (bHoxSetUp) {
        return ORC_RC_OK;
    }
    const std::uint16_t rc = psDoHoxSetUp(ctx);
    if (rc != ORC_RC_OK) {
        ctx->sbtErrCode = SBT_FAILED;
        RMAN_TRACE(RMANTR_ERROR, " Exit: %s psDoHoxSetUp() failed, hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return rc;
    }
    bHoxSetUp = true;
    return ORC_RC_OK;
}

// The node of the option file, else that of the storage client, else that of the environment or the
// host.
std::uint16_t registerNode(orcObj_t *ctx, const TraceScope &scope)
{
    if (ctx->options[OPT_VELO_NODE][0] != '\0') {
        stCopy(ctx->nodeName, ctx->options[OPT_VELO_NODE]);
    } else if (ctx->nodeName[0] == '\0') {
        if (const int rc = psfillNodeName(ctx->nodeName); rc != 0) {
            ctx->sbtErrCode = SBT_FAILED;
            return static_cast<std::uint16_t>(rc);
        }
    }
    const int rc = psveloPutNodeName(ctx->nodeName);
    if (rc != 0) {
        ctx->sbtErrCode = SBT_FAILED;
        ORC_TRACE_BOTH(0, RMANTR_ERROR, " Exit: %s psveloPutNodeName() failed, rc = %d\n\n",
                       scope.name(), rc);
    }
    return static_cast<std::uint16_t>(rc);
}

std::uint16_t initialise(orcObj_t *ctx, TraceScope &scope)
{
    std::memset(ctx, 0, sizeof *ctx);
    const bool first = oracleThrdCtr == 0;
    std::uint16_t rc = first ? makeProcessObjects(scope) : ORC_RC_OK;
    if (rc != ORC_RC_OK || (rc = veloSetOptions(ctx)) != ORC_RC_OK) {
        return rc;
    }
    ctx->cliType = kClientType;
    if (first && (rc = adoptSettings(ctx, scope)) != ORC_RC_OK) {
        return rc;
    }
    veloInitTrace(ctx);
    if (first && (rc = loadStorageClient()) != ORC_RC_OK) {
        return rc;
    }
    veloTraceHeaderInfo(ctx);
    if ((rc = veloCheck_API_Level()) != ORC_RC_OK) {
        nlMessage(2507);
        return rc;
    }
    if ((rc = AddOrcBlock()) != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - AddOrcBlock() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return rc;
    }
    if ((rc = setUpStorageClient(ctx, scope)) != ORC_RC_OK) {
        return rc;
    }
    ctx->state = ORC_STATE_INITIALISED;
    ctx->hoxHandle = 0;
    if ((rc = registerNode(ctx, scope)) != ORC_RC_OK) {
        return rc;
    }
    ctx->infoCount = 0;
    ctx->bkupInfoTypeP = nullptr;
    if ((rc = InsertCtxBlock(*ctx)) != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - InsertCtxBlock() failed. hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return rc;
    }
    ++oracleThrdCtr;
    ORC_TRACE(2, " %s: Number of Oracle Threads = %d\n", scope.name(), oracleThrdCtr);
    callPinOpen();
    return ORC_RC_OK;
}

// Releases everything process-wide: the last channel has ended and no call is inside. The context
// table is freed after the client is closed, and the traces last, so that each step can still
// trace.
void releaseProcessObjects()
{
    // Not bHoxSetUp: a second sbtinit has reset it over a client that is still set up, and a set-up
    // that failed at its last step never set it.
    if (gHoxApiObjP != nullptr && DHoxApi::IsSetUp()) {
        gHoxApiObjP->dhoxCleanUp(HoxApiStatusObjP, 1);
    }
    bHoxSetUp = false;
    if (bNlsSetUp) {
        nlterm();
        bNlsSetUp = false;
    }
    destroyNlsGlobalObject();
    if (gHoxApiObjP != nullptr) {
        gHoxApiObjP->LogApiStatus(HoxApiStatusObjP);
        gHoxApiObjP->Cleanup();
    }
    delete gHoxApiObjP;
    gHoxApiObjP = nullptr;
    HoxApiStatusObjP = nullptr;
    FreeOrcBlock();
    ORC_TRACE_BOTH(1, RMANTR_FLOW, " sbtend(): Exit - OK   Last trace for this session\n");
    deleteTraces();
}

// Runs in the thread of the last call that was inside when the last channel ended.
void releaseAfterLastCall()
{
    psMutexGuard lock(initMutex);
    if (callPinTake()) {
        releaseProcessObjects();
    }
}

// In a forked child: forgets what the parent made, without freeing or touching any of it.
void forgetParent()
{
    oracleThrdCtr = 0;
    bHoxSetUp = false;
    bNlsSetUp = false;
    nlsForgetGlobalObject();
    trForget();
    keelTrcClass = nullptr;
    rmanTrcClass = nullptr;
    gHoxApiObjP = nullptr;
    HoxApiStatusObjP = nullptr;
    pOrcBlock = nullptr;
    arraySize = 1;
}

} // namespace

std::uint16_t veloInit()
{
    psMutexGuard lock(initMutex);
    callPinDuties({releaseAfterLastCall, forgetParent});
    releaseAfterLastCall(); // the last call may have left and still be waiting for the lock
    orcObj_t ctx;
    std::uint16_t rc = ORC_RC_OK;
    {
        TraceScope scope("veloInit()");
        rc = initialise(&ctx, scope);
        if (rc != ORC_RC_OK && !scope.failed()) {
            SCOPE_EXIT(scope, " %s: Exit - rc = %d\n\n", scope.name(), rc);
        }
    }
    if (rc != ORC_RC_OK) {
        veloCleanUp(&ctx);
    }
    return rc;
}

void veloCleanUp(orcObj_t *ctx)
{
    static const char *const name = "veloCleanUp()";
    psMutexGuard lock(initMutex);
    ORC_TRACE(1, " %s: Enter\n", name);
    if (ctx != nullptr) {
        veloEndSession(ctx);
    }
    if (oracleThrdCtr > 0) {
        ORC_TRACE(2, " %s: Decrementing oracleThrdCtr\n", name);
        --oracleThrdCtr;
    }
    if (oracleThrdCtr == 0) {
        if (callPinClose()) {
            releaseProcessObjects();
        }
        callPinShutOutHere();
        return;
    }
    ORC_TRACE(2, " %s: Calling DelOrcBlock()\n", name);
    DelOrcBlock();
    ORC_TRACE(2, " %s: On Exit - Oracle Thread Counter = %d\n", name, oracleThrdCtr);
}
