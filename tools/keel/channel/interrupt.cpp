// See interrupt.h. The handler writes to a pipe that poll(2) waits for, so that no signal is missed
// between the check and the wait.
#include "tools/keel/channel/interrupt.h"

#include "agents/common/maint/mttiming.h"
#include "tools/common/signals.h"
#include "tools/keel/channel/failure.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace keel
{

namespace
{

std::atomic<int> caughtSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free, "or a handler may not touch it");
int wakeUp[2] = {-1, -1};

extern "C" void noteSignal(int number)
{
    const int saved = errno;
    caughtSignal = number;
    const char byte = 0;
    [[maybe_unused]] const ssize_t ignored = ::write(wakeUp[1], &byte, 1);
    errno = saved;
}

} // namespace

void catchInterrupts()
{
    if (::pipe(wakeUp) != 0)
        throw Failure("no file descriptor is free");
    for (const int end : wakeUp)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    tools::noteSignals(noteSignal);
    ::signal(SIGPIPE, SIG_IGN);
}

void checkInterrupted()
{
    if (caughtSignal != 0)
        throw Failure(caughtSignal == SIGINT ? "interrupted" : "terminated by a signal");
}

void waitForSignal()
{
    constexpr int kMoment = 50; // ms
    const mtTimed timed(MT_TIME_WAITING);
    struct pollfd waits = {wakeUp[0], POLLIN, 0};
    (void)::poll(&waits, 1, kMoment);
    checkInterrupted();
}

void waitUntilReady(int descriptor, Direction direction)
{
    const mtTimed timed(MT_TIME_WAITING);
    const short events = direction == Direction::kRead ? POLLIN : POLLOUT;
    for (;;) {
        checkInterrupted();
        struct pollfd waits[] = {{descriptor, events, 0}, {wakeUp[0], POLLIN, 0}};
        if (::poll(waits, 2, -1) < 0 && errno != EINTR)
            return; // the read or write that follows says what is wrong
        if (waits[0].revents != 0) {
            checkInterrupted(); // the end of the input must not win over a signal before it
            return;
        }
    }
}

} // namespace keel
