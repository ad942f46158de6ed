// The process-wide table of context blocks, keyed by process identifier.
//
// Every change takes orcMutex, and so do searches: the lock is recursive, and a caller that goes on
// to use the entry holds it around both. initMutex, where held, is taken first. A null table has no
// entries.
#ifndef KEEL_AGENTS_ORACLE_COMMON_ORCBLOCK_H
#define KEEL_AGENTS_ORACLE_COMMON_ORCBLOCK_H

#include "agents/oracle/common/orcobj.h"
#include "common/thrd/psmutex.h"

extern orcBlock_t *pOrcBlock;
extern std::int32_t arraySize;
extern psMutex_t orcMutex;

/// Creates the table. 65535 when it exists already (nothing changes), 2522 when there is no memory.
std::uint16_t InitOrcBlock();

/// Claims a free entry for this process, growing the table to at most two. 2522 when there is no
/// room.
std::uint16_t AddOrcBlock();

/// The index of this process's entry, or -1. trace: 1 writes Enter and Exit lines.
std::int16_t SearchOrcBlock(std::int32_t trace);

/// What the version-1 interface keeps in the entry. Without an entry the outputs stay as they are.
/// fileName holds sizeof(orcBlock_t::fileName) characters.
std::uint16_t AccessOrcBlock(std::uint16_t *orcState, char *fileName);
std::uint16_t UpdateOrcBlock(std::uint16_t orcState, const char *fileName);

std::uint16_t InsertOrcHandle(std::uint32_t handle);

/// Stores a copy of the context in the entry. 2522 when there is no memory; without an entry
/// nothing, and 0.
std::uint16_t InsertCtxBlock(const orcObj_t &ctx);

/// Frees this process's entry, its context copy too (shallowly: what the copy points at belongs to
/// the database's record). 2014 when there is none.
std::uint16_t DelOrcBlock();

/// Releases the table; the next InitOrcBlock starts from one entry.
void FreeOrcBlock();

#endif
