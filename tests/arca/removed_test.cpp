// What was removed comes back, for as long as it is said to, and what is lost is not taken for what
// was removed.
#include "tests/arca/arca_fixture.h"

#include <ctime>
#include <set>
#include <time.h>

// The second that the library in this host sees; 0: the system's.
static std::time_t second = 0;

extern "C" std::time_t time(std::time_t *result) noexcept
{
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const std::time_t told = second != 0 ? second : now.tv_sec;
    if (result != nullptr)
        *result = told;
    return told;
}

namespace keel::test
{

namespace
{

using UndeleteTest = ArcaTest;

namespace fs = std::filesystem;

TEST_F(UndeleteTest, ARemovedPieceComesBackUntilReclaimingPurgesIt)
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

    writeFile(stored("removed").front(), "damaged");
    for (const Words &words :
         {Words{"reclaim", "--grace", "0", "--dry-run"}, {"reclaim", "--grace", "0"}}) {
        const auto told = arcaJson(words);
        EXPECT_EQ(told["purgedPieces"], 2) << told;
        EXPECT_EQ(told["purgedDamaged"], 1) << told;
    }
    EXPECT_EQ(listed({"--removed"}), "");
    EXPECT_EQ(restore(handle, "df_1"), "newer");
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 0);
}

// Of those removed in one second the one that was stored last, if that can be told.
TEST_F(UndeleteTest, UndeletesOfOneNameTheLastOrAsksWhichOne)
{
    const std::time_t now = std::time(nullptr);
    const hoxHandle_t handle = logOn();
    const auto gone = [&](const char *piece, const char *stream, std::time_t stored,
                          std::time_t removed) {
        second = now - stored;
        store(handle, piece, stream);
        second = now - removed;
        EXPECT_EQ(remove(handle, piece), HOX_RC_OK);
        second = 0;
    };
    for (const char *piece : {"told", "tie", "older tie"})
        gone(piece, "one", 9, 5);
    gone("told", "two", 8, 5);
    gone("tie", "two", 9, 5);
    gone("older tie", "two", 9, 5);
    gone("older tie", "three", 6, 4);
    for (const auto &[piece, back] : {std::pair("told", "two"), {"older tie", "three"}}) {
        ASSERT_EQ(arca({"undelete", piece}).status, 0) << piece;
        EXPECT_EQ(restore(handle, piece), back);
    }
    const ProgramResult tie = arca({"undelete", "tie"});
    EXPECT_EQ(tie.status, 1);
    EXPECT_NE(tie.err.find("take one by --id"), std::string::npos) << tie.err;
}

TEST_F(UndeleteTest, TheGraceTimeIsTheRepositorysAndMayBeChanged)
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

/// The defaults would let go what the records keep.
TEST_F(UndeleteTest, RecordsFromTheBeginningThatAreLostPurgeAndExpireNothing)
{
    ASSERT_EQ(arca({"grace", "90d"}).status, 0);
    ASSERT_EQ(arca({"class", "change", "STANDARD", "--versions", "9"}).status, 0);
    EXPECT_EQ(stored("options").size() + stored("classes").size(), 2U) << "the newest is the last";
    const hoxHandle_t handle = logOn();
    store(handle, "p", "x");
    ASSERT_EQ(arca({"rm", "p", "--yes"}).status, 0);
    for (int version = 0; version < 3; ++version) {
        store(handle, "q", "x");
        ASSERT_EQ(arca({"rm", "q", "--deactivate", "--yes"}).status, 0);
    }
    for (const char *room : {"options", "classes"})
        fs::remove_all(installation_.repository() / room);

    EXPECT_EQ(arcaJson({"verify"}, 1)["hurt"].size(), 2U);
    EXPECT_EQ(arcaJson({"reclaim"})["graceDamaged"], true);
    EXPECT_EQ(arcaJson({"ls", "--removed"}, 1)["count"], 1);
    EXPECT_EQ(arcaJson({"expire", "--yes"}, 1)["expired"], 0);
    store(handle, "r", "stored all the same");

    EXPECT_EQ(arca({"grace", "0"}).status, 0);
    for (const char *part : {"--versions", "--days"})
        EXPECT_EQ(arca({"class", "change", "STANDARD", part, "1"}).status, 1);
    EXPECT_EQ(arca({"class", "change", "STANDARD", "--versions", "1", "--days", "1"}).status, 0);
    EXPECT_EQ(arcaJson({"expire", "--yes"})["expired"], 2);
    EXPECT_EQ(arcaJson({"reclaim"})["purgedPieces"], 3);
    EXPECT_EQ(arca({"verify"}).status, 0);

    writeFile(installation_.repository() / "defaults", "damaged");
    EXPECT_EQ(arcaJson({"verify"}, 1)["hurt"].size(), 1U);
    EXPECT_EQ(arca({"init"}).status, 0);
    EXPECT_EQ(arca({"rm", "--blob", "defaults", "--yes"}).status, 0);
    EXPECT_EQ(arca({"init"}).status, 0);
    EXPECT_EQ(arca({"verify"}).status, 0);

    // A repository of an older release is watched from the next arca init on.
    fs::remove_all(installation_.repository() / "options");
    fs::remove(installation_.repository() / "defaults");
    EXPECT_EQ(arca({"verify"}).status, 0);
    EXPECT_EQ(arca({"init"}).status, 0);
    EXPECT_EQ(arcaJson({"grace"})["graceSeconds"], 7 * 86400);
    fs::remove_all(installation_.repository() / "options");
    EXPECT_EQ(arca({"verify"}).status, 1);
}

