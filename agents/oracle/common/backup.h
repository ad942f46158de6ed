// The backup path beneath sbtbackup, sbtwrite2 and sbtclose2. One piece is one object, sent inside
// one transaction over a session that sbtbackup opens and sbtclose2 ends.
#ifndef KEEL_AGENTS_ORACLE_COMMON_BACKUP_H
#define KEEL_AGENTS_ORACLE_COMMON_BACKUP_H

#include <cstdint>

#include "agents/oracle/common/eventlog.h"
#include "agents/oracle/common/orcobj.h"

/// Registers the filespace, chooses the management class, begins the transaction and the object. 0,
/// 11 for a copy number above 4, or the storage client's code; a failure is reported.
std::uint16_t veloPrepSend(orcObj_t *ctx);

/// Sends what the transfer buffer holds, ends the object and commits; with SBT_CLOSE_ABORT it
/// aborts. 0 or the storage client's code, with the reason in the error text, the error log and the
/// event log.
std::uint16_t closeSend(orcObj_t *ctx, unsigned long flags);

/// Describes the context's object for the start of its sending: owner, size estimate (traced under
/// caller's name), information, class. The attributes point into ctx and at mcName.
void veloFillObjAttr(const orcObj_t *ctx, const char *mcName, const char *caller,
                     ObjAttr *attributes);

/// Ends the transaction. The storage client's code, with 2302 replaced by the reason it points to.
std::int16_t veloEndTxn(orcObj_t *ctx, std::uint8_t vote, std::uint16_t *reason);

/// Returns the size of the database in bytes, as sqlplus tells it, and 0 when that does not. An
/// sqlplus that has hung once is not started again until protectSizeReset.
std::uint64_t protectSize();
void protectSizeReset();

/// Reports a piece that was written (state 2) or read (states 3 and 4) to the server's event log
/// and to the database trace.
void veloBackupStatistics(orcObj_t *ctx, CEventLog &events);
void veloRestoreStatistics(orcObj_t *ctx, CEventLog &events);

/// Opens the copy of a piece's data that the test flag TEST_ORACLEDATA asks for: suffix is ".SEND"
/// or ".GET".
void veloOpenTestData(orcObj_t *ctx, const char *pieceName, const char *suffix);
void veloWriteTestData(orcObj_t *ctx, const void *data, std::size_t size);
void veloCloseTestData(orcObj_t *ctx);

/// Pauses as the test flag TEST_ORACLEDELAY (milliseconds) asks for.
void veloTestDelay();

#endif
