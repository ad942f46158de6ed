// The destination of the agent trace: a file, one of the host's streams, or the console routine.
//
// Internal to the trace; the caller holds the trace's lock.
#ifndef KEEL_COMMON_UT_TRACEFILE_H
#define KEEL_COMMON_UT_TRACEFILE_H

#include "common/ut/tracewords.h"
#include "common/ut/tracewrap.h"

constexpr std::size_t traceMaxName = 260;

class traceFile_t
{
public:
    constexpr traceFile_t() noexcept = default;

    /// Closes what was open and opens the destination of that name; console may be null. Returns 0,
    /// or TR_RC_NAME or TR_RC_OPEN with nothing open. A file that is neither empty nor a trace is
    /// left as it is: TR_RC_OPEN.
    unsigned open(const char *name, const traceLimits_t &limits, trConsoleFn console) noexcept;
    bool isOpen() const noexcept { return kind != Kind::none; }
    bool wraps() const noexcept { return kind == Kind::wrapping; }
    /// The last name given to open that was not empty, cut at 260 characters; it stays after close.
    const char *name() const noexcept { return fileName; }

    /// Writes a line of length characters, behind which the buffer has room for traceEndMarker and
    /// a terminator; both may be written there. Returns false when the line could not be written
    /// whole; a part of it may be in the file. With nothing open it returns true.
    bool write(char *line, std::size_t length) noexcept;
    void close() noexcept;
    /// As close, but leaves the descriptor open, for a forked child.
    void forget() noexcept;

private:
    enum class Kind { none, plain, stream, console, wrapping };

    bool openPlain() noexcept;
    bool writeBanner() noexcept;
    bool writePlain(const char *line, std::size_t length) noexcept;
    bool isEmptied() const noexcept;
    bool openStream(int stream) noexcept;

    Kind kind = Kind::none;
    int descriptor = -1;
    trConsoleFn consoleRoutine = nullptr;
    traceWrap_t wrapping;
    char fileName[traceMaxName + 1] = "";
};

#endif
