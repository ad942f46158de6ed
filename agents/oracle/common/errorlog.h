// The error log "veloerror.log" and what leads to it: whole lines for the database administrator,
// and the texts that a context keeps for sbterror. Nothing here reports its own failures; any
// thread may log.
#ifndef KEEL_AGENTS_ORACLE_COMMON_ERRORLOG_H
#define KEEL_AGENTS_ORACLE_COMMON_ERRORLOG_H

#include <cstddef>
#include <cstdint>

#include "agents/oracle/common/orcmessage.h"
#include "agents/oracle/common/orcobj.h"

constexpr std::size_t ORC_PATH_SIZE = 1025;

/// The path of the error log, worked out anew at every call: the directory HOXI_LOG of the option
/// file, else the installation directory, else the current one. path holds ORC_PATH_SIZE
/// characters.
std::uint16_t getErrorLog(char *path);

/// Appends "DATE TIME TID<process> ==> text" to the error log. Control characters of the text are
/// shown escaped, but for a line end at its end, and more than 4,000 bytes are cut.
void veloErrorMsg(const char *text);

/// The error routines that the message object takes: to the error log, and to the one of the
/// installation directory before the settings are known. Its reports end their line, and so do the
/// logs: one line end is taken off.
void veloErrorRoutine(const char *text);
void veloFirstErrorRoutine(const char *text);

/// Copies the storage client's text of rc, in English, into text (ORC_ERRTEXT_SIZE characters).
/// Where the client has none it is that of message 3, and without a client, when rc can only be of
/// this library, that of agentRcMessage. The second argument is not used.
void veloGetApiMsg(std::uint32_t hoxHandle, char unused, std::int16_t rc, char *text);

/// Copies the storage client's text of rc, in the host's language, into text (ORC_ERRTEXT_SIZE
/// characters). Returns false, and text is empty, when the client has none.
bool veloGetLocalMsg(std::uint32_t hoxHandle, std::int16_t rc, char *text);

/// Writes the storage client's text of rc, in the host's language, to the error log; where the
/// client has none, that of message 3.
void veloLogApiText(std::uint32_t hoxHandle, std::int16_t rc);

/// A storage-client call of this context failed: its text goes into the context's error text and
/// into the error log.
void veloReportApiFailure(orcObj_t *ctx, std::int16_t rc);

/// A message of ours goes into the context's error text (ctx may be null) and into the error log.
void veloReportMessage(orcObj_t *ctx, const OrcMessage &message);

/// Message 2539: function was called without parameter. To the error log.
void veloReportNull(const char *function, const char *parameter);

/// Message 2522, to the error log and the context's error text (ctx may be null).
void veloReportNoMemory(orcObj_t *ctx);

/// Message 2614: function was called in the wrong state. Sets 7501 and the error text, logs.
void veloReportWrongState(orcObj_t *ctx, const char *function);

/// Starts the message system with the context's settings: 0, or the message system's code, in which
/// case the message object is gone.
std::uint16_t callNlinit(const orcObj_t *ctx);

/// A date, time or number format as an option has it, 1 when it is above highest.
unsigned veloFormatNumber(const char *option, unsigned highest);

/// The message number for an agent return code: always 4, traced.
int agentRcMessage(int agentRc);

/// Does nothing on this platform; shared code calls it.
void writeToConsole(const char *text);

#endif
