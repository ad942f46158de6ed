// Files of the host: opening, directory test and locked appending.
#include "common/unx/psfile.h"

#include "common/thrd/psmutex.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
// Record locks belong to the process: two threads would both get one, and the first to close its
// descriptor would drop the other's.
constinit psMutex_t appendMutex;

int openFlagsOf(const char *mode) noexcept
{
    const bool update = std::strchr(mode, '+') != nullptr;
    const int access = update ? O_RDWR : (mode[0] == 'r' ? O_RDONLY : O_WRONLY);
    switch (mode[0]) {
    case 'r':
        return access;
    case 'w':
        return access | O_CREAT | O_TRUNC;
    case 'a':
        return access | O_CREAT | O_APPEND;
    default:
        return -1;
    }
}

bool isNullDevice(const struct stat &file) noexcept
{
    struct stat null {
    };
    return stat("/dev/null", &null) == 0 && S_ISCHR(null.st_mode) && null.st_rdev == file.st_rdev;
}

bool isUsable(int descriptor, int openFlags) noexcept
{
    struct stat file {
    };
    if (fstat(descriptor, &file) != 0)
        return false;
    if (S_ISREG(file.st_mode))
        return true;
    errno = S_ISDIR(file.st_mode) ? EISDIR : EINVAL;
    if (!S_ISCHR(file.st_mode))
        return false;
    return (openFlags & O_ACCMODE) == O_WRONLY || isNullDevice(file);
}

int waitForLock(int descriptor) noexcept
{
    int rc;
    do
        rc = lockf(descriptor, F_LOCK, 0);
    while (rc != 0 && errno == EINTR);
    return rc;
}

// Under the lock nobody else appends, so what lies behind the old end is our own cut line.
void writeWhole(int descriptor, const char *line, std::size_t length) noexcept
{
    struct stat before {
    };
    if (fstat(descriptor, &before) != 0 || psFileWithinLimit(before.st_size, length) == 0)
        return;
    ssize_t written;
    do
        written = write(descriptor, line, length);
    while (written < 0 && errno == EINTR);
    if (written >= 0 && static_cast<std::size_t>(written) < length) {
        const int ignored = ftruncate(descriptor, before.st_size);
        static_cast<void>(ignored);
    }
}
} // namespace

int psFileOpenDescriptor(const char *path, int openFlags) noexcept
{
    // Without O_NONBLOCK the open itself would wait for the other end of a pipe.
    const int descriptor = open(path, openFlags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600);
    if (descriptor < 0)
        return -1;
    if (!isUsable(descriptor, openFlags)) {
        const int reason = errno;
        close(descriptor);
        errno = reason;
        return -1;
    }
    const int status = fcntl(descriptor, F_GETFL);
    if (status != -1)
        fcntl(descriptor, F_SETFL, status & ~O_NONBLOCK);
    return descriptor;
}

FILE *psFileOpen(const char *path, const char *mode, int *encoding, int *flags) noexcept
{
    if (encoding != nullptr)
        *encoding = 0;
    if (flags != nullptr)
        *flags = 0;
    const int openFlags = path == nullptr || mode == nullptr ? -1 : openFlagsOf(mode);
    if (openFlags == -1) {
        errno = EINVAL;
        return nullptr;
    }
    const int descriptor = psFileOpenDescriptor(path, openFlags);
    if (descriptor < 0)
        return nullptr;
    FILE *file = fdopen(descriptor, mode);
    if (file == nullptr) {
        const int reason = errno;
        close(descriptor);
        errno = reason;
    }
    return file;
}

int psFileWritableDir(const char *path) noexcept
{
    struct stat directory {
    };
    return path != nullptr && stat(path, &directory) == 0 && S_ISDIR(directory.st_mode) &&
                   access(path, W_OK | X_OK) == 0
               ? 1
               : 0;
}

int psFileWithinLimit(off_t position, std::size_t length) noexcept
{
    struct rlimit limit {
    };
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return 1;
    const auto used = static_cast<rlim_t>(position);
    return used <= limit.rlim_cur && length <= limit.rlim_cur - used ? 1 : 0;
}

void psAppendLocked(const char *path, const char *line, std::size_t length) noexcept
{
    if (path == nullptr || path[0] == '\0' || line == nullptr || length == 0)
        return;
    const int reason = errno;
    psMutexGuard guard(appendMutex);
    const int descriptor = psFileOpenDescriptor(path, O_RDWR | O_CREAT | O_APPEND);
    if (descriptor >= 0) {
        if (waitForLock(descriptor) == 0)
            writeWhole(descriptor, line, length);
        close(descriptor); // and with it the lock
    }
    errno = reason;
}
