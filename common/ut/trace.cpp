// The agent trace: starting and ending it, its classes, and one line after the other.
#include "common/ut/trace.h"

#include "common/cu/cutime.h"
#include "common/string/ststring.h"
#include "common/thrd/psmutex.h"
#include "common/thrd/psprocess.h"
#include "common/ut/traceclasses.h"
#include "common/ut/tracefile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <string_view>
#include <sys/time.h>
#include <unistd.h>

constinit std::atomic<std::uint64_t> trMask{0};

namespace
{
constexpr std::size_t statementSize = 5182;
constexpr std::size_t decorationSize = 256;
constexpr unsigned largestSegment = 1000; // megabytes, unless the administrator says otherwise

// traceMutex guards everything below. It is the last mutex to be taken: while it is held no other
// one is, except by the console routine.
constinit psMutex_t traceMutex;
constinit traceFile_t traceFile;
constinit int opener = 0; // the process that opened the file
constinit bool begun = false;
constinit unsigned maximum = 0;
constinit unsigned segmentSize = 0;
constinit int clientTypeShown = -1;
constinit trConsoleFn consoleRoutine = nullptr;

constexpr std::array<const char *, 13> clientTags = {
    "[ctCLBackup  ]", "[ctCLAdmin   ]", "[ctGUIBackup ]", "[ctODBCDriver]", "[ctCLAPI     ]",
    "[ctCLSpaceMGT]", "[ctDICAD     ]", "[ctDIWebClien]", "[ctJBBDaemon ]", "[ctUtlAppl   ]",
    "[ctCLUtlAppl ]", "[ctGUIUtlAppl]", "[ctDIJavaGUI ]"};

// A statement may stand in the middle of the caller's error handling, and in a thread that the host
// cancels: errno is kept, and cancellation waits until no lock is held. (Unwinding into a noexcept
// function would end the host.)
class Undisturbed
{
public:
    Undisturbed() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState); }
    ~Undisturbed()
    {
        pthread_setcancelstate(cancelState, nullptr);
        errno = kept;
    }
    Undisturbed(const Undisturbed &) = delete;
    Undisturbed &operator=(const Undisturbed &) = delete;

private:
    int kept = errno;
    int cancelState = 0;
};

/// A line with room in front for its decoration and behind for the end marker.
struct Line {
    char text[decorationSize + statementSize + traceEndLength + 1];
    std::size_t length = 0;

    __attribute__((format(printf, 2, 3))) void add(const char *format, ...) noexcept
    {
        va_list arguments;
        va_start(arguments, format);
        addList(decorationSize, format, arguments);
        va_end(arguments);
    }

    void addList(std::size_t limit, const char *format, va_list arguments) noexcept
    {
        const int printed = std::vsnprintf(text + length, limit - length, format, arguments);
        if (printed > 0)
            length = std::min(length + static_cast<std::size_t>(printed), limit - 1);
    }
};

traceLimits_t limitsInForce() noexcept
{
    traceLimits_t limits;
    limits.maximum = maximum;
    if (segmentSize != 0)
        limits.segmentSize = maximum != 0 ? std::min(maximum, segmentSize) : segmentSize;
    else if (maximum > largestSegment)
        limits.segmentSize = largestSegment;
    return limits;
}

void tellConsole(const char *what, const char *end) noexcept
{
    if (consoleRoutine == nullptr)
        return;
    char text[decorationSize + traceMaxName];
    std::snprintf(text, sizeof text, "%s%s%s\n", what, traceFile.name(), end);
    consoleRoutine(text);
}

void resetTrace() noexcept
{
    trMask = 0;
    traceFile.close();
}

void decorate(Line &line) noexcept
{
    if (trTest(TR_TIMESTAMP)) {
        struct timeval now {
        };
        gettimeofday(&now, nullptr);
        struct tm local {
        };
        cuLocalTime(now.tv_sec, &local);
        char date[64];
        char time[64];
        cuFormatDate(date, sizeof date, local);
        cuFormatTime(time, sizeof time, local);
        line.add("%s %s.%03lu ", date, time, static_cast<unsigned long>(now.tv_usec / 1000));
    }
    if (trTest(TR_PID))
        line.add("[%.6u] ", static_cast<unsigned>(getpid()));
    if (trTest(TR_TID))
        line.add("[T%u] ", static_cast<unsigned>(psThreadSelf()));
    if (trTest(TR_CLIENTTYPE)) {
        const auto index = static_cast<unsigned>(clientTypeShown);
        line.add("%s", index < clientTags.size() ? clientTags[index] : "[ctUnkown    ]");
    }
    if (trTest(TR_TIMESTAMP) || trTest(TR_PID) || trTest(TR_TID))
        line.add(": ");
}

void writeLine(Line &line) noexcept
{
    if (!traceFile.isOpen() || traceFile.write(line.text, line.length))
        return;
    resetTrace();
    tellConsole("Unable to write to trace file ", ". Tracing disabled.");
}

