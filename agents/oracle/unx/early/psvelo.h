// The Unix unit of the library: what depends on the host. Porting to another platform means
// replacing the files of this folder.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_EARLY_PSVELO_H
#define KEEL_AGENTS_ORACLE_UNX_EARLY_PSVELO_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

// process (psvelo.cpp)

/// Resets the process-wide counter and flags, and the note that sqlplus hangs, under initMutex,
/// which it takes itself; frees and ends nothing of a live channel. In a forked child it first
/// forgets, without freeing, what the parent made. Always 0.
int psveloInit();
/// Returns the key of this process in the context table: its process identifier, asked for at each
/// call, so that a forked child never gets its parent's.
std::uint32_t psveloGetID();

// installed paths (psvelo.cpp), compiled in. Buffers hold ORC_OPTION_SIZE characters unless
// said otherwise. Each returns 0, also when the text was cut; on a platform that looks the path up
// it may return a code.

/// The directory of the storage client.
int psveloGetHoxiDir(char *buffer);
/// The installation directory of this library.
int psveloGetVeloDir(char *buffer);
/// Leaves the buffer as it is, so the caller clears it first: there is no default on this platform.
int psveloGetHoxiConfig(char *buffer);
/// The default option file; the buffer holds ORC_OPTION_PATH_SIZE characters.
int psveloGetDefaultOptfile(char *buffer);
/// Writes the bare name "velo.cat", no path, whatever the directory.
void psgetMsgFileName(const char *directory, char *buffer);

#endif
