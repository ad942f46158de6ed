// A new thread has the mask of the one that makes it, so everything is blocked around the making.
#include "client/base/thread.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
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

/// The thread-local storage of a library that was opened at run time is allocated when a thread
/// first touches it, and the C library ends the process when that fails. So it is touched here,
/// while memory is known to be there, and not when the first exception of the thread is thrown for
/// want of it.
bool prepareStorage()
{
    constexpr std::size_t kEnough = std::size_t{64} << 10;
    void *const probe = std::malloc(kEnough);
    if (probe == nullptr)
        return false;
    *static_cast<volatile char *>(probe) = 0;
    std::free(probe);
    return std::uncaught_exceptions() == 0;
}

} // namespace

Thread::Thread(std::function<void()> body, std::function<void()> noMemory)
{
    const AllSignalsBlocked blocked;
    try {
        thread_ = std::thread([body = std::move(body), noMemory = std::move(noMemory)] {
            if (prepareStorage())
                body();
            else
                noMemory();
        });
    } catch (const std::system_error &) {
        throw std::bad_alloc(); // EAGAIN: memory, or the limit on threads
    }
}

Thread::~Thread()
{
    if (thread_.joinable())
        thread_.join();
}

} // namespace arca
