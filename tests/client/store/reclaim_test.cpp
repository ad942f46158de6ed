// Reclaiming beside streams that run, and over files that fail and a machine that stops: what a
// piece needs is never taken, and what nobody needs goes in the end.
#include "client/engine/packs/pack_format.h"
#include "client/store/marks/marked_packs.h"
#include "tests/client/store/reclaim_fixture.h"
#include "tests/support/files.h"

#include <cstring>
#include <set>
#include <sys/resource.h>
#include <utility>

namespace
{

using namespace arca;
using store::ReclaimTotals;
using test::blocks;
using test::kAtOnce;
using test::kBlock;
using test::MemoryFiles;
using test::ReclaimTest;

TEST_F(ReclaimTest, DeadPacksGoAndMostlyDeadOnesShrinkToWhatIsNeeded)
{
    EXPECT_EQ(packs(), 2U);
    const auto planned = store::Reclaim(*space_, kAtOnce).plan();
    ASSERT_TRUE(planned);
    const ReclaimTotals done = reclaim();
    for (const ReclaimTotals &totals : {*planned, done}) {
        EXPECT_EQ(totals.packs, 2U);
        EXPECT_EQ(totals.deadPacks, 1U);
        EXPECT_EQ(totals.rewrittenPacks, 1U);
        EXPECT_GT(totals.freedBytes, totals.packBytes / 2);
    }
    EXPECT_EQ(packs(), 1U);
    expectPiece("few", few_);
    // What is left is found again, what went is not.
    EXPECT_EQ(backUp("again", blocks(1, 90)), 80 * kBlock);
    expectPiece("again", blocks(1, 90));
    EXPECT_EQ(reclaim().freedBytes, 0U);
    ASSERT_TRUE(remove("few") && remove("again"));
    EXPECT_EQ(reclaim().deadPacks, 2U);
    EXPECT_EQ(packs(), 0U);
}

/// Its trailer is sound, and its index is not: whoever frees it does not need that.
TEST_F(ReclaimTest, ADeadPackWithARottenIndexGoes)
{
    reclaim(); // the pack of "few" is rewritten: of a first revision no index is read
    ASSERT_TRUE(remove("few"));
    for (const std::string &path : files_.paths())
        if (path.starts_with("/r/packs/")) {
            std::string &bytes = files_.contentOf(path);
            bytes[bytes.size() - engine::kPackTrailerBytes - 1] ^= 1;
        }
    EXPECT_TRUE(reclaim().damagedPacks.empty());
    EXPECT_EQ(packs(), 0U);
}

TEST_F(ReclaimTest, AStreamFromBeforeTheMarkKeepsWhatItCountsOnHoweverSlowItIs)
{
    auto slow = begin("slow", blocks(1, 90));
    auto dead = begin("dead", "x");
    for (int i = 0; i < 3; ++i) {
        const ReclaimTotals waits = reclaim();
        EXPECT_EQ(waits.freedBytes, 0U);
        EXPECT_EQ(waits.waitingPacks, 2U);
        EXPECT_FALSE(waits.waitingFor.empty());
    }
    // Who begins after the mark does not count on what is marked, though it is still there.
    auto late = begin("late", blocks(2, 20));
    const auto lateTotals = late->finish();
    ASSERT_TRUE(lateTotals);
    EXPECT_EQ(lateTotals->newBytes, 20 * kBlock);
    EXPECT_EQ(end(*slow), 0U);
    dead.reset();
    EXPECT_EQ(reclaim().deadPacks, 1U) << "only what the late one stayed off";
    EXPECT_TRUE(space_->commit(*late, 1));
    expectPiece("slow", blocks(1, 90));
    expectPiece("few", few_);
    expectPiece("late", blocks(2, 20));
    // Another run may have found that pack needed by nobody, and sleep before it deletes it.
    EXPECT_EQ(backUp("again", blocks(1, 90)), 90 * kBlock) << "what was needed stays marked";
}

/// Of packs that are needed, the one that comes later is not known yet.
TEST_F(ReclaimTest, APackThatIsMostlyNeededIsOpenedByTheFirstRunOnly)
{
    const keel::test::TempDir cache;
    const auto reclaimed = [&] {
        space_ = store::NodeSpace::open(*store_, "node", SecretKey::from(key_).value(),
                                        engine::RecordForm::keyed,
                                        HostCache::in({cache.path().string()}, "repository"))
                     .value();
        return reclaim();
    };
    backUp("whole", blocks(3, 50));
    EXPECT_EQ(reclaimed().packs, 3U);
    backUp("later", blocks(4, 50));
    const ReclaimTotals known = reclaimed();
    EXPECT_EQ(known.packs, 3U);
    const auto makePacks = [&](MemoryFiles::Broken how) {
        for (const std::string &path : files_.paths())
            if (path.starts_with("/r/packs/"))
                files_.breakFile(path, how);
    };
    makePacks(MemoryFiles::Broken::opening);
    const ReclaimTotals blind = reclaimed();
    EXPECT_EQ(blind.packs, 3U);
    EXPECT_EQ(blind.packBytes, known.packBytes);
    EXPECT_TRUE(blind.damagedPacks.empty());
    // What is needed no more is looked at, whatever is remembered.
    makePacks(MemoryFiles::Broken::no);
    EXPECT_TRUE(remove("later"));
    EXPECT_EQ(reclaimed().deadPacks, 1U);
}

TEST_F(ReclaimTest, ClaimsOfOtherNodesHoldNothingUpAndThoseThatNameNoneDo)
{
    using Claim = Result<std::unique_ptr<blob::BlobWriter>>;
    const auto ofAnother = [&]() -> Claim {
        const auto other = store::NodeSpace::open(*store_, "other", SecretKey::from(key_).value(),
                                                  engine::RecordForm::keyed);
        return (*other)->beginClaim();
    };
    for (const auto &[make, waits] : {std::pair<std::function<Claim()>, bool>(ofAnother, false),
                                      {[&] { return space_->beginClaim(); }, true},
                                      // As earlier releases name all of theirs.
                                      {[&] { return store_->begin(); }, true}}) {
        startAgain();
        const auto claim = make();
        ASSERT_TRUE(claim);
        EXPECT_EQ(reclaim().waitingPacks, waits ? 2U : 0U);
        EXPECT_EQ(packs(), waits ? 2U : 1U);
        EXPECT_EQ(store_->livingWriters()->size(), 1U) << "it is shown whosever it is";
    }
}

/// A run marks packs and has to wait. Either of the two stops at any of its steps, where
/// the other one does all its work; then the wait is over, and what is marked goes.
TEST_F(ReclaimTest, AStreamThatBeginsAsPacksAreMarkedIsStoredWhole)
{
    const std::string stream = blocks(1, 90);
    std::unique_ptr<store::PieceWriter> waited, fresh;
    int counting = 0;
    const auto store = [&](store::NodeSpace &space) {
        fresh = begin(space, "fresh", stream);
        counting += fresh->finish()->newBytes == 0 ? 1 : 0;
    };
    const auto mark = [](store::NodeSpace &space) {
        EXPECT_EQ(store::Reclaim(space, kAtOnce).run()->waitingPacks, 2U);
    };
    using Act = std::function<void(store::NodeSpace &)>;
    for (const auto &[ours, theirs] : {std::pair<Act, Act>(store, mark), {mark, store}}) {
        beforeEachStep(
            theirs,
            [&, act = ours](const auto &arm) {
                waited = begin("waited", "x");
                arm();
                act(*space_);
                return true;
            },
            [&](bool) {
                waited.reset();
                reclaim();
                if (fresh) {
                    EXPECT_TRUE(fresh->commit());
                    expectPiece("fresh", stream);
                }
                fresh.reset();
            });
        EXPECT_GT(std::exchange(counting, 0), 5);
    }
}

TEST_F(ReclaimTest, ARenamedPieceSharesItsBlocksUnlessTheyAreMarked)
{
    for (const bool marked : {false, true}) {
        startAgain();
        space_->use({.deduplication = false});
        std::unique_ptr<store::PieceWriter> slow;
        if (marked) {
            slow = begin("slow", "x");
            EXPECT_EQ(reclaim().waitingPacks, 2U);
        }
        ASSERT_TRUE(space_->rename(nameOf("few"), nameOf("moved")));
        EXPECT_EQ(packs(), marked ? 3U : 2U);
        slow.reset();
        EXPECT_GT(reclaim().freedBytes, 0U);
        EXPECT_EQ(packs(), 1U);
        expectPiece("moved", few_);
    }
}

TEST_F(ReclaimTest, WhoeverReadsARemovedPieceReadsItToItsEnd)
{
    const std::string stream = blocks(3, 400);
    backUp("read", stream);
    const auto found = space_->find(nameOf("read"));
    auto reader = space_->openPiece((*found)->id);
    ASSERT_TRUE(reader);
    ASSERT_TRUE(remove("read"));
    EXPECT_EQ(reclaim().freedBytes, 0U);
    std::string got(stream.size(), '\0');
    const auto length = (*reader)->read(std::as_writable_bytes(std::span(got)));
    ASSERT_TRUE(length) << length.error().text;
    EXPECT_TRUE(got == stream);
    reader->reset();
    EXPECT_EQ(reclaim().deadPacks, 2U);
}

/// A restore of an inactive version begins between two steps of reclaiming, and the version
/// is removed at once.
TEST_F(ReclaimTest, ARestoreOfAnInactivePieceIsReadToItsEnd)
{
    const store::PieceId id = (*space_->find(nameOf("few")))->id;
    ASSERT_TRUE(space_->commitTogether({{}, {}, std::span(&id, 1)}));
    const auto begun = files_.snapshot();
    bool came = true;
    for (int n = 1; came && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        putBack(begun);
        OtherHost other(*this);
        std::unique_ptr<store::PieceReader> reader;
        files_.runBefore(n, [&] {
            auto opened = other.space->openPiece(id);
            EXPECT_TRUE(opened && other.space->remove(id));
            reader = opened ? std::move(*opened) : nullptr;
        });
        reclaim();
        came = files_.hasRun();
        files_.runBefore(0, nullptr);
        std::string got(few_.size(), '\0');
        const auto length =
            reader ? reader->read(std::as_writable_bytes(std::span(got))) : Result<std::size_t>(0);
        EXPECT_TRUE(!came || (length && got == few_));
    }
}

/// Another process does one thing, whole, between two steps of reclaiming, and between
/// every two. The only piece that needs the first pack is where reclaiming has not looked
/// yet, or no longer.
TEST_F(ReclaimTest, WhatMovesBetweenTwoOfItsStepsIsNotLost)
{
    const store::ObjectName few = nameOf("few"), moved = nameOf("moved");
    const auto idOf = [&](store::NodeSpace &space, const store::ObjectName &name) {
        const auto found = space.find(name);
        return found && *found ? (*found)->id : store::PieceId{0};
    };
    using Move = std::function<bool(store::NodeSpace &)>;
    const auto deactivate = [&](store::NodeSpace &space) {
        const store::PieceId id = idOf(space, few);
        return static_cast<bool>(space.commitTogether({{}, {}, std::span(&id, 1)}));
    };
    const auto commitSeveral = [&](store::NodeSpace &space) {
        store::PieceDescription one, two;
        one.name = moved;
        two.name = nameOf("two");
        auto first = space.beginPiece(one), second = space.beginPiece(two);
        if (!first || !second || !(*first)->append(viewOf(few_)) || !(*first)->finish() ||
            !(*second)->append(viewOf(few_)) || !(*second)->finish())
            return false;
        const store::PieceId old = idOf(space, few);
        const store::NodeSpace::Sent sent[] = {{first->get(), 1}, {second->get(), 1}};
        return static_cast<bool>(space.commitTogether({sent, std::span(&old, 1), {}}));
    };
    const auto bringBack = [&](store::NodeSpace &space) {
        const auto removed = space.removedOf(few);
        return removed && !removed->empty() && space.undelete(removed->front().info.id);
    };
    const struct {
        const char *what;
        Move move;
        bool keepsIdentifier, removed;
    } moves[] = {
        {"made inactive", deactivate, true, false},
        {"renamed", [&](auto &space) { return static_cast<bool>(space.rename(few, moved)); }, false,
         false},
        {"stored anew under two names, and removed", commitSeveral, false, false},
        {"brought back", bringBack, true, true},
    };
    for (const auto &[what, move, keepsIdentifier, removed] : moves) {
        for (int n = 1; !HasFailure(); ++n) {
            SCOPED_TRACE(std::string(what) + " before operation " + std::to_string(n));
            startAgain();
            store::PieceId id = idOf(*space_, few);
            blob::DirectoryStore elsewhere("/r", files_);
            const auto other = spaceOver(elsewhere);
            if (removed) {
                ASSERT_TRUE(remove("few"));
            }
            bool went = false;
            files_.runBefore(n, [&] { went = move(*other); });
            reclaim();
            const bool came = files_.hasRun();
            files_.runBefore(0, nullptr);
            // What is purged by then cannot come back; it does, or the reclaiming took it
            // whole.
            EXPECT_TRUE(removed || went == came);
            if (removed && !went && came)
                continue;
            if (removed && !came)
                break;
            if (came && !keepsIdentifier)
                id = idOf(*space_, moved);
            for (int more = 0; more < 2; ++more) {
                expectPiece(id, few_);
                reclaim();
            }
            EXPECT_EQ(packs(), 1U);
            if (!came)
                break;
        }
    }
}

/// A run on another host sleeps before any of its steps. Runs here do all their work
/// meanwhile, and a stream counts on what they left.
TEST_F(ReclaimTest, ARunThatWakesLateDeletesNothingThatCameSince)
{
    const struct {
        const char *found;
        std::function<void()> begin;
    } marks[] = {
        {"no mark", [] {}},
        {"a damaged mark", [&] { putDamagedMark(); }},
        {"a mark of version 1", [&] { mark(markOfVersion1()); }},
    };
    for (const auto &[found, begins] : marks) {
        int counting = 0;
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(found) + ", step " + std::to_string(n));
            startAgain();
            begins();
            OtherHost other(*this);
            std::unique_ptr<store::PieceWriter> slow;
            other.files.stopBefore(n, [&] {
                reclaim();
                slow = begin("slow", few_);
                counting += slow->finish()->newBytes == 0 ? 1 : 0;
                remove("few");
                reclaim();
            });
            (void)store::Reclaim(*other.space, kAtOnce).run();
            if (!slow || HasFailure())
                break;
            EXPECT_TRUE(space_->commit(*slow, 1));
            for (int more = 0; more < 2; ++more) {
                expectPiece("slow", few_);
                reclaim();
            }
        }
        EXPECT_GT(counting, 5) << found;
    }
}

