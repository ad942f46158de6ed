// Descriptors that stay with the process that opened them. A lock of flock(2) belongs to the open
// file description, which a forked child shares: a child that lives on without exec would keep the
// claims and locks of a parent that died. So the child closes them, in the moment of the fork.
//
// The locks themselves are of flock(2): record locks of fcntl(2) end with their process, but also
// when any other descriptor of the file is closed, and do not keep two threads apart. A child made
// by clone(2) directly is not covered: no handler of pthread_atfork(3) runs for it. The number of a
// process is never used to judge whether it lives: it says nothing on another host.
//
// Any thread may open and destroy these, several at once; one object is used by one thread.
#ifndef KEEL_CLIENT_BASE_OWN_DESCRIPTOR_H
#define KEEL_CLIENT_BASE_OWN_DESCRIPTOR_H

#include <atomic>
#include <functional>
#include <memory>

namespace arca
{

class OwnDescriptor
{
public:
    /// Calls `open`, which opens the file and returns a descriptor above 2, or -1 with errno set.
    /// The returned object owns that descriptor. When a fork came in between, a child may share the
    /// descriptor: it is closed, and `open` is called once more, with `again` true. Returns null on
    /// failure, with the errno in `number`. Throws std::bad_alloc.
    static std::unique_ptr<OwnDescriptor> open(const std::function<int(bool again)> &open,
                                               int &number);
    OwnDescriptor(const OwnDescriptor &) = delete;
    OwnDescriptor &operator=(const OwnDescriptor &) = delete;
    /// Releases the lock of flock(2) and closes the descriptor. In a forked child, where it was
    /// closed at the fork, does nothing.
    ~OwnDescriptor();

    /// In a forked child the number is not this file's any more: do not use it there.
    int number() const { return number_; }

private:
    OwnDescriptor(std::atomic<int> &slot, int number) : slot_(slot), number_(number) {}

    std::atomic<int> &slot_; // what the child looks at
    const int number_;
};

} // namespace arca

#endif
