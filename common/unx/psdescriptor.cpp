// Keeping our files from the numbers of the standard streams: see the header.
#include "common/unx/psdescriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr int standard = 3; // descriptors: 0, 1 and 2

bool isFree(int descriptor) noexcept
{
    return fcntl(descriptor, F_GETFD) < 0 && errno == EBADF;
}

// Closes a standard descriptor unless the host has put another file there meanwhile, with dup2(2)
// or close(2) and open(2). No call compares and closes in one step: a host that does so between
// fstat(2) and close(2) loses its file.
void closeOurs(int descriptor, dev_t device, ino_t inode) noexcept
{
    struct stat state {
    };
    if (fstat(descriptor, &state) == 0 && state.st_dev == device && state.st_ino == inode &&
        (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0)
        close(descriptor);
}

int openRoot() noexcept
{
#ifdef O_PATH
    constexpr int neither = O_PATH;
#else
    constexpr int neither = O_RDONLY; // a directory can be neither read nor written
#endif
    int descriptor;
    do
        descriptor = open("/", neither | O_DIRECTORY | O_CLOEXEC);
    while (descriptor < 0 && errno == EINTR);
    return descriptor;
}
} // namespace

psStandardHeld::psStandardHeld() noexcept
{
    // As a rule there is nothing to hold.
    if (!isFree(0) && !isFree(1) && !isFree(2))
        return;
    // Asked by name and beforehand: a number just taken may be the host's a moment later.
    struct stat root {
    };
    if (stat("/", &root) != 0)
        return;
    device = root.st_dev;
    inode = root.st_ino;
    for (int number = 0; number < standard; ++number) {
        if (!isFree(number))
            continue;
        const int got = openRoot();
        if (got >= standard)
            close(got); // another thread came first
        else if (got >= 0)
            held[got] = true;
    }
}

psStandardHeld::~psStandardHeld()
{
    const int reason = errno;
    for (int number = 0; number < standard; ++number)
        if (held[number])
            closeOurs(number, device, inode);
    errno = reason;
}

int psAboveStandard(int descriptor) noexcept
{
    if (descriptor < 0 || descriptor >= standard)
        return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, standard);
    const int reason = errno;
    struct stat ours {
    };
    if (moved < 0)
        close(descriptor);
    else if (fstat(moved, &ours) == 0)
        closeOurs(descriptor, ours.st_dev, ours.st_ino);
    errno = reason;
    return moved;
}
