// See written_file.h.
#include "tools/common/command/written_file.h"

#include "tools/common/text.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <fmt/format.h>

namespace tools
{

namespace
{

constexpr mode_t kEveryBit = 07777, kPermissions = 0777, kNewFile = 0666;

/// Returns the number in the name of an open descriptor. It must not be opened by that name:
/// writing would begin at the start of the file behind it.
std::optional<int> descriptorNamed(std::string_view name)
{
    if (name == "/dev/stdout")
        return STDOUT_FILENO;
    if (name == "/dev/stderr")
        return STDERR_FILENO;
    for (const std::string_view prefix : {"/dev/fd/", "/proc/self/fd/"}) {
        int number = -1;
        if (!name.starts_with(prefix))
            continue;
        const char *end = name.data() + name.size();
        const auto read = std::from_chars(name.data() + prefix.size(), end, number);
        if (read.ec == std::errc() && read.ptr == end && number >= 0)
            return number;
    }
    return std::nullopt;
}

mode_t newFileMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return kNewFile & ~mask;
}

} // namespace

void WrittenFile::fail(const char *what, int error) const
{
    throw FileFailure(fmt::format("{} {}: {}", what, printable(name_), std::strerror(error)));
}

WrittenFile::WrittenFile(const std::string &name, const FileRules &rules)
    : name_(name), rules_(rules)
{
    if (const auto number = descriptorNamed(name)) {
        descriptor_ = ::fcntl(*number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (descriptor_ < 0)
            fail("cannot write", errno);
        return;
    }
    struct stat entry = {};
    struct stat behind = {};
    if (::lstat(name.c_str(), &entry) != 0) {
        if (errno != ENOENT)
            fail("cannot write", errno);
        createAside();
        return;
    }
    const bool leads = ::stat(name.c_str(), &behind) == 0;
    if (leads && S_ISDIR(behind.st_mode))
        fail("cannot write", EISDIR);
    if (leads && !S_ISREG(behind.st_mode)) {
        openAsItIs(S_ISFIFO(behind.st_mode));
        return;
    }
    if (S_ISLNK(entry.st_mode))
        throw FileFailure(
            fmt::format("{} is a symbolic link; name the file that it leads to", printable(name_)));
    if (rules_.existing == Existing::keep)
        throw FileFailure(fmt::format("{} is there already{}", printable(name_), rules_.hint));
    before_ = behind;
    createAside();
}

WrittenFile::~WrittenFile()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
    if (isAside())
        ::unlink(temporary_.c_str());
}

void WrittenFile::openAsItIs(bool isFifo)
{
    const bool asks = isFifo && rules_.whileNobodyReads;
    const int flags = O_WRONLY | O_NOCTTY | O_CLOEXEC | (asks ? O_NONBLOCK : 0);
    while ((descriptor_ = ::open(name_.c_str(), flags)) < 0 && errno == ENXIO && asks)
        rules_.whileNobodyReads();
    struct stat opened = {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &opened) != 0)
        fail("cannot open", errno);
    if (!S_ISREG(opened.st_mode))
        return;
    ::close(descriptor_); // a regular file has replaced what stat(2) found
    descriptor_ = -1;
    throw FileFailure(fmt::format("{} was replaced meanwhile", printable(name_)));
}

std::string WrittenFile::directory() const
{
    const auto slash = name_.rfind('/');
    return slash == std::string::npos ? "./" : name_.substr(0, slash + 1);
}

void WrittenFile::createAside()
{
    std::string pattern = directory() + ".unfinished.XXXXXX";
    descriptor_ = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor_ < 0)
        fail("cannot create", errno);
    temporary_ = pattern;
}

void WrittenFile::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            struct pollfd waits = {descriptor_, POLLOUT, 0};
            (void)::poll(&waits, 1, -1);
        } else if (errno != EINTR) {
            fail("cannot write", errno);
        }
    }
}

/// Sets the owner first: changing it clears the set-user-ID bits.
void WrittenFile::takeAttributes() const
{
    mode_t mode = rules_.mode.value_or(before_ ? before_->st_mode & kEveryBit : 0);
    if (!rules_.mode && !before_)
        mode = newFileMode();
    if (!rules_.mode && before_) {
        const bool kept = ::fchown(descriptor_, before_->st_uid, before_->st_gid) == 0;
        // If the group cannot be kept either, the process's group must not get the old one's
        // rights.
        if (!kept && ::fchown(descriptor_, static_cast<uid_t>(-1), before_->st_gid) != 0)
            mode &= ~static_cast<mode_t>(S_IRWXG);
        if (!kept)
            mode &= kPermissions;
    }
    if (::fchmod(descriptor_, mode) != 0)
        fail("cannot create", errno);
}

void WrittenFile::publish()
{
    if (!isAside())
        return;
    takeAttributes();
    if (rules_.durable && ::fsync(descriptor_) != 0)
        fail("cannot write", errno);
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0)
        fail("cannot write", errno);
    takeName();
    if (rules_.durable)
        syncDirectory();
}

void WrittenFile::takeName()
{
    if (rules_.existing == Existing::keep) {
        // link(2), which never replaces a file. A file system without it gets the rename below.
        if (::link(temporary_.c_str(), name_.c_str()) == 0) {
            ::unlink(temporary_.c_str());
            temporary_.clear();
            return;
        }
    }
    struct stat now = {};
    const bool taken = ::lstat(name_.c_str(), &now) == 0;
    if (taken && (rules_.existing == Existing::keep || !S_ISREG(now.st_mode)))
        throw FileFailure(
            fmt::format("{} has appeared meanwhile{}", printable(name_), rules_.hint));
    if (std::rename(temporary_.c_str(), name_.c_str()) != 0)
        fail("cannot create", errno);
    temporary_.clear();
}

void WrittenFile::syncDirectory() const
{
    const std::string place = directory();
    const int descriptor = ::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A file system on which a directory cannot be opened or synced offers no more than this.
    if (descriptor < 0)
        return;
    const bool failed = ::fsync(descriptor) != 0 && errno == EIO;
    ::close(descriptor);
    if (failed)
        fail("cannot write", EIO);
}

bool isMixed(const std::string &name, int descriptor)
{
    const auto number = name == "-" ? std::optional(STDOUT_FILENO) : descriptorNamed(name);
    struct stat written = {}, other = {};
    const int found = number ? ::fstat(*number, &written) : ::stat(name.c_str(), &written);
    // A file that has the name is not written to: another one takes its place.
    return found == 0 && (number || !S_ISREG(written.st_mode)) &&
           ::fstat(descriptor, &other) == 0 && written.st_dev == other.st_dev &&
           written.st_ino == other.st_ino;
}

void writeWhole(const std::string &name, std::string_view text, const FileRules &rules)
{
    WrittenFile file(name, rules);
    file.write(text);
    file.publish();
}

} // namespace tools
