// protectSize: the size of the database, read from the output of a script that sqlplus runs.
//
// What must stay true:
// 1. The child reads nothing, writes to our pipe only, and inherits no other descriptor of ours.
// 2. The child has a limited time, whatever it does. When that was not enough, no piece waits for
//    it again before the next sbtinit.
// 3. Its exit status is not used: the host may have waited for the child already.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "agents/common/dbaseapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/velotrace.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/fourthline.h"
#include "agents/oracle/common/veloprocess.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"

extern char **environ;

namespace
{

constexpr const char *kScriptName = ".sql";
constexpr std::string_view kScript = "/ as sysdba"
                                     "\nselect sum(bytes)/1024/1024 from dba_data_files;"
                                     "\nexit";
constexpr const char *kShownCommand = "$ORACLE_HOME/bin/sqlplus -S @.sql 2>&1";
constexpr const char *kCommand = "\"$ORACLE_HOME\"/bin/sqlplus -S @.sql 2>&1";
constexpr long kLimitMilliseconds = 60000; // or what the test flag TEST_ORCPROTECTLIMIT says

long long nowMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// No shell is started for a database home that has no sqlplus.
bool sqlplusIsThere()
{
    const char *home = std::getenv("ORACLE_HOME");
    if (home == nullptr || home[0] == '\0') {
        return false;
    }
    char path[4096];
    const int length = std::snprintf(path, sizeof path, "%s/bin/sqlplus", home);
    return length > 0 && static_cast<std::size_t>(length) < sizeof path &&
           faccessat(AT_FDCWD, path, X_OK, AT_EACCESS) == 0;
}

// Writes the script in the working directory, and follows no link, which another user may have put
// there.
bool writeScript()
{
    const int fd = psFileOpenDescriptor(kScriptName, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
    if (fd < 0) {
        return false;
    }
    const bool whole = psWriteAll(fd, kScript.data(), kScript.size());
    return close(fd) == 0 && whole;
}

// The shell and our end of its pipe. The shell leads a new process group, so that it can be ended
// together with every process it started.
class Child
{
public:
    Child() = default;
    ~Child() { end(); }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    bool start(const char *command)
    {
        int ends[2];
        if (!psPipe(ends)) {
            return false;
        }
        out_ = ends[0];
        const bool started = spawn(command, ends[1]);
        close(ends[1]);
        return started;
    }
    [[nodiscard]] int out() const { return out_; }

private:
    bool spawn(const char *command, int pipeEnd)
    {
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attributes;
        if (posix_spawn_file_actions_init(&actions) != 0) {
            return false;
        }
        if (posix_spawnattr_init(&attributes) != 0) {
            posix_spawn_file_actions_destroy(&actions);
            return false;
        }
        sigset_t none;
        sigemptyset(&none);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                  POSIX_SPAWN_SETSIGDEF);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, pipeEnd, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        char shell[] = "sh";
        char flag[] = "-c";
        char line[256];
        std::snprintf(line, sizeof line, "%s", command);
        char *argv[] = {shell, flag, line, nullptr};
        const int rc = posix_spawn(&pid_, "/bin/sh", &actions, &attributes, argv, environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) {
            pid_ = -1;
        }
        return rc == 0;
    }

    // Ends the shell, which gets a second to exit, and every process it has left behind. The order
    // matters: the process group is killed before the shell is waited for, so that no other process
    // can have its number yet. ECHILD means that the host has waited for the shell; the group is
    // then not killed.
    void end()
    {
        if (out_ >= 0) {
            close(out_);
            out_ = -1;
        }
        if (pid_ <= 0) {
            return;
        }
        siginfo_t ended{};
        for (int i = 0; i < 100 && ended.si_pid == 0; ++i) {
            const auto id = static_cast<id_t>(pid_);
            if (waitid(P_PID, id, &ended, WEXITED | WNOHANG | WNOWAIT) != 0 && errno != EINTR) {
                pid_ = -1;
                return;
            }
            if (ended.si_pid == 0) {
                DIfcTimeUtil::milliSleep(i < 10 ? 1 : 10);
            }
        }
        kill(-pid_, SIGKILL);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
    }

    pid_t pid_ = -1;
    int out_ = -1;
};

// Reads the output of the child. False when its time was over before its output ended.
bool readOutput(int fd, LastOfFourLines &lines)
{
    long limit = kLimitMilliseconds;
    if (long asked = 0; veloTestNumber("TEST_ORCPROTECTLIMIT", &asked) && asked > 0) {
        limit = std::min(asked, kLimitMilliseconds);
    }
    const long long deadline = nowMilliseconds() + limit;
    for (;;) {
        const long long left = deadline - nowMilliseconds();
        pollfd waiting{fd, POLLIN, 0};
        const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
        if (ready == 0 || (ready < 0 && errno != EINTR)) {
            return ready != 0;
        }
        if (ready < 0) {
            continue;
        }
        char data[1024];
        const ssize_t got = read(fd, data, sizeof data);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0 || !lines.take(data, static_cast<std::size_t>(got))) {
            return true;
        }
    }
}

} // namespace

std::uint64_t protectSize()
{
    TraceScope scope("protectSize()");
    if (sqlplusHangs) {
        ORC_TRACE(2, " %s: SQLPLUS did not end in time before and is not called again\n",
                  scope.name());
        return 0;
    }
    if (!sqlplusIsThere() || !writeScript()) {
        return 0;
    }
    ORC_TRACE(2, " %s: SQLPLUS script, sqlCommand is:\n%s\n", scope.name(), kScript.data());
    ORC_TRACE(2, " %s: Calling SQLPLUS with '%s'\n", scope.name(), kShownCommand);
    LastOfFourLines lines;
    {
        Child child;
        if (!child.start(kCommand)) {
            return 0;
        }
        sqlplusHangs = !readOutput(child.out(), lines);
    }
    const char *text = lines.last();
    ORC_TRACE(2, " %s: SQLPLUS output text, protectSizeBuffer is: %s\n", scope.name(), text);
    const long long megabytes = std::strtoll(text, nullptr, 10);
    const std::uint64_t size =
        megabytes > 0 && megabytes < (1LL << 43) ? static_cast<std::uint64_t>(megabytes) << 20 : 0;
    ORC_TRACE(2, " %s: The database size is, protectsize is: %llu\n", scope.name(),
              static_cast<unsigned long long>(size));
    return size;
}