/// A damaged mark stands for every pack. What is needed gets its next revision, with a
/// blob's second name or without, and is counted on again.
TEST_F(ReclaimTest, ADamagedMarkKeepsNoPackMarkedForGood)
{
    const std::string whole = blocks(7, 20);
    for (const bool links : {true, false}) {
        startAgain();
        backUp("whole", whole);
        putDamagedMark();
        EXPECT_EQ(backUp("meanwhile", whole), 20 * kBlock);
        OtherHost other(*this);
        other.files.links = links;
        const auto done = store::Reclaim(*other.space, kAtOnce).run();
        ASSERT_TRUE(done) << done.error().text;
        EXPECT_FALSE(done->damagedMark.empty());
        EXPECT_EQ(packs(), 3U);
        EXPECT_EQ(backUp("again", whole + few_), 0U);
        for (const char *piece : {"whole", "meanwhile"})
            expectPiece(piece, whole);
        expectPiece("again", whole + few_);
        EXPECT_EQ(reclaim().freedBytes, 0U);
    }
}

/// Its name once given, a revision may be all that is left: a run here deletes the one
/// before.
TEST_F(ReclaimTest, ARevisionIsProvenBeforeAnybodyFindsIt)
{
    for (int n = 1, came = true; came && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        startAgain();
        OtherHost other(*this);
        bool named = false;
        other.files.beforeSync = [&](const std::string &) -> Result<void> {
            const auto paths = files_.paths();
            const auto isNew = [](const auto &p) {
                return p.starts_with("/r/packs/") && p.ends_with(".2");
            };
            if (std::ranges::none_of(paths, isNew) || std::exchange(named, true))
                return {};
            reclaim();
            files_.failAt(n, ErrorKind::io);
            return {};
        };
        (void)store::Reclaim(*other.space, kAtOnce).run();
        came = files_.hasFailed();
        files_.failAt(0, ErrorKind::io);
        EXPECT_TRUE(named);
        expectPiece("few", few_);
    }
}

