// A channel that runs out of memory: whichever allocation fails, the calls say so or go on without,
// what was acknowledged is stored, and nothing leaks.

#include "agents/oracle/common/orcobj.h"
#include "common/ut/utmem.h"
#include "tests/agent/agent_fixture.h"

class MemoryTest : public ScriptedAgentTest
{
protected:
    MemoryTest()
    {
        // The agent that is linked into this program, whose memory can be watched.
#define OWN(name) agent.name = ::name;
        AGENT_CALLS(OWN)
        installation.configureAgent({"VELO_TEST_FLAGS TEST_BUFFERORACLEDATA=2"});
    }

    /// A whole channel, in which a call that fails is made good by the next sbtclose2.
    void liveOneLife(const std::string &data)
    {
        std::string traceName = path("rman.trc");
        const sbtPair items[] = {{SBTINIT_TRACEFILE, traceName.data()}, {SBTINIT_END, nullptr}};
        std::uint64_t level = 2;
        const sbtPair items2[] = {{SBTINIT2_TRACELEVEL, &level}, {SBTINIT2_END, nullptr}};
        sbtInitError error{};
        if (agent.sbtinit(&error, items, &initOut) != 0) {
            EXPECT_EQ(SBT_INIT_FAILED, error.code);
            EXPECT_NE(0U, error.secondary);
            return;
        }
        memory.assign(1048576, '\0');
        ctx = memory.data();
        ASSERT_EQ(0, agent.sbtinit2(ctx, 0, items2));
        if (const std::string failure = backUp("piece", data, {.blockSize = 100});
            failure.empty()) {
            EXPECT_TRUE(client.objects["/lumoorc//piece"].data == data);
        } else {
            EXPECT_EQ("sbtbackup 7501", failure);
            close();
            EXPECT_EQ(0U, client.objects.count("/lumoorc//piece"));
        }
        const std::string answer = info({"missing", "other"});
        if (answer != "1=missing 8 1=other 8 9999") {
            EXPECT_EQ("sbtinfo2 7501", answer);
            EXPECT_EQ(0U, errorText().find("RBQ2522E")) << errorText();
        }
        if (const std::string failure = remove({"piece", "missing"}); !failure.empty()) {
            EXPECT_EQ("sbtremove2 7501", failure);
            EXPECT_EQ(ORC_STATE_IDLE, static_cast<orcObj_t *>(ctx)->state);
            EXPECT_EQ(0U, static_cast<orcObj_t *>(ctx)->hoxHandle);
        }
        endChannel();
    }
};

TEST_F(MemoryTest, FailsCleanlyWhicheverAllocationFails)
{
    const std::string data = keel::test::randomBytes(500, 1);
    const utMemStats before = utMemOutstanding();
    bool reached = true; // the allocation that was to fail
    long failing = 0;
    while (reached && ++failing < 1000) {
        SCOPED_TRACE(failing);
        client.objects.clear();
        utMemFailAfter(failing);
        liveOneLife(data);
        for (long i = 0; reached && i < failing; ++i) {
            void *block = utMalloc(1);
            reached = block != nullptr;
            utFree(block);
        }
        EXPECT_EQ(before.blocks, utMemOutstanding().blocks);
        EXPECT_EQ(before.bytes, utMemOutstanding().bytes);
    }
    utMemFailAfter(-1);
    EXPECT_GT(failing, 20);
    EXPECT_LT(failing, 1000);
}
