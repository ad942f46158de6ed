// Writing the local log. A record lock, which is waited for no longer than a second, keeps other
// processes out but neither the threads of this one (hence the mutex) nor a sibling descriptor of
// the same file (hence one write for the whole line on an append-only descriptor, which the system
// does not tear apart either).
#include "client/api/local_log.h"

#include "common/string/ststring.h"
#include "common/thrd/psmutex.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"

#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace arca::api
{

namespace
{

constinit psMutex_t logMutex; // free in a forked child, even when another thread held it

std::string lineOf(const std::string &text)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    char date[64] = "";
    if (localtime_r(&now, &local) != nullptr)
        (void)std::strftime(date, sizeof date, "%m/%d/%Y %H:%M:%S", &local);
    return std::string(date) + " TID<" + std::to_string(getpid()) + ">  ==>  " + stLogLine(text);
}

} // namespace

bool appendToLocalLog(const std::string &path, const std::string &text)
{
    const std::string line = lineOf(text);
    const psMutexGuard hold(logMutex);
    const int descriptor = psFileOpenDescriptor(path.c_str(), O_RDWR | O_APPEND | O_CREAT);
    if (descriptor < 0)
        return false;
    // Under the lock nothing but a part of this line lies behind the old end of the file. Without
    // it, because its holder does not give it back, what is cut cannot be taken back.
    const bool written = psFileLock(descriptor) == 0
                             ? psAppendWhole(descriptor, line.data(), line.size())
                             : psWriteAll(descriptor, line.data(), line.size());
    close(descriptor); // gives the lock back
    return written;
}

} // namespace arca::api
