// Files of the host: opening, directory test and locked appending.
#include "common/unx/psfile.h"

#include "common/thrd/psmutex.h"
#include "common/unx/psdescriptor.h"
#include "common/unx/pswrite.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
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

bool isUsable(const struct stat &file) noexcept
{
    if (S_ISREG(file.st_mode) || (S_ISCHR(file.st_mode) && isNullDevice(file)))
        return true;
    errno = S_ISDIR(file.st_mode) ? EISDIR : EINVAL;
    return false;
}

bool isOpenUsable(int descriptor) noexcept
{
    struct stat file {
    };
    return fstat(descriptor, &file) == 0 && isUsable(file);
}

// Recognises a device before it is opened, as the open alone may act on it.
bool mayBeOpened(const char *path) noexcept
{
    struct stat file {
    };
    return stat(path, &file) != 0 || isUsable(file);
}

void closeKeepingReason(int descriptor) noexcept
{
    const int reason = errno;
    close(descriptor);
    errno = reason;
}

// Without O_NONBLOCK the open itself would wait for the other end of a pipe.
int openNow(const char *path, int openFlags, mode_t mode) noexcept
{
    const psStandardHeld held;
    return psAboveStandard(
        open(path, (openFlags & ~O_TRUNC) | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode));
}

bool isTrustedLink(const char *path) noexcept
{
    struct stat link {
    };
    return lstat(path, &link) == 0 && S_ISLNK(link.st_mode) &&
           (link.st_uid == 0 || link.st_uid == geteuid());
}

int openFollowing(const char *path, int openFlags, mode_t mode) noexcept
{
    if ((openFlags & O_ACCMODE) == O_RDONLY || (openFlags & O_NOFOLLOW) != 0)
        return openNow(path, openFlags, mode);
    const int descriptor = openNow(path, openFlags | O_NOFOLLOW, mode);
    return descriptor < 0 && errno == ELOOP && isTrustedLink(path) ? openNow(path, openFlags, mode)
                                                                   : descriptor;
}

// Gives a file that root has made to the owner of its directory, who could neither read nor write a
// file of root's there.
void giveToOwnerOfDirectory(int descriptor, const char *path) noexcept
{
    char directory[PATH_MAX];
    const char *const slash = std::strrchr(path, '/');
    const std::size_t length = slash == nullptr ? 0 : static_cast<std::size_t>(slash - path) + 1;
    if (length >= sizeof directory)
        return;
    std::memcpy(directory, path, length);
    directory[length] = '\0';
    struct stat owner {
    };
    if (stat(length == 0 ? "." : directory, &owner) == 0 && owner.st_uid != 0)
        (void)(fchown(descriptor, owner.st_uid, owner.st_gid) == 0);
}

// O_EXCL proves that the file is new and made here; the owner of any other one must not be changed.
int openAsRoot(const char *path, int openFlags, mode_t mode) noexcept
{
    const int made = openNow(path, openFlags | O_EXCL | O_NOFOLLOW, mode);
    if (made >= 0)
        giveToOwnerOfDirectory(made, path);
    return made >= 0 || errno != EEXIST || (openFlags & O_EXCL) != 0
               ? made
               : openFollowing(path, openFlags, mode);
}

// The umask of the host may have taken from a new file what its owner needs.
void giveToOwner(int descriptor) noexcept
{
    struct stat file {
    };
    if (fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode) && file.st_size == 0 &&
        (file.st_mode & 0600) != 0600)
        (void)fchmod(descriptor, (file.st_mode & 07777) | 0600);
}

bool setWholeLock(int descriptor, short type) noexcept
{
    struct flock whole {
    };
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    int rc;
    do
        rc = fcntl(descriptor, F_SETLK, &whole);
    while (rc != 0 && errno == EINTR);
    return rc == 0;
}

// True when the file is empty now; the null device always is.
bool emptied(int descriptor) noexcept
{
    struct stat file {
    };
    return fstat(descriptor, &file) == 0 &&
           (!S_ISREG(file.st_mode) || file.st_size == 0 || ftruncate(descriptor, 0) == 0);
}

// Without the lock one write on an append-only descriptor still keeps the line whole. What a full
// disk cuts stays: another process may have appended behind it.
void appendUnlocked(int descriptor, const char *line, std::size_t length) noexcept
{
    struct stat before {
    };
    if (fstat(descriptor, &before) == 0 && psWithinFileLimit(before.st_size, length) != 0)
        psWriteAll(descriptor, line, length);
}
} // namespace

int psFileOpenDescriptor(const char *path, int openFlags, mode_t mode) noexcept
{
    const auto how = (openFlags & O_CREAT) != 0 && geteuid() == 0 ? openAsRoot : openFollowing;
    const int descriptor = mayBeOpened(path) ? how(path, openFlags, mode) : -1;
    if (descriptor < 0)
        return -1;
    if (!isOpenUsable(descriptor) || ((openFlags & O_TRUNC) != 0 && !emptied(descriptor))) {
        closeKeepingReason(descriptor);
        return -1;
    }
    if ((openFlags & O_CREAT) != 0)
        giveToOwner(descriptor);
    const int status = fcntl(descriptor, F_GETFL);
    if (status != -1)
        fcntl(descriptor, F_SETFL, status & ~O_NONBLOCK);
    return descriptor;
}

int psFileOpenDirectory(const char *path) noexcept
{
    return openNow(path, O_RDONLY | O_DIRECTORY, 0);
}

int psFileTemporary(char *path) noexcept
{
    const psStandardHeld held;
    const int descriptor = psAboveStandard(mkostemp(path, O_CLOEXEC));
    if (descriptor >= 0)
        giveToOwner(descriptor);
    return descriptor;
}

bool psPipe(int ends[2]) noexcept
{
    const psStandardHeld held;
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    ends[0] = psAboveStandard(ends[0]);
    ends[1] = psAboveStandard(ends[1]);
    if (ends[0] >= 0 && ends[1] >= 0)
        return true;
    for (const int end : {ends[0], ends[1]})
        if (end >= 0)
            closeKeepingReason(end);
    return false;
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
                   faccessat(AT_FDCWD, path, W_OK | X_OK, AT_EACCESS) == 0
               ? 1
               : 0;
}

int psFileLock(int descriptor) noexcept
{
    constexpr int tries = 100;
    constexpr timespec pause{0, 10'000'000};
    for (int tried = 0; tried < tries; ++tried) {
        if (setWholeLock(descriptor, F_WRLCK))
            return 0;
        if (errno != EAGAIN && errno != EACCES)
            return errno;
        nanosleep(&pause, nullptr);
    }
    return EAGAIN;
}

void psFileUnlock(int descriptor) noexcept
{
    setWholeLock(descriptor, F_UNLCK);
}

void psAppendLocked(const char *path, const char *line, std::size_t length) noexcept
{
    if (path == nullptr || path[0] == '\0' || line == nullptr || length == 0)
        return;
    const int reason = errno;
    psMutexGuard guard(appendMutex);
    const int descriptor = psFileOpenDescriptor(path, O_RDWR | O_CREAT | O_APPEND);
    if (descriptor >= 0) {
        if (psFileLock(descriptor) == 0)
            psAppendWhole(descriptor, line, length);
        else // held by another process for too long, or on a file system that has no locks
            appendUnlocked(descriptor, line, length);
        close(descriptor); // which releases the lock
    }
    errno = reason;
}
