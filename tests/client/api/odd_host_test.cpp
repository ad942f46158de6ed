// The storage client in a process that is short of what processes usually have: standard
// descriptors, descriptors at all, room in files. It never dies, never hangs, and what it stores
// holds nothing of what the host prints meanwhile.
#include "tests/client/api/client_fixture.h"
#include "tests/support/child.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace keel::test
{

namespace
{

class OddHostTest : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK); // registers the filespace
        ASSERT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
    }

    int logOnQuietly(hoxHandle_t &handle)
    {
        return ClientTest::logOn(handle, nullptr, nullptr, " ");
    }

    int list(hoxHandle_t handle)
    {
        const qryObjectsData asked = everything();
        return ask<qryRespBackupData>(handle, HOX_QUERY_OBJECTS, &asked, [](auto &) {});
    }

    /// The open descriptors that a program that is started would inherit.
    static std::set<int> inherited()
    {
        std::set<int> open;
        for (int descriptor = 0; descriptor < 256; ++descriptor)
            if (const int flags = fcntl(descriptor, F_GETFD);
                flags >= 0 && (flags & FD_CLOEXEC) == 0)
                open.insert(descriptor);
        return open;
    }
};

TEST_F(OddHostTest, StandardDescriptorsThatAreClosedAreNeverOurs)
{
    const std::string stream = randomBytes(3'000'000, 1);
    for (int closed = 1; closed < 8; ++closed) {
        const int status = inChild([&] {
            for (int descriptor = 0; descriptor < 3; ++descriptor)
                if ((closed & 1 << descriptor) != 0)
                    (void)close(descriptor);
            const std::set<int> brought = inherited();
            // A host that prints all the time: it must fail as if nothing of ours were there.
            std::atomic<bool> over = false, went = false;
            std::thread printing([&] {
                while (!over)
                    for (int descriptor = 0; descriptor < 3; ++descriptor)
                        if ((closed & 1 << descriptor) != 0)
                            went = went || write(descriptor, "a line of the host\n", 19) > 0;
            });
            const std::string piece = "closed" + std::to_string(closed);
            hoxHandle_t handle = 0;
            int step = setUp(installation_.clientOptions()) == HOX_RC_OK &&
                               logOnQuietly(handle) == HOX_RC_OK
                           ? 0
                           : 2;
            if (step == 0 && (send(handle, piece, stream) != HOX_RC_OK || inherited() != brought))
                step = 3;
            if (step == 0 && (commit(handle) != HOX_RC_OK || restore(handle, piece) != stream ||
                              list(handle) != HOX_RC_FINISHED))
                step = 4;
            if (step == 0 && api_.hoxCleanUp(1) != HOX_RC_OK)
                step = 5;
            over = true;
            printing.join();
            for (int descriptor = 0; descriptor < 3 && step == 0; ++descriptor)
                if ((closed & 1 << descriptor) != 0 && fcntl(descriptor, F_GETFD) >= 0)
                    step = 6;
            return went ? 7 : step;
        });
        EXPECT_EQ(status, 0) << "closed: " << closed;
    }
    ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
    const hoxHandle_t handle = logOn();
    for (int closed = 1; closed < 8; ++closed)
        EXPECT_TRUE(restore(handle, "closed" + std::to_string(closed)) == stream) << closed;
}

