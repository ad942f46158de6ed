// A thread of ours in a process that is not ours: it takes no signal, so that the host's handlers
// never run on it, and it is joined before it goes.
#ifndef KEEL_CLIENT_BASE_THREAD_H
#define KEEL_CLIENT_BASE_THREAD_H

#include <functional>
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

} // namespace arca

#endif
