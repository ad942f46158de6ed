// What libcrypto asks of threads: see the header. As every one of these functions is here, the
// linker leaves the object with libcrypto's own out; a libcrypto that wants one more does not link.
#include "client/base/crypto/crypto_locks.h"

#include <openssl/crypto.h>

#include <atomic>
#include <cstdint>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

namespace
{

// ---- locks

/// How many forks led here: a lock of an earlier generation was made by a parent.
constinit std::atomic<std::int64_t> generation = 1;
/// Threads that hold a lock for writing, or wait for one.
constinit std::atomic<int> writers = 0;

struct Lock {
    pthread_rwlock_t system;
    /// The generation that made it; negative while it is made again in that one.
    std::atomic<std::int64_t> made;
    bool written; ///< belongs to the thread that holds it
};

bool make(Lock &lock)
{
    lock.written = false;
    return pthread_rwlock_init(&lock.system, nullptr) == 0;
}

/// The lock, made again by the first thread of this process that takes it when it is a parent's:
/// no thread here can hold it yet. A thread that is stopped by another fork meanwhile leaves a
/// negative number, which the next generation does not wait for. Null for null: libcrypto takes
/// locks that it could not make.
Lock *ours(void *given)
{
    auto *const lock = static_cast<Lock *>(given);
    if (lock == nullptr)
        return nullptr;
    const std::int64_t now = generation;
    for (std::int64_t made = lock->made; made != now; made = lock->made) {
        if (made == -now)
            (void)sched_yield();
        else if (lock->made.compare_exchange_strong(made, -now)) {
            (void)make(*lock);
            lock->made = now;
        }
    }
    return lock;
}

// ---- values of each thread
//
// libcrypto wants a few keys of the system's, asks for each once, and never again when it gets
// none: a host that is short of them for a moment would have no libcrypto until it ends. So the
// values lie in our own storage of the thread, and one key of the system's, asked for again until
// there is one, tells of a thread's end. Without it what such a thread has is not freed.

using CleanUp = void (*)(void *);

/// It asks for five, and for two more in each child that needs a library context of its own.
constexpr unsigned kValues = 16;

struct Kind {
    std::atomic<unsigned> made = 0; ///< odd while it is in use: the value of an older one is none
    std::atomic<CleanUp> cleanUp = nullptr;
};
constinit Kind kinds[kValues];

struct Value {
    void *content;
    unsigned made;
};
constinit thread_local Value values[kValues] = {};

void endThread(void *)
{
    for (unsigned at = 0; at < kValues; ++at) {
        void *const content = values[at].made == kinds[at].made ? values[at].content : nullptr;
        const CleanUp cleanUp = kinds[at].cleanUp;
        if (content == nullptr || cleanUp == nullptr)
            continue;
        values[at].content = nullptr;
        cleanUp(content);
    }
}

constexpr std::int64_t kNone = -1;
constinit std::atomic<std::int64_t> ending = kNone;

/// Two threads, or a fork that interrupts one, may leave a key that is never used.
bool hasEnding() noexcept
{
    pthread_key_t key = 0;
    if (ending == kNone && pthread_key_create(&key, endThread) == 0) {
        std::int64_t none = kNone;
        if (!ending.compare_exchange_strong(none, key))
            (void)pthread_key_delete(key);
    }
    return ending != kNone;
}

/// As the library is loaded, when the host has keys to spare.
[[maybe_unused]] const bool hadEnding = hasEnding();

} // namespace

void arca::freeCryptoLocks() noexcept
{
    ++generation;
    writers = 0;
}

bool arca::cryptoIsChanging() noexcept
{
    return writers != 0;
}

