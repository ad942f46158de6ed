// See child.h.
#include "tests/support/child.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace keel::test
{

static int statusOf(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Child::Child(const std::function<void(int told)> &work)
{
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0)
        throw std::runtime_error("pipe");
    pid = fork();
    if (pid < 0)
        throw std::runtime_error("fork");
    if (pid == 0) {
        close(ends[0]);
        work(ends[1]);
        _exit(0);
    }
    close(ends[1]);
    told = ends[0];
}

Child::~Child()
{
    close(told);
    (void)end(SIGKILL);
}

std::string Child::hear() const
{
    char said[32] = "";
    const ssize_t got = read(told, said, sizeof said);
    return {said, got > 0 ? static_cast<std::size_t>(got) : 0};
}

int Child::wait()
{
    return pid > 0 ? statusOf(std::exchange(pid, -1)) : -1;
}

int Child::end(int signal)
{
    if (pid > 0) // of one that has ended nothing else must be hit
        kill(pid, signal);
    return wait();
}

void tell(int told, const std::string &what)
{
    if (write(told, what.data(), what.size()) < 0)
        _exit(1);
}

bool isInCall(pid_t thread, std::initializer_list<long> calls)
{
    std::ifstream file("/proc/" + std::to_string(thread) + "/syscall");
    long number = -1;
    return file >> number && std::ranges::count(calls, number) != 0;
}

int inChild(const std::function<int()> &work)
{
    const pid_t child = fork();
    if (child == 0) {
        for (const int number : {SIGXFSZ, SIGPIPE})
            (void)std::signal(number, SIG_DFL);
        alarm(600);
        _exit(work());
    }
    return statusOf(child);
}

} // namespace keel::test
