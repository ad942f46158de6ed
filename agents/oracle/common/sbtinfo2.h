// The information array that sbtinfo2 answers with. It belongs to the context until the next
// sbtinfo2 or sbtend.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SBTINFO2_H
#define KEEL_AGENTS_ORACLE_COMMON_SBTINFO2_H

#include "agents/oracle/common/orcobj.h"

/// Seconds since the epoch of a date of the storage client; 0 when it cannot be converted.
std::uint64_t veloSecondsOf(const hoxDate &date);

enum class InfoFreed { ForTheNextQuery, AtTheEnd };

/// Frees the array that the context holds, with the values of its pairs; function and occasion are
/// told in the traces.
void veloFreeInfo(orcObj_t *ctx, const char *function, InfoFreed occasion);

#endif
