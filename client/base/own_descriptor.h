// Descriptors that stay with the process that opened them. A lock of flock(2) belongs to the open
// file, which a forked child shares: a child that lives on without exec would keep the claims and
// locks of a parent that died. So the child closes them, in the moment of the fork.
//
// flock is kept for the locks themselves: record locks of fcntl(2) go with their process, but also
// when any other descriptor of the file is closed, and do not keep two threads apart. What is not
// covered is a child made by clone(2) directly, for which no handler runs. The number of a process
// is never used to judge whether it lives: it says nothing on another host.
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
    /// `open` opens the file and returns a descriptor, or -1 with errno set; it is called with true
    /// when it opened the file before, and a fork came in between. Null on failure, with `number`
    /// the errno. Throws std::bad_alloc.
    static std::unique_ptr<OwnDescriptor> open(const std::function<int(bool again)> &open,
                                               int &number);
    OwnDescriptor(const OwnDescriptor &) = delete;
    OwnDescriptor &operator=(const OwnDescriptor &) = delete;
    /// Closes it, unless this is a child that has done so.
    ~OwnDescriptor();

    int number() const { return number_; }

private:
    OwnDescriptor(std::atomic<int> &slot, int number) : slot_(slot), number_(number) {}

    std::atomic<int> &slot_; // what the child looks at
    const int number_;
};

} // namespace arca

#endif
