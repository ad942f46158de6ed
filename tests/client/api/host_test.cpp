// The storage client in a host: one that brings libraries of its own, whose threads live on, that
// opens and closes it again and again.
#include "tests/client/api/client_fixture.h"
#include "tests/support/child.h"

#include <atomic>
#include <barrier>
#include <condition_variable>
#include <dlfcn.h>
#include <functional>
#include <malloc.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <semaphore>
#include <thread>
#include <unistd.h>
#include <vector>

static std::atomic<int> stopAt = 0; // the lock, from now on, with which a thread of the host stops
static std::binary_semaphore stopped{0}, mayGoOn{0};

/// Of the host, in place of the C library's.
extern "C" int pthread_rwlock_wrlock(pthread_rwlock_t *lock)
{
    using Take = int (*)(pthread_rwlock_t *);
    static const Take take = reinterpret_cast<Take>(dlsym(RTLD_NEXT, "pthread_rwlock_wrlock"));
    const int code = take(lock);
    if (stopAt > 0 && --stopAt == 0) {
        stopped.release();
        mayGoOn.acquire();
    }
    return code;
}

namespace keel::test
{

namespace
{

TEST(ClientLibraryTest, GoesWithItsOwnLibrariesWhateverTheHostHas)
{
    // The other case runs over these, too; whoever calls one of them dies.
    for (const char *name : {"ZSTD_compress2", "sqlite3_open_v2", "EVP_EncryptInit_ex"}) {
        void *const before = dlsym(RTLD_DEFAULT, name);
        ASSERT_NE(before, nullptr) << name;
        const ClientLibrary api;
        EXPECT_EQ(dlsym(RTLD_DEFAULT, name), before);
    }
    const ProgramResult wanted =
        run({"nm", "-D", "--undefined-only", "--format=posix", clientLibrary()});
    EXPECT_EQ(wanted.out.find("ZSTD_"), std::string::npos);
    EXPECT_EQ(wanted.out.find("sqlite3_"), std::string::npos);
    EXPECT_EQ(wanted.out.find("EVP_"), std::string::npos);
}

// A thread of the host is stopped with a lock of the cipher library at the fork, in the middle of
// its start or later on. Comes before all that uses that library in this process.
using ForkedHostTest = ClientTest;

TEST_F(ForkedHostTest, NeedsNoLockThatAThreadOfTheParentHolds)
{
    const std::string stream = randomBytes(100'000, 2);
    const auto restored = [&] {
        hoxHandle_t own = 0;
        return logOn(own, nullptr, nullptr, nullptr) == HOX_RC_OK &&
               restore(own, "kept", 65536) == stream;
    };
    ASSERT_EQ(inChild([&] { return backUp(logOn(), "kept", stream) == HOX_RC_OK ? 0 : 1; }), 0);
    const auto childOfOneThatStops = [&](bool later, int lock) {
        if (later && !restored())
            return 2;
        stopAt = lock;
        bool done = false;
        std::thread other([&] {
            done = restored();
            if (stopAt > 0) // it takes fewer
                stopped.release();
        });
        stopped.acquire();
        const int missed = stopAt.exchange(0);
        const int status = inChild([&] {
            alarm(60); // that it does not hang is what is shown
            bool good[2] = {false, false};
            std::thread beside([&] { good[0] = restored(); });
            good[1] = restored();
            beside.join();
            return good[0] && good[1] ? inChild([&] { return restored() ? 0 : 3; }) : 4;
        });
        mayGoOn.release();
        other.join();
        return missed != 0 ? 5 : done ? status : 6;
    };
    for (const int lock : {1, 5, 20, 40, 80, 120, 400, 800, 1200})
        EXPECT_EQ(inChild([&] { return childOfOneThatStops(false, lock); }), 0) << lock;
    for (const int lock : {1, 2, 5})
        EXPECT_EQ(inChild([&] { return childOfOneThatStops(true, lock); }), 0) << "later: " << lock;
}

TEST_F(ForkedHostTest, EveryThreadOfAChildFindsWhatTheParentSet)
{
    const auto manyAtOnce = [&] {
        std::barrier together(4);
        std::atomic<int> refused = 0;
        const auto ask = [&] {
            auto options = std::make_unique<optStruct>();
            together.arrive_and_wait();
            refused += api_.hoxQueryCliOptions(options.get()) != HOX_RC_OK;
        };
        {
            std::vector<std::jthread> threads;
            for (int count = 0; count < 4; ++count)
                threads.emplace_back(ask);
        }
        return refused.load();
    };
    for (int round = 0; round < 300; ++round)
        ASSERT_EQ(inChild(manyAtOnce), 0) << round;
}

/// A thread of the host, which goes on when the library has gone.
class HostThread
{
public:
    HostThread() : thread_([this] { work(); }) {}
    ~HostThread()
    {
        perform({});
        thread_.join();
    }

    /// On this thread; returns when it is done. Nothing to do: the end.
    void perform(std::function<void()> task)
    {
        std::unique_lock lock(mutex_);
        task_ = std::move(task);
        given_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return !given_; });
    }

private:
    void work()
    {
        std::unique_lock lock(mutex_);
        for (bool more = true; more;) {
            changed_.wait(lock, [&] { return given_; });
            more = static_cast<bool>(task_);
            if (more)
                task_();
            given_ = false;
            changed_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> task_;
    bool given_ = false;
    std::thread thread_;
};

class HostTest : public ClientTest
{
protected:
    struct Held {
        std::size_t descriptors, threads, memory;
    };
    static Held held()
    {
        const auto entries = [](const char *directory) {
            const std::filesystem::directory_iterator all(directory);
            return static_cast<std::size_t>(std::distance(begin(all), end(all)));
        };
        return {entries("/proc/self/fd"), entries("/proc/self/task"), mallinfo2().uordblks};
    }

    void reopen()
    {
        std::destroy_at(&api_);
        std::construct_at(&api_);
        ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
    }
};

TEST_F(HostTest, OpensAndClosesItAThousandTimesWhileItsThreadsLiveOn)
{
    HostThread threads[3];
    const std::string stream = randomBytes(100'000, 1);
    Held early{};
    for (int round = 0; round < 1000; ++round) {
        threads[round % 3].perform([&] {
            reopen();
            if (round % 20 != 0)
                return;
            const hoxHandle_t handle = logOn();
            EXPECT_EQ(backUp(handle, std::to_string(round), stream), HOX_RC_OK);
            EXPECT_EQ(restore(handle, std::to_string(round), 65536), stream);
            // Every other time the session is left to the clean-up.
            if (round % 40 == 0) {
                EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
            }
        });
        EXPECT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
        if (round == 200)
            early = held();
    }
    const Held late = held();
    EXPECT_EQ(late.descriptors, early.descriptors);
    EXPECT_EQ(late.threads, early.threads);
    // What the C library itself keeps for threads that came and went moves a little.
    EXPECT_LT(late.memory, early.memory + 128 * 1024);
}

} // namespace

} // namespace keel::test
