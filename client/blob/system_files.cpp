// The real file layer: POSIX calls, with what Linux offers beyond them behind feature checks. No
// call leaves a descriptor that a program started by the host would inherit.
#include "client/base/descriptor.h"
#include "client/blob/retried.h"
#include "client/blob/system_file.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca::blob
{

namespace
{

/// A file that takes another one's path has another inode, or came later.
std::uint64_t stampOf(const struct stat &state)
{
    std::uint64_t stamp = 0;
    for (const std::uint64_t part :
         {static_cast<std::uint64_t>(state.st_ino), static_cast<std::uint64_t>(state.st_size),
          static_cast<std::uint64_t>(state.st_ctim.tv_sec),
          static_cast<std::uint64_t>(state.st_ctim.tv_nsec)}) {
        stamp = (stamp ^ part) * 0x9e3779b97f4a7c15U;
        stamp ^= stamp >> 32;
    }
    return std::max<std::uint64_t>(stamp, 1);
}

class SystemFiles final : public FileLayer
{
public:
    Result<std::unique_ptr<File>> create(const std::string &path) override
    {
        return openedToLock(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, "creating");
    }

    Result<std::unique_ptr<File>> open(const std::string &path) override
    {
        return opened(path, O_RDONLY | O_NONBLOCK, "opening");
    }

    Result<std::unique_ptr<File>> openForLocking(const std::string &path, bool create) override
    {
        return openedToLock(path, O_RDWR | (create ? O_CREAT : 0) | O_NOFOLLOW | O_NONBLOCK,
                            "opening");
    }

    Result<void> moveNew(const std::string &from, const std::string &to) override
    {
        // A hard link never replaces what is there. Some file systems have none.
        if (::link(from.c_str(), to.c_str()) == 0) {
            // The name counts, not the leftover: a later clean-up takes it away if this fails.
            (void)::unlink(from.c_str());
            return {};
        }
#ifdef RENAME_NOREPLACE
        if (hasNoLinks(errno) &&
            renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
            return {};
#endif
        return fromErrno(errno, "naming", to);
    }

    Result<bool> link(const std::string &from, const std::string &to) override
    {
        if (::link(from.c_str(), to.c_str()) == 0)
            return true;
        if (hasNoLinks(errno))
            return false;
        return fromErrno(errno, "naming", to);
    }

    Result<void> unlink(const std::string &path) override
    {
        if (::unlink(path.c_str()) != 0)
            return fromErrno(errno, "removing", path);
        return {};
    }

    Result<void> makeDirectory(const std::string &path) override
    {
        if (mkdir(path.c_str(), 0700) != 0)
            return fromErrno(errno, "creating the directory", path);
        return {};
    }

    Result<void> syncDirectory(const std::string &path) override
    {
        const int descriptor = openAbove(path.c_str(), O_RDONLY | O_DIRECTORY);
        if (descriptor < 0)
            return fromErrno(errno, "opening the directory", path);
        const int result = retried([&] { return fsync(descriptor); });
        const int number = errno;
        close(descriptor);
        // Some file systems cannot sync a directory and say so; there is nothing more to be done.
        if (result != 0 && number != EINVAL)
            return fromErrno(number, "syncing the directory", path);
        return {};
    }

    Result<void> list(const std::string &path,
                      const std::function<bool(const std::string &)> &visit) override
    {
        const int descriptor = openAbove(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK);
        if (descriptor < 0)
            return fromErrno(errno, "opening the directory", path);
        const std::unique_ptr<DIR, int (*)(DIR *)> directory(fdopendir(descriptor), &closedir);
        if (!directory) {
            const int number = errno;
            close(descriptor);
            return fromErrno(number, "opening the directory", path);
        }
        for (;;) {
            errno = 0;
            const dirent *entry = readdir(directory.get());
            if (entry == nullptr)
                break;
            const std::string name = entry->d_name;
            if (name != "." && name != ".." && !visit(name))
                return {};
        }
        if (errno != 0)
            return fromErrno(errno, "reading the directory", path);
        return {};
    }

    Result<bool> isDirectory(const std::string &path) override
    {
        ARCA_TRY(const State found, state(path));
        return found.directory;
    }

    Result<State> state(const std::string &path) override
    {
        struct stat found;
        if (stat(path.c_str(), &found) == 0)
            return State{S_ISDIR(found.st_mode) != 0, stampOf(found)};
        if (errno == ENOENT || errno == ENOTDIR)
            return State{};
        return fromErrno(errno, "inspecting", path);
    }

private:
    static bool hasNoLinks(int number)
    {
        return number == EPERM || number == EOPNOTSUPP || number == ENOSYS || number == EMLINK;
    }

    static Result<std::unique_ptr<File>> opened(const std::string &path, int flags,
                                                const char *action)
    {
        const int descriptor = openAbove(path.c_str(), flags);
        if (descriptor < 0)
            return fromErrno(errno, action, path);
        auto file = systemFile(descriptor, path);
        // In a blob's place it is a damaged blob: that holds up what needs it, and nothing else.
        ARCA_CHECK(expectRegular(descriptor, path, action, ErrorKind::damaged));
        return file;
    }

    static Result<std::unique_ptr<File>> openedToLock(const std::string &path, int flags,
                                                      const char *action)
    {
        int number = 0;
        auto own = OwnDescriptor::open(
            [&](bool again) {
                // It is there by then, and still nobody else's.
                const int now = again ? flags & ~(O_CREAT | O_EXCL) : flags;
                return openAbove(path.c_str(), now);
            },
            number);
        if (!own)
            return fromErrno(number, action, path);
        const int descriptor = own->number();
        auto file = systemFile(std::move(own), path);
        ARCA_CHECK(expectRegular(descriptor, path, action, ErrorKind::io));
        return file;
    }

    static Result<void> expectRegular(int descriptor, const std::string &path, const char *action,
                                      ErrorKind otherwise)
    {
        struct stat state;
        if (fstat(descriptor, &state) != 0)
            return fromErrno(errno, "inspecting", path);
        if (!S_ISREG(state.st_mode))
            return Error{otherwise, action + (" " + path) + ": not a regular file"};
        return {};
    }
};

} // namespace

FileLayer &systemFiles()
{
    // Never destroyed: no exit handler of ours. Not initialised by code that a fork could
    // interrupt.
    static std::atomic<SystemFiles *> known = nullptr;
    if (SystemFiles *const files = known.load())
        return *files;
    auto fresh = std::make_unique<SystemFiles>();
    SystemFiles *files = nullptr;
    return known.compare_exchange_strong(files, fresh.get()) ? *fresh.release() : *files;
}

} // namespace arca::blob
