// The traces of a routine: an Enter line where it begins, an Exit line where it ends, on every
// path.
//
//     std::uint16_t veloRegFS(orcObj_t *ctx)
//     {
//         TraceScope scope("veloRegFS()");
//         ...
//         if (rc != 0) {
//             SCOPE_EXIT(scope, " %s: Exit - HOXREGISTERFS() failed. ...\n\n", scope.name(), ...);
//             return rc;
//         }
//         return 0;                                    // " veloRegFS(): Exit - OK"
//     }
//
// A TraceScope writes to the agent trace; an EntryScope, for the exported calls, to the database
// trace too, and pins the process-wide objects (agents/common/callpin.h). The exit text is written
// when the scope ends, or earlier by leave(): before a step that deletes the traces, and wherever
// it must stand above the lines that follow. SCOPE_EXIT formats nothing while no trace wants the
// text. Scopes live on the stack of one thread. Names are constants; they are not copied.
#ifndef KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_CALLSCOPE_H
#define KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_CALLSCOPE_H

#include <cstddef>

#include "agents/oracle/common/diagnostics/rmantrace.h"
#include "common/ut/trace.h"

/// A statement of the agent trace at one of the library's three levels: 0 failures, 1 flow, 2
/// detail.
#define ORC_TRACE(level, ...) KEEL_TRACE(TR_ORCLEVEL##level, __VA_ARGS__)

/// The same text to the agent trace (level) and to the database trace (class).
#define ORC_TRACE_BOTH(level, rmanClass, ...)                                                      \
    do {                                                                                           \
        ORC_TRACE(level, __VA_ARGS__);                                                             \
        RMAN_TRACE(rmanClass, __VA_ARGS__);                                                        \
    } while (0)

class TraceScope
{
public:
    explicit TraceScope(const char *name, const char *file = __builtin_FILE(),
                        unsigned line = __builtin_LINE())
        : TraceScope(name, file, line, nullptr)
    {
    }
    ~TraceScope();
    TraceScope(const TraceScope &) = delete;
    TraceScope &operator=(const TraceScope &) = delete;

    /// The routine's name with "()", as the traces show it.
    [[nodiscard]] const char *name() const { return name_; }

    /// The kind of an exit text selects the trace classes: Failure is RMANTR_ERROR and level 0 of
    /// the agent trace; Flow, a return with a special text, is RMANTR_FLOW and level 1; EndOfFile
    /// is RMANTR_DETAIL and level 1.
    enum class Exit { Failure, Flow, EndOfFile };

    /// Sets the whole exit text, with the routine's name and line end, cut silently at 4,095 bytes;
    /// the last one set wins. After leave() it does nothing. Use SCOPE_EXIT.
    void setExit(Exit kind, const char *file, unsigned line, const char *format, ...)
        __attribute__((format(printf, 5, 6)));

    /// Writes the exit line now; the end of the scope writes none.
    void leave();

    /// Returns true once the exit text of a failure is set. SCOPE_EXIT sets none while no trace
    /// wants it, so this is no substitute for a return code.
    [[nodiscard]] bool failed() const { return kind_ == Exit::Failure; }

    /// Keeps the exit line out of the database trace, where the caller has written another line.
    void setExitTold() { database_ = false; }

    /// Returns true when a trace is on that would take an exit text.
    [[nodiscard]] bool traced() const;

protected:
    /// databaseEnter: what the database trace says on entry behind the name, with its line end;
    /// null keeps the routine out of that trace.
    TraceScope(const char *name, const char *file, unsigned line, const char *databaseEnter);

private:
    static constexpr std::size_t kExitSize = 4096;

    const char *name_;
    const char *file_;
    unsigned line_;
    bool database_;
    bool worded_ = false;
    bool left_ = false;
    Exit kind_ = Exit::Flow;
    char exit_[kExitSize]; // set only with worded_
};

/// The scope of an exported call. The pin is the first base, so it outlives the exit line.
class EntryScope : private CallPin, public TraceScope
{
public:
    explicit EntryScope(const char *name, const char *databaseEnter = "Enter\n",
                        const char *file = __builtin_FILE(), unsigned line = __builtin_LINE())
        : TraceScope(name, file, line, databaseEnter)
    {
    }
};

#define SCOPE_EXIT_KIND(scope, kind, ...)                                                          \
    do {                                                                                           \
        if ((scope).traced()) {                                                                    \
            (scope).setExit(TraceScope::Exit::kind, __FILE__, __LINE__, __VA_ARGS__);              \
        }                                                                                          \
    } while (0)

#define SCOPE_EXIT(scope, ...) SCOPE_EXIT_KIND(scope, Failure, __VA_ARGS__)

#define SCOPE_EXIT_FLOW(scope, ...) SCOPE_EXIT_KIND(scope, Flow, __VA_ARGS__)
#define SCOPE_EXIT_END_OF_FILE(scope, ...) SCOPE_EXIT_KIND(scope, EndOfFile, __VA_ARGS__)

/// As SCOPE_EXIT, for an exit that has another line in the database trace.
#define SCOPE_EXIT_AGENT(scope, ...)                                                               \
    do {                                                                                           \
        (scope).setExitTold();                                                                     \
        SCOPE_EXIT(scope, __VA_ARGS__);                                                            \
    } while (0)

#endif
