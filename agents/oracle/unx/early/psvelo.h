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

/// Resets the process-wide counter and flags, and the note that sqlplus hangs; in a forked child
/// also forgets what the parent made. Takes initMutex itself. Always 0.
int psveloInit();
/// Returns the key of this process in the context table: its process identifier.
std::uint32_t psveloGetID();

// installed paths (psvelo.cpp), compiled in. Buffers hold ORC_OPTION_SIZE characters unless
// said otherwise. Each returns 0; on a platform that looks the path up it may return a code.

/// The directory of the storage client.
int psveloGetHoxiDir(char *buffer);
/// The installation directory of this library.
int psveloGetVeloDir(char *buffer);
/// Leaves the buffer as it is: there is no default on this platform.
int psveloGetHoxiConfig(char *buffer);
/// The default option file; the buffer holds ORC_OPTION_PATH_SIZE characters.
int psveloGetDefaultOptfile(char *buffer);
/// "velo.cat" for every directory.
void psgetMsgFileName(const char *directory, char *buffer);

#endif
