// Reclaiming beside streams that run, and over files that fail and a machine that stops: what a
// piece needs is never taken, and what nobody needs goes in the end.
#include "client/blob/directory_store.h"
#include "client/store/node_space.h"
#include "client/store/reclaim.h"
#include "tests/client/memory_files.h"

#include <gtest/gtest.h>

#include <random>

namespace
{

using namespace arca;
using store::ReclaimTotals;
using test::MemoryFiles;

constexpr std::size_t kBlock = 8192;

/// Blocks that compress as database blocks do and begin as they do, no two alike.
std::string blocks(unsigned seed, std::size_t count)
{
    std::mt19937_64 random(seed);
    std::string stream(count * kBlock, 'r');
    for (std::size_t i = 0; i < stream.size(); i += 16)
        stream[i] = static_cast<char>(random());
    for (std::size_t i = 0; i < stream.size(); i += kBlock)
        stream[i] = '\x06';
    return stream;
}

class ReclaimTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(files_.makeDirectory("/r"));
        key_ = Bytes(SecretKey::kBytes, std::byte{7});
        open();
        ASSERT_TRUE(space_->registerFilespace({"", "/fs", "ORACLE", "", 0, 0, 0}));
        // All of its pack lives by "few" alone: the first blocks of it.
        backUp("big", blocks(1, 90));
        backUp("few", few_);
        backUp("other", blocks(2, 20));
        ASSERT_TRUE(remove("big") && remove("other"));
        start_ = files_.snapshot();
    }

    void open()
    {
        space_.reset();
        store_ = std::make_unique<blob::DirectoryStore>("/r", files_);
        auto key = SecretKey::from(key_);
        auto opened = store::NodeSpace::open(*store_, "node", std::move(key).value(),
                                             engine::RecordForm::keyed);
        space_ = std::move(opened).value();
    }

    std::unique_ptr<store::PieceWriter> begin(const std::string &piece, const std::string &stream)
    {
        store::PieceDescription description;
        description.name = {"/fs", "/", "/" + piece, 1};
        auto writer = space_->beginPiece(description);
        EXPECT_TRUE(writer && (*writer)->append(viewOf(stream)));
        return std::move(writer).value();
    }
    std::uint64_t end(store::PieceWriter &writer)
    {
        const auto totals = writer.finish();
        EXPECT_TRUE(totals && writer.commit());
        return totals->newBytes;
    }
    std::uint64_t backUp(const std::string &piece, const std::string &stream)
    {
        return end(*begin(piece, stream));
    }
    bool remove(const std::string &piece)
    {
        const auto found = space_->find(store::ObjectName{"/fs", "/", "/" + piece, 1});
        const auto removed = found && *found
                                 ? space_->remove((*found)->id)
                                 : Result<void>(Error{ErrorKind::notFound, "no " + piece});
        EXPECT_TRUE(removed) << removed.error().text;
        return static_cast<bool>(removed);
    }
    void expectPiece(const std::string &piece, const std::string &stream)
    {
        const auto found = space_->find(store::ObjectName{"/fs", "/", "/" + piece, 1});
        SCOPED_TRACE(piece);
        ASSERT_TRUE(found && *found);
        expectPiece((*found)->id, stream);
    }
    void expectPiece(store::PieceId id, const std::string &stream)
    {
        const auto reader = space_->openPiece(id);
        ASSERT_TRUE(reader) << reader.error().text;
        std::string got(stream.size() + 1, '\0');
        const auto length = (*reader)->read(std::as_writable_bytes(std::span(got)));
        ASSERT_TRUE(length) << length.error().text;
        got.resize(*length);
        EXPECT_TRUE(got == stream);
    }
    ReclaimTotals reclaim()
    {
        const auto done = store::Reclaim(space_->domain()).run();
        EXPECT_TRUE(done) << done.error().text;
        return done ? *done : ReclaimTotals{};
    }
    std::size_t packs()
    {
        const auto paths = files_.paths();
        return static_cast<std::size_t>(
            std::count_if(paths.begin(), paths.end(),
                          [](const std::string &p) { return p.starts_with("/r/packs/"); }));
    }

    const std::string few_ = blocks(1, 90).substr(0, 10 * kBlock);
    MemoryFiles files_;
    Bytes key_;
    std::shared_ptr<MemoryFiles::Node> start_;
    std::unique_ptr<blob::DirectoryStore> store_;
    std::unique_ptr<store::NodeSpace> space_;
};

