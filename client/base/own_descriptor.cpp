// The descriptors that a forked child closes, in a table that it can read whatever the other
// threads of its parent were doing: the handlers of a fork take no lock and allocate nothing.
//
//   1. A slot is kFree, kTaken (its descriptor is being opened or closed) or a descriptor above 2.
//      Only its owner changes it, but for the handler of a child. Blocks are added and never freed.
//   2. A descriptor that a fork met before it was in its slot may be shared by a child that does
//   not
//      know of it. It is closed and never locked: a fork shows in `forking` while it is being made
//      and in `forks` afterwards.
//   3. A lock is released before its descriptor is closed: a child forked in that moment shares the
//      open file description, and would keep the lock.
#include "client/base/own_descriptor.h"

#include <array>
#include <cerrno>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#if __has_include(<sys/file.h>)
#include <sys/file.h>
#endif

namespace arca
{

namespace
{

// The table is initialised at compile time, so that no fork meets it half made. Descriptors are
// above 2, so 0 can mean a free slot.
constexpr int kFree = 0, kTaken = -1;

struct Block {
    std::array<std::atomic<int>, 256> slots{};
    std::atomic<Block *> next = nullptr; // never freed
};

constinit Block first;
// Several threads may fork at once, so one number cannot show both that a fork is being made and
// that there was one.
constinit std::atomic<unsigned> forking = 0; // how many are being made now
constinit std::atomic<unsigned> forks = 0;   // how many were made

void afterForkInChild()
{
    // The other threads that were forking are not in the child.
    ++forks;
    forking = 0;
    for (Block *block = &first; block != nullptr; block = block->next.load())
        for (auto &slot : block->slots)
            if (const int number = slot.exchange(kTaken); number > 0)
                (void)close(number);
}

/// Registers the handlers. When that fails, a child keeps what it inherits, as one made by clone(2)
/// does.
void watchForks()
{
    // Not a static of C++: its half-made initialisation would hang a child that is forked
    // meanwhile; the C library's once-control begins again there.
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    (void)pthread_once(&once, [] {
        (void)pthread_atfork([] { ++forking; },
                             [] {
                                 ++forks;
                                 --forking;
                             },
                             afterForkInChild);
    });
}

std::atomic<int> &takeSlot()
{
    watchForks();
    for (Block *block = &first;;) {
        for (auto &slot : block->slots) {
            int expected = kFree;
            if (slot.compare_exchange_strong(expected, kTaken))
                return slot;
        }
        if (block->next.load() == nullptr) {
            auto fresh = std::make_unique<Block>();
            Block *expected = nullptr;
            if (block->next.compare_exchange_strong(expected, fresh.get()))
                (void)fresh.release();
        }
        block = block->next.load();
    }
}

} // namespace

std::unique_ptr<OwnDescriptor> OwnDescriptor::open(const std::function<int(bool)> &open,
                                                   int &number)
{
    std::atomic<int> &slot = takeSlot();
    for (bool again = false;;) {
        const unsigned before = forks.load();
        if (forking.load() != 0) {
            (void)sched_yield(); // another thread is forking just now
            continue;
        }
        const int descriptor = open(again);
        number = errno;
        if (descriptor < 0) {
            slot.store(kFree);
            return nullptr;
        }
        slot.store(descriptor);
        if (forking.load() != 0 || forks.load() != before) {
            // A child may have it without knowing: this open file must never be locked.
            slot.store(kTaken);
            (void)close(descriptor);
            again = true;
            continue;
        }
        return std::unique_ptr<OwnDescriptor>(new OwnDescriptor(slot, descriptor));
    }
}

OwnDescriptor::~OwnDescriptor()
{
    int expected = number_;
    if (slot_.compare_exchange_strong(expected, kTaken)) {
#ifdef LOCK_EX
        // Closing would leave the lock to a child that is forked in this moment.
        (void)flock(number_, LOCK_UN);
#endif
        (void)close(number_);
        slot_.store(kFree);
    }
}

} // namespace arca
