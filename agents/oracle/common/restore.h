// The restore path beneath sbtrestore, sbtread2 and sbtclose2: one object read with one get-data
// operation over a session that sbtrestore opens and sbtclose2 ends.
#ifndef KEEL_AGENTS_ORACLE_COMMON_RESTORE_H
#define KEEL_AGENTS_ORACLE_COMMON_RESTORE_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

/// Begins to read the object whose identifier the query left in the context. 0, or the storage
/// client's code, which is reported.
std::uint16_t veloPrepGet(orcObj_t *ctx);

/// Ends the read. A failure to end the object is reported and does not count; a failure to end the
/// read does.
std::uint16_t closeGet(orcObj_t *ctx);

#endif