TEST_F(ReclaimTest, DeadPacksGoAndMostlyDeadOnesShrinkToWhatIsNeeded)
{
    EXPECT_EQ(packs(), 2U);
    const auto planned = store::Reclaim(space_->domain()).plan();
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
    EXPECT_EQ(end(*slow), 0U);
    dead.reset();
    EXPECT_EQ(reclaim().deadPacks, 1U) << "only what the late one stayed off";
    EXPECT_EQ(end(*late), 20 * kBlock);
    expectPiece("slow", blocks(1, 90));
    expectPiece("few", few_);
    expectPiece("late", blocks(2, 20));
}

TEST_F(ReclaimTest, ARenamedPieceSharesItsBlocksUnlessTheyAreMarked)
{
    const store::ObjectName from{"/fs", "/", "/few", 1}, to{"/fs", "/", "/moved", 1};
    for (const bool marked : {false, true}) {
        space_.reset();
        files_.putBack(start_);
        open();
        space_->use({.deduplication = false});
        std::unique_ptr<store::PieceWriter> slow;
        if (marked) {
            slow = begin("slow", "x");
            EXPECT_EQ(reclaim().waitingPacks, 2U);
        }
        ASSERT_TRUE(space_->rename(from, to));
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
    const auto found = space_->find(store::ObjectName{"/fs", "/", "/read", 1});
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

/// Another process does one thing, whole, between two steps of reclaiming, and between every two.
/// The only piece that needs the first pack is where reclaiming has not looked yet, or no longer.
TEST_F(ReclaimTest, WhatMovesBetweenTwoOfItsStepsIsNotLost)
{
    const store::ObjectName few{"/fs", "/", "/few", 1}, moved{"/fs", "/", "/moved", 1};
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
        two.name = {"/fs", "/", "/two", 1};
        auto first = space.beginPiece(one), second = space.beginPiece(two);
        if (!first || !second || !(*first)->append(viewOf(few_)) || !(*first)->finish() ||
            !(*second)->append(viewOf(few_)) || !(*second)->finish())
            return false;
        const store::PieceId old = idOf(space, few);
        const store::NodeSpace::Sent sent[] = {{first->get(), 1}, {second->get(), 1}};
        return static_cast<bool>(space.commitTogether({sent, std::span(&old, 1), {}}));
    };
    const struct {
        const char *what;
        Move move;
        bool keepsIdentifier;
    } moves[] = {
        {"made inactive", deactivate, true},
        {"renamed", [&](auto &space) { return static_cast<bool>(space.rename(few, moved)); },
         false},
        {"stored anew under two names, and removed", commitSeveral, false},
    };
    for (const auto &[what, move, keepsIdentifier] : moves) {
        for (int n = 1; !HasFailure(); ++n) {
            SCOPED_TRACE(std::string(what) + " before operation " + std::to_string(n));
            space_.reset();
            files_.putBack(start_);
            open();
            store::PieceId id = idOf(*space_, few);
            blob::DirectoryStore elsewhere("/r", files_);
            auto other = store::NodeSpace::open(elsewhere, "node", SecretKey::from(key_).value(),
                                                engine::RecordForm::keyed);
            bool went = false;
            files_.runBefore(n, [&] { went = move(**other); });
            reclaim();
            const bool came = files_.hasRun();
            files_.runBefore(0, nullptr);
            EXPECT_EQ(went, came);
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

TEST_F(ReclaimTest, APieceThatCannotBeReadStopsItBeforeAnythingGoes)
{
    for (const std::string &path : files_.paths())
        if (path.starts_with("/r/pieces/"))
            files_.contentOf(path)[70] ^= 1;
    const auto done = store::Reclaim(space_->domain()).run();
    ASSERT_FALSE(done);
    EXPECT_EQ(done.error().kind, ErrorKind::damaged);
    EXPECT_EQ(packs(), 2U);
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
            space_.reset();
            files_.putBack(start_);
            open();
            if (fault.stops)
                files_.stopAt(n);
            else
                files_.failAt(n, ErrorKind::full);
            (void)store::Reclaim(space_->domain()).run();
            const bool came = files_.hasFailed();
            space_.reset();
            files_.failAt(0, ErrorKind::io);
            if (fault.stops)
                files_.losePower(fault.loss);
            open();
            expectPiece("few", few_);
            reclaim();
            EXPECT_EQ(packs(), 1U);
            expectPiece("few", few_);
            if (!came || HasFailure())
                break;
        }
    }
}

} // namespace
