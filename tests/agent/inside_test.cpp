// What happens to a call that is inside the storage client while another thread of the host begins
// or ends a channel: it keeps what it uses, and everything that comes later finds nothing.

#include <future>
#include <thread>

#include "tests/agent/agent_fixture.h"
#include "tests/support/child.h"

namespace
{

class InsideTest : public ScriptedAgentTest
{
protected:
    InsideTest()
    {
        installation.configureAgent({"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ALL"});
    }

    /// Runs call in a thread, and meanwhile as soon as it is inside the operation; then lets it go
    /// on.
    void whileInside(const char *operation, const std::function<void()> &call,
                     const std::function<void()> &meanwhile)
    {
        std::promise<void> inside, goOn;
        client.during = operation;
        client.happens = [&] {
            client.during.clear();
            inside.set_value();
            goOn.get_future().wait();
        };
        std::thread thread(call);
        inside.get_future().wait();
        client.calls.clear();
        meanwhile();
        goOn.set_value();
        thread.join();
    }
};

TEST_F(InsideTest, ACallKeepsWhatItUsesWhileASecondChannelIsRefused)
{
    openChannel(2);
    std::string other(memory.size(), '\0');
    ASSERT_EQ("", open("piece"));
    whileInside(
        "hoxSendData", [this] { EXPECT_EQ("", write(std::string(4096, 'x'))); },
        [&] {
            for (int attempt = 0; attempt < 3; ++attempt) // as long as the call is inside
                EXPECT_EQ("7011 65535", initialise());
            EXPECT_EQ(-1, agent.sbtinit2(other.data(), 0, nullptr));
            EXPECT_EQ(-1, agent.sbtbackup(other.data(), 0, "other", nullptr, 4096, 0, 1, 0));
            EXPECT_EQ(0, agent.sbtend(other.data(), 0));
            EXPECT_EQ("", client.story()) << "nothing is cleaned up under it";
        });
    EXPECT_EQ("SendData CleanUp", client.story()) << "the last to leave cleans up";
    EXPECT_EQ("sbtclose2 7501", close());
    EXPECT_EQ("SendData CleanUp", client.story());
    endChannel();
    EXPECT_TRUE(client.objects.empty());
    EXPECT_EQ(1, occurrences(trace(), "Last trace for this session"));
    openChannel();
    EXPECT_EQ("", backUp("piece", std::string(4096, 'x')));
}

TEST_F(InsideTest, ACallKeepsWhatItUsesWhileAnotherContextEnds)
{
    openChannel(2);
    std::string other(memory.size(), '\0');
    ASSERT_EQ(0, agent.sbtinit2(other.data(), 0, nullptr));
    std::string outcome;
    whileInside(
        "hoxGetNextQObj", [&] { outcome = info({"gone"}); },
        [&] { EXPECT_EQ(0, agent.sbtend(other.data(), 0)); });
    EXPECT_EQ("1=gone 8 9999", outcome);
    EXPECT_EQ("GetNextQObj EndQuery Terminate CleanUp", client.story());
    EXPECT_EQ("sbtremove2 7501", remove({"gone"}));
}

TEST_F(InsideTest, AForkedChildBeginsFromNothing)
{
    openChannel(2);
    ASSERT_EQ("", open("parent"));
    int status = -1;
    whileInside( // and nothing that a thread of the parent holds at the fork is in the child's way
        "hoxSendData", [this] { EXPECT_EQ("", write(std::string(4096, 'p'))); },
        [&] {
            status = keel::test::inChild([&] {
                const bool shut = write(std::string(4096, 'c')) == "sbtwrite2 7501" &&
                                  close().empty() && client.story().empty();
                openChannel(2);
                return shut && !HasFailure() && backUp("child", std::string(4096, 'c')).empty() &&
                               agent.sbtend(ctx, 0) == 0
                           ? 0
                           : 1;
            });
        });
    EXPECT_EQ(0, status);
    EXPECT_EQ("", close());
    EXPECT_EQ(1U, client.objects.size());
}

} // namespace
