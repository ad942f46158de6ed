// A host that forks while a piece is open: the child has the memory of the channel and none of its
// threads.

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>

#include "tests/agent/agent_fixture.h"
#include "tests/support/child.h"

namespace
{

using ForkTest = RealAgentTest;
using keel::test::inChild;

TEST_F(ForkTest, LeavesOpenPiecesToTheParent)
{
    installation.configureAgent(
        {"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ALL", "VELO_TEST_FLAGS TEST_ORACLEDATA"});
    openChannel(2);
    const std::string data = keel::test::randomBytes(4096 * 60, 5);
    ASSERT_EQ("", backUp("kept", data));
    std::atomic<bool> done{false};
    std::thread busy([&] { // in and out of every lock of the agent, at each fork
        while (!done)
            agent.sbtcommand(nullptr, 0, nullptr);
    });
    const auto forked = [this](const char *call) {
        return inChild([&] {
            std::string block(4096, 'c');
            const bool refused = std::string(call) == "sbtwrite2"   ? !write(block).empty()
                                 : std::string(call) == "sbtread2"  ? !read(block).empty()
                                 : std::string(call) == "sbtclose2" ? !close().empty()
                                                                    : agent.sbtend(ctx, 0) == 0;
            const bool told = call == std::string("sbtend") || !errorText().empty();
            return refused && told && agent.sbtend(ctx, 0) == 0 ? 0 : 1;
        });
    };
    ASSERT_EQ("", open("piece"));
    for (std::size_t at = 0; at < data.size(); at += 4096) {
        ASSERT_EQ("", write(data.substr(at, 4096)));
        for (const char *call : {"sbtwrite2", "sbtclose2", "sbtend"})
            EXPECT_EQ(0, at == std::size_t{4096} * 30 ? forked(call) : 0) << call;
    }
    EXPECT_EQ("", close());
    std::string back, block;
    ASSERT_EQ("", openRestore("piece"));
    ASSERT_EQ("", read(back));
    for (const char *call : {"sbtread2", "sbtclose2", "sbtend"})
        EXPECT_EQ(0, forked(call)) << call;
    while (read(block).empty())
        back += block;
    EXPECT_EQ("", close());
    EXPECT_TRUE(back == data);
    done = true;
    busy.join();
    EXPECT_TRUE(data == contents("piece.SEND")) << "the children have written nothing";
}

TEST_F(ForkTest, LetsAChildOpenAChannelOfItsOwn)
{
    openChannel();
    const std::string data = keel::test::randomBytes(4096 * 40, 6);
    ASSERT_EQ("", open("parent"));
    ASSERT_EQ("", write(data.substr(0, 4096)));
    const int status = inChild([&] {
        openChannel();
        std::string back;
        std::string went = backUp("child", data);
        went += restore("child", back);
        endChannel();
        keel::test::writeFile(path("went"), went);
        return HasFailure() || !went.empty() || back != data ? 1 : 0;
    });
    EXPECT_EQ(0, status) << contents("went") << errorLog();
    for (std::size_t at = 4096; at < data.size(); at += 4096)
        ASSERT_EQ("", write(data.substr(at, 4096)));
    EXPECT_EQ("", close());
    for (const char *piece : {"parent", "child"}) {
        std::string back;
        EXPECT_EQ("", restore(piece, back));
        EXPECT_TRUE(back == data) << piece;
    }
}

// Another thread of the parent is inside the C library's conversion of times at the fork: it reads
// the time zone from a pipe, under the lock that the child finds held for ever.
TEST_F(ForkTest, NeedsNoLockOfTheCLibrarysThatAThreadOfTheParentHolds)
{
    installation.configureAgent({"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ALL"});
    openChannel(2);
    ASSERT_EQ("", backUp("piece", std::string(8192, 'x')));
    endChannel();
    ASSERT_EQ(0, mkfifo("zone", 0600));
    setenv("TZ", (":" + path("zone")).c_str(), 1);
    std::thread inside([] { tzset(); });
    int zone = -1;
    while (zone < 0) // until it reads
        zone = ::open("zone", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(0, inChild([this] {
                  openChannel(2);
                  std::string data;
                  const bool good = backUp("other", std::string(8192, 'y')).empty() &&
                                    restore("piece", data).empty() && !info({"piece"}).empty() &&
                                    agent.sbtcommand(nullptr, 0, nullptr) != 0;
                  endChannel();
                  return good ? 0 : 1;
              }));
    ::close(zone);
    inside.join();
    unsetenv("TZ");
}

} // namespace
