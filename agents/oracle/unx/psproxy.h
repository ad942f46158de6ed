// The proxy-copy library.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_PSPROXY_H
#define KEEL_AGENTS_ORACLE_UNX_PSPROXY_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

using sbtEntryPoint = void (*)();

/// Loads the proxy-copy library and fills the ten proxy-copy entries of table. Returns 0 with
/// *loaded 1 and description filled in (descriptionSize characters); the library stays loaded.
/// Returns -1 with *loaded 0, an empty description, and entries of which some may be set to
/// addresses that are no longer valid: the caller clears them.
int psLoadPCFunctions(sbtEntryPoint *table, int *loaded, char *description,
                      std::size_t descriptionSize);

#endif
