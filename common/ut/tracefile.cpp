// Where the agent trace goes.
#include "common/ut/tracefile.h"

#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/ut/tracebuild.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
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

// The host's standard output may be a pipe that nobody reads any more, or a file at its limit; the
// signal for that would end the host. It is held back in this thread alone, and taken away if it
// was ours.
bool writeStream(int descriptor, const char *text, std::size_t length) noexcept
{
    sigset_t held;
    sigset_t maskBefore;
    sigset_t pendingBefore;
    sigemptyset(&held);
    sigaddset(&held, SIGPIPE);
    sigaddset(&held, SIGXFSZ);
    sigpending(&pendingBefore);
    if (pthread_sigmask(SIG_BLOCK, &held, &maskBefore) != 0)
        return false;
    const bool good = writeAll(descriptor, text, length);
    const int reason = errno;
    sigset_t ours;
    sigset_t pending;
    sigpending(&pending);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        if (good || sigismember(&pending, signal) != 1 || sigismember(&pendingBefore, signal) == 1)
            continue;
        int taken = 0;
        sigemptyset(&ours);
        sigaddset(&ours, signal);
        sigwait(&ours, &taken);
    }
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    errno = reason;
    return good;
}
} // namespace

unsigned traceFile_t::open(const char *name, const traceLimits_t &limits,
                           trConsoleFn console) noexcept
{
    close();
    if (name == nullptr || *name == '\0' || !stCopy(fileName, name))
        return TR_RC_NAME;
    const bool toConsole = stEqualNoCase(name, "CONSOLE");
    if (stEqualNoCase(name, "STDOUT")) {
        kind = Kind::stream;
        descriptor = STDOUT_FILENO;
    } else if (stEqualNoCase(name, "STDERR") || (toConsole && console == nullptr)) {
        kind = Kind::stream;
        descriptor = STDERR_FILENO;
    } else if (toConsole) {
        kind = Kind::console;
        consoleRoutine = console;
    } else if (limits.wraps()) {
        if (!wrapping.open(fileName, limits))
            return TR_RC_OPEN;
        kind = Kind::wrapping;
    } else if (!openPlain()) {
        return TR_RC_OPEN;
    }
    return 0;
}

bool traceFile_t::openPlain() noexcept
{
    descriptor = psFileOpenDescriptor(fileName, O_WRONLY | O_CREAT | O_APPEND);
    if (descriptor < 0)
        return false;
    kind = Kind::plain;
    char banner[160];
    const int length = std::snprintf(banner, sizeof banner,
                                     "ARCA Trace   %s\nBuild Date: %s\nBEGINNING NEW TRACE\n\n",
                                     traceProduct, traceBuildDate);
    if (write(banner, static_cast<std::size_t>(length)))
        return true;
    close();
    return false;
}

bool traceFile_t::write(char *line, std::size_t length) noexcept
{
    switch (kind) {
    case Kind::plain: {
        struct stat file {
        };
        return fstat(descriptor, &file) == 0 && psFileWithinLimit(file.st_size, length) != 0 &&
               writeAll(descriptor, line, length);
    }
    case Kind::stream:
        return writeStream(descriptor, line, length);
    case Kind::console:
        line[length] = '\0';
        consoleRoutine(line);
        return true;
    case Kind::wrapping:
        std::memcpy(line + length, traceEndMarker, sizeof traceEndMarker);
        return wrapping.write(line, length + traceEndLength);
    case Kind::none:
        break;
    }
    return true;
}

void traceFile_t::close() noexcept
{
    if (kind == Kind::plain)
        ::close(descriptor);
    wrapping.close();
    descriptor = -1;
    kind = Kind::none;
}
