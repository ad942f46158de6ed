// Recursive mutexes, condition variables and thread identity, on plain POSIX threads.
//
// Objects of these classes may be static: they are ready without any code running at load time and
// need none at unload time, because the library comes and goes inside a foreign process. The
// recursion is counted here and not by the system's mutex, so that a condition can be waited for
// while the mutex is held more than once. A lock that another thread held at a fork is free in the
// child; one that the forking thread held stays its own. What such a lock guards may be half
// changed in the child.
#ifndef KEEL_COMMON_THRD_PSMUTEX_H
#define KEEL_COMMON_THRD_PSMUTEX_H

#include <atomic>
#include <cstdint>
#include <pthread.h>

/// Which process a lock is of. A forked child inherits the lock as it was: held, perhaps, by a
/// thread that the child does not have.
class psProcessMark
{
public:
    constexpr psProcessMark() noexcept = default;

    /// Calls renew once, in the first thread of a forked child that comes here, before any other
    /// gets past. In the process that begins with the lock it is never called.
    template <class Renew> void adopt(Renew renew) noexcept
    {
        const int self = own();
        if (process.load(std::memory_order_acquire) == self)
            return;
        if (claim(self))
            renew();
        process.store(self, std::memory_order_release);
    }

private:
    static int own() noexcept;
    bool claim(int self) noexcept;

    std::atomic<int> process{0}; // its negative while it renews
};

class psMutex_t
{
public:
    constexpr psMutex_t() noexcept = default;
    psMutex_t(const psMutex_t &) = delete;
    psMutex_t &operator=(const psMutex_t &) = delete;

    /// 0 when the caller holds the mutex; with wait 0, EBUSY when another thread does.
    int lock(int wait = 1) noexcept;
    /// 0; EPERM when the caller does not hold the mutex, which then stays as it is.
    int unlock() noexcept;

private:
    friend class psCondition_t;

    psProcessMark mark;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<std::uint64_t> owner{0}; // 0: none; written by the holder only
    unsigned depth = 0;                  // guarded by the mutex itself
};

/// Holds a mutex for the length of a block.
class psMutexGuard
{
public:
    explicit psMutexGuard(psMutex_t &held) noexcept : mutex(held) { mutex.lock(); }
    ~psMutexGuard() { mutex.unlock(); }
    psMutexGuard(const psMutexGuard &) = delete;
    psMutexGuard &operator=(const psMutexGuard &) = delete;

private:
    psMutex_t &mutex;
};

class psCondition_t
{
public:
    constexpr psCondition_t() noexcept = default;
    psCondition_t(const psCondition_t &) = delete;
    psCondition_t &operator=(const psCondition_t &) = delete;

    /// Both waits give the mutex up entirely, however often the caller holds it, and return holding
    /// it as often as before. They may return without a signal: test the condition in a loop.
    /// 0; EPERM when the caller does not hold the mutex; waitFor: ETIMEDOUT when the time is over.
    int wait(psMutex_t &mutex) noexcept;
    int waitFor(psMutex_t &mutex, unsigned milliseconds) noexcept;

    void signal() noexcept;
    void broadcast() noexcept;

private:
    int waitUntil(psMutex_t &mutex, const timespec *until) noexcept;

    void adopt() noexcept;

    psProcessMark mark;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
};

/// The thread's number: the system's own where it has one, else a number counted in this process.
/// It does not change while the thread lives and is never 0.
std::uint32_t psThreadSelf() noexcept;

#endif
