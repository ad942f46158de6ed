// The backup path beneath sbtbackup, sbtwrite2 and sbtclose2. One piece is one object, sent inside
// one transaction over a session that sbtbackup opens and sbtclose2 ends.
//
// A context is used by one thread at a time, the caller's; these calls take no lock for it.
// "Reported" means: in the context's error text and in the error log. Codes are the storage
// client's or those of orcobj.h.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_BACKUP_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_BACKUP_H

#include <cstdint>

#include "agents/oracle/common/diagnostics/eventlog.h"
#include "agents/oracle/common/orcobj.h"

/// Registers the filespace, chooses the management class, begins the transaction and the object.
/// Copy numbers 0 and 1 take the class that the client binds, 2 to 4 those of the option file.
/// Returns 0, 11 for a copy number above 4, HOX_RC_NO_MC_NAME when the option file names no class
/// for the copy, or the storage client's code. A failure is reported, and, except that of the
/// filespace, in both event logs; no transaction is open then, and the session stays open.
std::uint16_t veloPrepSend(orcObj_t *ctx);

/// Ends the piece and frees the transfer buffer. Without flags: sends what the buffer holds, ends
/// the object and commits; 0 means that the piece is stored and durable, unless ctx->prevError is
/// set: then a transfer failed before, nothing is stored (the transaction is over, or ends with the
/// session), and 0 is returned. With SBT_CLOSE_ABORT: aborts, sets ctx->prevError and returns 0,
/// also when the abort failed; the client's reason for it (HOX_RC_ABORTED after one that went well)
/// is reported. Else the storage client's code, or 65535 when the buffer could not be sent; nothing
/// is stored then, and the failure is reported, that of the commit in both event logs as well. The
/// session stays open in every case.
std::uint16_t closeSend(orcObj_t *ctx, unsigned long flags);

/// Fills *attributes for the start of the context's object: owner, size estimate (traced under
/// caller's name), information, class. The estimate is the option VELO_AVG_SIZE, in megabytes;
/// while that is 50, the default, it is ctx->maxSize where that is set, its low 32 bits taken as
/// megabytes too. The attributes hold it in bytes. They point into ctx and at mcName, which must
/// live until the object has begun.
void veloFillObjAttr(const orcObj_t *ctx, const char *mcName, const char *caller,
                     ObjAttr *attributes);

/// Ends the transaction. Returns the storage client's code, where HOX_RC_CHECK_REASON is replaced
/// by the reason, and sets *reason, 0 for none. Not reported.
std::int16_t veloEndTxn(orcObj_t *ctx, std::uint8_t vote, std::uint16_t *reason);

/// Returns the size of the database in bytes (whole MiB), read from the output of sqlplus, or 0,
/// not reported, when that cannot be had. Writes the script ".sql" into the working directory,
/// where it stays (a symbolic link of that name is not followed: 0), and waits up to a minute. The
/// process group of sqlplus is killed then, which may take a second more; when it had not ended in
/// that time, no call starts it again before the next sbtinit. Any thread.
std::uint64_t protectSize();

/// Report a piece that was written (state 2) or read (states 3 and 4) to the server's event log, in
/// English, and to the database trace, in the host's language. A failure is ignored.
void veloBackupStatistics(orcObj_t *ctx, CEventLog &events);
void veloRestoreStatistics(orcObj_t *ctx, CEventLog &events);

/// The copy of a piece's data that the test flag TEST_ORACLEDATA asks for, in the log directory:
/// suffix is ".SEND" or ".GET". Opening closes an earlier copy, without the flag too, and empties a
/// file of that name. A copy that cannot be opened (the piece's name holds a "/", the path is too
/// long) or written is skipped silently; without an open copy the others do nothing.
void veloOpenTestData(orcObj_t *ctx, const char *pieceName, const char *suffix);
void veloWriteTestData(orcObj_t *ctx, const void *data, std::size_t size);
void veloCloseTestData(orcObj_t *ctx);

/// Pauses for the milliseconds of the test flag TEST_ORACLEDELAY, an hour at most.
void veloTestDelay();

#endif
