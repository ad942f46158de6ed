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

#include <functional>
#include <memory>

namespace arca
{

class OwnDescriptor
{
public:
    /// Where a file is: its name below an open directory, or AT_FDCWD and its path. No link.
    struct Where {
        int directory;
        const char *name;
    };

    /// Calls `open`, which opens the regular file there for reading and writing, close-on-exec, and
    /// returns a descriptor above 2, or -1 with errno set. The returned object owns that
    /// descriptor. `open` throws nothing. Never waits for a fork, as the host's may wait for the
    /// caller. Returns null on failure, with the errno in `number`. Throws std::bad_alloc.
    static std::unique_ptr<OwnDescriptor> open(const Where &where, const std::function<int()> &open,
                                               int &number);
    OwnDescriptor(const OwnDescriptor &) = delete;
    OwnDescriptor &operator=(const OwnDescriptor &) = delete;
    /// Releases the lock of flock(2) and closes the descriptor. In a forked child, where it was
    /// closed at the fork, does nothing.
    ~OwnDescriptor();

    /// In a forked child the number is not this file's any more: do not use it there.
    int number() const { return number_; }

    struct Slot;

private:
    explicit OwnDescriptor(Slot &slot) : slot_(slot) {}

    Slot &slot_; // what the child looks at
    int number_ = -1;
};

} // namespace arca

#endif
