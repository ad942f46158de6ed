// The count of the threads inside, and the hand-over of the destruction to the last one.
//
// Why nothing is destroyed twice or never:
// 1. A thread enters only by adding itself to an open gate, in one compare-and-swap; once the gate
//    is closed the count only falls.
// 2. Both the thread that closes and the last one to leave ask callPinTake under initMutex, which
//    answers true to the first that finds the count at zero, and clears `waits`.
// 3. The gate opens again only after the objects were made, under the same initMutex.
#include "agents/common/callpin.h"

#include "common/thrd/psprocess.h"

#include <atomic>
#include <cstdint>
#include <sched.h>

namespace
{

constexpr std::uint32_t kOpen = 1U << 31;

std::atomic<std::uint32_t> gate{0}; // kOpen, and the number of threads inside
std::atomic<int> maker{0}; // the process that the gate is of; -pid while that one adopts it
bool waits = false;        // a release waits for calls inside; guarded by initMutex
std::atomic<void (*)()> lastLeft{nullptr};
std::atomic<void (*)()> forked{nullptr};

// Of the calling thread.
thread_local int depth = 0;
thread_local bool pinned = false;
thread_local bool shutOut = false;

bool enter()
{
    std::uint32_t seen = gate.load(std::memory_order_relaxed);
    while ((seen & kOpen) != 0) {
        if (gate.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

// True for the last to leave a gate that is closed.
bool leave()
{
    pinned = false;
    return gate.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

} // namespace

void callPinCheckProcess() noexcept
{
    const int self = psProcessSelf();
    int seen = maker.load(std::memory_order_acquire);
    while (seen != self) {
        if (seen == -self) {
            sched_yield(); // another thread of this child is adopting the gate
            seen = maker.load(std::memory_order_acquire);
        } else if (maker.compare_exchange_weak(seen, -self, std::memory_order_acq_rel)) {
            if (seen != 0) {
                gate.store(0, std::memory_order_relaxed);
                waits = false;
                if (void (*const act)() = forked.load()) {
                    act();
                }
            }
            maker.store(self, std::memory_order_release);
            return;
        }
    }
}

CallPin::CallPin() noexcept
{
    if (depth++ != 0) {
        return;
    }
    callPinCheckProcess();
    pinned = enter();
    shutOut = !pinned;
}

CallPin::~CallPin()
{
    if (--depth != 0) {
        return;
    }
    shutOut = false;
    void (*const act)() = lastLeft.load();
    if (pinned && leave() && act != nullptr) {
        act();
    }
}

bool callShutOut() noexcept
{
    return shutOut;
}

void callPinDuties(const CallPinDuties &duties) noexcept
{
    lastLeft = duties.lastLeft;
    forked = duties.forked;
}

void callPinOpen() noexcept
{
    gate.fetch_or(kOpen, std::memory_order_release);
}

bool callPinClose() noexcept
{
    waits = true;
    gate.fetch_and(~kOpen, std::memory_order_acq_rel);
    if (pinned) {
        leave();
    }
    return callPinTake();
}

bool callPinTake() noexcept
{
    if (!waits || gate.load(std::memory_order_acquire) != 0) {
        return false;
    }
    waits = false;
    return true;
}

void callPinShutOutHere() noexcept
{
    shutOut = depth != 0;
}
