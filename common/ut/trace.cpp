// The agent trace: statements, line decoration and the file they go to.
#include "common/ut/trace.h"

#include "common/cu/cutime.h"
#include "common/string/ststring.h"
#include "common/thrd/psmutex.h"
#include "common/unx/psfile.h"
#include "common/ut/traceclasses.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

constinit std::atomic<std::uint64_t> trMask{0};

namespace
{
constexpr std::size_t statementSize = 5182;
constexpr std::size_t maxNameLength = 260;
constexpr int noFile = -1;

// Everything below is guarded by traceMutex, which is taken last and held over no foreign call but
// the console routine.
constinit psMutex_t traceMutex;
constinit int traceFile = noFile;
constinit bool begun = false;
constinit unsigned maxMegabytes = 0;
constinit unsigned segmentMegabytes = 0;
constinit int clientTypeShown = -1;

bool writeAll(int descriptor, const char *text, std::size_t length) noexcept
{
    while (length > 0) {
        const ssize_t written = write(descriptor, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

void closeFile() noexcept
{
    if (traceFile > STDERR_FILENO)
        close(traceFile);
    traceFile = noFile;
    trMask = 0;
}

void writeText(const char *text, std::size_t length) noexcept
{
    if (traceFile != noFile && !writeAll(traceFile, text, length))
        closeFile();
}
} // namespace

unsigned trBegin(const char *fileName, int writeBegun) noexcept
{
    const int reason = errno;
    psMutexGuard guard(traceMutex);
    if (fileName == nullptr || *fileName == '\0' || std::strlen(fileName) > maxNameLength)
        return TR_RC_NAME;
    if (stEqualNoCase(fileName, "STDOUT"))
        traceFile = STDOUT_FILENO;
    else if (stEqualNoCase(fileName, "STDERR"))
        traceFile = STDERR_FILENO;
    else
        traceFile = psFileOpenDescriptor(fileName, O_WRONLY | O_CREAT | O_APPEND);
    errno = reason;
    if (traceFile == noFile)
        return TR_RC_OPEN;
    if (writeBegun != 0 && !begun) {
        begun = true;
        static constexpr char text[] = "Trace begun.\n";
        writeText(text, sizeof text - 1);
    }
    return 0;
}

void trEnd() noexcept
{
    psMutexGuard guard(traceMutex);
    closeFile();
    begun = false;
    maxMegabytes = 0;
    segmentMegabytes = 0;
}

bool trActive() noexcept
{
    psMutexGuard guard(traceMutex);
    return traceFile != noFile;
}

unsigned trEnable(const char *flags, int on) noexcept
{
    unsigned rc = 0;
    std::string_view rest = flags == nullptr ? "" : flags;
    while (!rest.empty()) {
        const std::size_t length = rest.find_first_of(" \t,");
        const std::string_view name = rest.substr(0, length);
        rest.remove_prefix(length == std::string_view::npos ? rest.size() : length + 1);
        if (name.empty())
            continue;
        const std::uint64_t bits = trClassBits(name);
        if (bits == 0)
            rc = TR_RC_FLAG;
        else if (on != 0)
            trMask |= bits;
        else
            trMask &= ~bits;
    }
    return rc;
}

unsigned trSetMaxTraceSize(unsigned megabytes) noexcept
{
    psMutexGuard guard(traceMutex);
    maxMegabytes = megabytes;
    return 0;
}

unsigned trSetMaxTraceSegSize(unsigned megabytes) noexcept
{
    psMutexGuard guard(traceMutex);
    segmentMegabytes = megabytes;
    return 0;
}

void trSetClientType(int clientType) noexcept
{
    psMutexGuard guard(traceMutex);
    clientTypeShown = clientType;
}

void trSetConsole(trConsoleFn) noexcept {}

void KEELCTraceStatement::initStatement(const char *file, unsigned line) noexcept
{
    const char *slash = std::strrchr(file, '/');
    sourceFile = slash == nullptr ? file : slash + 1;
    sourceLine = line;
}

void KEELCTraceStatement::write(const char *format, ...) noexcept
{
    const int reason = errno;
    char text[statementSize];
    int used = 0;
    if (trTest(TR_PREFIX))
        used = std::snprintf(text, sizeof text, "%-20s(%4u): ", sourceFile, sourceLine);
    va_list arguments;
    va_start(arguments, format);
    const auto start = static_cast<std::size_t>(used);
    std::vsnprintf(text + start, sizeof text - start, format, arguments);
    va_end(arguments);
    psMutexGuard guard(traceMutex);
    writeText(text, std::strlen(text));
    errno = reason;
}
