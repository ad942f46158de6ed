// The storage client in a host: one that brings libraries of its own, whose threads live on, that
// opens and closes it again and again.
#include "tests/client/api/client_fixture.h"

#include <condition_variable>
#include <dlfcn.h>
#include <functional>
#include <malloc.h>
#include <memory>
#include <mutex>
#include <thread>

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
