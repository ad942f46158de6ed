// The table of contexts, which the exported calls never bring beyond one entry.

#include "agents/oracle/common/context/orcblock.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "common/ut/utmem.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>

class TableTest : public ::testing::Test
{
protected:
    ~TableTest() override { FreeOrcBlock(); }
};

TEST_F(TableTest, GrowsToTwoEntriesAndNoFurther)
{
    for (int round = 0; round < 2; ++round) { // a table made again starts from one entry
        EXPECT_EQ(-1, SearchOrcBlock(1));
        EXPECT_EQ(0, InitOrcBlock());
        EXPECT_EQ(65535, InitOrcBlock());
        EXPECT_EQ(1, arraySize);
        EXPECT_EQ(0, AddOrcBlock());
        char *scratch = pOrcBlock[0].strP;
        EXPECT_EQ(0, AddOrcBlock());
        EXPECT_EQ(2, arraySize);
        EXPECT_EQ(2522, AddOrcBlock());
        EXPECT_EQ(2, arraySize);
        EXPECT_EQ(0, SearchOrcBlock(1)) << "the lowest of this process";
        EXPECT_EQ(0, DelOrcBlock());
        EXPECT_EQ(1, SearchOrcBlock(0));
        EXPECT_EQ(0, AddOrcBlock());
        EXPECT_EQ(scratch, pOrcBlock[0].strP) << "kept for the next owner of the entry";
        EXPECT_EQ(0, DelOrcBlock());
        EXPECT_EQ(0, DelOrcBlock());
        EXPECT_EQ(2014, DelOrcBlock());
        FreeOrcBlock();
    }
}

TEST_F(TableTest, KeepsAContextOnlyForItsProcess)
{
    const auto context = std::make_unique<orcObj_t>();
    context->state = ORC_STATE_IDLE;
    context->blockSize = 4711;
    const std::uint64_t blocks = utMemOutstanding().blocks;
    EXPECT_EQ(0, InsertCtxBlock(*context));
    EXPECT_EQ(0, InitOrcBlock());
    EXPECT_EQ(0, InsertCtxBlock(*context)); // no entry yet: nothing happens
    EXPECT_EQ(0, AddOrcBlock());
    EXPECT_EQ(0, InsertCtxBlock(*context));
    EXPECT_EQ(0, InsertCtxBlock(*context)); // in place of the first copy
    EXPECT_EQ(4711U, pOrcBlock[0].orcCtxP->blockSize);
    EXPECT_EQ(static_cast<std::uint32_t>(ORC_STATE_IDLE), pOrcBlock[0].ctxState);
    pOrcBlock[0].BlockID = static_cast<std::uint32_t>(getppid());
    EXPECT_EQ(-1, SearchOrcBlock(0));
    EXPECT_EQ(2014, DelOrcBlock());
    EXPECT_EQ(4711U, pOrcBlock[0].orcCtxP->blockSize);
    FreeOrcBlock();
    EXPECT_EQ(blocks, utMemOutstanding().blocks);
}

TEST_F(TableTest, BoundsTheNameOfAnEntry)
{
    std::uint16_t state = 9;
    char name[sizeof(orcBlock_t::fileName)] = "untouched";
    AccessOrcBlock(&state, name);
    EXPECT_EQ(9, state);
    EXPECT_STREQ("untouched", name);
    ASSERT_EQ(0, InitOrcBlock());
    ASSERT_EQ(0, AddOrcBlock());
    EXPECT_EQ(0, InsertOrcHandle(5));
    EXPECT_EQ(5U, pOrcBlock[0].orcHandle);
    UpdateOrcBlock(3, std::string(500, 'x').c_str());
    AccessOrcBlock(&state, name);
    EXPECT_EQ(3, state);
    EXPECT_LT(std::string(name, strnlen(name, sizeof name)).size(), sizeof name);
    EXPECT_EQ(nullptr, pOrcBlock[0].orcCtxP);
    EXPECT_EQ(0, DelOrcBlock());
    ASSERT_EQ(0, AddOrcBlock());
    AccessOrcBlock(&state, name);
    EXPECT_EQ(0, state);
    EXPECT_STREQ("", name) << "the next owner of the entry has no file yet";
}

// Neither a catalogue nor the storage client, nor memory for a text of ours.
TEST(FailureText, IsThereWithoutMemory)
{
    char text[ORC_ERRTEXT_SIZE] = "";
    utMemFailAfter(1);
    veloGetApiMsg(0, 0, 7, text);
    utMemFailAfter(-1);
    EXPECT_STREQ("RBQ0003S An internal processing error has occurred", text);
}
