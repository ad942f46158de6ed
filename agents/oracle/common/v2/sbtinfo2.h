// The information array that sbtinfo2 hands out. The context owns it until the next sbtinfo2 or
// sbtend.
#ifndef KEEL_AGENTS_ORACLE_COMMON_V2_SBTINFO2_H
#define KEEL_AGENTS_ORACLE_COMMON_V2_SBTINFO2_H

#include "agents/oracle/common/orcobj.h"

/// Returns the seconds since the epoch of a date of the storage client, read as daylight-saving
/// time of the host's time zone whatever the season; 0 when the date is absent or cannot be
/// converted.
std::uint64_t veloSecondsOf(const hoxDate &date);

enum class InfoFreed { ForTheNextQuery, AtTheEnd };

/// Frees the array that the context holds, with the values of its pairs; without one it does
/// nothing. function and occasion appear in the traces only.
void veloFreeInfo(orcObj_t *ctx, const char *function, InfoFreed occasion);

#endif
