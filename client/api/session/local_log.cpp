// Writing the local log.
//
//   1. A record lock, which is waited for no longer than a second, excludes other processes.
//   2. It does not exclude the threads of this process: the mutex does.
//   3. It does not exclude another descriptor of this process (the host's, the agent's): so a whole
//      line is one write on a descriptor opened for appending, which the system does not tear
//      apart.
#include "client/api/session/local_log.h"

#include "common/cu/cutime.h"
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
    if (cuLocalTime(now, &local))
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
    // Under the lock only a part of this line can lie behind the old end of the file, so a line
    // that was not written whole is cut off again. Without the lock it is left as it is.
    const bool written = psFileLock(descriptor) == 0
                             ? psAppendWhole(descriptor, line.data(), line.size())
                             : psWriteAll(descriptor, line.data(), line.size());
    close(descriptor); // gives the lock back
    return written;
}

} // namespace arca::api