TEST_F(OddHostTest, LimitsOfTheProcessEndInAnAnswer)
{
    struct Case {
        decltype(RLIMIT_NOFILE) limit;
        std::vector<rlim_t> values;
    };
    const Case cases[] = {{RLIMIT_NOFILE, {3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 16}},
                          {RLIMIT_FSIZE, {0, 1, 4096, 20'000, 65'536, 500'000}}};
    const std::string stream = randomBytes(1'000'000, 2);
    for (const Case &one : cases)
        for (const rlim_t value : one.values) {
            const int status = inChild([&] {
                if (setUp(installation_.clientOptions()) != HOX_RC_OK)
                    return 1;
                const rlimit limit{value, value};
                if (setrlimit(one.limit, &limit) != 0)
                    return 1;
                hoxHandle_t handle = 0;
                if (logOnQuietly(handle) == HOX_RC_OK) {
                    const std::string piece = "limited" + std::to_string(value);
                    const bool stored = backUp(handle, piece, stream) == HOX_RC_OK;
                    if (stored && one.limit == RLIMIT_FSIZE && restore(handle, piece) != stream)
                        return 2;
                    (void)list(handle);
                }
                return api_.hoxCleanUp(1) == HOX_RC_OK ? 0 : 3;
            });
            EXPECT_EQ(status, 0) << one.limit << ": " << value;
        }
    ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
    EXPECT_EQ(list(logOn()), HOX_RC_FINISHED) << "whatever they left";
}

TEST_F(OddHostTest, ATransactionOfManyObjectsNeedsFewDescriptors)
{
    const auto nameOfObject = [](int i) { return "many" + std::to_string(i); };
    const auto host = [&](int objects, bool commits) {
        const rlimit limit{256, 256};
        hoxHandle_t handle = 0, other = 0;
        if (setUp(installation_.clientOptions()) != HOX_RC_OK ||
            setrlimit(RLIMIT_NOFILE, &limit) != 0 || logOnQuietly(handle) != HOX_RC_OK ||
            api_.hoxBeginTxn(handle) != HOX_RC_OK)
            return 1;
        const ObjAttr attr = attributes();
        for (int i = 0; i < objects; ++i) {
            const hoxObjName name = nameOf(nameOfObject(i));
            std::string bytes = nameOfObject(i);
            const auto length = static_cast<std::uint32_t>(i % 250 == 1 ? bytes.size() : 0);
            DataBlk data{HOX_DATABLK_VERSION, length, 0, bytes.data()};
            if (api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, &data) != 0 ||
                api_.hoxEndSendObj(handle) != HOX_RC_OK)
                return 2;
        }
        if (!commits)
            return 0; // it dies
        // Which cleans up behind the dead.
        if (logOnQuietly(other) != HOX_RC_OK || endTransaction(handle, HOX_VOTE_COMMIT) != 0)
            return 3;
        return api_.hoxCleanUp(1) == HOX_RC_OK ? 0 : 4;
    };
    EXPECT_EQ(inChild([&] { return host(5, false); }), 0);
    EXPECT_EQ(stored("tmp").size(), 6U) << "and a claim";
    EXPECT_EQ(inChild([&] { return host(1024, true); }), 0);
    ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
    const hoxHandle_t handle = logOn();
    EXPECT_EQ(stored("tmp").size(), 0U);
    EXPECT_EQ(stored("pieces").size(), 1024U);
    for (const int i : {1, 501, 1001, 1023})
        EXPECT_EQ(restore(handle, nameOfObject(i)), i % 250 == 1 ? nameOfObject(i) : "");
}

// The cancellation is there before each operation; it takes effect after the last one.
TEST_F(OddHostTest, AThreadThatIsCancelledEndsAfterItsOperations)
{
    const std::string stream = randomBytes(3'000'000, 4);
    EXPECT_EQ(
        inChild([&] {
            const std::string options = installation_.clientOptions();
            int step = 2;
            std::thread([&] {
                pthread_cancel(pthread_self());
                hoxHandle_t handle = 0;
                if (setUp(options) == HOX_RC_OK && logOnQuietly(handle) == HOX_RC_OK &&
                    backUp(handle, "cancelled", stream) == HOX_RC_OK &&
                    list(handle) == HOX_RC_FINISHED && restore(handle, "cancelled") == stream &&
                    remove(handle, "cancelled") == HOX_RC_OK && api_.hoxCleanUp(1) == HOX_RC_OK)
                    step = 0;
                pthread_testcancel();
                step = 3;
            }).join();
            return step;
        }),
        0);
}

TEST_F(OddHostTest, TheLocalLogIsWrittenBesideALockThatIsNeverGivenBack)
{
    ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
    writeFile(installation_.errorLog(), "");
    Child holder([&](int told) {
        const int file = open(installation_.errorLog().c_str(), O_RDWR);
        tell(told, lockf(file, F_LOCK, 0) == 0 ? "locked" : "not");
        for (;;)
            pause();
    });
    ASSERT_EQ(holder.hear(), "locked");
    const auto told = event(HOX_LOG_LOCAL, HOX_SEVERITY_INFO, "written all the same");
    EXPECT_EQ(api_.hoxLogEventEx(0, &told, nullptr), HOX_RC_OK);
    EXPECT_NE(readFile(installation_.errorLog()).find("written all the same\n"), std::string::npos);
    (void)holder.end(SIGKILL);

    // A pipe is no log: the host would die of it when nobody reads.
    std::filesystem::remove(installation_.errorLog());
    ASSERT_EQ(mkfifo(installation_.errorLog().c_str(), 0600), 0);
    const int reader = open(installation_.errorLog().c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_EQ(api_.hoxLogEventEx(0, &told, nullptr), HOX_RC_LOG_UNAVAILABLE);
    (void)close(reader);
    std::filesystem::remove(installation_.errorLog());
}

} // namespace

} // namespace keel::test