/// With few files open a restore closes packs that it goes on to read. Between two of its
/// steps a run whose mark is from before the restore puts the next revision of one.
TEST_F(ReclaimTest, ARestoreGoesOnInTheNextRevisionOfAPackThatItHadClosed)
{
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few{64, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::string mosaic = few_;
    for (unsigned i = 0; i < 17; ++i) {
        const std::string stream = blocks(100 + i, 70);
        backUp("p" + std::to_string(i), stream);
        mosaic += stream.substr(0, 20 * kBlock);
    }
    mosaic += few_.substr(0, 5 * kBlock);
    EXPECT_EQ(backUp("mosaic", mosaic), 0U) << "it needs 18 packs";
    auto slow = begin("slow", "x");
    EXPECT_EQ(reclaim().waitingPacks, 2U);
    slow.reset();
    start_ = files_.snapshot();
    int rewritten = 0;
    beforeEachStep(
        [&](store::NodeSpace &other) {
            const auto done = store::Reclaim(other, kAtOnce).run();
            rewritten += done && done->rewrittenPacks == 1 ? 1 : 0;
        },
        [&](const auto &arm) {
            space_->use({.threads = 1});
            arm();
            expectPiece("mosaic", mosaic);
            return true;
        },
        [](bool) {}, 3);
    EXPECT_GT(rewritten, 10);
    (void)setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(ReclaimTest, WhereverItIsStoppedNothingNeededIsLostAndTheNextRunFinishes)
{
    struct Fault {
        const char *name;
        bool stops;
        MemoryFiles::Loss loss;
    };
    const Fault faults[] = {{"fails", false, MemoryFiles::Loss::everythingUnsynced},
                            {"stops", true, MemoryFiles::Loss::everythingUnsynced},
                            {"stops, names lost", true, MemoryFiles::Loss::namesUnsynced},
                            {"stops, content lost", true, MemoryFiles::Loss::contentUnsynced}};
    for (const Fault &fault : faults) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string("operation ") + std::to_string(n) + " " + fault.name);
            startAgain();
            if (fault.stops)
                files_.stopAt(n);
            else
                files_.failAt(n, ErrorKind::full);
            (void)store::Reclaim(*space_, {.grace = 0}).run();
            const bool came = files_.hasFailed();
            space_.reset();
            files_.failAt(0, ErrorKind::io);
            if (fault.stops)
                files_.losePower(fault.loss);
            open();
            expectPiece("few", few_);
            reclaim({.grace = 0}); // what was freed must stay explained
            EXPECT_EQ(packs(), 1U);
            expectPiece("few", few_);
            if (!came || HasFailure())
                break;
        }
    }
}

