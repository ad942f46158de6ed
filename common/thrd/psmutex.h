// Recursive mutexes, condition variables and thread identity, on plain POSIX threads.
//
// Objects of these classes may be static: no code runs for them when the library is loaded or
// unloaded inside a foreign process. The recursion is counted here and not by the system's mutex,
// so that a condition can be waited for while the mutex is held more than once.
//
// In a forked child:
// 1. A lock that another thread of the parent held is free; one that the forking thread held is
//    still held by it, as often as before.
// 2. What such a lock guards may be half changed. The caller must forget it, not repair it.
#ifndef KEEL_COMMON_THRD_PSMUTEX_H
#define KEEL_COMMON_THRD_PSMUTEX_H

#include <atomic>
#include <cstdint>
#include <pthread.h>

/// The process that a lock belongs to. A forked child inherits the lock as it was: held, perhaps,
/// by a thread that the child does not have.
class psProcessMark
{
public:
    constexpr psProcessMark() noexcept = default;

    /// Calls renew once, in the first thread of a forked child that gets here, and makes the other
    /// threads wait for its end. In the process that uses the lock first it is never called.
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

    std::atomic<int> process{0}; // 0: not used yet; the negative while that process renews
};

/// A recursive mutex.
class psMutex_t
{
public:
    constexpr psMutex_t() noexcept = default;
    psMutex_t(const psMutex_t &) = delete;
    psMutex_t &operator=(const psMutex_t &) = delete;

    /// Returns 0 with the mutex held once more by the calling thread. Waits without limit, or with
    /// wait 0 returns EBUSY at once when another thread holds it.
    int lock(int wait = 1) noexcept;
    /// Gives up one level and returns 0. EPERM when the calling thread does not hold the mutex,
    /// which stays as it is.
    int unlock() noexcept;

private:
    friend class psCondition_t;

    psProcessMark mark;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<std::uint64_t> owner{0}; // 0: none; written by the holder only
    unsigned depth = 0;                  // guarded by the mutex itself
};

/// Holds a mutex for the length of a block, waiting for it without limit.
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

/// A condition variable for a psMutex_t.
class psCondition_t
{
public:
    constexpr psCondition_t() noexcept = default;
    psCondition_t(const psCondition_t &) = delete;
    psCondition_t &operator=(const psCondition_t &) = delete;

    /// Both waits give the mutex up entirely, however often the caller holds it, and return holding
    /// it as often as before, whatever they return. They may return 0 without a signal: test the
    /// condition in a loop. EPERM, at once, when the caller does not hold the mutex; waitFor:
    /// ETIMEDOUT when the time is over. Its time is that of the system's clock: setting the clock
    /// back lengthens the wait.
    int wait(psMutex_t &mutex) noexcept;
    int waitFor(psMutex_t &mutex, unsigned milliseconds) noexcept;

    /// signal wakes one waiting thread, broadcast all of them. The caller need not hold the mutex.
    void signal() noexcept;
    void broadcast() noexcept;

private:
    int waitUntil(psMutex_t &mutex, const timespec *until) noexcept;

    void adopt() noexcept;

    psProcessMark mark;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
};

/// Returns the calling thread's number: the system's own where it has one, else a number counted in
/// this process. It is never 0 and does not change while the thread lives; in a forked child the
/// thread has another one.
std::uint32_t psThreadSelf() noexcept;

#endif
