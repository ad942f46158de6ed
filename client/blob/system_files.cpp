// The real file layer: POSIX calls, with what Linux offers beyond them behind feature checks. No
// call leaves a descriptor that a program started by the host would inherit.
#include "client/blob/file_layer.h"

#include "client/base/descriptor.h"
#include "client/base/own_descriptor.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <shared_mutex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#if __has_include(<sys/file.h>)
#include <sys/file.h>
#endif

namespace arca::blob
{

Error fromErrno(int number, const std::string &action, const std::string &path)
{
    ErrorKind kind = ErrorKind::io;
    switch (number) {
    case ENOENT:
    case ENOTDIR:
        kind = ErrorKind::notFound;
        break;
    case EEXIST:
        kind = ErrorKind::exists;
        break;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        kind = ErrorKind::full;
        break;
    case EROFS:
        kind = ErrorKind::readOnly;
        break;
    case EACCES:
    case EPERM:
        kind = ErrorKind::denied;
        break;
    default:
        break;
    }
    char reason[128] = "";
    // Two forms of strerror_r exist; whichever this is, the text is where it says or in the buffer.
    const auto told = strerror_r(number, reason, sizeof reason);
    if constexpr (std::is_pointer_v<decltype(told)>)
        return {kind,
                action + " " + path + ": " + std::string(reinterpret_cast<const char *>(told))};
    return {kind, action + " " + path + ": " + reason};
}

namespace
{

template <class Call> auto retried(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

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

class SystemFile final : public File
{
public:
    SystemFile(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path))
    {
    }
    /// Of a descriptor that a forked child must not keep: it would keep a lock of its parent's.
    SystemFile(std::unique_ptr<OwnDescriptor> own, std::string path)
        : own_(std::move(own)), descriptor_(own_->number()), path_(std::move(path))
    {
    }
    SystemFile(const SystemFile &) = delete;
    SystemFile &operator=(const SystemFile &) = delete;
    ~SystemFile() override
    {
        if (!own_)
            close(descriptor_);
    }

    Result<void> write(ByteView bytes) override
    {
        // Beyond the limit of the process the system would not only fail the call but send a signal
        // that ends the host.
        if (bytes.size() > limit_ - std::min(written_, limit_))
            return fromErrno(EFBIG, "writing", path_);
        preferDirect(bytes, written_);
        written_ += bytes.size();
        while (!bytes.empty()) {
            const ssize_t done =
                retried([&] { return ::write(descriptor_, bytes.data(), bytes.size()); });
            if (done < 0 && errno == EINVAL && direct_) {
                giveUpDirect();
                continue;
            }
            if (done < 0)
                return failure("writing");
            bytes = bytes.subspan(static_cast<std::size_t>(done));
        }
        startWriteBack();
        return {};
    }

    Result<void> allocate(std::uint64_t bytes) override
    {
        if (bytes > limit_)
            return fromErrno(EFBIG, "allocating", path_);
#if defined(_POSIX_ADVISORY_INFO) && _POSIX_ADVISORY_INFO > 0
        int number = EINTR;
        while (number == EINTR)
            number = posix_fallocate(descriptor_, 0, static_cast<off_t>(bytes));
        if (number == 0)
            return {};
        if (number != EINVAL && number != EOPNOTSUPP)
            return fromErrno(number, "allocating", path_);
#endif
        const Bytes zeros(std::size_t{1} << 20);
        for (std::uint64_t left = bytes; left != 0;) {
            const auto length =
                static_cast<std::size_t>(std::min<std::uint64_t>(left, zeros.size()));
            ARCA_CHECK(write(ByteView(zeros).first(length)));
            left -= length;
        }
        return {};
    }

    Result<std::size_t> readAt(std::uint64_t offset, std::span<std::byte> into) override
    {
        std::shared_lock mode(mode_);
        while (wantsDirect(into, offset) != direct_) {
            mode.unlock(); // others are in the middle of a read
            {
                const std::unique_lock alone(mode_);
                preferDirect(into, offset);
            }
            mode.lock();
        }
        std::size_t total = 0;
        while (total < into.size()) {
            const ssize_t got = retried([&] {
                return pread(descriptor_, into.data() + total, into.size() - total,
                             static_cast<off_t>(offset + total));
            });
            if (got < 0 && errno == EINVAL && direct_) {
                mode.unlock();
                {
                    const std::unique_lock alone(mode_);
                    giveUpDirect();
                }
                mode.lock();
                continue;
            }
            if (got < 0)
                return failure("reading");
            if (got == 0)
                break;
            total += static_cast<std::size_t>(got);
            // Only the end of the file comes in an odd portion, and a direct read cannot ask on
            // from there.
            if (direct_ && total % kTransferUnit != 0)
                break;
        }
        return total;
    }

    Result<std::uint64_t> size() override
    {
        ARCA_TRY(const struct stat state, status());
        return static_cast<std::uint64_t>(state.st_size);
    }

    Result<void> sync() override
    {
#if defined(_POSIX_SYNCHRONIZED_IO) && _POSIX_SYNCHRONIZED_IO > 0
        const int result = retried([&] { return fdatasync(descriptor_); });
#else
        const int result = retried([&] { return fsync(descriptor_); });
#endif
        if (result != 0)
            return failure("syncing");
        return {};
    }

    void readAhead([[maybe_unused]] std::uint64_t offset,
                   [[maybe_unused]] std::uint64_t length) override
    {
#ifdef POSIX_FADV_WILLNEED
        if (mayBeDirect_)
            return; // what is read ahead would not be used
        if (offset == 0)
            (void)posix_fadvise(descriptor_, 0, 0, POSIX_FADV_SEQUENTIAL);
        (void)posix_fadvise(descriptor_, static_cast<off_t>(offset), static_cast<off_t>(length),
                            POSIX_FADV_WILLNEED);
#endif
    }

    Result<bool> lock() override
    {
#ifdef LOCK_EX
        if (retried([&] { return flock(descriptor_, LOCK_EX | LOCK_NB); }) == 0)
            return true;
        if (errno == EWOULDBLOCK)
            return false;
#else
        // Record locks do not exclude two descriptors of one process; see ownedByThisProcess in
        // the directory store for what makes up for it.
        struct flock region = {};
        region.l_type = F_WRLCK;
        region.l_whence = SEEK_SET;
        if (retried([&] { return fcntl(descriptor_, F_SETLK, &region); }) == 0)
            return true;
        if (errno == EACCES || errno == EAGAIN)
            return false;
#endif
        return failure("locking");
    }

    void setNote(std::string_view note) override
    {
        if (note.size() > limit_ || ftruncate(descriptor_, 0) != 0)
            return;
        (void)retried([&] { return pwrite(descriptor_, note.data(), note.size(), 0); });
    }

    Result<FileIdentity> identity() override
    {
        ARCA_TRY(const struct stat state, status());
        return FileIdentity{static_cast<std::uint64_t>(state.st_dev),
                            static_cast<std::uint64_t>(state.st_ino)};
    }

    Result<bool> hasName() override
    {
        ARCA_TRY(const struct stat state, status());
        return state.st_nlink > 0;
    }

private:
    /// Large aligned portions pass the page cache by: it costs a fraction of the time, and does not
    /// push out of memory what the database keeps there.
    bool wantsDirect(ByteView portion, std::uint64_t offset) const
    {
        constexpr std::size_t kWorthIt = std::size_t{256} << 10;
        return mayBeDirect_ && portion.size() >= kWorthIt && portion.size() % kTransferUnit == 0 &&
               offset % kTransferUnit == 0 &&
               reinterpret_cast<std::uintptr_t>(portion.data()) % kTransferUnit == 0;
    }

    void preferDirect(ByteView portion, std::uint64_t offset)
    {
        if (const bool wanted = wantsDirect(portion, offset); wanted != direct_)
            direct_ = setDirect(wanted);
    }

    /// A file system may take the flag and refuse the transfer.
    void giveUpDirect()
    {
        direct_ = setDirect(false);
        mayBeDirect_ = false;
    }

    /// Whether transfers pass the page cache by afterwards.
    bool setDirect([[maybe_unused]] bool on)
    {
#ifdef O_DIRECT
        const int flags = fcntl(descriptor_, F_GETFL);
        if (flags >= 0 &&
            fcntl(descriptor_, F_SETFL, on ? flags | O_DIRECT : flags & ~O_DIRECT) == 0)
            return on;
#endif
        mayBeDirect_ = false;
        return false;
    }

    /// What went through the page cache starts on its way to the disk early, so that the last sync
    /// has little left to do.
    void startWriteBack()
    {
#ifdef SYNC_FILE_RANGE_WRITE
        constexpr std::uint64_t kEvery = std::uint64_t{8} << 20;
        if (!direct_ && written_ - handedOver_ >= kEvery)
            (void)sync_file_range(descriptor_, static_cast<off_t>(handedOver_),
                                  static_cast<off_t>(written_ - handedOver_),
                                  SYNC_FILE_RANGE_WRITE);
        else if (!direct_)
            return;
        handedOver_ = written_;
#endif
    }

    Error failure(const char *action) const
    {
        return fromErrno(errno, action, path_);
    }

    Result<struct stat> status() const
    {
        struct stat state;
        if (fstat(descriptor_, &state) != 0)
            return failure("inspecting");
        return state;
    }

    static std::uint64_t fileSizeLimit()
    {
        rlimit limit;
        if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
            return UINT64_MAX;
        return limit.rlim_cur;
    }

    std::unique_ptr<OwnDescriptor> own_; // closes it
    int descriptor_;
    std::string path_;
    std::uint64_t written_ = 0; // by us, from the beginning of a new file
    std::uint64_t handedOver_ = 0;
    std::shared_mutex mode_; // held shared while reading, guards these two then
    bool mayBeDirect_ = true;
    bool direct_ = false;
    const std::uint64_t limit_ = fileSizeLimit();
};

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
        auto file = std::make_unique<SystemFile>(descriptor, path);
        // In a blob's place it is a damaged blob: that holds up what needs it, and nothing else.
        ARCA_CHECK(expectRegular(descriptor, path, action, ErrorKind::damaged));
        return std::unique_ptr<File>(std::move(file));
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
        auto file = std::make_unique<SystemFile>(std::move(own), path);
        ARCA_CHECK(expectRegular(descriptor, path, action, ErrorKind::io));
        return std::unique_ptr<File>(std::move(file));
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