/// What it writes later would appear among revisions that the other one has swept.
TEST_F(ReclaimTest, ThatAnotherOneHasOvertakenBeginsNoRevision)
{
    const auto under = [&](const char *room) {
        auto paths = files_.paths();
        std::erase_if(paths, [&](const std::string &path) { return !path.starts_with(room); });
        return std::set<std::string>(paths.begin(), paths.end());
    };
    std::set<std::string> then;
    bool overtaken = false;
    int rounds = 0;
    beforeEachStep(
        [&](store::NodeSpace &other) {
            const auto current = store::currentMark(other.domain());
            overtaken = current && current->number == 1 && under("/r/tmp/").empty();
            if (!overtaken)
                return;
            ++rounds;
            then = under("/r/packs/");
            EXPECT_TRUE(store::markRecord(other.domain()).write(1, encodeMark(current->mark)));
        },
        [&](const auto &arm) {
            overtaken = false;
            arm();
            (void)store::Reclaim(*space_, kAtOnce).run();
            return true;
        },
        [&](bool) {
            for (const std::string &path : under("/r/packs/"))
                EXPECT_TRUE(!overtaken || then.contains(path)) << path;
        });
    EXPECT_GT(rounds, 3);
}

/// However many packs there are: in shares, by a temporary file or, without room for one,
/// in more passes.
TEST_F(ReclaimTest, WhatIsNeededIsTheSameInOneShareAndInMany)
{
    backUp("more", blocks(5, 40) + blocks(1, 30) + blocks(6, 40));
    using Uses = std::pair<store::PackUse, store::PackUse>;
    const auto useOf = [&](std::size_t packs, std::uint64_t mostSpilled, int &passes) {
        Uses uses;
        store::UseQuestion question;
        question.packs = packs;
        question.mostSpilled = mostSpilled;
        question.beginPass = [&] { ++passes; };
        question.leaves = [](const auto &stored) {
            return stored.place == store::ManifestPlace::removed;
        };
        EXPECT_TRUE(store::visitUse(space_->domain(), question, [&](auto &use) -> Result<void> {
            uses.first.merge(use.needed);
            uses.second.merge(use.leaving);
            return {};
        }));
        return uses;
    };
    int once = 0, spilled = 0, compacted = 0, roomless = 0;
    const Uses all = useOf(0, 0, once);
    EXPECT_EQ(all.first.size(), 2U);
    EXPECT_EQ(all.second.size(), 2U);
    constexpr std::size_t kMany = 100'000;
    EXPECT_TRUE(useOf(kMany, kMany, spilled) == all);
    EXPECT_TRUE(useOf(kMany, 0, compacted) == all);
    setenv("TMPDIR", "/nowhere", 1);
    EXPECT_TRUE(useOf(kMany, 0, roomless) == all);
    unsetenv("TMPDIR");
    EXPECT_EQ(once + spilled + compacted, 3);
    EXPECT_GT(roomless, 1);
}

