// See files.h.
#include "tools/keel/channel/files.h"

#include "tools/common/text.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/interrupt.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

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

} // namespace

InputFile::InputFile(const std::string &name) : name_(name == "-" ? "standard input" : name)
{
    // O_NONBLOCK: a FIFO without a writer is waited for in fill(), where a signal ends the wait.
    descriptor_ =
        name == "-" ? STDIN_FILENO : ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
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
        if (count == 0) {
            expectWhole(filled);
            break;
        }
        if (count > 0)
            filled += static_cast<std::size_t>(count);
        else if (errno != EINTR && errno != EAGAIN)
            failOn(name_, "cannot read", errno);
    }
    taken_ += filled;
    return filled;
}

/// Throws when a regular file was cut while it was read: what is missing would be missing from
/// every restore.
void InputFile::expectWhole(std::uint64_t more) const
{
    if (size_ && taken_ + more < *size_)
        throw Failure(fmt::format("{} had {} bytes and ended after {}: it was cut while it was "
                                  "read, and nothing of it is stored",
                                  tools::printable(name_), *size_, taken_ + more));
}

OutputFile::OutputFile(const std::string &name, tools::Existing existing)
    : name_(name == "-" ? "standard output" : name)
{
    if (name == "-") {
        descriptor_ = STDOUT_FILENO;
        return;
    }
    file_.emplace(name, tools::FileRules{existing, "; --force replaces it", std::nullopt, true,
                                         waitForSignal});
    descriptor_ = file_->descriptor();
    if (!file_->isAside())
        return;
    gathered_.emplace();
    setDirect(true);
}

void OutputFile::fail(const char *what) const
{
    failOn(name_, what, errno);
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
        if (!gathered_)
            waitUntilReady(descriptor_, Direction::kWrite);
        else
            checkInterrupted();
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count >= 0) {
            written_ += static_cast<std::uint64_t>(count);
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (direct_ && errno == EINVAL) {
            setDirect(false); // the file system accepts O_DIRECT, but not this transfer
        } else if (errno != EINTR && errno != EAGAIN) {
            fail("cannot write");
        }
    }
}

/// O_DIRECT takes a fraction of the processor time, and leaves the page cache to others.
void OutputFile::setDirect([[maybe_unused]] bool on)
{
#ifdef O_DIRECT
    const int flags = ::fcntl(descriptor_, F_GETFL);
    const bool done =
        flags >= 0 && ::fcntl(descriptor_, F_SETFL, on ? flags | O_DIRECT : flags & ~O_DIRECT) == 0;
    direct_ = on && done;
#endif
}

/// Without O_DIRECT, starts the write-back of each portion, so that little is left for the sync at
/// the end.
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
    if (!gathered_)
        return;
    if (gathered_->fill % kTransferUnit != 0)
        setDirect(false);
    flush();
    file_->publish();
}

} // namespace keel
