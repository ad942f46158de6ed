// The context table. It is allocated with one entry and grows to two, never more: a process has at
// most two live entries.
#include "agents/oracle/common/context/orcblock.h"

#include <cstring>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "common/string/ststring.h"
#include "common/ut/utmem.h"

orcBlock_t *pOrcBlock = nullptr;
std::int32_t arraySize = 1;
psMutex_t orcMutex;

namespace
{

constexpr std::int32_t kMostEntries = 2;

// Clears the fields of an entry's owner. strP stays with the entry.
void clearEntry(orcBlock_t &entry)
{
    entry.orcHandle = 0;
    entry.orcState = 0;
    entry.blockSize = 0;
    entry.ctxState = 0;
    entry.BlockID = 0;
    entry.bytesDone = 0;
    entry.cleared = 0;
    entry.fileName[0] = '\0';
}

bool allocateScratch(orcBlock_t &entry)
{
    entry.strP = static_cast<char *>(utCalloc(1, ORC_SCRATCH_SIZE));
    return entry.strP != nullptr;
}

std::int16_t indexOf(std::uint32_t blockId)
{
    if (pOrcBlock != nullptr && !callShutOut()) {
        for (std::int32_t i = 0; i < arraySize; ++i) {
            if (pOrcBlock[i].BlockID == blockId) {
                return static_cast<std::int16_t>(i);
            }
        }
    }
    return -1;
}

orcBlock_t *ownEntry()
{
    const std::int16_t index = SearchOrcBlock(0);
    return index < 0 ? nullptr : &pOrcBlock[index];
}

} // namespace

std::uint16_t InitOrcBlock()
{
    TraceScope scope("InitOrcBlock()");
    psMutexGuard lock(orcMutex);
    if (pOrcBlock != nullptr) {
        SCOPE_EXIT(scope, " %s: Exit - table exists\n\n", scope.name());
        return ORC_RC_EXISTS_ALREADY;
    }
    // A table that was freed always starts again from one entry, see FreeOrcBlock.
    pOrcBlock = static_cast<orcBlock_t *>(utCalloc(1, sizeof(orcBlock_t)));
    if (pOrcBlock == nullptr || !allocateScratch(pOrcBlock[0])) {
        veloReportNoMemory(nullptr);
        SCOPE_EXIT(scope, " %s: Exit - No Memory\n\n", scope.name());
        return ORC_RC_NO_MEMORY;
    }
    pOrcBlock[0].orcCtxP = nullptr;
    clearEntry(pOrcBlock[0]);
    return ORC_RC_OK;
}

std::uint16_t AddOrcBlock()
{
    TraceScope scope("AddOrcBlock()");
    psMutexGuard lock(orcMutex);
    std::int16_t index = indexOf(0);
    if (index >= 0) {
        pOrcBlock[index].BlockID = psveloGetID();
        return ORC_RC_OK;
    }
    const bool mayGrow = pOrcBlock != nullptr && arraySize < kMostEntries;
    void *grown = mayGrow ? utRealloc(pOrcBlock, kMostEntries * sizeof(orcBlock_t)) : nullptr;
    if (grown == nullptr) {
        veloReportNoMemory(nullptr);
        SCOPE_EXIT(scope, " %s: Exit - No Memory\n\n", scope.name());
        return ORC_RC_NO_MEMORY;
    }
    pOrcBlock = static_cast<orcBlock_t *>(grown);
    orcBlock_t &added = pOrcBlock[arraySize];
    std::memset(&added, 0, sizeof added);
    if (!allocateScratch(added)) {
        veloReportNoMemory(nullptr);
        SCOPE_EXIT(scope, " %s: Exit - MALLOCing failed\n\n", scope.name());
        return ORC_RC_NO_MEMORY;
    }
    ++arraySize;
    added.BlockID = psveloGetID();
    return ORC_RC_OK;
}

