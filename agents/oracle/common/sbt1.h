// The version-1 interface beneath its six calls. They carry no context: the state of a call is this
// process's entry of the context table and the context copy in it. The file handle is the storage
// session's handle.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SBT1_H
#define KEEL_AGENTS_ORACLE_COMMON_SBT1_H

#include <cstdint>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/callscope.h"
#include "agents/oracle/common/orcblock.h"
#include "agents/oracle/common/orcmessage.h"

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
    /// Clears the error record and finds the entry.
    Sbt1Call(const char *name, bserc *error, const char *file = __builtin_FILE(),
             unsigned line = __builtin_LINE());

    /// Is there an error record to report to?
    [[nodiscard]] bool reportable() const { return error_ != nullptr; }
    [[nodiscard]] bool hasEntry() const { return index_ >= 0; }
    [[nodiscard]] std::int16_t index() const { return index_; }
    /// The context copy; only with an entry.
    [[nodiscard]] orcObj_t *ctx() const { return ctx_; }
    [[nodiscard]] const char *name() const { return scope_.name(); }
    [[nodiscard]] EntryScope &scope() { return scope_; }
    [[nodiscard]] int handle() const
    {
        return ctx_ == nullptr ? 0 : static_cast<int>(ctx_->hoxHandle);
    }

    // What the entry holds, read and written under orcMutex.
    [[nodiscard]] std::uint32_t blockSize() const;
    [[nodiscard]] std::int16_t state() const;
    void setState(std::int16_t state);
    void openFile(std::uint64_t blockSize, std::int16_t state);
    void countBytes(std::uint64_t bytes);

    /// Sets the error record and returns -1. The message, or the storage client's text of apiRc,
    /// goes to the error log and to the agent trace.
    int fail(std::uint32_t oer, std::uint32_t errnum, const OrcMessage &message);
    int failApi(std::uint32_t oer, std::uint32_t errnum, std::int16_t apiRc);
    int failNoEntry(std::uint32_t oer);
    /// As above for a step that has put its text into the context and the error log already.
    int failStep(std::uint32_t oer, std::uint32_t errnum);

    /// Writes the call's exit line and releases the channel, the traces with it; the context is
    /// gone afterwards. Set the exit text first.
    void cleanUp();

    /// Puts the entry's node name into the environment, for the storage client's set-up.
    void exportNode() const;

private:
    int finish(std::uint32_t oer, std::uint32_t errnum);

    EntryScope scope_;
    bserc *error_;
    std::int16_t index_ = -1;
    orcObj_t *ctx_ = nullptr;
};

// The storage steps. 16-bit codes of the storage client or of this library; failures are reported.

/// Ends the session of an earlier file and opens one; the handle is kept in the entry and in the
/// context.
std::uint16_t ohoxSess(Sbt1Call &call);

/// Fills the context's object name, and looks for it: 0 with *found and the context's object
/// identifier filled in, 2 when it is not there, 121 when the query came to its end without an
/// object and without saying so. *found and the identifier are clear unless it is 0.
std::uint16_t queryObj(Sbt1Call &call, const char *fileName, dhoxBackupObject_t *found);

/// Looks the storage pool of a management class up, for the trace. A failure is reported, and is
/// none of the file's: its class may be deleted.
std::uint16_t queryMC(Sbt1Call &call, const char *fileName, const char *mcName);

std::uint16_t regFS(orcObj_t *ctx);

/// Begins to write: 2503 when the object exists.
std::uint16_t prepareSend(Sbt1Call &call, const char *fileName);
/// Begins to read: 2 when there is no such object, which is reported.
std::uint16_t prepareGet(Sbt1Call &call, const char *fileName);

/// Ends the object of a session, and commits it.
std::uint16_t closeSend(std::uint32_t th);
std::uint16_t closeGet(std::uint32_t th);

/// May this be the name of a file? As for pieces.
bool sbt1FileNameFits(const char *fileName);

#endif
