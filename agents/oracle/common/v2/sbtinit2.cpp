// sbtinit2: hands the context over to the database's memory and starts the database trace.
#include <cstring>

#include "agents/common/callpin.h"
#include "agents/oracle/common/context/orcblock.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/veloinit.h"
#include "agents/oracle/common/v2/sbtinit.h"
#include "agents/oracle/common/veloprocess.h"

namespace
{

constexpr const char *kName = "sbtinit2()";

// Copies the context out of this process's entry. False when there is none.
bool takeContext(orcObj_t *ctx)
{
    psMutexGuard initLock(initMutex);
    psMutexGuard tableLock(orcMutex);
    const std::int16_t index = SearchOrcBlock(1);
    if (index < 0 || pOrcBlock[index].orcCtxP == nullptr) {
        return false;
    }
    std::memcpy(ctx, pOrcBlock[index].orcCtxP, sizeof *ctx);
    return true;
}

void readInItems(const sbtPair *item)
{
    for (; item != nullptr && item->code != SBTINIT2_END; ++item) {
        switch (item->code) {
        case SBTINIT2_TRACELEVEL:
            traceLevel = item->value == nullptr ? 0 : *static_cast<std::uint64_t *>(item->value);
            break;
        case SBTINIT2_CLIENTAPI:
            clientApiVsn = item->value == nullptr ? 0 : *static_cast<std::uint64_t *>(item->value);
            break;
        case SBTINIT2_NOTIFY:
            OpNotify = 1;
            break;
        default:
            break;
        }
    }
}

void startDatabaseTrace()
{
    if (rmanTrcClass == nullptr) {
        return;
    }
    rmanTrcClass->trBegin(traceFile);
    rmanTrcClass->trEnable(RMANTR_ERROR, 1);
    if (traceLevel != 0) {
        rmanTrcClass->trEnable(RMANTR_FLOW, 1);
    }
    if (traceLevel >= 2) {
        rmanTrcClass->trEnable(RMANTR_DETAIL, 1);
    }
}

} // namespace

int sbtinit2(void *context, unsigned long /*flags*/, const sbtPair *init2In)
{
    const CallPin pin;
    TraceScope scope(kName);
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(kName, "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", kName);
        scope.leave(); // the clean-up deletes the traces
        veloCleanUp(nullptr);
        return -1;
    }
    if (!takeContext(ctx)) {
        veloReportMessage(nullptr, OrcMessage(2539, "SearchOrcBlock()", "orcCtxP"));
        SCOPE_EXIT(scope, " %s: Exit - no context\n\n", kName);
        scope.leave();
        veloCleanUp(nullptr);
        return -1;
    }
    traceLevel = 0;
    clientApiVsn = 0;
    OpNotify = 0;
    readInItems(init2In);
    startDatabaseTrace();
    RMAN_TRACE(RMANTR_FLOW, " %s: Enter\n", kName);
    ORC_TRACE_BOTH(2, RMANTR_FLOW, " %s\n Rman Trace Level   = %d\n Client API Version = %d.%d\n",
                   kName, static_cast<int>(traceLevel), static_cast<int>(clientApiVsn >> 8 & 0xFF),
                   static_cast<int>(clientApiVsn & 0xFF));
    RMAN_TRACE(RMANTR_FLOW, " %s: Exit - OK\n\n", kName);
    return 0;
}
