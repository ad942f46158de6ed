// Recursive mutexes of the system, static and allocated: see the header.
#include "client/base/local/sqlite_mutex.h"

#include "common/thrd/psmutex.h"

#include <sqlite3.h>

#include <iterator>
#include <new>
#include <pthread.h>

struct sqlite3_mutex {
    pthread_mutex_t system;
};

namespace arca
{

namespace
{

constexpr int kFirstStatic = SQLITE_MUTEX_RECURSIVE + 1, kStatics = 16;
sqlite3_mutex statics[kStatics];
constinit psProcessMark process; // that the static ones belong to

void make(sqlite3_mutex &mutex)
{
    pthread_mutexattr_t attributes;
    (void)pthread_mutexattr_init(&attributes);
    (void)pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    new (&mutex) sqlite3_mutex;
    (void)pthread_mutex_init(&mutex.system, &attributes);
    (void)pthread_mutexattr_destroy(&attributes);
}

/// Runs at the start, and in a child before it first takes one of them.
void makeStatics()
{
    for (sqlite3_mutex &mutex : statics)
        make(mutex);
}

int begin()
{
    makeStatics();
    return SQLITE_OK;
}

int end()
{
    return SQLITE_OK;
}

sqlite3_mutex *allocate(int kind)
{
    if (kind >= kFirstStatic)
        return kind < kFirstStatic + kStatics ? &statics[kind - kFirstStatic] : nullptr;
    auto *const mutex = new (std::nothrow) sqlite3_mutex;
    if (mutex != nullptr)
        make(*mutex);
    return mutex;
}

void release(sqlite3_mutex *mutex)
{
    (void)pthread_mutex_destroy(&mutex->system);
    delete mutex;
}

/// No handler of forks does it: one that is registered while a fork is under way is not called in
/// its child.
void adopt(const sqlite3_mutex *mutex)
{
    if (mutex >= std::begin(statics) && mutex < std::end(statics))
        process.adopt(makeStatics);
}

void enter(sqlite3_mutex *mutex)
{
    adopt(mutex);
    (void)pthread_mutex_lock(&mutex->system);
}

int tryEnter(sqlite3_mutex *mutex)
{
    adopt(mutex);
    return pthread_mutex_trylock(&mutex->system) == 0 ? SQLITE_OK : SQLITE_BUSY;
}

void leave(sqlite3_mutex *mutex)
{
    (void)pthread_mutex_unlock(&mutex->system);
}

} // namespace

const sqlite3_mutex_methods &forkedMutexes()
{
    static constexpr sqlite3_mutex_methods kMethods = {begin,    end,   allocate, release, enter,
                                                       tryEnter, leave, nullptr,  nullptr};
    return kMethods;
}

} // namespace arca
