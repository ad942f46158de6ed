// Recursive mutexes, condition variables and thread identity.
#include "common/thrd/psmutex.h"

#include "common/thrd/psprocess.h"

#include <cerrno>
#include <ctime>
#include <new>
#include <sched.h>
#include <unistd.h>

#if defined(__linux__)
#include <sys/syscall.h>
#endif

namespace
{
// The calling thread's tag as an owner. No tag is given twice. The only thread of a forked child
// keeps its tag, so that a lock held over fork stays held by it. An address would not do: a new
// thread of the child may get the memory of a thread that the parent had, and with it that thread's
// locks.
std::uint64_t ownTag() noexcept
{
    static std::atomic<std::uint64_t> last{0};
    thread_local std::uint64_t tag = 0;
    if (tag == 0)
        tag = ++last;
    return tag;
}
} // namespace

int psProcessMark::own() noexcept
{
    return psProcessSelf();
}

// True when the caller must renew. False when nothing has to be renewed, or another thread has done
// it. A mark whose renewal the fork interrupted is the negative of another process, and is claimed.
bool psProcessMark::claim(int self) noexcept
{
    int seen = process.load(std::memory_order_acquire);
    while (seen != self) {
        if (seen == -self) {
            sched_yield();
            seen = process.load(std::memory_order_acquire);
        } else if (process.compare_exchange_weak(seen, -self, std::memory_order_acq_rel)) {
            return seen != 0;
        }
    }
    return false;
}

int psMutex_t::lock(int wait) noexcept
{
    const std::uint64_t self = ownTag();
    mark.adopt([this, self] {
        if (owner.load(std::memory_order_relaxed) != self) {
            owner.store(0, std::memory_order_relaxed);
            depth = 0;
            new (&mutex) pthread_mutex_t PTHREAD_MUTEX_INITIALIZER;
        }
    });
    if (owner.load(std::memory_order_relaxed) == self) {
        ++depth;
        return 0;
    }
    const int rc = wait != 0 ? pthread_mutex_lock(&mutex) : pthread_mutex_trylock(&mutex);
    if (rc == 0) {
        owner.store(self, std::memory_order_relaxed);
        depth = 1;
    }
    return rc;
}

int psMutex_t::unlock() noexcept
{
    if (owner.load(std::memory_order_relaxed) != ownTag())
        return EPERM;
    if (--depth > 0)
        return 0;
    owner.store(0, std::memory_order_relaxed);
    return pthread_mutex_unlock(&mutex);
}

void psCondition_t::adopt() noexcept
{
    mark.adopt([this] { new (&condition) pthread_cond_t PTHREAD_COND_INITIALIZER; });
}

int psCondition_t::waitUntil(psMutex_t &held, const timespec *until) noexcept
{
    if (held.owner.load(std::memory_order_relaxed) != ownTag())
        return EPERM;
    adopt();
    const unsigned depth = held.depth;
    held.owner.store(0, std::memory_order_relaxed);
    const int rc = until == nullptr ? pthread_cond_wait(&condition, &held.mutex)
                                    : pthread_cond_timedwait(&condition, &held.mutex, until);
    held.owner.store(ownTag(), std::memory_order_relaxed);
    held.depth = depth;
    return rc;
}

int psCondition_t::wait(psMutex_t &held) noexcept
{
    return waitUntil(held, nullptr);
}

int psCondition_t::waitFor(psMutex_t &held, unsigned milliseconds) noexcept
{
    timespec until{};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += static_cast<time_t>(milliseconds / 1000);
    until.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_nsec -= 1'000'000'000;
        ++until.tv_sec;
    }
    return waitUntil(held, &until);
}

void psCondition_t::signal() noexcept
{
    adopt();
    pthread_cond_signal(&condition);
}

void psCondition_t::broadcast() noexcept
{
    adopt();
    pthread_cond_broadcast(&condition);
}

std::uint32_t psThreadSelf() noexcept
{
#if defined(__linux__)
    return static_cast<std::uint32_t>(syscall(SYS_gettid));
#else
    static std::atomic<std::uint32_t> last{0};
    thread_local std::uint32_t self = 0;
    if (self == 0)
        self = ++last;
    return self;
#endif
}
