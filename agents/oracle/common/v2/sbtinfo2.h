// The information array that sbtinfo2 hands out. The context owns it until the next sbtinfo2 or
// sbtend. It holds copies only, texts cut silently (names at 511 characters). After a failure in
// the middle of the list it is handed out without SBTBFINFO_END, zeros in its place.
#ifndef KEEL_AGENTS_ORACLE_COMMON_V2_SBTINFO2_H
#define KEEL_AGENTS_ORACLE_COMMON_V2_SBTINFO2_H

#include "agents/oracle/common/orcobj.h"

/// Returns the seconds since the epoch of a date of the storage client, read as daylight-saving
/// time of the host's time zone whatever the season, so that a winter date comes out earlier,
/// usually by an hour; 0 when the year is 0, the date is before 1970 or cannot be converted. Other
/// fields out of range are carried over: a month 13 is January of the next year.
std::uint64_t veloSecondsOf(const hoxDate &date);

enum class InfoFreed { ForTheNextQuery, AtTheEnd };

/// Frees the array that the context holds, whole or not, with the values of its pairs, of which
/// ctx->infoCount tells the number, and clears both; without an array it does nothing. function and
/// occasion appear in the traces only.
void veloFreeInfo(orcObj_t *ctx, const char *function, InfoFreed occasion);

#endif
