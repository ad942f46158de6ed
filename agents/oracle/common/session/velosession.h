// Setting the storage client up, and sessions and filespaces for a context.
//
// veloCheck_API_Level and psDoHoxSetUp are called with initMutex held; the others by the thread
// that uses the context, without a lock. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOSESSION_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOSESSION_H

#include <cstdint>

#include "agents/oracle/common/context/secret.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/orcobj.h"

/// Returns 0, or 2507 with messages 2572 and 2573 in the error log when the client is older than
/// 7.1.3 or not loaded.
std::uint16_t veloCheck_API_Level();

/// Sets the storage client up for the context's directories, notes in the context whether the
/// client keeps the node password (bUsePwGenerate) and which node its options name, and clears the
/// context's node, owner and password path when the client keeps it (reported as 2610). Returns 0,
/// the storage client's code, or an errno value. A failure is reported, except of chmod and of
/// reading the client's options, which only the agent trace shows; after the latter the client
/// stays set up, and veloCleanUp cleans it up. After a failed first set-up a file /tmp/VELO.*
/// stays.
std::uint16_t psDoHoxSetUp(orcObj_t *ctx);

/// Opens a session for a context that has none and stores its handle there. Options of the session
/// that cannot be read are reported, and the session is good all the same. Returns 0, the storage
/// client's code, or that of the password reader; a failure is reported. When the client refuses
/// the session, the context's state becomes 1 (initialised); when its facts cannot be read, the
/// session stays open. The password is wiped before the return.
std::int16_t veloSession(orcObj_t *ctx);

/// Prepares what a session start needs: when the client keeps the password, the context's option
/// string gets a blank, and password stays empty; else the password is read from its file. Returns
/// 0, or the password reader's code, which is reported and becomes the exit text of scope.
std::uint16_t veloSessionSecrets(orcObj_t *ctx, SessionPassword &password, TraceScope &scope);

/// Ends the context's session, if there is one, and zeroes its handle; a failure is ignored.
void veloEndSession(orcObj_t *ctx);

/// Registers the context's filespace. Returns the storage client's code: 0 and 2062 (it is
/// registered already) mean that it is usable, any other is reported.
std::uint16_t veloRegFS(orcObj_t *ctx);

#endif
