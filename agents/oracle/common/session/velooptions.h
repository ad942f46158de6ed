// The options of a context: the option file (optionfile.h) read whole, over the defaults.
//
// Any thread; nothing here is shared.
// "Reported" means: in the early error log (psNonNlsErrorMsg).
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOOPTIONS_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOOPTIONS_H

#include <cstdint>
#include <cstdio>

#include "agents/oracle/common/orcobj.h"

/// The 21 keywords; the index is the option's number.
extern const char *const optLookup[OPT_COUNT];

/// Clears the whole context, without freeing what it owns, and fills its option block: defaults,
/// then the option file. Without a node and an owner in it bUsePwGenerate is 1. Returns 0, 2534
/// (reported), or the code of a path helper; on failure a part of the options may be set.
std::uint16_t veloSetOptions(orcObj_t *ctx);

/// Puts the context's filespace name into its canonical form: with a leading slash, which replaces
/// a backslash. A name that becomes too long is cut.
void veloCheckFS(orcObj_t *ctx);

/// Reads every line into the option block. Returns 0, or 2534 (reported) at the first line with an
/// unknown keyword or without a value; the lines before it are stored. path serves in messages.
std::uint16_t veloParseOptionFile(orcObj_t *ctx, std::FILE *stream, const char *path, int encoding,
                                  int flags);

#endif
