// The descriptors that a forked child closes, in a table that it can read whatever the other
// threads of its parent were doing: the handlers of a fork take no lock and allocate nothing.
//
//   1. The number of a slot is kFree, kTaken (its descriptor is being opened or closed) or a
//      descriptor above 2. Only its owner changes it, but for the handler of a child. Blocks are
//      added and never freed.
//   2. While a descriptor is being opened its slot says where the file is. A child forked in that
//      moment looks for the file among its own descriptors, which needs no waiting for the fork.
//   3. A child gets the descriptors a moment before the memory. So it closes a number only when it
//      leads to the file that the slot means: it may still be the host's in the child.
//   4. A lock is released before its descriptor is closed: a child forked in that moment shares the
//      open file description, and would keep the lock.
#include "client/base/own_descriptor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

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

} // namespace

struct OwnDescriptor::Slot {
    std::atomic<int> number = kFree;
    std::atomic<const Where *> opening = nullptr; // lives as long as it is here
    std::atomic<dev_t> device = 0;                // of the number's file
    std::atomic<ino_t> inode = 0;
};

namespace
{

using Slot = OwnDescriptor::Slot;

struct Block {
    std::array<Slot, 256> slots{};
    std::atomic<Block *> next = nullptr; // never freed
};

constinit Block first;

bool leadsTo(int descriptor, dev_t device, ino_t inode)
{
    struct stat state;
    return fstat(descriptor, &state) == 0 && state.st_dev == device && state.st_ino == inode;
}

/// Closes what another thread was opening at the fork. A file that has no name any more needs no
/// closing: no process can ask for its lock.
void closeOpened(const OwnDescriptor::Where &where)
{
    constexpr rlim_t kMost = rlim_t{1} << 20;
    struct stat file;
    rlimit limit;
    if (fstatat(where.directory, where.name, &file, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(file.st_mode) || getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    const int end = static_cast<int>(std::min(limit.rlim_cur, kMost));
    for (int number = 0; number < end; ++number) {
        // Asked first, as that needs no file server.
        const int flags = fcntl(number, F_GETFL);
        if (flags >= 0 && (flags & O_ACCMODE) == O_RDWR &&
            (fcntl(number, F_GETFD) & FD_CLOEXEC) != 0 && leadsTo(number, file.st_dev, file.st_ino))
            (void)close(number);
    }
}

void afterForkInChild()
{
    for (Block *block = &first; block != nullptr; block = block->next.load())
        for (Slot &slot : block->slots) {
            const int number = slot.number.exchange(kTaken);
            if (number > 0 && leadsTo(number, slot.device, slot.inode))
                (void)close(number);
            // By an owner that is not in the child, as is the one of a closed number.
            if (const auto *const where = slot.opening.exchange(nullptr))
                closeOpened(*where);
        }
}

/// Registers the handler. When that fails, a child keeps what it inherits, as one made by clone(2)
/// does.
void watchForks()
{
    // Not a static of C++: its half-made initialisation would hang a child that is forked
    // meanwhile; the C library's once-control begins again there.
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    (void)pthread_once(&once, [] { (void)pthread_atfork(nullptr, nullptr, afterForkInChild); });
}

// As the library is loaded: a handler that is registered while a fork is under way is not called in
// its child.
[[maybe_unused]] const bool watched = (watchForks(), true);

Slot &takeSlot()
{
    watchForks();
    for (Block *block = &first;;) {
        for (Slot &slot : block->slots) {
            int expected = kFree;
            if (slot.number.compare_exchange_strong(expected, kTaken))
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

std::unique_ptr<OwnDescriptor> OwnDescriptor::open(const Where &where,
                                                   const std::function<int()> &open, int &number)
{
    std::unique_ptr<OwnDescriptor> own(new OwnDescriptor(takeSlot()));
    Slot &slot = own->slot_;
    slot.opening = &where;
    int descriptor = open();
    number = errno;
    struct stat state = {};
    if (descriptor >= 0 && fstat(descriptor, &state) != 0) {
        number = errno;
        (void)close(std::exchange(descriptor, -1));
    }
    if (descriptor >= 0) {
        slot.device = state.st_dev;
        slot.inode = state.st_ino;
        slot.number = descriptor;
    }
    if (slot.opening.exchange(nullptr) == nullptr) {
        // A handler of a signal has forked within this call, and this is the child, which may have
        // closed the descriptor.
        number = ECANCELED;
        return nullptr;
    }
    if (descriptor < 0)
        return nullptr;
    own->number_ = descriptor;
    return own;
}

OwnDescriptor::~OwnDescriptor()
{
    int expected = number_;
    if (number_ < 0) {
        slot_.number = kFree; // nothing was opened
    } else if (slot_.number.compare_exchange_strong(expected, kTaken)) {
#ifdef LOCK_EX
        // Closing would leave the lock to a child that is forked in this moment.
        (void)flock(number_, LOCK_UN);
#endif
        (void)close(number_);
        slot_.number = kFree;
    }
}

} // namespace arca
