// Bringing the storage client and the repository into a usable state for a context.
//
// veloCheck_API_Level and psDoHoxSetUp run once a process under the initialisation lock;
// veloSession and veloRegFS run on the calling thread for its own context.
#ifndef KEEL_AGENTS_ORACLE_COMMON_VELOSESSION_H
#define KEEL_AGENTS_ORACLE_COMMON_VELOSESSION_H

#include <cstddef>
#include <cstdint>

#include "agents/oracle/common/callscope.h"
#include "agents/oracle/common/orcobj.h"
#include "agents/oracle/common/secret.h"

/// 0, or 2507 with messages 2572 and 2573 in the error log when the client is older than 7.1.3.
std::uint16_t veloCheck_API_Level();

/// Sets the storage client up for the context's directories, decides who keeps the node password,
/// and notes the node name of the client's options in the context. 0, the storage client's code, or
/// an errno value. A failure is reported.
std::uint16_t psDoHoxSetUp(orcObj_t *ctx);

/// Opens a session and stores its handle in the context. 0, the storage client's code, or that of
/// the password reader; a failure is reported. A session that was opened may stay open on failure.
std::int16_t veloSession(orcObj_t *ctx);

/// What a session start needs of secrets and options: the password from its file when the client
/// does not keep it, else a blank in the option string. 0 or the password reader's code, reported.
std::uint16_t veloSessionSecrets(orcObj_t *ctx, SessionPassword &password, TraceScope &scope);

/// Ends the context's session, if there is one, and zeroes its handle.
void veloEndSession(orcObj_t *ctx);

/// Puts the context's filespace name into its canonical form: with a leading slash.
void veloCheckFS(orcObj_t *ctx);

/// Registers the context's filespace. The storage client's code; 0 and 2062 mean that it is usable.
std::uint16_t veloRegFS(orcObj_t *ctx);

/// "DATE TIME" of now, local time, in the message system's formats.
void veloGetCurTime(char *text, std::size_t size);

#endif
