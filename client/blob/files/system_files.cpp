// The real file layer: POSIX calls, with what Linux offers beyond them behind feature checks. No
// call leaves a descriptor that a program started by the host would inherit.
#include "client/base/descriptor.h"
#include "client/blob/files/place.h"
#include "client/blob/files/retried.h"
#include "client/blob/files/system_file.h"

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

/// Of a file system that says with each name what it leads to, that costs nothing.
bool tellsKind([[maybe_unused]] const dirent &entry)
{
#ifdef DT_UNKNOWN
    return entry.d_type != DT_UNKNOWN;
#else
    return false;
#endif
}

bool isDirectoryEntry([[maybe_unused]] const dirent &entry)
{
#ifdef DT_DIR
    return entry.d_type == DT_DIR;
#else
    return false;
#endif
}

class SystemFiles final : public FileLayer
{
public:
    /// `root`: below it no symbolic link is followed; empty: links are followed everywhere.
    explicit SystemFiles(std::string root) : root_(std::move(root)) {}

    Result<std::unique_ptr<File>> create(const std::string &path) override
    {
        return openedToLock(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, "creating");
    }

    Result<std::unique_ptr<File>> open(const std::string &path) override
    {
        constexpr const char *kAction = "opening";
        ARCA_TRY(const Place place, find(path, kAction));
        const int descriptor =
            openAboveAt(place.directory(), place.name(), O_RDONLY | O_NONBLOCK | place.noFollow());
        // In a blob's place it is a damaged blob: that holds up what needs it, and nothing else.
        if (descriptor < 0)
            return place.failure(errno, kAction, path, ErrorKind::damaged);
        auto file = systemFile(descriptor, path);
        ARCA_CHECK(expectRegular(descriptor, path, kAction, ErrorKind::damaged));
        return file;
    }

    Result<std::unique_ptr<File>> openForLocking(const std::string &path, bool create) override
    {
        return openedToLock(path, O_RDWR | (create ? O_CREAT : 0) | O_NOFOLLOW | O_NONBLOCK,
                            "opening");
    }

    Result<void> moveNew(const std::string &from, const std::string &to) override
    {
        ARCA_TRY(const Place old, find(from, kNaming));
        ARCA_TRY(const Place fresh, find(to, kNaming));
        // A hard link never replaces what is there. Some file systems have none.
        if (linked(old, fresh)) {
            // The name counts, not the leftover: a later clean-up takes it away if this fails.
            (void)::unlinkat(old.directory(), old.name(), 0);
            return {};
        }
#ifdef RENAME_NOREPLACE
        if (hasNoLinks(errno) && renameat2(old.directory(), old.name(), fresh.directory(),
                                           fresh.name(), RENAME_NOREPLACE) == 0)
            return {};
#endif
        return fromErrno(errno, kNaming, to);
    }

    Result<bool> link(const std::string &from, const std::string &to) override
    {
        ARCA_TRY(const Place old, find(from, kNaming));
        ARCA_TRY(const Place fresh, find(to, kNaming));
        if (linked(old, fresh))
            return true;
        if (hasNoLinks(errno))
            return false;
        return fromErrno(errno, kNaming, to);
    }

    Result<void> unlink(const std::string &path) override
    {
        ARCA_TRY(const Place place, find(path, "removing"));
        if (::unlinkat(place.directory(), place.name(), 0) != 0)
            return fromErrno(errno, "removing", path);
        return {};
    }

    Result<void> makeDirectory(const std::string &path) override
    {
        constexpr const char *kAction = "creating the directory";
        ARCA_TRY(const Place place, find(path, kAction));
        if (makeDirectoryAt(place.directory(), place.name()) != 0)
            return fromErrno(errno, kAction, path);
        return {};
    }

    Result<void> syncDirectory(const std::string &path) override
    {
        ARCA_TRY(const int descriptor, openedDirectory(path));
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
        return visitNames(path, [&](const dirent &entry, int) { return visit(entry.d_name); });
    }

