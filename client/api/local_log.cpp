// Writing the local log. A record lock keeps other processes out but neither the threads of this
// one (hence the mutex) nor a sibling descriptor of the same file (hence one write for the whole
// line on an append-only descriptor, which the system does not tear apart either).
#include "client/api/local_log.h"

#include "common/string/ststring.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca::api
{

namespace
{

std::mutex &logMutex()
{
    static std::mutex *const mutex = new std::mutex; // outlives every thread that may still log
    return *mutex;
}

std::string lineOf(const std::string &text)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    char date[64] = "";
    if (localtime_r(&now, &local) != nullptr)
        (void)std::strftime(date, sizeof date, "%m/%d/%Y %H:%M:%S", &local);
    return std::string(date) + " TID<" + std::to_string(getpid()) + ">  ==>  " +
           stOneLine(text, stLogLineLimit) + "\n";
}

/// Beyond the limit of the process on file sizes a write sends a signal that ends the host.
bool hasRoomFor(off_t size, std::size_t more)
{
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0)
        return false;
    return limit.rlim_cur == RLIM_INFINITY || static_cast<rlim_t>(size) + more <= limit.rlim_cur;
}

/// The whole line or nothing: under the lock nothing but a part of this line lies behind the old
/// end of the file, so what a full disk cuts is taken back.
bool appendWhole(int descriptor, const std::string &line)
{
    struct stat before;
    if (fstat(descriptor, &before) != 0 || !hasRoomFor(before.st_size, line.size()))
        return false;
    ssize_t written;
    do
        written = write(descriptor, line.data(), line.size());
    while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(line.size()))
        return true;
    if (written > 0)
        (void)!ftruncate(descriptor, before.st_size);
    return false;
}

} // namespace

bool appendToLocalLog(const std::string &path, const std::string &text)
{
    const std::string line = lineOf(text);
    const std::lock_guard hold(logMutex());
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
    if (descriptor < 0)
        return false;
    int locked;
    do
        locked = lockf(descriptor, F_LOCK, 0);
    while (locked != 0 && errno == EINTR);
    const bool written = locked == 0 && appendWhole(descriptor, line);
    close(descriptor); // gives the lock back
    return written;
}

} // namespace arca::api
