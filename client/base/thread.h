// A thread of ours in a process that is not ours: it takes no signal, so that the host's handlers
// never run on it, and it is joined before its object is destroyed.
#ifndef KEEL_CLIENT_BASE_THREAD_H
#define KEEL_CLIENT_BASE_THREAD_H

#include <exception>
#include <functional>
#include <new>
#include <thread>

namespace arca
{

/// The system refused a thread, for its limits or for want of memory for a stack. Derived so that
/// whatever gives way to a lack of memory gives way to this one too.
class NoThread : public std::bad_alloc
{
public:
    /// Returns what happened and what to do, as a clause without a full stop.
    const char *what() const noexcept override;
};

class Thread
{
public:
    /// Runs `body` on a new thread; it must not throw. When the thread finds no memory for its
    /// thread-local storage, it calls `noMemory` in place of `body`, which must neither throw nor
    /// allocate. Throws NoThread, with neither called, when the system refuses the thread, and
    /// std::bad_alloc.
    Thread(std::function<void()> body, std::function<void()> noMemory);
    Thread(Thread &&) noexcept = default;
    Thread &operator=(Thread &&) = delete;
    /// Waits for the end of the thread.
    ~Thread();

private:
    std::thread thread_;
};

/// Runs `body` on a thread of ours and waits for its end. For calls that may raise a signal for the
/// calling thread, as SIGXFSZ at the limit on file sizes: it must not be delivered to a thread of
/// the host. Throws what `body` throws, NoThread, and std::bad_alloc when the thread
/// finds no memory.
template <class Body> void onThreadOfOurs(Body body)
{
    std::exception_ptr thrown;
    bool ran = true;
    {
        const Thread worker(
            [&] {
                try {
                    body();
                } catch (...) {
                    thrown = std::current_exception();
                }
            },
            [&] { ran = false; });
    }
    if (thrown)
        std::rethrow_exception(thrown);
    if (!ran)
        throw std::bad_alloc();
}

} // namespace arca

#endif
