// Writes that fail with a code where the system would raise a signal.
#include "common/unx/pswrite.h"

#include <cerrno>
#include <ctime>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr int writeSignals[] = {SIGPIPE, SIGXFSZ};

/// Calls `once`, which writes a part and returns its length, until all is written or it fails.
template <class Once> bool writeOn(const void *data, std::size_t length, Once once) noexcept
{
    const psWriteGuard guard;
    const char *from = static_cast<const char *>(data);
    std::size_t done = 0;
    while (done < length) {
        const ssize_t written = once(from + done, length - done, done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            if (written == 0)
                errno = EIO;
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}
} // namespace

psWriteGuard::psWriteGuard() noexcept
{
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : writeSignals)
        sigaddset(&blocked, signal);
    sigpending(&pendingBefore);
    held = pthread_sigmask(SIG_BLOCK, &blocked, &maskBefore) == 0;
}

psWriteGuard::~psWriteGuard()
{
    if (!held)
        return;
    const int reason = errno;
    sigset_t pending;
    sigpending(&pending);
    for (const int signal : writeSignals) {
        if (sigismember(&pending, signal) != 1 || sigismember(&pendingBefore, signal) == 1)
            continue;
        sigset_t ours;
        sigemptyset(&ours);
        sigaddset(&ours, signal);
        const timespec atOnce{};
        while (sigtimedwait(&ours, nullptr, &atOnce) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    errno = reason;
}

int psWithinFileLimit(off_t position, std::size_t length) noexcept
{
    struct rlimit limit {
    };
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return 1;
    const auto used = static_cast<rlim_t>(position);
    return used <= limit.rlim_cur && length <= limit.rlim_cur - used ? 1 : 0;
}

bool psWriteAll(int descriptor, const void *data, std::size_t length) noexcept
{
    return writeOn(data, length, [descriptor](const char *part, std::size_t size, std::size_t) {
        return write(descriptor, part, size);
    });
}

bool psWriteAllAt(int descriptor, const void *data, std::size_t length, off_t at) noexcept
{
    return writeOn(data, length, [=](const char *part, std::size_t size, std::size_t done) {
        return pwrite(descriptor, part, size, at + static_cast<off_t>(done));
    });
}

bool psAppendWhole(int descriptor, const void *data, std::size_t length) noexcept
{
    struct stat before {
    };
    if (fstat(descriptor, &before) != 0)
        return false;
    if (S_ISREG(before.st_mode) && psWithinFileLimit(before.st_size, length) == 0) {
        errno = EFBIG;
        return false;
    }
    if (psWriteAll(descriptor, data, length))
        return true;
    const int reason = errno;
    [[maybe_unused]] const int ignored = ftruncate(descriptor, before.st_size);
    errno = reason;
    return false;
}
