// Loaded in front of a program (LD_PRELOAD): what it writes, syncs and names below the directory
// KEEL_TEST_BELOW is told to the file KEEL_TEST_CALLS, a line for each call when it is over. The
// call that KEEL_TEST_FAIL names by its kind and its number, as in "sync 2", fails with EIO; with
// " short" behind it a write is cut in half.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

std::string behind(int descriptor)
{
    char path[PATH_MAX] = "";
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    return {path, length > 0 ? static_cast<std::size_t>(length) : 0};
}

std::string at(int directory, const char *name)
{
    return *name == '/' || directory == AT_FDCWD ? name : behind(directory) + "/" + name;
}

/// The kind of the call and its number among those of its kind: "sync 2".
std::string numbered(const std::string &what)
{
    static std::mutex mutex;
    static std::map<std::string, int> calls;
    const std::lock_guard hold(mutex);
    return what + " " + std::to_string(++calls[what]);
}

/// Makes the call that `path` is for, unless it is to fail. `made(half)` calls the system. `old` is
/// what had the name before.
template <class Made>
long watched(const char *what, const std::string &path, Made made, const std::string &old = {})
{
    const char *const below = getenv("KEEL_TEST_BELOW"), *const log = getenv("KEEL_TEST_CALLS");
    if (below == nullptr || log == nullptr || !path.starts_with(below))
        return made(false);
    const char *const fault = getenv("KEEL_TEST_FAIL");
    const std::string call = numbered(what), wanted = fault == nullptr ? "" : fault;
    const bool fails = wanted == call, cut = wanted == call + " short";
    errno = EIO;
    const long result = fails ? -1 : made(cut);
    const int reason = errno;
    const std::string line =
        call + (result < 0 ? "\tfailed\t" : "\tdone\t") + path + "\t" + old + "\n";
    const long told = syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_APPEND | O_CLOEXEC);
    (void)syscall(SYS_write, told, line.data(), line.size());
    (void)syscall(SYS_close, told);
    errno = reason;
    return result;
}

int synced(long number, int descriptor)
{
    struct stat file = {};
    const bool directory = fstat(descriptor, &file) == 0 && S_ISDIR(file.st_mode);
    return static_cast<int>(watched(directory ? "syncdir" : "sync", behind(descriptor),
                                    [&](bool) { return syscall(number, descriptor); }));
}

int named(int from, const char *old, int to, const char *fresh, unsigned flags)
{
    const auto rename = [&](bool) { return syscall(SYS_renameat2, from, old, to, fresh, flags); };
    return static_cast<int>(watched("name", at(to, fresh), rename, at(from, old)));
}

} // namespace

extern "C" {

ssize_t write(int descriptor, const void *bytes, std::size_t length)
{
    return watched("write", behind(descriptor), [&](bool half) {
        return syscall(SYS_write, descriptor, bytes, half ? (length + 1) / 2 : length);
    });
}

int fsync(int descriptor)
{
    return synced(SYS_fsync, descriptor);
}

int fdatasync(int descriptor)
{
    return synced(SYS_fdatasync, descriptor);
}

int rename(const char *old, const char *fresh) noexcept
{
    return named(AT_FDCWD, old, AT_FDCWD, fresh, 0);
}

int renameat2(int from, const char *old, int to, const char *fresh, unsigned flags) noexcept
{
    return named(from, old, to, fresh, flags);
}

int linkat(int from, const char *old, int to, const char *fresh, int flags) noexcept
{
    const auto give = [&](bool) { return syscall(SYS_linkat, from, old, to, fresh, flags); };
    return static_cast<int>(watched("name", at(to, fresh), give, at(from, old)));
}

int link(const char *old, const char *fresh) noexcept
{
    return linkat(AT_FDCWD, old, AT_FDCWD, fresh, 0);
}

int mkdirat(int directory, const char *name, mode_t mode) noexcept
{
    return static_cast<int>(watched("mkdir", at(directory, name), [&](bool) {
        return syscall(SYS_mkdirat, directory, name, mode);
    }));
}

int mkdir(const char *name, mode_t mode) noexcept
{
    return mkdirat(AT_FDCWD, name, mode);
}
}
