// The version-1 interface beneath its six calls. They carry no context: the state of a call is this
// process's entry of the context table and the context copy in it. The file handle is the storage
// session's handle. One thread at a time makes these calls.
#ifndef KEEL_AGENTS_ORACLE_COMMON_V1_SBT1_H
#define KEEL_AGENTS_ORACLE_COMMON_V1_SBT1_H

#include <cstdint>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/context/orcblock.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/orcmessage.h"

// SBT error codes of the version-1 calls.
constexpr std::uint32_t SBT1_OPEN_NOT_FOUND = 7000;
constexpr std::uint32_t SBT1_OPEN_MODE = 7002;
constexpr std::uint32_t SBT1_OPEN_BLOCK_SIZE = 7003;
constexpr std::uint32_t SBT1_FAILED = 7011;
constexpr std::uint32_t SBT1_FILE_NAME = 7012;
constexpr std::uint32_t SBT1_CLOSE_NO_ENTRY = 7020;
constexpr std::uint32_t SBT1_CLOSE_FLAGS = 7021;
constexpr std::uint32_t SBT1_CLOSE_STATE = 7022;
constexpr std::uint32_t SBT1_CLOSE_FAILED = 7023;
constexpr std::uint32_t SBT1_WRITE_NO_ENTRY = 7040;
constexpr std::uint32_t SBT1_WRITE_FAILED = 7043;
constexpr std::uint32_t SBT1_WRITE_STATE = 7044;
constexpr std::uint32_t SBT1_NO_ENTRY = 7060;
constexpr std::uint32_t SBT1_READ_END = 7061;
constexpr std::uint32_t SBT1_READ_FAILED = 7064;
constexpr std::uint32_t SBT1_READ_STATE = 7065;

/// One version-1 call: its error record, its traces, and this process's state.
class Sbt1Call
{
public:
    /// Clears the error record and finds the entry; a process without one is noted in the error
    /// log. With a null error record it does nothing else.
    Sbt1Call(const char *name, bserc *error, const char *file = __builtin_FILE(),
             unsigned line = __builtin_LINE());

    /// Returns true when the caller gave an error record. Without one call nothing below but name()
    /// and scope().
    [[nodiscard]] bool reportable() const { return error_ != nullptr; }
    [[nodiscard]] bool hasEntry() const { return index_ >= 0; }
    [[nodiscard]] std::int16_t index() const { return index_; }
    /// The context copy, which the table owns; null without an entry and after cleanUp().
    [[nodiscard]] orcObj_t *ctx() const { return ctx_; }
    [[nodiscard]] const char *name() const { return scope_.name(); }
    [[nodiscard]] EntryScope &scope() { return scope_; }
    [[nodiscard]] int handle() const
    {
        return ctx_ == nullptr ? 0 : static_cast<int>(ctx_->hoxHandle);
    }

    // The fields of the entry. Only with an entry (exportNode() too): there is no check. Each call
    // takes orcMutex itself, which the caller may hold. Block sizes and counts are bytes. openFile
    // also notes the context's session handle in the entry and sets the byte count to 0.
    [[nodiscard]] std::uint32_t blockSize() const;
    [[nodiscard]] std::int16_t state() const;
    void setState(std::int16_t state);
    void openFile(std::uint64_t blockSize, std::int16_t state);
    void countBytes(std::uint64_t bytes);

    /// Set the error record and return -1. fail and failApi write the message, or the storage
    /// client's text of apiRc, to the error log; all four write it to the agent trace. failNoEntry:
    /// errnum is 2014, the constructor has logged the text already, and the exit text is set; after
    /// the others the caller sets it.
    int fail(std::uint32_t oer, std::uint32_t errnum, const OrcMessage &message);
    int failApi(std::uint32_t oer, std::uint32_t errnum, std::int16_t apiRc);
    int failNoEntry(std::uint32_t oer);
    /// As above, for a step that has set the context's error text and logged it already.
    int failStep(std::uint32_t oer, std::uint32_t errnum);

    /// Writes the call's exit line and ends the channel, which releases the traces too. Set the
    /// exit text first; afterwards there is no entry and no context.
    void cleanUp();

    /// Sets HOXO_NODE of the process's environment to the entry's node name, for the storage
    /// client's set-up.
    void exportNode() const;

private:
    int finish(std::uint32_t oer, std::uint32_t errnum);

    EntryScope scope_;
    bserc *error_;
    std::int16_t index_ = -1;
    orcObj_t *ctx_ = nullptr;
};

// The storage steps. They return 0 or a 16-bit code of the storage client or of this library. Where
// not said otherwise a failure is reported: in the context's error text and in the error log. No
// step checks a file name: one that sbt1FileNameFits refuses would be cut silently and would then
// name another piece.

/// Ends the session of an earlier file and opens one; its handle is kept in the entry and in the
/// context. On failure there is no session.
std::uint16_t ohoxSess(Sbt1Call &call);

/// Fills the context's object name and looks for that object. Returns 0 with *found and the
/// context's object identifier filled in; 2, not reported, when it does not exist or, in a file to
/// be written, its description is damaged; 121 when the query ended without an object and without
/// saying so. The identifier is clear unless the result is 0; *found is valid only then.
std::uint16_t queryObj(Sbt1Call &call, const char *fileName, dhoxBackupObject_t *found);

/// Looks up the storage pool of a management class, for the trace. A failure is reported but says
/// nothing of the file: its class may be deleted.
std::uint16_t queryMC(Sbt1Call &call, const char *fileName, const char *mcName);

/// Registers the context's filespace; one that is registered already is a success.
std::uint16_t regFS(orcObj_t *ctx);

/// Begins to write: 2503 when the object exists, and in place of 121 of queryObj. On failure no
/// transaction is open; the session is.
std::uint16_t prepareSend(Sbt1Call &call, const char *fileName);
/// Begins to read: 2, reported, when there is no such object; 121 of queryObj is returned as it is.
/// On failure the session stays open.
std::uint16_t prepareGet(Sbt1Call &call, const char *fileName);

/// End the object of a session, and commit it or end the reading. Each makes both of its steps and
/// returns the first failure, which it does not report. After 0 of closeSend the file is durable;
/// after a failure nothing is stored, and the transaction has ended all the same. The session stays
/// open until cleanUp() or the next ohoxSess.
std::uint16_t closeSend(std::uint32_t th);
std::uint16_t closeGet(std::uint32_t th);

/// Returns true for a text that may be the name of a file; the rule is that of pieces.
bool sbt1FileNameFits(const char *fileName);

#endif
