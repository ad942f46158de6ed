// Many at once over one repository: threads of one process, each with a context of its own, and
// channels in processes of their own.

#include <array>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/agent/agent_fixture.h"

using keel::test::randomBytes;

namespace
{

constexpr unsigned kMany = 4;

TEST_F(RealAgentTest, ServesThreadsThatCallAtOnce)
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

TEST_F(RealAgentTest, SharesARepositoryAmongChannelsOfManyProcesses)
{
    enum Ending { Won, Lost, Wrong };
    int gate[2]; // opens for all of them at once
    ASSERT_EQ(0, pipe(gate));
    std::vector<pid_t> children;
    for (unsigned i = 0; i < kMany; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            ::close(gate[1]);
            openChannel(1);
            char nothing;
            const std::string own = "own " + std::to_string(i);
            bool right = ctx != nullptr && ::read(gate[0], &nothing, 1) == 0;
            for (int piece = 0; right && piece < 5; ++piece)
                right = backUp(own + std::to_string(piece), randomBytes(8192, i)).empty();
            const std::string contest = backUp("wanted by all", randomBytes(8192, i));
            // Who comes second is told by the query, as the transfer starts, or at its end.
            const bool lost = contest == "sbtbackup 7503" || contest == "sbtbackup 7501" ||
                              contest == "sbtclose2 7501";
            right = right && (contest.empty() || (lost && !errorText().empty()));
            EXPECT_TRUE(right) << contest << ": " << errorText();
            endChannel();
            _exit(!right ? Wrong : lost ? Lost : Won);
        }
        children.push_back(child);
    }
    ::close(gate[0]);
    ::close(gate[1]);
    unsigned winner = kMany, winners = 0;
    for (unsigned i = 0; i < kMany; ++i) {
        int status = -1;
        waitpid(children[i], &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != Wrong) << errorLog();
        if (status == Won) {
            winner = i;
            ++winners;
        }
    }
    EXPECT_EQ(1U, winners);
    openChannel();
    std::string data;
    EXPECT_EQ("", restore("wanted by all", data));
    EXPECT_TRUE(data == randomBytes(8192, winner));
    for (unsigned i = 0; i < 5 * kMany; ++i) {
        const std::string own = "own " + std::to_string(i / 5) + std::to_string(i % 5);
        EXPECT_EQ("", restore(own, data)) << own;
        EXPECT_TRUE(data == randomBytes(8192, i / 5)) << own;
    }
}

} // namespace
