// Reading, writing and locking one file: POSIX calls, with what Linux offers beyond them behind
// feature checks.
#include "client/blob/files/system_file.h"

#include "client/blob/files/retried.h"
#include "common/unx/pswrite.h"

#include <algorithm>
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

namespace
{

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
        // Beyond the limit of the process the system not only fails the call but sends a signal
        // that would end the host. The host may lower the limit at any time, after this check too.
        const psWriteGuard guard;
        const std::uint64_t limit = fileSizeLimit();
        if (bytes.size() > limit - std::min(written_, limit))
            return beyondLimit("writing");
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
                return errno == EFBIG ? beyondLimit("writing") : failure("writing");
            bytes = bytes.subspan(static_cast<std::size_t>(done));
        }
        startWriteBack();
        return {};
    }

    Result<void> allocate(std::uint64_t bytes) override
    {
        const psWriteGuard guard;
        if (bytes > fileSizeLimit())
            return beyondLimit("allocating");
#if defined(_POSIX_ADVISORY_INFO) && _POSIX_ADVISORY_INFO > 0
        int number = EINTR;
        while (number == EINTR)
            number = posix_fallocate(descriptor_, 0, static_cast<off_t>(bytes));
        if (number == 0)
            return {};
        if (number == EFBIG)
            return beyondLimit("allocating");
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
        // With a second name it may be something else as well, that is not to be cut.
        const psWriteGuard guard;
        const auto state = status();
        if (!state || state->st_nlink != 1 || note.size() > fileSizeLimit() ||
            ftruncate(descriptor_, 0) != 0)
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

    Error beyondLimit(const char *action) const
    {
        return {ErrorKind::io, action + (" " + path_) + ": the file would be larger than the " +
                                   std::to_string(fileSizeLimit()) +
                                   " bytes to which the size of files is limited for this process; "
                                   "raise that limit (ulimit -f, LimitFSIZE of a service)"};
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
};

} // namespace

std::unique_ptr<File> systemFile(int descriptor, std::string path)
{
    return std::make_unique<SystemFile>(descriptor, std::move(path));
}

std::unique_ptr<File> systemFile(std::unique_ptr<OwnDescriptor> own, std::string path)
{
    return std::make_unique<SystemFile>(std::move(own), std::move(path));
}

} // namespace arca::blob
