// The process-wide table of context blocks, keyed by process identifier.
//
// Every function takes orcMutex itself, also for a search. The lock is recursive: a caller that
// uses an entry holds it around the search and the use, because a growing table moves. initMutex,
// where held, is taken first. A null table has no entries, and a call that is shut out finds none.
// "Logged" means: in the error log.
#ifndef KEEL_AGENTS_ORACLE_COMMON_CONTEXT_ORCBLOCK_H
#define KEEL_AGENTS_ORACLE_COMMON_CONTEXT_ORCBLOCK_H

#include "agents/oracle/common/orcobj.h"
#include "common/thrd/psmutex.h"

// Guarded by orcMutex.
extern orcBlock_t *pOrcBlock;
extern std::int32_t arraySize; // entries of the table, 1 or 2; 1 while there is none
extern psMutex_t orcMutex;

/// Creates the table with one free entry. Returns 0, 65535 when it exists already (nothing
/// changes), or 2522 (logged) when there is no memory: then FreeOrcBlock releases what was made.
std::uint16_t InitOrcBlock();

/// Claims a free entry for this process, growing the table to at most two. Returns 0, or 2522
/// (logged) when there is no free entry or no memory; the entries stay as they were.
std::uint16_t AddOrcBlock();

/// Returns the index of this process's entry (the first of two), valid while the caller holds
/// orcMutex, or -1, which is logged. trace: 1 writes Enter and Exit lines.
std::int16_t SearchOrcBlock(std::int32_t trace);

/// Read and set the state and the name area of the entry. Both return 0, also without an entry:
/// then nothing changes, outputs included. The name area has sizeof(orcBlock_t::fileName)
/// characters, and so must fileName; UpdateOrcBlock cuts a longer name silently.
std::uint16_t AccessOrcBlock(std::uint16_t *orcState, char *fileName);
std::uint16_t UpdateOrcBlock(std::uint16_t orcState, const char *fileName);

/// Notes the session's handle in the entry, if there is one. Returns 0.
std::uint16_t InsertOrcHandle(std::uint32_t handle);

/// Stores a byte-for-byte copy of the context in the entry, in place of an earlier one. Returns 0,
/// also without an entry, when nothing is stored; 2522 (logged) when there is no memory.
std::uint16_t InsertCtxBlock(const orcObj_t &ctx);

/// Frees this process's entry and its context copy, but nothing that the copy points at: that
/// belongs to the database's record. Returns 0, or 2014 (logged) when there is no entry.
std::uint16_t DelOrcBlock();

/// Releases the table with every entry and context copy; the next InitOrcBlock starts from one
/// entry.
void FreeOrcBlock();

#endif
