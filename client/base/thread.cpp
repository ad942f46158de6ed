// A new thread has the mask of the one that makes it, so everything is blocked around the making.
#include "client/base/thread.h"

#include "client/base/thread_storage.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <pthread.h>
#include <system_error>
#include <utility>

namespace arca
{

namespace
{

class AllSignalsBlocked
{
public:
    AllSignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked &) = delete;
    AllSignalsBlocked &operator=(const AllSignalsBlocked &) = delete;

private:
    sigset_t before_;
};

} // namespace

namespace
{
pthread_key_t made; // set where the storage is; looking at it allocates nothing
/// As the library is loaded: a static that the first call initialises would hang a child that is
/// forked meanwhile.
const bool hasKey = pthread_key_create(&made, nullptr) == 0;
} // namespace

bool prepareThreadStorage() noexcept
{
    if (hasKey && pthread_getspecific(made) != nullptr)
        return true;
    constexpr std::size_t kEnough = std::size_t{64} << 10;
    void *const probe = std::malloc(kEnough);
    if (probe == nullptr)
        return false;
    *static_cast<volatile char *>(probe) = 0;
    std::free(probe);
    if (std::uncaught_exceptions() >= 0 && hasKey) // which touches it
        (void)pthread_setspecific(made, &made);
    return true;
}

const char *NoThread::what() const noexcept
{
    return "the system starts no further thread for this process: raise its limit on threads or "
           "memory, or lower THREADS";
}

Thread::Thread(std::function<void()> body, std::function<void()> noMemory)
{
    const AllSignalsBlocked blocked;
    try {
        thread_ = std::thread([body = std::move(body), noMemory = std::move(noMemory)] {
            if (prepareThreadStorage())
                body();
            else
                noMemory();
        });
    } catch (const std::system_error &) {
        throw NoThread();
    }
}

Thread::~Thread()
{
    if (thread_.joinable())
        thread_.join();
}

} // namespace arca
