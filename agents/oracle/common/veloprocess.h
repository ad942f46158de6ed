// What the channels of a process share beside its objects.
#ifndef KEEL_AGENTS_ORACLE_COMMON_VELOPROCESS_H
#define KEEL_AGENTS_ORACLE_COMMON_VELOPROCESS_H

#include <atomic>
#include <cstdint>

#include "common/thrd/psmutex.h"

/// Serialises initialisation, the hand-over of a context, and termination. Taken before orcMutex.
extern psMutex_t initMutex;

// Guarded by initMutex.
extern std::int16_t oracleThrdCtr; // channels initialised and not yet ended
extern bool bNlsSetUp;             // the message catalogue is open
extern bool bHoxSetUp;             // the storage client is set up

/// sqlplus was out of time; no piece waits for it again before the next sbtinit. Any thread.
extern std::atomic<bool> sqlplusHangs;

#endif