// Writes a line of the trace itself. The lock is held.
__attribute__((format(printf, 1, 2))) void say(const char *format, ...) noexcept
{
    Line line;
    decorate(line);
    va_list arguments;
    va_start(arguments, format);
    line.addList(line.length + statementSize, format, arguments);
    va_end(arguments);
    writeLine(line);
}

void sayBegun() noexcept
{
    struct tm local {
    };
    cuLocalTime(std::time(nullptr), &local);
    char date[64];
    char time[64];
    cuFormatDate(date, sizeof date, local);
    cuFormatTime(time, sizeof time, local);
    say("Tracing to file: %s\n", traceFile.name());
    say("Tracefile maximum length set to %lu MB.\n", static_cast<unsigned long>(maximum));
    say("----------------------------------------------------------------\n%s %s - Trace begun.\n",
        date, time);
}

void sayWhereTo() noexcept
{
    if (stEqualNoCase(traceFile.name(), "STDOUT"))
        say("Tracing to stdout\n");
    else if (stEqualNoCase(traceFile.name(), "STDERR"))
        say("Tracing to stderr\n");
}
} // namespace

unsigned trBegin(const char *fileName, int writeBegun) noexcept
{
    const Undisturbed scope;
    psMutexGuard guard(traceMutex);
    const unsigned rc = traceFile.open(fileName, limitsInForce(), consoleRoutine);
    opener = psProcessSelf();
    if (rc != 0) {
        resetTrace();
        tellConsole("Unable to open trace output file ", "");
        return rc;
    }
    if (traceFile.wraps()) // in a wrapped file only the times show which line is newer
        trMask |= std::uint64_t{1} << TR_TIMESTAMP | std::uint64_t{1} << TR_PREFIX;
    sayWhereTo();
    if (writeBegun != 0 && !begun) {
        begun = true;
        sayBegun();
    }
    return traceFile.isOpen() ? 0 : TR_RC_OPEN;
}

void trEnd() noexcept
{
    const Undisturbed scope;
    psMutexGuard guard(traceMutex);
    resetTrace();
    begun = false;
    maximum = 0;
    segmentSize = 0;
}

// A host may close the library without trEnd, and the descriptor must not stay. It waits for no
// thread that is stuck in a write, as this runs at the exit, too; and to a forked child the number
// may mean a file of its own.
__attribute__((destructor)) static void closeAtUnload()
{
    if (traceMutex.lock(0) != 0)
        return;
    if (opener == psProcessSelf())
        resetTrace();
    traceMutex.unlock();
}

void trForget() noexcept
{
    psMutexGuard guard(traceMutex);
    trMask = 0;
    traceFile.forget();
    begun = false;
    maximum = 0;
    segmentSize = 0;
}

bool trActive() noexcept
{
    psMutexGuard guard(traceMutex);
    return traceFile.isOpen();
}

unsigned trEnable(const char *flags, int on) noexcept
{
    const Undisturbed scope;
    constexpr std::string_view separators = " \t,";
    psMutexGuard guard(traceMutex);
    unsigned rc = 0;
    std::string_view rest = flags == nullptr ? "" : flags;
    while (!rest.empty()) {
        const std::size_t length = rest.find_first_of(separators);
        const std::string_view name = rest.substr(0, length);
        rest.remove_prefix(length == std::string_view::npos ? rest.size() : length + 1);
        if (name.empty())
            continue;
        const std::uint64_t bits = trClassBits(name);
        if (bits == 0) {
            rc = TR_RC_FLAG;
            say("Invalid trace flag: %.*s\n",
                static_cast<int>(std::min<std::size_t>(80, name.size())), name.data());
        } else if (on != 0) {
            trMask |= bits;
        } else {
            trMask &= ~bits;
        }
    }
    return rc;
}

unsigned trSetMaxTraceSize(unsigned megabytes) noexcept
{
    psMutexGuard guard(traceMutex);
    maximum = megabytes;
    return 0;
}

unsigned trSetMaxTraceSegSize(unsigned megabytes) noexcept
{
    psMutexGuard guard(traceMutex);
    segmentSize = megabytes;
    return 0;
}

void trSetClientType(int clientType) noexcept
{
    psMutexGuard guard(traceMutex);
    clientTypeShown = clientType;
}

void trSetConsole(trConsoleFn console) noexcept
{
    psMutexGuard guard(traceMutex);
    consoleRoutine = console;
}

void KEELCTraceStatement::initStatement(const char *file, unsigned line) noexcept
{
    const char *slash = std::strrchr(file, '/');
    sourceFile = slash == nullptr ? file : slash + 1;
    sourceLine = line;
}

void KEELCTraceStatement::write(const char *format, ...) noexcept
{
    const Undisturbed scope;
    psMutexGuard guard(traceMutex);
    if (!traceFile.isOpen())
        return;
    Line line;
    decorate(line);
    const std::size_t limit = line.length + statementSize;
    if (trTest(TR_PREFIX))
        line.add("%-20s(%4u): ", sourceFile, sourceLine);
    va_list arguments;
    va_start(arguments, format);
    line.addList(limit, format, arguments);
    va_end(arguments);
    writeLine(line);
}
