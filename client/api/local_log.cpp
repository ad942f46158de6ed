// Writing the local log. A record lock keeps other processes out but neither the threads of this
// one (hence the mutex) nor a sibling descriptor of the same file (hence one write for the whole
// line on an append-only descriptor, which the system does not tear apart either).
#include "client/api/local_log.h"

#include "client/base/text.h"

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

constexpr std::size_t kMaxText = 4000;

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
           printable(text, kMaxText) + "\n";
}

/// Beyond the limit of the process on file sizes a write sends a signal that ends the host.
bool hasRoomFor(int descriptor, std::size_t more)
{
    rlimit limit;
    struct stat state;
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || fstat(descriptor, &state) != 0)
        return false;
    return limit.rlim_cur == RLIM_INFINITY ||
           static_cast<rlim_t>(state.st_size) + more <= limit.rlim_cur;
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
    bool written = false;
    if (locked == 0 && hasRoomFor(descriptor, line.size()))
        written = write(descriptor, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    close(descriptor); // gives the lock back
    return written;
}

} // namespace arca::api
