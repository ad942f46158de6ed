// The error log "veloerror.log": whole lines for the database administrator, and the texts that a
// context keeps for sbterror.
//
// Any thread may log. Nothing here reports its own failures: a line that cannot be written is lost.
// Error texts are cut at 1,024 bytes. ctx is a context that the calling thread uses alone.
#ifndef KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_ERRORLOG_H
#define KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_ERRORLOG_H

#include <cstddef>
#include <cstdint>

#include "agents/oracle/common/diagnostics/orcmessage.h"
#include "agents/oracle/common/orcobj.h"

constexpr std::size_t ORC_PATH_SIZE = 1025;

/// Writes the path of the error log to path (ORC_PATH_SIZE characters). The option file is read at
/// every call: its HOXI_LOG, or without that the installation directory; when that is blank, too
/// long, or the process cannot create files there, the current directory. Returns 0, or the code of
/// psveloGetVeloDir.
std::uint16_t getErrorLog(char *path);

/// Appends "DATE TIME TID<process> ==> text" to the error log (local time). Control characters of
/// the text become "\n", "\x1b" and the like, but for one line end at its end; more than 4,000
/// bytes are cut and marked "...". See psAppendLocked for locks; the line is not synced.
void veloErrorMsg(const char *text);

/// The error routines of the message object: to the error log, and, before the settings are known,
/// to that of the installation directory. One line end is removed, because the log adds its own.
void veloErrorRoutine(const char *text);
void veloFirstErrorRoutine(const char *text);

/// Copies the storage client's text of rc, in English, into text (ORC_ERRTEXT_SIZE characters). For
/// a code without a text, the text of message 3; while no client is loaded, so that rc can only be
/// a code of this library, that of agentRcMessage. The second argument is not used.
void veloGetApiMsg(std::uint32_t hoxHandle, char unused, std::int16_t rc, char *text);

/// Copies the storage client's text of rc, in the host's language, into text (ORC_ERRTEXT_SIZE
/// characters). Returns false, with text empty, when the client has none.
bool veloGetLocalMsg(std::uint32_t hoxHandle, std::int16_t rc, char *text);

/// Writes the storage client's text of rc, in the host's language, to the error log; for a code
/// without a text, as veloGetApiMsg.
void veloLogApiText(std::uint32_t hoxHandle, std::int16_t rc);

/// Reports a storage-client call that failed: its English text becomes the context's error text,
/// the text in the host's language a line of the error log. The context's SBT code stays as it is.
/// ctx is not null here.
void veloReportApiFailure(orcObj_t *ctx, std::int16_t rc);

/// Reports a message of this library: it becomes the context's error text (ctx may be null) and a
/// line of the error log. An empty message clears the error text and logs nothing.
void veloReportMessage(orcObj_t *ctx, const OrcMessage &message);

/// Writes message 2539 to the error log: function was called without parameter.
void veloReportNull(const char *function, const char *parameter);

/// Reports message 2522 (ctx may be null): no memory.
void veloReportNoMemory(orcObj_t *ctx);

/// Reports message 2614, function was called in the wrong state, and sets the SBT code 7501.
void veloReportWrongState(orcObj_t *ctx, const char *function);

/// Ends the message object's first start and starts it with the context's settings. Returns 0, or
/// the code of nlinit, which is logged; the message object is destroyed then. The caller holds
/// initMutex.
std::uint16_t callNlinit(const orcObj_t *ctx);

/// Returns the date, time or number format of an option's text, the digits that it begins with; 1
/// when it is negative or above highest, 0 when it is no number.
unsigned veloFormatNumber(const char *option, unsigned highest);

/// Returns the message number for an agent return code, which is always 4, and traces the code.
int agentRcMessage(int agentRc);

/// The console routine of the message object. Does nothing on this platform: the library never
/// prints.
void writeToConsole(const char *text);

#endif