std::int16_t SearchOrcBlock(std::int32_t trace)
{
    static const char *const name = "SearchOrcBlock()";
    if (trace != 0) {
        ORC_TRACE(1, " %s: Enter\n", name);
    }
    psMutexGuard lock(orcMutex);
    const std::uint32_t blockId = psveloGetID();
    const std::int16_t index = indexOf(blockId);
    if (index < 0) {
        veloLogApiText(0, HOX_RC_NO_CONTEXT);
        ORC_TRACE(0, " %s: Exit - Can't find the block.  blockID = %d\n\n", name,
                  static_cast<int>(blockId));
    } else if (trace != 0) {
        ORC_TRACE(1, " %s: Exit - OK\n\n", name);
    }
    return index;
}

std::uint16_t AccessOrcBlock(std::uint16_t *orcState, char *fileName)
{
    TraceScope scope("AccessOrcBlock()");
    psMutexGuard lock(orcMutex);
    if (const orcBlock_t *entry = ownEntry()) {
        *orcState = entry->orcState;
        stCopy(fileName, sizeof entry->fileName, entry->fileName);
    }
    return ORC_RC_OK;
}

std::uint16_t UpdateOrcBlock(std::uint16_t orcState, const char *fileName)
{
    TraceScope scope("UpdateOrcBlock()");
    psMutexGuard lock(orcMutex);
    if (orcBlock_t *entry = ownEntry()) {
        entry->orcState = orcState;
        stCopy(entry->fileName, sizeof entry->fileName, fileName);
    }
    return ORC_RC_OK;
}

std::uint16_t InsertOrcHandle(std::uint32_t handle)
{
    TraceScope scope("InsertOrcHandle()");
    psMutexGuard lock(orcMutex);
    if (orcBlock_t *entry = ownEntry()) {
        entry->orcHandle = handle;
    }
    return ORC_RC_OK;
}

std::uint16_t InsertCtxBlock(const orcObj_t &ctx)
{
    TraceScope scope("InsertCtxBlock()");
    psMutexGuard lock(orcMutex);
    orcBlock_t *entry = ownEntry();
    if (entry == nullptr) {
        return ORC_RC_OK;
    }
    auto *copy = static_cast<orcObj_t *>(utMalloc(sizeof(orcObj_t)));
    if (copy == nullptr) {
        veloReportNoMemory(nullptr);
        SCOPE_EXIT(scope, " %s: Exit - No Memory\n\n", scope.name());
        return ORC_RC_NO_MEMORY;
    }
    std::memcpy(copy, &ctx, sizeof *copy);
    utFree(entry->orcCtxP);
    entry->orcCtxP = copy;
    entry->ctxState = static_cast<std::uint32_t>(ctx.state);
    return ORC_RC_OK;
}

std::uint16_t DelOrcBlock()
{
    TraceScope scope("DelOrcBlock()");
    psMutexGuard lock(orcMutex);
    const std::uint32_t blockId = psveloGetID();
    const std::int16_t index = indexOf(blockId);
    if (index < 0) {
        veloLogApiText(0, HOX_RC_INVALID_BLOCK_ID);
        SCOPE_EXIT(scope, " %s: Exit - Invalid block id.  blockID = %d\n\n", scope.name(),
                   static_cast<int>(blockId));
        return ORC_RC_NO_ENTRY;
    }
    orcBlock_t &entry = pOrcBlock[index];
    clearEntry(entry);
    utFree(entry.orcCtxP);
    entry.orcCtxP = nullptr;
    return ORC_RC_OK;
}

void FreeOrcBlock()
{
    TraceScope scope("FreeOrcBlock()");
    psMutexGuard lock(orcMutex);
    if (pOrcBlock == nullptr) {
        return;
    }
    for (std::int32_t i = arraySize - 1; i >= 0; --i) {
        orcBlock_t &entry = pOrcBlock[i];
        ORC_TRACE(2, "%s: index is %d, BlockID is %d orcCtxP is %p, strP[0] is %p\n", scope.name(),
                  i, static_cast<int>(entry.BlockID), static_cast<void *>(entry.orcCtxP),
                  static_cast<void *>(entry.strP));
        utFree(entry.strP);
        utFree(entry.orcCtxP);
    }
    utFree(pOrcBlock);
    pOrcBlock = nullptr;
    arraySize = 1;
}
