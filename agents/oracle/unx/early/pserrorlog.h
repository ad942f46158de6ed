// The two writers of error logs that need no message system.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_EARLY_PSERRORLOG_H
#define KEEL_AGENTS_ORACLE_UNX_EARLY_PSERRORLOG_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

/// Appends text, a whole line, to a file with psAppendLocked, which says when a line is lost. A
/// null or empty fileName does nothing.
void psWriteError(const char *fileName, const char *text);
/// Appends a time-stamped line to the early error log: veloerror.log of the installation directory,
/// or of the current one when no file can be created there. "%%" in text becomes "%", other
/// conversions vanish; control characters are escaped, more than 4,000 bytes cut. Takes no lock:
/// one write on an append-only descriptor. A line that cannot be written is lost.
void psNonNlsErrorMsg(const char *text);

#endif
