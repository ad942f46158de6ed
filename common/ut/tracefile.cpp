// The destination of the agent trace.
#include "common/ut/tracefile.h"

#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"
#include "common/ut/tracebuild.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

unsigned traceFile_t::open(const char *name, const traceLimits_t &limits,
                           trConsoleFn console) noexcept
{
    close();
    if (name == nullptr || *name == '\0' || !stCopy(fileName, name))
        return TR_RC_NAME;
    const bool toConsole = stEqualNoCase(name, "CONSOLE");
    if (stEqualNoCase(name, "STDOUT")) {
        return openStream(STDOUT_FILENO) ? 0 : TR_RC_OPEN;
    }
    if (stEqualNoCase(name, "STDERR") || (toConsole && console == nullptr)) {
        return openStream(STDERR_FILENO) ? 0 : TR_RC_OPEN;
    }
    if (toConsole) {
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

// A copy of the host's descriptor: when the host closes its stream later, the number may become one
// of its files.
bool traceFile_t::openStream(int stream) noexcept
{
    descriptor = fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (descriptor < 0)
        return false;
    kind = Kind::stream;
    return true;
}

// A name that is misspelt in the option file may be that of the host's data, or of our own keys.
bool traceFile_t::openPlain() noexcept
{
    descriptor = psFileOpenDescriptor(fileName, O_RDWR | O_CREAT | O_APPEND);
    if (descriptor < 0)
        return false;
    kind = Kind::plain;
    if (traceIsOurs(descriptor) && writeBanner())
        return true;
    close();
    return false;
}

bool traceFile_t::writeBanner() noexcept
{
    char banner[160];
    const int length = std::snprintf(banner, sizeof banner,
                                     "ARCA Trace   %s\nBuild Date: %s\nBEGINNING NEW TRACE\n\n",
                                     traceProduct, traceBuildDate);
    return writePlain(banner, static_cast<std::size_t>(length));
}

bool traceFile_t::writePlain(const char *line, std::size_t length) noexcept
{
    struct stat file {
    };
    return fstat(descriptor, &file) == 0 && psWithinFileLimit(file.st_size, length) != 0 &&
           psWriteAll(descriptor, line, length);
}

// A file that was emptied meanwhile gets its tag again, without which no process would go on with
// it.
bool traceFile_t::isEmptied() const noexcept
{
    struct stat file {
    };
    return fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode) && file.st_size == 0;
}

bool traceFile_t::write(char *line, std::size_t length) noexcept
{
    switch (kind) {
    case Kind::plain:
        return (!isEmptied() || writeBanner()) && writePlain(line, length);
    case Kind::stream:
        return psWriteAll(descriptor, line, length);
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
    if (kind == Kind::plain || kind == Kind::stream)
        ::close(descriptor);
    wrapping.close();
    descriptor = -1;
    kind = Kind::none;
}

void traceFile_t::forget() noexcept
{
    wrapping.forget();
    descriptor = -1;
    kind = Kind::none;
}
