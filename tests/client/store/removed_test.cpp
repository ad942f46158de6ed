// Removed pieces: kept for the grace time, brought back whole, purged in the end.
#include "client/base/text.h"
#include "client/store/changes/object_record.h"
#include "client/store/upkeep/blob_removal.h"
#include "client/store/upkeep/repair.h"
#include "tests/client/store/removed_fixture.h"

namespace
{

using namespace arca;
using store::PieceId;
using store::ReclaimTotals;
using test::blocks;
using test::kAtOnce;
using test::kBlock;
using test::RemovedTest;

using Names = std::vector<std::string>;

TEST_F(RemovedTest, APieceComesBackAsItWasUntilItsGraceTimeIsOver)
{
    const auto describe = [](store::PieceDescription &piece) { piece.info = "noted"; };
    ASSERT_TRUE(space_->update(nameOf("few"), {}, describe));
    const PieceId few = idOf("few");
    ASSERT_TRUE(remove("few"));
    EXPECT_FALSE(space_->find(few));
    EXPECT_EQ(removed(*space_), (Names{"big", "few", "other"}));
    const ReclaimTotals kept = reclaim({});
    EXPECT_EQ(kept.keptPieces, 3U);
    EXPECT_EQ(kept.freedBytes, 0U);

    const auto back = space_->undelete(few);
    ASSERT_TRUE(back) << back.error().text;
    EXPECT_EQ(back->description.info, "noted");
    EXPECT_TRUE(back->isActive());
    expectPiece("few", few_);
    expectPiece(few, few_); // the former identifier leads to it
    EXPECT_EQ(removed(*space_), (Names{"big", "other"}));
    EXPECT_EQ(space_->undelete(few).error().kind, ErrorKind::notFound);
    // The former manifest of few is no removed piece, though it waits with them.
    EXPECT_EQ(reclaim({}).keptPieces, 2U);
    EXPECT_EQ(store::Reclaim(*space_, {.grace = 0}).plan()->purgedPieces, 2U);

    // A name that is in use is nobody's to take.
    const PieceId big = space_->removedOf(nameOf("big")).value().at(0).info.id;
    backUp("big", few_);
    EXPECT_EQ(space_->undelete(big).error().kind, ErrorKind::exists);
    EXPECT_EQ(removed(*space_), (Names{"big", "other"}));

    EXPECT_EQ(reclaim().purgedPieces, 2U); // big and other
    EXPECT_EQ(removed(*space_), Names{});
    expectPiece(few, few_);
    expectPiece("big", few_);
    for (const char *piece : {"few", "big"})
        ASSERT_TRUE(remove(piece));
    reclaim();
    EXPECT_EQ(packs(), 0U);
    for (const std::string &path : files_.paths())
        EXPECT_FALSE(path.starts_with("/r/objects/") || path.starts_with("/r/removed/")) << path;
    EXPECT_EQ(verified().hurt(), 0U);
}

/// Half of some pieces of one directory are inactive; all are removed, shown and purged.
TEST_F(RemovedTest, ADirectoryIsListedAFewTimesHoweverManyOfItsPiecesGo)
{
    constexpr std::size_t kPieces = 24, kOthers = 1000;
    std::vector<PieceId> ids;
    std::vector<store::RemovedName> names;
    std::string digits;
    for (int number = 0; ids.size() < kPieces; ++number) {
        const std::string name = "p" + std::to_string(number);
        const Sha256 hash = space_->hashOf(nameOf(name)).value();
        if (hash[0] != std::byte{0x5a})
            continue;
        backUp(name, "");
        ids.push_back(idOf(name));
    }
    const std::size_t half = kPieces / 2;
    ASSERT_TRUE(space_->commitTogether({{}, {}, std::span(ids).first(half)}));
    for (std::size_t i = 0; i < kOthers; ++i)
        for (const std::string place : {"pieces/", "inactive/", "removed/"}) {
            const std::string last = "5a" + toHex(i) + toHex(i).substr(2);
            const std::string name = place + space_->domain().nodeKey() + "/5a/" + last;
            ASSERT_TRUE(blob::putWhole(*store_, name, viewOf("another")));
        }
    open(); // what was learnt by storing them is forgotten
    auto listings = [this, before = files_.namesTold()]() mutable {
        const std::uint64_t told = files_.namesTold() - std::exchange(before, files_.namesTold());
        return told / kOthers;
    };
    for (const PieceId id : ids)
        EXPECT_TRUE(space_->find(id));
    EXPECT_LE(listings(), 4U);
    ASSERT_TRUE(space_->commitTogether({{}, ids, {}}));
    EXPECT_LE(listings(), 2U);
    EXPECT_EQ(removed(*space_).size(), kPieces + 2);
    EXPECT_LE(listings(), 4U);
    for (const PieceId id : ids)
        names.push_back({id, 0});
    ASSERT_TRUE(store_->list("removed/", [&](const std::string &name) {
        const auto parsed = store::parseRemovedName(space_->domain().nodeKey(), name);
        for (store::RemovedName &one : names)
            if (parsed && parsed->id == one.id)
                one.at = parsed->at;
        return true;
    }));
    (void)listings();
    Result<void> unclear;
    const auto gone = space_->goneWith(names, unclear);
    EXPECT_EQ(gone->size(), kPieces);
    EXPECT_EQ(space_->removedAmong(names)->size(), kPieces);
    EXPECT_EQ(*space_->purge(names, *gone), kPieces);
    EXPECT_LE(listings(), 16U);
    for (const PieceId id : ids)
        EXPECT_FALSE(space_->find(id));
}

TEST_F(RemovedTest, AnInactivePieceComesBackInactive)
{
    const PieceId few = idOf("few");
    ASSERT_TRUE(space_->commitTogether({{}, {}, std::span(&few, 1)}));
    const std::int64_t since = space_->find(few)->inactiveAt;
    backUp("few", few_);
    ASSERT_TRUE(space_->remove(few));
    const auto back = space_->undelete(few);
    ASSERT_TRUE(back) << back.error().text;
    EXPECT_EQ(back->inactiveAt, since);
    expectPiece(back->id, few_);
    EXPECT_NE(idOf("few"), back->id);
    EXPECT_EQ(space_->inactiveOf(nameOf("few")).value().size(), 1U);
    reclaim();
    expectPiece(back->id, few_);
    EXPECT_EQ(verified().hurt(), 0U);
}

TEST_F(RemovedTest, WhatComesBackWhileItsPacksAreMarkedIsStoredAnew)
{
    const PieceId big = space_->removedOf(nameOf("big")).value().at(0).info.id;
    store::Mark mark;
    ASSERT_TRUE(space_->domain().packs().list([&](const engine::PackName &pack) {
        mark.add(pack.id, pack.revision);
        return true;
    }));
    auto marks = store::markRecord(space_->domain());
    const auto last = marks.latest();
    ASSERT_TRUE(last && marks.write(*last ? (*last)->number : 0, store::encodeMark(mark)));
    const std::size_t before = packs();
    ASSERT_TRUE(space_->undelete(big));
    EXPECT_EQ(packs(), before + 1);
    expectPiece("big", blocks(1, 90));
    reclaim();
    expectPiece("big", blocks(1, 90));
}

/// A removal, an undelete and a purge stop at every step; what was acknowledged holds, and what was
/// not is whole or as before.
TEST_F(RemovedTest, WhereverItStopsNothingIsLost)
{
    using Act = std::function<bool(store::NodeSpace &)>;
    const PieceId few = idOf("few");
    const PieceId big = space_->removedOf(nameOf("big")).value().at(0).info.id;
    const struct {
        const char *what;
        PieceId id;
        std::string stream;
        Act act;
    } acts[] = {
        {"removal", few, few_, [&](auto &space) { return bool(space.remove(few)); }},
        {"undelete", big, blocks(1, 90), [&](auto &space) { return bool(space.undelete(big)); }},
    };
    for (const auto &[what, id, stream, act] : acts) {
        for (int n = 1; !HasFailure(); ++n) {
            SCOPED_TRACE(std::string(what) + " stops at " + std::to_string(n));
            startAgain();
            files_.stopAt(n);
            const bool done = act(*space_);
            const bool came = files_.hasFailed();
            space_.reset();
            files_.losePower(test::MemoryFiles::Loss::everythingUnsynced);
            open();
            reclaim({}); // within the grace time nothing goes
            if (!space_->find(id)) {
                EXPECT_TRUE(id == few || !done);
                const auto back = space_->undelete(id);
                EXPECT_TRUE(back) << back.error().text;
            } else {
                EXPECT_TRUE(id == big || !done);
            }
            expectPiece(id, stream);
            reclaim();
            expectPiece(id, stream);
            EXPECT_EQ(verified().hurt(), 0U);
            if (!came)
                break;
        }
    }
}

/// A process dies between any of its steps, another one does the same again or only reclaims, and
/// then the power goes. What is left of a piece is whole, and what came back is noted.
TEST_F(RemovedTest, WhatADeadProcessDidNotSyncIsNeverTheLastOfAPiece)
{
    using Act = std::function<bool(store::NodeSpace &)>;
    const PieceId few = idOf("few");
    const PieceId big = space_->removedOf(nameOf("big")).value().at(0).info.id;
    const std::pair<const char *, Act> acts[] = {
        {"removal", [&](auto &space) { return bool(space.remove(few)); }},
        {"undelete", [&](auto &space) { return bool(space.undelete(big)); }},
        {"reclaiming", [&](auto &space) { return bool(store::Reclaim(space, kAtOnce).run()); }},
    };
    for (const auto &[what, act] : acts)
        for (bool again : {false, true}) {
            bool came = true;
            for (int n = 1; came && !HasFailure(); n += 2) {
                SCOPED_TRACE(std::string(what) + (again ? " again" : "") + " stops at " +
                             std::to_string(n));
                startAgain();
                files_.stopAt(n);
                (void)act(*space_);
                came = files_.hasFailed();
                files_.failAt(0, ErrorKind::io);
                open();
                if (again)
                    (void)act(*space_);
                const bool isBack = space_->find(nameOf("big"))->has_value();
                reclaim();
                files_.losePower(test::MemoryFiles::Loss::everythingUnsynced);
                open();
                EXPECT_EQ(isBack, static_cast<bool>(space_->find(big)));
                for (const auto &[id, stream] : {std::pair(few, few_), {big, blocks(1, 90)}})
                    if (space_->find(id) || space_->undelete(id))
                        expectPiece(id, stream);
                EXPECT_EQ(verified().hurt(), 0U);
                if (!isBack)
                    continue;
                const PieceId back = idOf("big");
                EXPECT_TRUE(files_.unlink("/r/" + manifestOf(back)));
                EXPECT_EQ(store::Inventory(space_->domain()).check()->missing,
                          std::vector<PieceId>{back});
            }
        }
}

TEST_F(RemovedTest, AtZeroBytesFreeARemovalAndReclaimingWithoutGraceMakeRoom)
{
    store_->keepReserve();
    files_.limitSpace(0);
    ASSERT_TRUE(remove("few"));
    EXPECT_EQ(reclaim({}).freedBytes, 0U);
    EXPECT_GT(reclaim().freedBytes, 0U);
    EXPECT_EQ(packs(), 0U);
    files_.liftLimit();
    backUp("few", few_);
    expectPiece("few", few_);
}

TEST_F(RemovedTest, WithoutAGraceTimeNoClockIsAsked)
{
    for (const std::string &path : files_.paths())
        if (path.starts_with("/r/removed/")) { // long from now
            ASSERT_TRUE(
                files_.moveNew(path, path.substr(0, path.size() - 16) + "0000010000000000"));
        }
    EXPECT_EQ(reclaim({}).keptPieces, 2U);
    EXPECT_EQ(reclaim().purgedPieces, 2U);
}

/// An undelete is killed before its last step: the next one, or the purge, finishes it.
TEST_F(RemovedTest, WhatAKilledUndeleteStoredIsFoundAgain)
{
    const PieceId few = idOf("few");
    const auto kill = [&](store::NodeSpace &space) {
        store::ObjectRecords records(space.domain());
        const bool back = static_cast<bool>(space.undelete(few));
        auto state = records.read(few);
        state->record.renamedTo = 0;
        EXPECT_TRUE(!back || records.write(*state));
    };
    beforeEachStep(
        kill,
        [&](const auto &arm) {
            EXPECT_TRUE(space_->commitTogether({{}, {}, std::span(&few, 1)}));
            EXPECT_TRUE(space_->remove(few));
            arm();
            return static_cast<bool>(space_->undelete(few));
        },
        [&](bool) { EXPECT_EQ(space_->inactiveOf(nameOf("few"))->size(), 1U); });
    startAgain();
    ASSERT_TRUE(remove("few"));
    kill(*space_);
    reclaim();
    expectPiece(few, few_);
}

TEST_F(RemovedTest, ACommitThatFailsSaysWhenItCouldNotBeTakenBack)
{
    const PieceId other = space_->removedOf(nameOf("other"))->at(0).info.id;
    const struct {
        const char *what;
        std::function<Result<void>(const std::function<void()> &)> work;
    } works[] = {
        {"late",
         [&](const auto &arm) {
             const auto writer = begin("late", "x");
             EXPECT_TRUE(writer->finish());
             arm();
             return space_->commit(*writer, 1);
         }},
        {"other",
         [&](const auto &arm) -> Result<void> {
             arm();
             ARCA_CHECK(space_->undelete(other));
             return {};
         }},
    };
    const std::string kept = "other";
    for (const auto &[what, work] : works) {
        bool came = true;
        for (int n = 1; came && !HasFailure(); ++n) {
            SCOPED_TRACE(what + std::to_string(n));
            startAgain();
            const auto done = work([&] { files_.stopAt(n); });
            came = files_.hasFailed();
            files_.stopAt(0);
            const auto found = space_->find(nameOf(what));
            ASSERT_TRUE(found);
            if (!done && *found && what == kept) {
                const auto again = work([] {});
                EXPECT_TRUE(again || again.error().kind == ErrorKind::notFound);
                EXPECT_TRUE(*space_->find(nameOf(what)));
            } else {
                EXPECT_TRUE(done || !*found ||
                            done.error().text.find("not known") != std::string::npos)
                    << "whether it is there is not known, and it says: " << done.error().text;
            }
        }
    }
}

/// What an undone renaming left in its record must not make a removal final.
TEST_F(RemovedTest, APieceWhoseRenamingWasUndoneIsKeptWhenItIsRemoved)
{
    const PieceId few = idOf("few");
    store::ObjectRecords records(space_->domain());
    auto state = records.read(few);
    ASSERT_TRUE(state);
    state->record.renamedTo = few + 1;
    state->record.goneBy = 77;
    ASSERT_TRUE(records.write(*state));
    ASSERT_TRUE(space_->commitTogether({{}, std::span(&few, 1), {}}));
    reclaim({});
    EXPECT_EQ(removed(*space_), (Names{"big", "few", "other"}));
    ASSERT_TRUE(space_->undelete(few));
    expectPiece("few", few_);
}

/// Set aside because it could not be read, and readable again: it comes back, or is given up.
TEST_F(RemovedTest, APieceOfTheQuarantineComesBackOrIsGivenUp)
{
    const PieceId few = idOf("few");
    const auto setAside = [&] {
        const std::string path = "/r/" + manifestOf(few);
        files_.contentOf(path)[70] ^= 1;
        const auto aside = space_->setAside(nameOf("few"));
        EXPECT_TRUE(aside) << aside.error().text;
        return *aside;
    };
    const auto readAgain = [&](const std::string &aside) {
        files_.contentOf("/r/" + aside)[70] ^= 1;
    };
    const auto whole = files_.snapshot();
    for (const bool taken : {false, true}) {
        SCOPED_TRACE(taken);
        const std::string aside = setAside();
        EXPECT_EQ(store::repair(*space_, false, {})->broughtBack, 0U);
        if (taken)
            backUp("few", "another");
        readAgain(aside);
        EXPECT_EQ(store::repair(*space_, false, {})->broughtBack, 1U);
        expectPiece(few, few_);
        expectPiece("few", taken ? "another" : few_);
        reclaim();
        expectPiece(few, few_);
        EXPECT_EQ(verified().hurt(), 0U);
        putBack(whole);
    }
    const std::string wrong = setAside();
    putBack(whole);
    ASSERT_TRUE(blob::putWhole(*store_, wrong, viewOf("a wrong copy")));
    const std::string aside = setAside();
    EXPECT_EQ(aside, wrong);
    EXPECT_NE(files_.contentOf("/r/" + aside), "a wrong copy");
    reclaim();
    ASSERT_TRUE(store::removeBlob(*space_, aside));
    EXPECT_EQ(verified().missing, 0U);
    reclaim();
    EXPECT_EQ(packs(), 0U);
}

} // namespace