TEST_F(UndeleteTest, LostManifestsStopReclaimingAndFailVerifying)
{
    const hoxHandle_t handle = logOn();
    for (const char *piece : {"a", "b"})
        store(handle, piece, std::string(50000, *piece));
    fs::remove_all(installation_.repository() / "pieces");
    const auto packs = stored("packs");
    for (const Words &verb :
         {Words{"reclaim", "--dry-run"}, Words{"reclaim", "--accept-missing", "other"}}) {
        EXPECT_EQ(arca(verb).status, 1) << testing::PrintToString(verb);
        EXPECT_EQ(stored("packs"), packs);
    }
    EXPECT_EQ(arcaJson({"verify"}, 1)["missing"], 2);
    EXPECT_EQ(arcaJson({"reclaim", "--accept-missing", "testnode"})["missingPieces"], 2);
    EXPECT_TRUE(stored("packs").empty());
    EXPECT_EQ(arca({"verify"}).status, 0);
}

/// A copy of a repository that was restored in part, or that was tidied by hand.
TEST_F(UndeleteTest, WhateverDirectoryIsGoneNothingIsCalledProvenOrDeletedThatShouldNotBe)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(arca({"class", "define", "GOLD", "--versions", "9"}).status, 0);
    for (const char *piece : {"a", "b", "inactive", "removed"})
        store(handle, piece, std::string(50000, *piece) + piece, "GOLD");
    ASSERT_EQ(changeById(handle, HOX_DEACTIVATE_BACKUP_ID, recordOf(handle, "inactive").objId), 0);
    ASSERT_EQ(remove(handle, "removed"), HOX_RC_OK);
    ASSERT_EQ(arca({"access", "grant", "other", "--filespace", "/fs"}).status, 0);
    ASSERT_EQ(arca({"grace", "20d"}).status, 0);
    ASSERT_EQ(arca({"verify"}).status, 0);

    const fs::path root = installation_.repository(), kept = root.string() + "-kept";
    fs::rename(root, kept);
    const struct {
        const char *room, *to; ///< to: nowhere, or another room
        int verify, reclaim;
        const char *said; ///< by verify
    } cases[] = {
        {"access", "", 0, 0, "Proven"},
        {"classes", "", 1, 0, "and is lost"},
        {"defaults", "", 0, 0, "Proven"},
        {"filespaces", "", 1, 1, "the record of the filespace /fs is not there"},
        {"format", "", 1, 1, "there is no repository"},
        {"inactive", "", 1, 1, "1 piece was stored and never purged"},
        {"inventory", "", 1, 0, "nothing says how many pieces there should be"},
        {"keys", "", 1, 0, "keys/recovery"},
        {"nodes", "", 1, 1, "the node testnode is not registered"},
        {"options", "", 1, 0, "and is lost"},
        {"packs", "", 1, 0, "hurt: 4 pieces"},
        {"pieces", "", 1, 1, "2 pieces were stored and never purged"},
        {"removed", "", 1, 1, "1 piece was stored and never purged"},
        {"pieces", "coming", 1, 1, "2 pieces were stored and never purged"},
        {"pieces", "inactive", 1, 1, "2 pieces were stored and never purged"},
        {"pieces", "removed", 1, 1, "2 pieces were stored and never purged"},
        {"pieces", "quarantine", 1, 1, "2 pieces were stored and never purged"},
        {"inactive", "pieces", 1, 1, "1 piece was stored and never purged"},
        {"inactive", "coming", 1, 1, "1 piece was stored and never purged"},
        {"removed", "pieces", 1, 1, "1 piece was stored and never purged"},
        {"removed", "inactive", 1, 1, "1 piece was stored and never purged"},
    };
    const auto contents = [&] {
        std::multiset<std::string> held;
        for (const char *room : {"coming", "inactive", "packs", "pieces", "quarantine", "removed"})
            for (const fs::path &file : stored(room))
                held.insert(readFile(file));
        return held;
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.room) + " to " + c.to);
        fs::remove_all(root);
        fs::copy(kept, root, fs::copy_options::recursive);
        const fs::path away = root.string() + "-away";
        fs::remove_all(away);
        fs::rename(root / c.room, away);
        if (*c.to != '\0')
            fs::copy(away, root / c.to, fs::copy_options::recursive);
        const auto before = contents();
        const ProgramResult verified = arca({"verify"});
        EXPECT_EQ(verified.status, c.verify) << verified.out << verified.err;
        EXPECT_NE((verified.out + verified.err).find(c.said), std::string::npos)
            << verified.out << verified.err;
        EXPECT_EQ(verified.out.find("Proven") == std::string::npos, c.verify != 0);
        const ProgramResult reclaimed = arca({"reclaim"});
        EXPECT_EQ(reclaimed.status, c.reclaim) << reclaimed.out << reclaimed.err;
        (void)backUp(handle, "a", "another one of its name");
        (void)arca({"reclaim"});
        const auto after = contents();
        EXPECT_TRUE(std::ranges::includes(after, before)) << "something was deleted";
    }
}

} // namespace

} // namespace keel::test
