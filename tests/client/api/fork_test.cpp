// A host that forks while sessions are in the middle of something: its child has none of their
// threads, and whatever it calls with their handles is refused at once and harms nothing.
#include "tests/client/api/client_fixture.h"
#include "tests/support/child.h"

namespace keel::test
{

namespace
{

using ForkTest = ClientTest;

TEST_F(ForkTest, HandlesOfTheParentAreNoneInItsChild)
{
    const hoxHandle_t sending = logOn(), asking = logOn(), reading = logOn();
    const std::string stream = randomBytes(std::size_t{3} << 20, 7);
    ASSERT_EQ(backUp(reading, "kept", stream), HOX_RC_OK);
    const hox64_t kept = recordOf(reading, "kept").objId;
    ASSERT_EQ(beginGet(reading, kept), HOX_RC_OK);
    std::string room(1000, '\0');
    DataBlk data = blockOf(room);
    ASSERT_EQ(api_.hoxGetObj(reading, &kept, &data), HOX_RC_MORE_DATA);
    ASSERT_EQ(send(sending, "sent", stream), HOX_RC_OK);

    ASSERT_EQ(cached("").size(), 1U);
    const std::string cache = readFile(cached("").front());
    const int wrongCodes = inChild([&] {
        std::uint16_t reason = 0;
        DataBlk more = blockOf(room);
        const int codes[] = {api_.hoxSendData(sending, &more),
                             api_.hoxEndSendObj(sending),
                             api_.hoxEndTxn(sending, HOX_VOTE_COMMIT, &reason),
                             api_.hoxEndTxn(sending, HOX_VOTE_ABORT, &reason),
                             api_.hoxTerminate(sending),
                             api_.hoxEndQuery(asking),
                             api_.hoxTerminate(asking),
                             api_.hoxGetData(reading, &more),
                             api_.hoxEndGetObj(reading),
                             api_.hoxEndGetData(reading),
                             api_.hoxTerminate(reading)};
        int wrong = 0;
        for (const int code : codes)
            wrong += code == HOX_RC_BAD_HANDLE ? 0 : 1;
        // A session of its own is one that none of those handles means.
        hoxHandle_t own = 0;
        wrong += logOn(own, nullptr, nullptr, nullptr) == HOX_RC_OK && own > reading ? 0 : 1;
        const std::string other = randomBytes(300'000, 8);
        wrong += backUp(own, "child's", other) == HOX_RC_OK ? 0 : 1;
        wrong += restore(own, "child's") == other ? 0 : 1;
        const qryObjectsData all = everything();
        int found = 0;
        const int listed =
            ask<qryRespBackupData>(own, HOX_QUERY_OBJECTS, &all, [&](auto &) { ++found; });
        wrong += listed == HOX_RC_FINISHED && found == 2 ? 0 : 1;
        wrong += api_.hoxTerminate(own) == HOX_RC_OK && !HasFailure() ? 0 : 1;
        api_.hoxCleanUp(1);
        return wrong;
    });
    EXPECT_EQ(wrongCodes, 0) << "calls with an unexpected code";
    // The locks that SQLite counts as held are the parent's, and the child has none of them.
    EXPECT_EQ(cached("").size(), 1U) << "the child opened files of the host's cache";
    EXPECT_EQ(readFile(cached("").front()), cache);

    EXPECT_EQ(commit(sending), HOX_RC_OK) << "the parent's files were left alone";
    EXPECT_EQ(api_.hoxEndGetObj(reading), HOX_RC_OK);
    EXPECT_EQ(api_.hoxEndGetData(reading), HOX_RC_OK);
    EXPECT_EQ(restore(asking, "sent", 1 << 20), stream);
}

} // namespace

} // namespace keel::test
