// The names of the node and of the owner.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_PSNODE_H
#define KEEL_AGENTS_ORACLE_UNX_PSNODE_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

// Buffers hold HOX_MAX_NODE_NAME + 1 characters

/// Writes the host name, or an empty text when the system does not give one. Returns 0.
int psveloGetNodeName(char *buffer);
/// Writes the login name of the real user; an empty text for root and for a user without a name.
/// Returns 0.
int psveloGetOwnerName(char *buffer);
/// Stores the node name in this process's entry of the context table; takes orcMutex itself.
/// Returns 0, or -1 when there is no entry.
int psveloPutNodeName(const char *nodeName);
/// Writes HOXO_NODE of the environment, or the host name when that is not set. Returns 0, or 23
/// (logged) with an empty text when HOXO_NODE is longer than 64 characters.
int psfillNodeName(char *buffer);

#endif
