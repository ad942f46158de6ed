// What sbtinit and sbtinit2 learn from the database and hand out to it; process-wide, the last
// channel to initialise wins.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SBTINIT_H
#define KEEL_AGENTS_ORACLE_COMMON_SBTINIT_H

#include <cstdint>

#include "agents/oracle/common/sbt.h"
#include "agents/oracle/unx/psvelo.h"

constexpr std::size_t ORC_TRACEFILE_SIZE = 1025;
constexpr std::size_t ORC_DESCRIPTION_SIZE = 513;

extern char traceFile[ORC_TRACEFILE_SIZE]; // named by sbtinit's caller
extern std::uint64_t traceLevel;           // given to sbtinit2
extern std::uint64_t clientApiVsn;         // given to sbtinit2: high byte major, low byte minor
extern std::uint32_t OpNotify;             // operation notification was asked for

/// Fills the table of entry points. *loaded tells whether the proxy-copy library is there;
/// description (ORC_DESCRIPTION_SIZE characters) is its own.
void loadFuncPs(sbtEntryPoint *table, int *loaded, char *description);

#endif