extern "C" {

CRYPTO_RWLOCK *CRYPTO_THREAD_lock_new(void)
{
    void *const room = OPENSSL_zalloc(sizeof(Lock));
    if (room == nullptr)
        return nullptr;
    auto *const lock = new (room) Lock;
    if (!make(*lock)) {
        OPENSSL_free(room);
        return nullptr;
    }
    lock->made = generation.load();
    return lock;
}

int CRYPTO_THREAD_read_lock(CRYPTO_RWLOCK *given)
{
    Lock *const lock = ours(given);
    return lock != nullptr && pthread_rwlock_rdlock(&lock->system) == 0 ? 1 : 0;
}

int CRYPTO_THREAD_write_lock(CRYPTO_RWLOCK *given)
{
    Lock *const lock = ours(given);
    if (lock == nullptr)
        return 0;
    ++writers;
    if (pthread_rwlock_wrlock(&lock->system) != 0) {
        --writers;
        return 0;
    }
    lock->written = true;
    return 1;
}

int CRYPTO_THREAD_unlock(CRYPTO_RWLOCK *given)
{
    Lock *const lock = ours(given);
    if (lock == nullptr)
        return 0;
    const bool written = lock->written;
    if (written)
        lock->written = false;
    const int done = pthread_rwlock_unlock(&lock->system) == 0 ? 1 : 0;
    if (written)
        --writers;
    return done;
}

void CRYPTO_THREAD_lock_free(CRYPTO_RWLOCK *lock)
{
    if (lock == nullptr)
        return;
    (void)pthread_rwlock_destroy(&ours(lock)->system);
    OPENSSL_free(lock);
}

/// The C library begins again, in the child, what a thread of the parent was running once.
int CRYPTO_THREAD_run_once(CRYPTO_ONCE *once, void (*work)(void))
{
    return pthread_once(once, work) == 0 ? 1 : 0;
}

int CRYPTO_THREAD_init_local(CRYPTO_THREAD_LOCAL *key, CleanUp cleanUp)
{
    for (unsigned at = 0; at < kValues; ++at) {
        unsigned made = kinds[at].made;
        if (made % 2 == 0 && kinds[at].made.compare_exchange_strong(made, made + 1)) {
            kinds[at].cleanUp = cleanUp;
            *key = at;
            return 1;
        }
    }
    return 0;
}

void *CRYPTO_THREAD_get_local(CRYPTO_THREAD_LOCAL *key)
{
    const Value &value = values[*key];
    return value.made == kinds[*key].made ? value.content : nullptr;
}

int CRYPTO_THREAD_set_local(CRYPTO_THREAD_LOCAL *key, void *content)
{
    values[*key] = {content, kinds[*key].made};
    if (content != nullptr && kinds[*key].cleanUp != nullptr && hasEnding())
        (void)pthread_setspecific(static_cast<pthread_key_t>(ending.load()), values);
    return 1;
}

int CRYPTO_THREAD_cleanup_local(CRYPTO_THREAD_LOCAL *key)
{
    kinds[*key].cleanUp = nullptr;
    ++kinds[*key].made;
    return 1;
}

CRYPTO_THREAD_ID CRYPTO_THREAD_get_current_id(void)
{
    return pthread_self();
}

int CRYPTO_THREAD_compare_id(CRYPTO_THREAD_ID a, CRYPTO_THREAD_ID b)
{
    return pthread_equal(a, b) != 0 ? 1 : 0;
}

int CRYPTO_atomic_add(int *value, int amount, int *result, CRYPTO_RWLOCK *)
{
    *result = __atomic_add_fetch(value, amount, __ATOMIC_ACQ_REL);
    return 1;
}

int CRYPTO_atomic_or(std::uint64_t *value, std::uint64_t bits, std::uint64_t *result,
                     CRYPTO_RWLOCK *)
{
    *result = __atomic_or_fetch(value, bits, __ATOMIC_ACQ_REL);
    return 1;
}

int CRYPTO_atomic_load(std::uint64_t *value, std::uint64_t *result, CRYPTO_RWLOCK *)
{
    *result = __atomic_load_n(value, __ATOMIC_ACQUIRE);
    return 1;
}

/// Its generators of random numbers learn of a fork by the number of the process.
int openssl_get_fork_id(void)
{
    return getpid();
}

int openssl_init_fork_handlers(void)
{
    return 1;
}

} // extern "C"
