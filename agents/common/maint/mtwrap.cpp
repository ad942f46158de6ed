// Logs that wrap: see the header.
//
// A writer locks the file that it opened as NAME, and then checks that NAME still names that file:
// while it waited for the lock, another writer may have put the file aside. So only the holder of
// the lock on the present file renames, one at a time, and never while another holder writes.
#include "agents/common/maint/mtwrap.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "common/thrd/psmutex.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"

namespace
{

/// A file lock does not hold against threads of the same process, and closing any descriptor of a
/// file gives up the process's lock on it.
psMutex_t logMutex;

constexpr int kOnceMore = -1; // no errno value is negative

class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor()
    {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    [[nodiscard]] int number() const { return number_; }

private:
    int number_;
};

bool isErrorLog(const std::string &path)
{
    return path.substr(path.find_last_of('/') + 1) == "veloerror.log";
}

bool isStill(const std::string &path, const struct stat &opened)
{
    struct stat named {
    };
    return ::stat(path.c_str(), &named) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

std::string aside(const std::string &path, unsigned number)
{
    return path + "." + std::to_string(number);
}

bool isLog(int descriptor, const mtWrapLimits_t &limits)
{
    char beginning[64];
    const ssize_t length = ::pread(descriptor, beginning, sizeof beginning, 0);
    return length == 0 ||
           (length > 0 &&
            (limits.isLog == nullptr ||
             limits.isLog(std::string_view(beginning, static_cast<std::size_t>(length)))));
}

/// Returns 0 when the name may be renamed or overwritten, which no name that leads to nothing or to
/// anything else than a file may.
int expectLog(const std::string &name, const mtWrapLimits_t &limits)
{
    const Descriptor file(psFileOpenDescriptor(name.c_str(), O_RDONLY));
    return file.number() >= 0 && isLog(file.number(), limits) ? 0 : EEXIST;
}

/// Renames up to the first gap only: where a dead process left a rename undone, its gap is filled
/// and no file is given up. All of them are looked at before the first is renamed.
int putAside(const std::string &path, const mtWrapLimits_t &limits)
{
    unsigned free = 1;
    struct stat there {
    };
    for (; ::lstat(aside(path, free).c_str(), &there) == 0; ++free) {
        if (const int rc = expectLog(aside(path, free), limits); rc != 0) {
            return rc;
        }
        if (free == limits.kept) {
            break;
        }
    }
    for (; free > 1; --free) {
        if (::rename(aside(path, free - 1).c_str(), aside(path, free).c_str()) != 0) {
            return errno;
        }
    }
    return ::rename(path.c_str(), aside(path, 1).c_str()) == 0 ? 0 : errno;
}

int writeWhole(int descriptor, const std::string &line)
{
    return psAppendWhole(descriptor, line.data(), line.size()) ? 0 : errno;
}

/// For a file that another process keeps locked: it is neither put aside nor waited for longer, and
/// the line is appended at its present end.
int writeUnlocked(int descriptor, const std::string &line)
{
    return psWriteAll(descriptor, line.data(), line.size()) ? 0 : errno;
}

/// Returns 0 when the line is written, kOnceMore when the file was put aside by this process or
/// another one, so that the name must be opened again, or an errno value.
int appendToPresent(const std::string &path, const mtWrapLimits_t &limits, const std::string &line)
{
    const Descriptor file(psFileOpenDescriptor(path.c_str(), O_RDWR | O_CREAT | O_APPEND));
    if (file.number() < 0) {
        return errno;
    }
    const int locked = psFileLock(file.number());
    struct stat status {
    };
    if (::fstat(file.number(), &status) != 0) {
        return errno;
    }
    if (S_ISREG(status.st_mode) && !isLog(file.number(), limits)) {
        return EEXIST;
    }
    if (locked != 0) {
        return locked == EAGAIN ? writeUnlocked(file.number(), line) : locked;
    }
    if (!isStill(path, status)) {
        return kOnceMore;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (!S_ISREG(status.st_mode) || size == 0 || size + line.size() <= limits.maximum) {
        return writeWhole(file.number(), line);
    }
    if (limits.kept == 0) {
        return ::ftruncate(file.number(), 0) == 0 ? writeWhole(file.number(), line) : errno;
    }
    const int rc = putAside(path, limits);
    return rc == 0 ? kOnceMore : rc;
}

} // namespace

int mtWrapAppend(const char *path, const mtWrapLimits_t &limits, std::string_view line) noexcept
{
    try {
        const std::string name = path == nullptr ? "" : path;
        std::string whole(line);
        if (!whole.empty() && whole.back() == '\n') {
            whole.pop_back();
        }
        if (name.empty() || isErrorLog(name) || whole.find('\n') != std::string::npos) {
            return EINVAL;
        }
        whole += '\n';
        const psMutexGuard guard(logMutex);
        for (;;) {
            const int rc = appendToPresent(name, limits, whole);
            if (rc != kOnceMore) {
                return rc;
            }
        }
    } catch (const std::exception &) {
        return ENOMEM;
    }
}
