// What was stored, and removed, and purged, is told from what was lost: nothing is freed that a
// lost manifest may need, and nothing that went as it should counts as missing.
#include "client/base/text.h"
#include "client/store/pieces/inventory.h"
#include "tests/client/store/removed_fixture.h"

namespace
{

using namespace arca;
using store::PieceId;
using test::blocks;
using test::kAtOnce;
using MissingTest = test::RemovedTest;
using Names = std::vector<std::string>;

TEST_F(MissingTest, PiecesThatAreMissingStopReclaimingUntilTheyAreTakenAsLost)
{
    backUp("more", blocks(4, 90));
    EXPECT_EQ(verified().missing, 0U);
    for (const bool compacted : {false, true}) {
        SCOPED_TRACE(compacted);
        if (compacted)
            reclaim({});
        const auto whole = files_.snapshot();
        removeFiles("/r/pieces/");
        EXPECT_EQ(refusal(kAtOnce), ErrorKind::damaged);
        EXPECT_EQ(verified().missing, 2U);
        EXPECT_FALSE(store::Reclaim(*space_, kAtOnce).plan());
        putBack(whole);
    }
    EXPECT_EQ(verified().missing, 0U);
    expectPiece("more", blocks(4, 90));
    const auto whole = files_.snapshot();
    // Where no note tells what there should be, any manifest may be one of those that got lost.
    for (const bool damaged : {true, false}) {
        for (const std::string &path : files_.paths())
            if (damaged && path.starts_with("/r/inventory/"))
                files_.contentOf(path)[40] ^= 1;
        if (!damaged)
            removeFiles("/r/inventory/");
        removeFiles("/r/pieces/");
        for (const bool accepted : {false, true}) {
            EXPECT_EQ(refusal({.grace = 0, .acceptMissing = accepted}), ErrorKind::damaged);
            EXPECT_EQ(refusal({.grace = 0, .maxFreed = 1, .acceptMissing = accepted}),
                      ErrorKind::damaged);
        }
        space_.reset();
        files_.putBack(whole);
        open();
    }
    removeFiles("/r/pieces/");
    EXPECT_EQ(reclaim({.grace = 0, .acceptMissing = true}).missingPieces, 2U);
    EXPECT_EQ(packs(), 0U);
    EXPECT_EQ(verified().hurt(), 0U);
    EXPECT_EQ(reclaim({}).missingPieces, 0U);
}

TEST_F(MissingTest, MoreThanAStatedShareIsFreedOnlyWithARemovalThatExplainsIt)
{
    backUp("more", blocks(4, 200));
    removeFiles("/r/pieces/");
    removeFiles("/r/inventory/");
    EXPECT_EQ(refusal({.grace = 0}), ErrorKind::damaged);
    removeFiles("/r/removed/");
    EXPECT_TRUE(verified().onlyPacks);
    EXPECT_EQ(refusal({}), ErrorKind::damaged);
    EXPECT_GT(reclaim({.maxFreed = 100}).freedBytes, 0U);
    EXPECT_EQ(packs(), 0U);

    startAgain();
    ASSERT_TRUE(remove("few"));
    EXPECT_GT(reclaim({.grace = 0, .maxFreed = 0}).freedBytes, 0U) << "explained by removals";
}

/// A note that comes late finds its piece removed and purged: that is no piece that was lost.
TEST_F(MissingTest, APieceThatIsPurgedBeforeItIsNotedIsNotMissing)
{
    bool purged = false;
    for (const bool seesLocks : {true, false})
        beforeEachStep(
            [&](store::NodeSpace &other) {
                const auto found = other.find(nameOf("late"));
                if (!seesLocks)
                    removeFiles("/r/tmp/"); // of a process that it takes for dead
                if (found && *found && other.remove((*found)->id))
                    purged = store::Reclaim(other, kAtOnce).run()->purgedPieces == 3;
            },
            [&](const auto &arm) {
                purged = false;
                const auto writer = begin("late", "x");
                EXPECT_TRUE(writer->finish());
                arm();
                (void)space_->commit(*writer, 1);
                return true;
            },
            [&](bool) {
                for (int more = 0; more < 3; ++more) {
                    const auto stock = store::Inventory(space_->domain()).check();
                    ASSERT_TRUE(stock);
                    EXPECT_EQ(stock->missing.size(), 0U) << purged << seesLocks;
                    reclaim();
                }
            });
}

TEST_F(MissingTest, WhatIsPurgedWhileVerifyingLooksIsNotMissing)
{
    beforeEachStep([](store::NodeSpace &other) { (void)store::Reclaim(other, kAtOnce).run(); },
                   [&](const auto &arm) {
                       arm();
                       return store::Inventory(space_->domain()).check();
                   },
                   [](const auto &stock) { EXPECT_EQ(stock->missing.size(), 0U); });
}

/// A renaming dies between two steps of reclaiming, when its old manifest is in removed/ and in its
/// place. What settling finishes of it in the middle of the purge was not noted as gone, and stays
/// for the next run.
TEST_F(MissingTest, ARenamingThatDiesIsNeverMissing)
{
    const PieceId few = idOf("few");
    const std::string active = "/r/" + manifestOf(few);
    const auto dieAt = [&](int step) {
        OtherHost other(*this);
        other.files.stopBefore(step, [&] { files_.stopAt(1); });
        (void)other.space->rename(nameOf("few"), nameOf("moved"));
        const bool stopped = other.files.hasStopped();
        other.space.reset();
        files_.stopAt(0);
        return stopped;
    };
    const auto hasTwoPlaces = [&] {
        const auto paths = files_.paths();
        return std::ranges::count(paths, active) == 1 &&
               std::ranges::any_of(paths, [&](const std::string &path) {
                   return path.starts_with("/r/removed/") &&
                          path.find(toHex(few)) != std::string::npos;
               });
    };
    int step = 1;
    for (; dieAt(step) && !hasTwoPlaces(); ++step)
        startAgain();
    ASSERT_TRUE(hasTwoPlaces());
    bool came = true;
    for (int n = 1; came && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        startAgain();
        files_.runBefore(n, [&] { (void)dieAt(step); });
        (void)store::Reclaim(*space_, kAtOnce).run();
        came = files_.hasRun();
        files_.runBefore(0, nullptr);
        EXPECT_EQ(verified().missing, 0U);
        reclaim();
        expectPiece(few, few_);
        EXPECT_EQ(verified().missing, 0U);
    }
}

/// A removal that was killed leaves a second manifest, and one that was damaged since a third.
TEST_F(MissingTest, LeftoversOfARemovalNeitherHideThePieceNorCountAsIt)
{
    const PieceId few = idOf("few");
    const std::string key = space_->domain().nodeKey();
    const auto leave = [&](std::int64_t at, bool damaged) {
        const auto from = store_->open(manifestOf(few)).value();
        Bytes bytes(from->size());
        ASSERT_TRUE(from->read(0, bytes));
        bytes[70] ^= std::byte{static_cast<unsigned char>(damaged ? 1 : 0)};
        ASSERT_TRUE(blob::putWhole(*store_, store::removedNameOf(key, {few, at}), bytes));
    };
    leave(1, false);
    const std::string path = "/r/" + manifestOf(few);
    using Broken = test::MemoryFiles::Broken;
    for (const Broken now : {Broken::opening, Broken::reading, Broken::no}) {
        files_.breakFile(path, now);
        reclaim({}); // which purges it as soon as it can tell that the piece is not it
    }
    EXPECT_EQ(verified().hurt(), 0U);
    EXPECT_EQ(space_->removedOf(nameOf("few"))->size(), 0U);
    const auto whole = files_.snapshot();
    ASSERT_TRUE(files_.unlink(path));
    EXPECT_EQ(verified().missing, 1U) << "it was never noted as gone";
    putBack(whole);
    leave(std::int64_t{1} << 40, true);
    ASSERT_TRUE(remove("few"));
    EXPECT_EQ(removed(*space_), (Names{"big", "few", "other"}));
    ASSERT_TRUE(space_->undelete(few));
    expectPiece("few", few_);
}

} // namespace
