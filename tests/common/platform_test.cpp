// Threads and memory.
#include "common/thrd/psmutex.h"
#include "common/ut/utmem.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

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
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const bool free = theirs.lock() == 0 && theirs.unlock() == 0 && theirs.lock(0) == 0;
        const bool kept = ours.unlock() == 0 && ours.unlock() == EPERM && ours.lock(0) == 0;
        // A new thread, which gets the memory of the one that held it.
        int other = 0;
        std::thread([&] {
            other = late.lock(0) == 0 && late.unlock() == 0 ? late.unlock() : -1;
        }).join();
        _exit(free && kept && other == EPERM && late.lock(0) == 0 ? 0 : 1);
    }
    step = 2;
    holder.join();
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

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

TEST(Mutex, GuardsACounterOfManyThreads)
{
    psMutex_t mutex;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 5000; ++n) {
                psMutexGuard outer(mutex);
                psMutexGuard inner(mutex);
                ++counter;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(counter, 20000);
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
