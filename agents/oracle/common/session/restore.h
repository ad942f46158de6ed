// The restore path beneath sbtrestore, sbtread2 and sbtclose2: one object read with one get-data
// operation over a session that sbtrestore opens and sbtclose2 ends. The caller's thread uses the
// context alone. "Reported" means: in the context's error text and in the error log.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_RESTORE_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_RESTORE_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

/// Begins to read the object whose identifier the query left in the context. Returns 0, or the
/// storage client's code, or 65535 when the object does not begin although the client said 0; each
/// is reported. A read that has begun is not ended on failure: closeGet or the end of the session
/// does that.
std::uint16_t veloPrepGet(orcObj_t *ctx);

/// Ends the object and the read; the session stays open. Returns the code of ending the read; a
/// failure to end the object does not count. Both failures are reported, and in both event logs.
std::uint16_t closeGet(orcObj_t *ctx);

#endif