/// A backup dies when its second pack has its name and is not synced. Another one of the same data
/// follows the first pack into that one, and then the power goes.
TEST_F(ReclaimTest, APackThatNobodySyncedIsNotCountedOn)
{
    std::mt19937_64 random(5);
    std::string stream(std::size_t{40} << 20, ' ');
    for (std::size_t i = 0; i + sizeof(std::uint64_t) <= stream.size();
         i += sizeof(std::uint64_t)) {
        const std::uint64_t word = random();
        std::memcpy(stream.data() + i, &word, sizeof word);
    }
    startAgain(); // knowing no packs
    {
        OtherHost dying(*this);
        int named = 0;
        dying.files.beforeName = [&](const std::string &to) {
            if (to.starts_with("/r/packs/") && ++named == 2)
                (void)space_->domain().hints(); // of the first pack, and not of this one
        };
        dying.files.beforeSync = [&](const std::string &path) -> Result<void> {
            if (named == 2 && path.starts_with("/r/packs/"))
                files_.stopAt(1);
            return {};
        };
        const auto writer = begin(*dying.space, "dying", stream);
        EXPECT_FALSE(writer->finish());
    }
    EXPECT_TRUE(files_.hasFailed());
    files_.failAt(0, ErrorKind::io);
    EXPECT_LT(backUp("new", stream), stream.size() / 2); // the rest is there
    files_.losePower(test::MemoryFiles::Loss::everythingUnsynced);
    open();
    expectPiece("new", stream);
}

} // namespace
