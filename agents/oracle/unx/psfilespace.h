// The filespace that holds the pieces.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_PSFILESPACE_H
#define KEEL_AGENTS_ORACLE_UNX_PSFILESPACE_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

/// Both fill in the information text of the filespace; they differ in their traces only.
void psveloInitFSAttrib(hoxFSAttr *attributes);
void psinitFSAttrib(hoxFSAttr *attributes);
/// Updates the filespace's occupancy (the bytes of this piece alone) and its protected size
/// (ctx->dbSize, in MiB) after a piece was stored. Returns the storage client's code; a failure is
/// reported, and the piece stays stored.
std::uint16_t psveloUpdateFS(orcObj_t *ctx);
/// As above for a file of the version-1 interface: the occupancy is that of the table entry, and a
/// failure is written to both event logs instead of being reported. Takes orcMutex itself.
std::uint16_t psUpdateFS(std::uint32_t hoxHandle, std::int16_t tableIndex, const orcObj_t *ctx);

#endif
