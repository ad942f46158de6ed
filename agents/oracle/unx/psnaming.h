// The name of a piece in the repository.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_PSNAMING_H
#define KEEL_AGENTS_ORACLE_UNX_PSNAMING_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

/// Fills the context's object name for a piece: filespace, "/", "/" + piece. The caller has tested
/// the name by psveloPieceNameFits: a longer one would be cut, and name another piece.
void psveloFillObjName(orcObj_t *ctx, const char *pieceName);
/// As above into a record, with the filespace name unchanged. Returns 0.
int psfillObjName(const char *pieceName, const char *fsName, hoxObjName *name);
/// Returns true for a text that may be the name of a piece: not null, not empty, at most
/// ORC_MAX_PIECE_NAME characters.
bool psveloPieceNameFits(const char *pieceName);

#endif
