// See files.h.
#include "tools/keel/files.h"

#include "tools/common/text.h"
#include "tools/keel/failure.h"
#include "tools/keel/interrupt.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace fs = std::filesystem;

namespace
{

/// A file is written in portions of this size, from memory and at offsets that are multiples of the
/// unit.
constexpr std::size_t kGathered = std::size_t{4} << 20;
constexpr std::size_t kTransferUnit = 4096;

[[noreturn]] void failOn(const std::string &name, const char *what, int error)
{
    throw Failure(fmt::format("{} {}: {}", what, tools::printable(name), std::strerror(error)));
}

/// The file that a name leads to: a symbolic link is kept and what it points at is written.
std::string target(const std::string &name)
{
    std::error_code error;
    const fs::path resolved = fs::weakly_canonical(name, error);
    return error ? name : resolved.string();
}

} // namespace

InputFile::InputFile(const std::string &name) : name_(name == "-" ? "standard input" : name)
{
    descriptor_ = name == "-" ? STDIN_FILENO : ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0)
        failOn(name_, "cannot open", errno);
    struct stat status = {};
    if (::fstat(descriptor_, &status) != 0)
        failOn(name_, "cannot read", errno);
    regular_ = S_ISREG(status.st_mode);
    if (!regular_)
        return;
    const off_t position = ::lseek(descriptor_, 0, SEEK_CUR);
    if (position >= 0 && position <= status.st_size)
        size_ = static_cast<std::uint64_t>(status.st_size - position);
#ifdef POSIX_FADV_SEQUENTIAL
    ::posix_fadvise(descriptor_, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

InputFile::~InputFile()
{
    if (descriptor_ > STDIN_FILENO)
        ::close(descriptor_);
}

std::size_t InputFile::fill(std::span<std::byte> bytes)
{
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        if (regular_)
            checkInterrupted();
        else
            waitUntilReady(descriptor_, Direction::kRead);
        const ssize_t count = ::read(descriptor_, &bytes[filled], bytes.size() - filled);
        if (count == 0)
            break;
        if (count > 0)
            filled += static_cast<std::size_t>(count);
        else if (errno != EINTR && errno != EAGAIN)
            failOn(name_, "cannot read", errno);
    }
    return filled;
}

OutputFile::OutputFile(const std::string &name, Existing existing)
    : name_(name), existing_(existing)
{
    if (name == "-") {
        name_ = "standard output";
        descriptor_ = STDOUT_FILENO;
        return;
    }
    struct stat status = {};
    const bool exists = ::stat(name.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode))
        failOn(name_, "cannot write", EISDIR);
    if (exists && !S_ISREG(status.st_mode)) {
        descriptor_ = ::open(name.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0)
            fail("cannot open");
        return;
    }
    if (exists && existing_ == Existing::kKeep)
        throw Failure(
            fmt::format("{} is there already; --force replaces it", tools::printable(name_)));
    createTemporary();
}

OutputFile::~OutputFile()
{
    if (descriptor_ > STDOUT_FILENO)
        ::close(descriptor_);
    if (!temporary_.empty())
        ::unlink(temporary_.c_str());
}

void OutputFile::fail(const char *what) const
{
    failOn(name_, what, errno);
}

void OutputFile::createTemporary()
{
    name_ = target(name_);
    std::string pattern = (fs::path(name_).parent_path() / ".keel-restore.XXXXXX").string();
    descriptor_ = ::mkstemp(pattern.data());
    if (descriptor_ < 0)
        fail("cannot create");
    temporary_ = pattern;
    ::fcntl(descriptor_, F_SETFD, FD_CLOEXEC);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    if (::fchmod(descriptor_, 0666 & ~mask) != 0)
        fail("cannot create");
    gathered_.emplace();
    setDirect(true);
}

OutputFile::Gathered::Gathered()
    : bytes(static_cast<std::byte *>(std::aligned_alloc(kTransferUnit, kGathered)))
{
    if (!bytes)
        throw std::bad_alloc();
}

OutputFile::Gathered::~Gathered()
{
    std::free(bytes);
}

void OutputFile::write(std::span<const std::byte> bytes)
{
    if (!gathered_) {
        put(bytes);
        return;
    }
    while (!bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), kGathered - gathered_->fill);
        std::memcpy(gathered_->bytes + gathered_->fill, bytes.data(), count);
        gathered_->fill += count;
        bytes = bytes.subspan(count);
        if (gathered_->fill == kGathered)
            flush();
    }
}

void OutputFile::flush()
{
    put({gathered_->bytes, gathered_->fill});
    gathered_->fill = 0;
    startWriteBack();
}

void OutputFile::put(std::span<const std::byte> bytes)
{
    while (!bytes.empty()) {
        if (temporary_.empty())
            waitUntilReady(descriptor_, Direction::kWrite);
        else
            checkInterrupted();
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count >= 0) {
            written_ += static_cast<std::uint64_t>(count);
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (direct_ && errno == EINVAL) {
            setDirect(false); // the file system took the flag, but not the transfer
        } else if (errno != EINTR && errno != EAGAIN) {
            fail("cannot write");
        }
    }
}

/// Passing the page cache by costs a fraction of the time, and leaves what else is in memory there.
void OutputFile::setDirect([[maybe_unused]] bool on)
{
#ifdef O_DIRECT
    const int flags = ::fcntl(descriptor_, F_GETFL);
    const bool done =
        flags >= 0 && ::fcntl(descriptor_, F_SETFL, on ? flags | O_DIRECT : flags & ~O_DIRECT) == 0;
    direct_ = on && done;
#endif
}

/// What goes through the page cache starts on its way to the disk early, so that the sync at the
/// end has little left to do.
void OutputFile::startWriteBack()
{
#ifdef SYNC_FILE_RANGE_WRITE
    if (!direct_) {
        ::sync_file_range(descriptor_, static_cast<off_t>(writeBackStarted_),
                          static_cast<off_t>(written_ - writeBackStarted_), SYNC_FILE_RANGE_WRITE);
    }
    writeBackStarted_ = written_;
#endif
}

void OutputFile::finish()
{
    if (temporary_.empty())
        return;
    if (gathered_->fill % kTransferUnit != 0)
        setDirect(false);
    flush();
    if (::fsync(descriptor_) != 0)
        fail("cannot write");
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0)
        fail("cannot write");
    publish();
    syncDirectory();
}

void OutputFile::publish()
{
    if (existing_ == Existing::kKeep) {
        // A second name instead of a new one: the one way that never replaces a file. File systems
        // that know no second names get the rename below.
        if (::link(temporary_.c_str(), name_.c_str()) == 0) {
            ::unlink(temporary_.c_str());
            temporary_.clear();
            return;
        }
        if (errno == EEXIST)
            throw Failure(fmt::format("{} has appeared meanwhile; --force replaces it",
                                      tools::printable(name_)));
    }
    if (::rename(temporary_.c_str(), name_.c_str()) != 0)
        fail("cannot create");
    temporary_.clear();
}

void OutputFile::syncDirectory() const
{
    const std::string directory = fs::path(name_).parent_path().string();
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_CLOEXEC);
    // Not every file system lets a directory be opened or synced; then it needs none.
    if (descriptor >= 0) {
        const bool failed = ::fsync(descriptor) != 0 && errno == EIO;
        ::close(descriptor);
        if (failed)
            failOn(directory, "cannot write", EIO);
    }
}

} // namespace keel
