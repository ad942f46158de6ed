// The agent trace: detailed lines for the people who look for a fault, off unless the option file
// names a trace file, and then selected by class.
//
// A statement costs one relaxed atomic load while its class is off. Trace calls never fail their
// caller, never change errno and never print on the host's console unless the administrator named
// STDOUT, STDERR or CONSOLE as the trace file. Any thread may write.
#ifndef KEEL_COMMON_UT_TRACE_H
#define KEEL_COMMON_UT_TRACE_H

#include <atomic>
#include <cstdint>

enum trClass : unsigned {
    TR_ORCLEVEL0, // failures
    TR_ORCLEVEL1, // the flow of calls: Enter, Exit - OK
    TR_ORCLEVEL2, // details
    TR_ORCBUFF,   // buffers, byte by byte
    TR_GENERAL,
    TR_LINKEDLIST,
    TR_NLS, // message repository
    TR_EXTRC_DETAIL,
    TR_API,       // calls of the storage client
    TR_PERFORM,   // and the time they took
    TR_MEMORY,    // memory taken and released
    TR_TIMESTAMP, // from here on: what decorates each line
    TR_PID,
    TR_TID,
    TR_PREFIX,
    TR_CLIENTTYPE,
    TR_CLASSES
};

/// One bit for each class that is on.
extern std::atomic<std::uint64_t> trMask;

inline bool trTest(trClass which) noexcept
{
    return (trMask.load(std::memory_order_relaxed) >> which & 1U) != 0;
}

constexpr unsigned TR_RC_NAME = 406; // no file name, or longer than 260 characters
constexpr unsigned TR_RC_FLAG = 419; // an unknown trace flag
constexpr unsigned TR_RC_OPEN = 426; // the trace file cannot be opened

/// Starts the trace to a file, or to STDOUT, STDERR or CONSOLE (in any case), and writes the "Trace
/// begun" lines the first time when writeBegun is not 0. 0 or one of the codes above; tracing is
/// off then.
unsigned trBegin(const char *fileName, int writeBegun) noexcept;

/// Ends the trace, closes its file and forgets every class and size.
void trEnd() noexcept;

/// The same in a forked child, where another thread of the parent may have been in the middle of a
/// line: the file is left open, as its state cannot be trusted.
void trForget() noexcept;

/// True while lines go somewhere.
bool trActive() noexcept;

/// Switches classes on or off: blank-separated names, in any case, with or without TR_. An unknown
/// name is reported in the trace and gives TR_RC_FLAG; the others still count.
unsigned trEnable(const char *flags, int on) noexcept;

/// How far the file may grow before it wraps, in MB, 0 for ever; and the size of the segments that
/// it is kept in, 0 for one file. Both hold for the next trBegin and return 0.
unsigned trSetMaxTraceSize(unsigned megabytes) noexcept;
unsigned trSetMaxTraceSegSize(unsigned megabytes) noexcept;

/// What the class TR_CLIENTTYPE shows.
void trSetClientType(int clientType) noexcept;

/// Where lines for CONSOLE go; without one, to standard error.
using trConsoleFn = void (*)(const char *text);
void trSetConsole(trConsoleFn console) noexcept;

/// Test flags: blank-separated NAME or NAME=VALUE, names in any case. Forgets the earlier ones.
/// Independent of the trace: they hold without a trace file. 0, or TR_RC_FLAG when some did not fit
/// (1,024 characters in all).
unsigned trTestEnable(const char *flags) noexcept;

/// True when the flag was given; *value (which may be null) is then its value or "", good until the
/// next trTestEnable.
bool trTestFlag(const char *name, const char **value) noexcept;

/// One statement. The text is cut at 5,181 characters.
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
