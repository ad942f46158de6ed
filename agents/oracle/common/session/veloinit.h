// Initialisation and termination of the library within a process.
//
// What must stay true:
// 1. Process-wide resources (message catalogue, traces, storage client, context table) are made by
//    the first channel and released by the last.
// 2. Every sbtinit resets the counter, so one live channel a process is the working case. A second
//    sbtinit before the first channel's sbtend fails and releases everything, after which calls of
//    the first channel fail cleanly.
// 3. A call that is inside at the release keeps what it uses alive until it ends, see
//    agents/common/callpin.h; until then every sbtinit fails in the same way.
// 4. A forked child begins from nothing: what the parent made is forgotten, not freed or ended.
// Lock order: initMutex, then orcMutex, then those of the traces.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOINIT_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOINIT_H

#include "agents/oracle/common/orcobj.h"

/// Makes what the process lacks, builds a context and stores a copy of it in this process's entry
/// of the context table, which owns the copy; sbtinit2 and the version-1 calls take it from there.
/// Returns 0, or the code of the step that failed (65535: the table exists already, see 2 and 3);
/// then everything process-wide is released, also what an earlier channel made. Takes initMutex
/// itself.
std::uint16_t veloInit();

/// Ends the context's session (ctx may be null), whose open transaction publishes nothing, zeroes
/// its handle and counts the channel out. With the last channel it shuts later calls out, the rest
/// of the calling thread's own too, and releases everything process-wide: at once, or by the last
/// call that is inside, for which it does not wait. What the context owns is not freed: the caller
/// does that before. Takes initMutex itself; the caller does not hold orcMutex.
void veloCleanUp(orcObj_t *ctx);

#endif
