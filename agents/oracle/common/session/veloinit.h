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
// 4. A forked child begins from nothing.
// Lock order: initMutex, then orcMutex, then those of the traces.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOINIT_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOINIT_H

#include "agents/oracle/common/orcobj.h"

/// Makes what the process lacks, builds a context and registers it in the table. Returns 0, or the
/// code of the step that failed; then everything process-wide is released, also what an earlier
/// channel made. Takes initMutex itself.
std::uint16_t veloInit();

/// Ends the context's session (ctx may be null), counts the channel out, and with the last one
/// shuts later calls out and releases everything process-wide: at once, or by the last call that is
/// inside. What the context owns is not freed. Takes initMutex itself. Afterwards the calling
/// thread sees no process-wide object for the rest of its call.
void veloCleanUp(orcObj_t *ctx);

#endif
