// What was removed comes back, for as long as it is said to, and what is lost is not taken for what
// was removed.
#include "tests/arca/arca_fixture.h"

namespace keel::test
{

namespace
{

namespace fs = std::filesystem;

TEST_F(ArcaTest, ARemovedPieceComesBackUntilReclaimingPurgesIt)
{
    const std::string stream(70000, 's');
    const hoxHandle_t handle = logOn();
    store(handle, "df_1", stream);
    store(handle, "df_2", "other");
    ASSERT_EQ(arca({"rm", "df_*", "--yes"}).status, 0);
    EXPECT_EQ(listed({}), "");
    EXPECT_EQ(listed({"--removed"}), "df_1 df_2");
    EXPECT_EQ(listed({"--removed", "*_2"}), "df_2");
    EXPECT_EQ(arca({"ls", "--removed", "none"}).status, 1);
    EXPECT_EQ(arca({"ls", "--removed", "--inactive"}).status, 2);
    EXPECT_EQ(arcaJson({"reclaim"})["freedBytes"], 0);

    EXPECT_EQ(arca({"undelete"}).status, 2);
    EXPECT_EQ(arca({"undelete", "none"}).status, 1);
    const auto back = arcaJson({"undelete", "/fs//df_1"});
    EXPECT_EQ(back["piece"], "df_1");
    EXPECT_NE(back["id"], back["formerId"]);
    EXPECT_EQ(restore(handle, "df_1", 65536), stream);
    EXPECT_EQ(arca({"undelete", "--id", back["formerId"]}).status, 1) << "once";
    ASSERT_EQ(arca({"rm", "df_1", "--yes"}).status, 0);
    store(handle, "df_1", "newer");
    const ProgramResult taken = arca({"undelete", "df_1"});
    EXPECT_EQ(taken.status, 1);
    EXPECT_NE(taken.err.find("exists already"), std::string::npos) << taken.err;

    EXPECT_EQ(arcaJson({"reclaim", "--grace", "0", "--dry-run"})["purgedPieces"], 3);
    EXPECT_EQ(arcaJson({"reclaim", "--grace", "0"})["purgedPieces"], 3);
    EXPECT_EQ(listed({"--removed"}), "");
    EXPECT_EQ(restore(handle, "df_1"), "newer");
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 0);
}

TEST_F(ArcaTest, TheGraceTimeIsTheRepositorysAndMayBeChanged)
{
    EXPECT_EQ(arcaJson({"grace"})["graceSeconds"], 7 * 86400);
    for (const char *wrong : {"", "-1", "1.5d", "soon", "7", "99999w", "0x1d"})
        EXPECT_NE(arca({"reclaim", "--grace", wrong}).status, 0) << wrong;
    EXPECT_EQ(arcaJson({"grace", "12h"})["graceSeconds"], 12 * 3600);
    store(logOn(), "p", "x");
    ASSERT_EQ(arca({"rm", "p", "--yes"}).status, 0);
    EXPECT_EQ(arcaJson({"reclaim"})["keptPieces"], 1);
    EXPECT_EQ(arcaJson({"grace", "0"})["graceSeconds"], 0);
    EXPECT_EQ(arcaJson({"reclaim"})["purgedPieces"], 1);
}

TEST_F(ArcaTest, LostManifestsStopReclaimingAndFailVerifying)
{
    const hoxHandle_t handle = logOn();
    for (const char *piece : {"a", "b"})
        store(handle, piece, std::string(50000, *piece));
    const fs::path pieces = installation_.repository() / "pieces",
                   aside = pieces.string() + "-away";
    fs::rename(pieces, aside);
    const auto packs = stored("packs");
    for (const Words &verb :
         {Words{"reclaim"}, Words{"reclaim", "--grace", "0"}, Words{"reclaim", "--dry-run"},
          Words{"verify"}, Words{"reclaim", "--accept-missing", "other"}}) {
        const ProgramResult refused = arca(verb);
        EXPECT_EQ(refused.status, 1) << testing::PrintToString(verb) << refused.out;
        EXPECT_EQ(stored("packs"), packs);
    }
    EXPECT_EQ(arcaJson({"verify"}, 1)["missing"], 2);
    fs::rename(aside, pieces);
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 0);
    EXPECT_EQ(arca({"reclaim"}).status, 0);
    EXPECT_EQ(restore(handle, "a", 65536), std::string(50000, 'a'));

    fs::remove_all(pieces);
    EXPECT_EQ(arcaJson({"reclaim", "--accept-missing", "testnode"})["missingPieces"], 2);
    EXPECT_TRUE(stored("packs").empty());
    EXPECT_EQ(arca({"verify"}).status, 0);
}

} // namespace

} // namespace keel::test
