// The agent trace: detailed lines for finding faults, off unless the option file names a trace
// file, and then selected by class.
//
// A statement costs one relaxed atomic load while its class is off. Trace calls never fail their
// caller, never change errno and write to the host's standard streams only when the administrator
// named STDOUT, STDERR or CONSOLE as the trace file. Any thread may make any call; each takes the
// trace's lock itself. When a line cannot be written whole, the trace ends itself: the file is
// closed, every class is off, and the console routine is told.
#ifndef KEEL_COMMON_UT_TRACE_H
#define KEEL_COMMON_UT_TRACE_H

#include "common/ut/tracewords.h"

#include <atomic>
#include <cstdint>

/// One bit for each class that is on, 1 << class. Changed by the calls below only.
extern std::atomic<std::uint64_t> trMask;

/// Returns true when the class is on.
inline bool trTest(trClass which) noexcept
{
    return (trMask.load(std::memory_order_relaxed) >> which & 1U) != 0;
}

/// Closes an earlier trace file and starts the trace to a file, or to STDOUT, STDERR or CONSOLE (in
/// any case); writes the "Trace begun" lines when writeBegun is not 0 and no earlier call since
/// trEnd wrote them. A file is appended to; it must be new, empty or such a trace, and readable
/// (else TR_RC_OPEN). One that wraps switches TR_TIMESTAMP and TR_PREFIX on. Returns 0 or a code of
/// tracewords.h; then no file is open and every class is off.
unsigned trBegin(const char *fileName, int writeBegun) noexcept;

/// Ends the trace, closes its file, switches every class off and forgets the sizes.
void trEnd() noexcept;

/// As trEnd, for a forked child: another thread of the parent may have been in the middle of a
/// line, so the parent's file is left open and untouched.
void trForget() noexcept;

/// Returns true while a trace file or stream is open.
bool trActive() noexcept;

/// Switches classes on or off: names separated by blanks, tabs or commas, in any case, with or
/// without TR_. Returns 0. An unknown name is reported in the trace and gives TR_RC_FLAG; the
/// others still count.
unsigned trEnable(const char *flags, int on) noexcept;

/// Set, for the next trBegin, how far the trace may grow before it wraps, in MiB (0: without end),
/// and the size of the segments that it is kept in (0: one file; above 1,000 MiB in all, segments
/// of 1,000). Both return 0.
unsigned trSetMaxTraceSize(unsigned megabytes) noexcept;
unsigned trSetMaxTraceSegSize(unsigned megabytes) noexcept;

/// Sets the program type that the class TR_CLIENTTYPE shows, 0 to 12.
void trSetClientType(int clientType) noexcept;

/// Sets the routine for the lines of a trace to CONSOLE, from the next trBegin on, and for the
/// notice that a trace could not be opened or written. It is called with the trace's lock held, in
/// the thread that writes. Without one (null) a trace to CONSOLE goes to standard error, and no
/// notice is given.
void trSetConsole(trConsoleFn console) noexcept;

/// Replaces the test flags: NAME or NAME=VALUE, separated by white space, names in any case. They
/// are independent of the trace and hold without a trace file. Returns 0, or TR_RC_FLAG when some
/// did not fit (1,024 characters in all) or lacked a name; the others still count.
unsigned trTestEnable(const char *flags) noexcept;

/// Returns true when the flag was given; *value (value may be null) is then its value or "". That
/// text belongs to this unit and is overwritten by the next trTestEnable, in whatever thread.
bool trTestFlag(const char *name, const char **value) noexcept;

/// One statement. write() cuts the text, with its source prefix, at 5,181 characters and adds no
/// line end. It writes whatever classes are on, and nothing while no trace is open; KEEL_TRACE
/// tests the class first.
class KEELCTraceStatement
{
public:
    void initStatement(const char *file, unsigned line) noexcept;
    void write(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

private:
    const char *sourceFile = "";
    unsigned sourceLine = 0;
};

#define KEEL_TRACE(cls, ...)                                                                       \
    do {                                                                                           \
        if (trTest(cls)) {                                                                         \
            KEELCTraceStatement keelStatement;                                                     \
            keelStatement.initStatement(__FILE__, __LINE__);                                       \
            keelStatement.write(__VA_ARGS__);                                                      \
        }                                                                                          \
    } while (0)

#endif
