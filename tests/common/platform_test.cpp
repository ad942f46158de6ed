// Threads and memory.
#include "common/thrd/psmutex.h"
#include "common/ut/utmem.h"
#include "tests/support/child.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <sched.h>
#include <thread>
#include <unistd.h>

namespace
{
TEST(Mutex, IsRecursiveAndOnlyItsHolderLetsGo)
{
    psMutex_t mutex;
    ASSERT_EQ(mutex.lock(), 0);
    ASSERT_EQ(mutex.lock(), 0);
    const auto other = [&] {
        int tried = 0;
        int released = 0;
        std::thread([&] {
            tried = mutex.lock(0);
            released = mutex.unlock();
        }).join();
        return std::pair(tried, released);
    };
    EXPECT_EQ(other(), std::pair(EBUSY, EPERM));
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_EQ(other(), std::pair(EBUSY, EPERM)) << "held once more";
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_EQ(mutex.unlock(), EPERM);
    EXPECT_EQ(other(), std::pair(0, 0));
}

TEST(Mutex, IsFreeInAForkedChildThatLacksItsHolder)
{
    static psMutex_t theirs, ours, late;
    std::atomic<int> step{0};
    std::thread holder([&] {
        psMutexGuard guard(theirs), another(late);
        (void)late.lock();
        for (step = 1; step != 2;)
            std::this_thread::yield();
        (void)late.unlock();
    });
    while (step != 1)
        std::this_thread::yield();
    psMutexGuard guard(ours);
    const int status = keel::test::inChild([&] {
        const bool free = theirs.lock() == 0 && theirs.unlock() == 0 && theirs.lock(0) == 0;
        const bool kept = ours.unlock() == 0 && ours.unlock() == EPERM && ours.lock(0) == 0;
        // A new thread, which gets the memory of the one that held it.
        int other = 0;
        std::thread([&] {
            other = late.lock(0) == 0 && late.unlock() == 0 ? late.unlock() : -1;
        }).join();
        return free && kept && other == EPERM && late.lock(0) == 0 ? 0 : 1;
    });
    step = 2;
    holder.join();
    EXPECT_EQ(status, 0);
}

#ifdef CLONE_NEWPID
TEST(Mutex, IsFreeInAChildThatHasTheNumberOfItsParent)
{
    constexpr int kNoNamespace = 77;
    const auto first = [&] {
        psMutex_t theirs;
        std::atomic<bool> held = false;
        std::thread([&] {
            theirs.lock();
            held = true;
            pause();
        }).detach();
        while (!held)
            std::this_thread::yield();
        const pid_t number = getpid();
        return unshare(CLONE_NEWPID) != 0 ? kNoNamespace : keel::test::inChild([&] {
            return number == getpid() && theirs.lock(0) == 0 ? 0 : 1;
        });
    };
    // Whoever has made a namespace cannot make threads any more.
    const int status = keel::test::inChild(
        [&] { return unshare(CLONE_NEWPID) != 0 ? kNoNamespace : keel::test::inChild(first); });
    if (status == kNoNamespace)
        GTEST_SKIP() << "no namespace can be made";
    EXPECT_EQ(status, 0);
}
#endif

TEST(Condition, GivesUpARecursivelyHeldMutexAndTakesItBack)
{
    psMutex_t mutex;
    psCondition_t condition;
    int turns = 0;
    EXPECT_EQ(condition.wait(mutex), EPERM);
    mutex.lock();
    mutex.lock();
    std::thread other([&] {
        psMutexGuard guard(mutex);
        ++turns;
        condition.broadcast();
    });
    while (turns == 0)
        ASSERT_EQ(condition.wait(mutex), 0);
    other.join();
    EXPECT_EQ(condition.waitFor(mutex, 1), ETIMEDOUT);
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_EQ(mutex.unlock(), EPERM) << "held as often as before the wait";
}

TEST(TrackedMemory, CountsWhatIsOutstanding)
{
    const utMemStats before = utMemOutstanding();
    auto *text = static_cast<char *>(utMalloc(10));
    std::strcpy(text, "kept");
    text = static_cast<char *>(utRealloc(text, 100'000));
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(utMemOutstanding().blocks, before.blocks + 1);
    EXPECT_EQ(utMemOutstanding().bytes, before.bytes + 100'000);
    utMemFailAfter(1);
    EXPECT_EQ(utRealloc(text, 200'000), nullptr);
    EXPECT_STREQ(text, "kept") << "a failed growth leaves the block";
    utFree(text);
    const utOwned<char> copy(utStrdup("copy"));
    EXPECT_STREQ(copy.get(), "copy") << "it fails once only";
    EXPECT_EQ(utCalloc(SIZE_MAX / 2, 3), nullptr);
    EXPECT_EQ(utMalloc(SIZE_MAX), nullptr);
    EXPECT_GE(utMemOutstanding().peakBytes, before.bytes + 100'000);
    EXPECT_EQ(utMemOutstanding().bytes, before.bytes + 5);
}
} // namespace
