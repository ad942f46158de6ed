// Many at once over one repository: threads of one process, each with a context of its own.

#include <array>
#include <thread>

#include "tests/agent/agent_fixture.h"

using keel::test::randomBytes;

namespace
{

using ConcurrencyTest = RealAgentTest;

constexpr unsigned kMany = 4;

TEST_F(ConcurrencyTest, ServesThreadsThatCallAtOnce)
{
    installation.configureAgent(
        {"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ALL", "VELO_TRACE_MAX 1"});
    openChannel(2);
    std::array<std::string, kMany> contexts;
    for (std::string &context : contexts) {
        context.assign(memory.size(), '\0');
        ASSERT_EQ(0, agent.sbtinit2(context.data(), 0, nullptr));
    }
    const auto liveOn = [&](unsigned number) {
        void *mine = contexts[number].data();
        std::string name = "piece " + std::to_string(number), sent = randomBytes(40000, number);
        char *names[] = {name.data(), nullptr};
        std::string outcome, back(sent.size(), '\0');
        for (int round = 0; round < 3; ++round) {
            int failures = -agent.sbtbackup(mine, 0, name.data(), nullptr, 8000, 0, 1, 0);
            for (std::size_t at = 0; at < sent.size(); at += 8000)
                failures -= agent.sbtwrite2(mine, 0, sent.data() + at);
            failures -= agent.sbtclose2(mine, 0) + agent.sbtrestore(mine, 0, name.data(), 8000);
            for (std::size_t at = 0; at < back.size(); at += 8000)
                failures -= agent.sbtread2(mine, 0, back.data() + at);
            sbtPair *items = nullptr;
            failures -= agent.sbtclose2(mine, 0) + agent.sbtinfo2(mine, 0, names, &items);
            const bool right =
                items != nullptr && items[1].code == SBTBFINFO_METHOD && back == sent;
            EXPECT_EQ(-1, agent.sbtcommand(nullptr, 0, nullptr)); // told in the error log
            failures -= agent.sbtremove2(mine, 0, names);
            EXPECT_TRUE(right && failures == 0) << name << ", round " << round << ": " << failures;
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kMany; ++i)
        threads.emplace_back(liveOn, i);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(static_cast<int>(3 * kMany), occurrences(errorLog(), "RBQ2539S")) << errorLog();
    EXPECT_EQ(0, occurrences(trace(), "(Lost Message Hdr)"));
    for (std::string &context : contexts)
        EXPECT_EQ(0, agent.sbtend(context.data(), 0));
}

} // namespace
