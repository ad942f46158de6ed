// Opening above the standard descriptors: see the header.
#include "client/base/descriptor.h"

#include "common/unx/psdescriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca
{

namespace
{

int openRetrying(int directory, const char *path, int flags, mode_t mode)
{
    int descriptor;
    do
        descriptor = ::openat(directory, path, flags, mode);
    while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

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
    return psAboveStandard(descriptor);
}

int openAbove(const char *path, int flags, mode_t mode)
{
    return openAboveAt(AT_FDCWD, path, flags, mode);
}

int openAboveAt(int directory, const char *path, int flags, mode_t mode)
{
    const psStandardHeld held;
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
