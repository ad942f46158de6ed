// Opening above the standard descriptors: see the header.
#include "client/base/descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca
{

namespace
{

constexpr int kStandard = 3; // descriptors: 0, 1 and 2

int openRetrying(int directory, const char *path, int flags, mode_t mode)
{
    int descriptor;
    do
        descriptor = ::openat(directory, path, flags, mode);
    while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

bool isFree(int descriptor)
{
    return fcntl(descriptor, F_GETFD) < 0 && errno == EBADF;
}

/// Closes a standard descriptor unless the host has put another file there meanwhile, with dup2(2)
/// or close(2) and open(2). No call compares and closes in one step: a host that does so between
/// fstat(2) and close(2) loses its file.
void closeOurs(int descriptor, const struct stat &ours)
{
    struct stat state;
    if (fstat(descriptor, &state) == 0 && state.st_dev == ours.st_dev &&
        state.st_ino == ours.st_ino && state.st_mode == ours.st_mode &&
        (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0)
        (void)close(descriptor);
}

/// Holds the free ones of the standard descriptors. To the host they behave as if they were closed:
/// reading and writing fail.
class HeldStandard
{
public:
    HeldStandard()
    {
        // As a rule there is nothing to hold.
        if (!isFree(0) && !isFree(1) && !isFree(2))
            return;
        // Asked by name and beforehand: a number just taken may be the host's a moment later.
        if (stat("/", &place_) != 0)
            return;
#ifdef O_PATH
        constexpr int kNeither = O_PATH;
#else
        constexpr int kNeither = O_RDONLY; // a directory can be neither read nor written
#endif
        for (int number = 0; number < kStandard; ++number) {
            if (!isFree(number))
                continue;
            const int held = openRetrying(AT_FDCWD, "/", kNeither | O_DIRECTORY | O_CLOEXEC, 0);
            if (held >= kStandard)
                (void)close(held); // another thread came first
            else if (held >= 0)
                held_[held] = true;
        }
    }
    ~HeldStandard()
    {
        const int number = errno;
        for (int i = 0; i < kStandard; ++i)
            if (held_[i])
                closeOurs(i, place_);
        errno = number;
    }
    HeldStandard(const HeldStandard &) = delete;
    HeldStandard &operator=(const HeldStandard &) = delete;

private:
    bool held_[kStandard] = {};
    struct stat place_ = {};
};

/// The umask of the host may have taken from a new file what its owner needs.
void giveToOwner(int descriptor)
{
    const int number = errno;
    struct stat state;
    if (fstat(descriptor, &state) == 0 && S_ISREG(state.st_mode) && state.st_size == 0 &&
        (state.st_mode & 0600) != 0600)
        (void)fchmod(descriptor, (state.st_mode & 07777) | 0600);
    errno = number;
}

} // namespace

int moveAbove(int descriptor)
{
    if (descriptor < 0 || descriptor >= kStandard)
        return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kStandard);
    const int number = errno;
    struct stat ours;
    if (moved < 0)
        (void)close(descriptor);
    else if (fstat(moved, &ours) == 0)
        closeOurs(descriptor, ours);
    errno = number;
    return moved;
}

int openAbove(const char *path, int flags, mode_t mode)
{
    return openAboveAt(AT_FDCWD, path, flags, mode);
}

int openAboveAt(int directory, const char *path, int flags, mode_t mode)
{
    const HeldStandard held;
    // Another thread of ours may have released a number that it held, so this open may get it.
    const int opened = moveAbove(openRetrying(directory, path, flags | O_CLOEXEC | O_NOCTTY, mode));
    if (opened >= 0 && (flags & O_CREAT) != 0)
        giveToOwner(opened);
    return opened;
}

int makeDirectoryAt(int directory, const char *path)
{
    if (mkdirat(directory, path, 0700) != 0)
        return -1;
    struct stat state;
    if (fstatat(directory, path, &state, AT_SYMLINK_NOFOLLOW) == 0 &&
        (!S_ISDIR(state.st_mode) || (state.st_mode & 0700) == 0700))
        return 0;
    // No link that was put there meanwhile is followed: the C library opens it first.
    if (fchmodat(directory, path, 0700, AT_SYMLINK_NOFOLLOW) == 0)
        return 0;
    const int number = errno;
    (void)unlinkat(directory, path, AT_REMOVEDIR);
    errno = number;
    return -1;
}

} // namespace arca