    Result<std::vector<Entry>> entries(const std::string &path, std::string_view begin,
                                       bool stamped) override
    {
        std::vector<Entry> found;
        int number = 0;
        ARCA_CHECK(visitNames(path, [&](const dirent &entry, int directory) {
            if (!std::string_view(entry.d_name).starts_with(begin))
                return true;
            Entry known{entry.d_name, {isDirectoryEntry(entry), 0}};
            if (stamped || !tellsKind(entry)) {
                struct stat state;
                if (fstatat(directory, entry.d_name, &state, noFollowAt()) == 0)
                    known.state = {S_ISDIR(state.st_mode) != 0, stampOf(state)};
                else if (errno != ENOENT)
                    number = errno;
            }
            found.push_back(std::move(known));
            return number == 0;
        }));
        if (number != 0)
            return fromErrno(number, "inspecting", path + "/" + found.back().name);
        return found;
    }

    Result<bool> isDirectory(const std::string &path) override
    {
        ARCA_TRY(const State found, state(path));
        return found.directory;
    }

    Result<State> state(const std::string &path) override
    {
        const auto place = find(path, "inspecting");
        if (!place && place.error().kind == ErrorKind::notFound)
            return State{};
        if (!place)
            return place.error();
        struct stat found;
        if (fstatat(place->directory(), place->name(), &found, place->noFollowAt()) == 0)
            return State{S_ISDIR(found.st_mode) != 0, stampOf(found)};
        if (errno == ENOENT || errno == ENOTDIR)
            return State{};
        return fromErrno(errno, "inspecting", path);
    }

private:
    static constexpr const char *kNaming = "naming";

    static bool hasNoLinks(int number)
    {
        return number == EPERM || number == EOPNOTSUPP || number == ENOSYS || number == EMLINK;
    }

    static bool linked(const Place &from, const Place &to)
    {
        return ::linkat(from.directory(), from.name(), to.directory(), to.name(), 0) == 0;
    }

    Result<Place> find(const std::string &path, const char *action) const
    {
        return Place::find(root_, path, action);
    }

    int noFollowAt() const
    {
        return root_.empty() ? 0 : AT_SYMLINK_NOFOLLOW;
    }

    Result<int> openedDirectory(const std::string &path) const
    {
        constexpr const char *kAction = "opening the directory";
        ARCA_TRY(const Place place, find(path, kAction));
        const int descriptor = openAboveAt(place.directory(), place.name(),
                                           O_RDONLY | O_DIRECTORY | O_NONBLOCK | place.noFollow());
        if (descriptor < 0)
            return place.failure(errno, kAction, path, ErrorKind::io);
        return descriptor;
    }

    /// Visits with the descriptor of the directory, until `visit` returns false.
    Result<void> visitNames(const std::string &path,
                            const std::function<bool(const dirent &, int)> &visit) const
    {
        ARCA_TRY(const int descriptor, openedDirectory(path));
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
            const std::string_view name = entry->d_name;
            if (name != "." && name != ".." && !visit(*entry, descriptor))
                return {};
        }
        if (errno != 0)
            return fromErrno(errno, "reading the directory", path);
        return {};
    }

    Result<std::unique_ptr<File>> openedToLock(const std::string &path, int flags,
                                               const char *action) const
    {
        ARCA_TRY(const Place place, find(path, action));
        int number = 0;
        auto own = OwnDescriptor::open(
            {place.directory(), place.name()},
            [&] { return openAboveAt(place.directory(), place.name(), flags); }, number);
        if (!own)
            return place.failure(number, action, path, ErrorKind::io);
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

    const std::string root_;
};

} // namespace

FileLayer &systemFiles()
{
    // Never destroyed: no exit handler of ours. Not initialised by code that a fork could
    // interrupt.
    static std::atomic<SystemFiles *> known = nullptr;
    if (SystemFiles *const files = known.load())
        return *files;
    auto fresh = std::make_unique<SystemFiles>(std::string());
    SystemFiles *files = nullptr;
    return known.compare_exchange_strong(files, fresh.get()) ? *fresh.release() : *files;
}

std::unique_ptr<FileLayer> filesBelow(std::string root)
{
    return std::make_unique<SystemFiles>(std::move(root));
}

} // namespace arca::blob
