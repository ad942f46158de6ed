// The values that sbtinit and sbtinit2 receive from the database and hand out to it. They are
// process-wide and under no lock: the thread that initialises the one live channel writes them.
#ifndef KEEL_AGENTS_ORACLE_COMMON_V2_SBTINIT_H
#define KEEL_AGENTS_ORACLE_COMMON_V2_SBTINIT_H

#include <cstdint>

#include "agents/oracle/common/sbt.h"
#include "agents/oracle/unx/psproxy.h"

constexpr std::size_t ORC_TRACEFILE_SIZE = 1025;
constexpr std::size_t ORC_DESCRIPTION_SIZE = 513;

// Named by sbtinit's caller, cut silently; every sbtinit clears it first.
extern char traceFile[ORC_TRACEFILE_SIZE];
// Given to sbtinit2, which sets the three to 0 first; an item without a value counts as 0.
extern std::uint64_t traceLevel;
extern std::uint64_t clientApiVsn; // high byte major, low byte minor
extern std::uint32_t OpNotify;     // operation notification was asked for

/// Fills the table of SBT_FN_COUNT entry points. With a whole proxy-copy library *loaded is 1, its
/// ten entries are filled, description (ORC_DESCRIPTION_SIZE characters) is the library's, cut to
/// fit, and the library stays open for good; else *loaded is 0, the ten entries are null,
/// description is empty, no library is open, and only the agent trace says why.
void loadFuncPs(sbtEntryPoint *table, int *loaded, char *description);

#endif
