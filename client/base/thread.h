// A thread of ours in a process that is not ours: it takes no signal, so that the host's handlers
// never run on it, and it is joined before it goes.
#ifndef KEEL_CLIENT_BASE_THREAD_H
#define KEEL_CLIENT_BASE_THREAD_H

#include <exception>
#include <functional>
#include <new>
#include <thread>

namespace arca
{

class Thread
{
public:
    /// `body` must not throw. When there is no memory for what a thread needs of its own,
    /// `noMemory` is called in its place; it must neither throw nor allocate. Throws std::bad_alloc
    /// when no thread can be had at all.
    Thread(std::function<void()> body, std::function<void()> noMemory);
    Thread(Thread &&) noexcept = default;
    Thread &operator=(Thread &&) = delete;
    ~Thread();

private:
    std::thread thread_;
};

/// Does something on a thread of ours and waits for it: what the system tells a thread by a signal,
/// as that a file has reached the limit on its size, must not reach one of the host's.
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
