// Initialisation and termination of the library within a process.
//
// Process-wide resources (message catalogue, traces, storage client, context table) are made by the
// first channel and released by the last. Every sbtinit resets the counter, so one live channel a
// process is the working case; a second sbtinit before the first channel's sbtend fails and
// releases everything, after which calls of the first channel fail cleanly. A call that is inside
// meanwhile keeps what it uses alive until it ends, see agents/common/callpin.h; until then every
// sbtinit fails in the same way. A forked child begins from nothing.
#ifndef KEEL_AGENTS_ORACLE_COMMON_VELOINIT_H
#define KEEL_AGENTS_ORACLE_COMMON_VELOINIT_H

#include "agents/oracle/common/orcobj.h"
#include "common/thrd/psmutex.h"

/// Serialises initialisation, the hand-over of a context, and termination. Taken before orcMutex.
extern psMutex_t initMutex;

// Guarded by initMutex.
extern std::int16_t oracleThrdCtr; // channels initialised and not yet ended
extern bool bNlsSetUp;             // the message catalogue is open
extern bool bHoxSetUp;             // the storage client is set up

/// Builds a context and registers it in the table. 0; on failure everything it made is released
/// again.
std::uint16_t veloInit();

/// Ends what the context has open (ctx may be null), counts the channel out, and with the last one
/// releases everything process-wide.
void veloCleanUp(orcObj_t *ctx);

#endif
