// What becomes of pieces when a pack is damaged: the damage is recorded for every host, streams
// store its blocks again, and a repair makes old pieces whole from copies.
#include "client/engine/mending/pack_check.h"
#include "client/engine/packs/revision_writer.h"
#include "client/store/marks/damage.h"
#include "client/store/upkeep/repair.h"
#include "tests/client/store/store_faults_fixture.h"

namespace
{

using namespace arca;

class DamagedPack : public test::StoreFaults
{
protected:
    static constexpr std::size_t kLength = 700'000; // three frames

    /// Without a block twice.
    static std::string noise(char seed)
    {
        std::string stream(kLength, '\0');
        auto state = static_cast<std::uint64_t>(seed);
        for (char &c : stream) {
            state = state * 6364136223846793005U + 1442695040888963407U;
            c = static_cast<char>(state >> 56);
        }
        return stream;
    }

    /// Returns the path of the pack that it was stored in.
    std::string storeInOwnPack(const std::string &piece, const std::string &stream)
    {
        const auto before = files_.paths();
        EXPECT_TRUE(backUp(piece, stream));
        const auto blobs = added(before);
        EXPECT_EQ(blobs.size(), 2U) << "a pack and a manifest";
        return blobs.empty() ? std::string() : blobs.front();
    }

    void flip(const std::string &path, std::size_t place)
    {
        std::string &bytes = files_.contentOf(path);
        bytes.at(place) = static_cast<char>(bytes.at(place) ^ 4);
    }

    /// Seals the pack again with another content of one block, under the same identity. Returns the
    /// path of what is there then.
    enum class Wrong { first, last };
    std::string forge(const std::string &path, Wrong which)
    {
        engine::Domain &domain = space_->domain();
        const auto pack = domain.packs().open(*domain.packs().nameFrom(path));
        const auto index = (*pack)->readIndex();
        const auto writer = engine::RevisionWriter::begin(domain.packs(), **pack,
                                                          {(*pack)->which().revision + 1, {}});
        const std::size_t wrong = which == Wrong::first ? 0 : index->blocks.size() - 1;
        engine::FrameCoder coder;
        Bytes sealed, raw;
        std::uint32_t block = 0;
        for (std::uint32_t number = 0; number < index->frames.size(); ++number) {
            EXPECT_TRUE(
                engine::openFrame(**pack, coder, number, index->frames[number], sealed, raw));
            std::size_t offset = 0;
            for (const auto end = block + index->frames[number].blocks; block < end; ++block) {
                const engine::BlockEntry &entry = index->blocks[block];
                raw[offset] ^= std::byte{static_cast<unsigned char>(block == wrong ? 1 : 0)};
                EXPECT_TRUE((*writer)->keep(entry, ByteView(raw).subspan(offset, entry.length)));
                offset += entry.length;
            }
        }
        EXPECT_TRUE((*writer)->commit() && files_.unlink(path));
        return "/r/" + domain.packs().blobNameOf((*writer)->which());
    }

    bool restores(const std::string &piece, const std::string &stream)
    {
        const auto got = restore(piece);
        return got && *got && **got == stream;
    }

    std::uint64_t packsFoundDamaged(bool readData = true)
    {
        store::VerifyRequest request;
        request.readData = readData;
        const auto outcome = store::verify(*space_, request, {});
        EXPECT_TRUE(outcome) << outcome.error().text;
        return outcome ? outcome->hurtPacks : 0;
    }

    store::RepairOutcome mend(std::vector<std::string> *lostPieces = nullptr)
    {
        store::RepairWatcher watcher;
        watcher.lostPiece = [&](const store::LostPiece &piece) {
            if (lostPieces != nullptr)
                lostPieces->push_back(piece.name);
        };
        const auto outcome = store::repair(*space_, false, watcher);
        EXPECT_TRUE(outcome) << outcome.error().text;
        return outcome ? *outcome : store::RepairOutcome();
    }

    std::size_t records()
    {
        const auto all = store::DamageRecords(space_->domain()).all();
        EXPECT_TRUE(all) << all.error().text;
        return all ? all->all().size() : 0;
    }
};

TEST_F(DamagedPack, IsNotCountedOnOnceItWasFound)
{
    const std::string stream = noise('n');
    const struct {
        const char *finder;
        std::function<void()> find;
        std::size_t place; // in the pack
    } cases[] = {
        {"verify, a frame", [&] { EXPECT_EQ(packsFoundDamaged(), 1U); }, 300'000},
        {"verify, the header", [&] { EXPECT_EQ(packsFoundDamaged(false), 1U); }, 30},
        {"restore, a frame", [&] { EXPECT_FALSE(restores("old", stream)); }, 300'000},
        {"restore, the header", [&] { EXPECT_FALSE(restores("old", stream)); }, 30},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.finder);
        const std::string pack = storeInOwnPack("old", stream);
        flip(pack, c.place);
        c.find();
        EXPECT_EQ(records(), 1U);
        ASSERT_TRUE(open()) << "another process";
        const auto before = files_.paths();
        ASSERT_TRUE(backUp("new", stream));
        EXPECT_EQ(added(before).size(), 2U) << "its blocks are stored again";
        EXPECT_TRUE(restores("new", stream));
        EXPECT_FALSE(restores("old", stream));
        EXPECT_EQ(packsFoundDamaged(false), 1U) << "as long as nobody mended it";

        flip(pack, c.place);
        EXPECT_EQ(packsFoundDamaged(), 0U);
        EXPECT_EQ(records(), 0U) << "what is right again has no record";
        EXPECT_TRUE(restores("old", stream));
        restoreStart();
    }
}

TEST_F(DamagedPack, IsMendedFromWhatALaterBackupStored)
{
    const std::string stream = noise('n'), other = noise('o');
    const std::string pack = storeInOwnPack("old", stream + other);
    flip(pack, 300'000);   // in a frame of the one half
    flip(pack, 1'100'000); // and of the other
    EXPECT_EQ(packsFoundDamaged(), 1U);
    EXPECT_EQ(records(), 2U);
    std::vector<std::string> lost;
    EXPECT_EQ(mend(&lost).mendedPacks, 0U) << "nothing has a copy";
    EXPECT_EQ(lost, std::vector<std::string>{"/fs//old"});
    EXPECT_EQ(records(), 2U);

    ASSERT_TRUE(backUp("half", stream));
    lost.clear();
    const store::RepairOutcome partly = mend(&lost);
    EXPECT_EQ(partly.mendedPacks, 1U);
    EXPECT_GT(partly.lostBlocks, 0U);
    EXPECT_EQ(lost, std::vector<std::string>{"/fs//old"});
    EXPECT_FALSE(restores("old", stream + other));
    EXPECT_EQ(records(), 1U) << "of the blocks that are missing";

    ASSERT_TRUE(open()) << "another process";
    ASSERT_TRUE(backUp("rest", other));
    lost.clear();
    EXPECT_EQ(mend(&lost).lostBlocks, 0U);
    EXPECT_TRUE(lost.empty());
    EXPECT_TRUE(restores("old", stream + other));
    EXPECT_TRUE(restores("half", stream));
    EXPECT_EQ(records(), 0U);
    EXPECT_EQ(packsFoundDamaged(), 0U);
}

/// A claim from before the mark keeps the old revision, which its stream may be reading.
TEST_F(DamagedPack, IsMendedOnlyWhenNobodyFromBeforeReadsIt)
{
    const std::string stream = noise('n');
    flip(storeInOwnPack("old", stream), 300'000);
    EXPECT_EQ(packsFoundDamaged(), 1U);
    ASSERT_TRUE(open());
    ASSERT_TRUE(backUp("new", stream));
    const auto info = space_->find(nameOf("new"));
    auto reader = space_->openPiece((*info)->id);
    ASSERT_TRUE(reader);
    const auto before = files_.paths();
    store::RepairOutcome outcome = mend();
    EXPECT_EQ(outcome.waitingPacks, 1U);
    EXPECT_EQ(outcome.mendedPacks, 0U);
    EXPECT_TRUE(added(before).empty());
    reader = Error{ErrorKind::stopped, ""};
    outcome = mend();
    EXPECT_EQ(outcome.mendedPacks, 1U);
    EXPECT_TRUE(restores("old", stream));
    EXPECT_EQ(packsFoundDamaged(), 0U);
}

/// Wherever a repair fails or its process dies, no piece is worse off, and the next one ends it.
TEST_F(DamagedPack, SurvivesARepairThatStopsAnywhere)
{
    const std::string stream = noise('n');
    flip(storeInOwnPack("old", stream), 300'000);
    EXPECT_EQ(packsFoundDamaged(), 1U);
    ASSERT_TRUE(open());
    ASSERT_TRUE(backUp("new", stream));
    const auto start = files_.snapshot();
    for (int failing = 1, done = false; !done; failing += 3) {
        ASSERT_LT(failing, 2000);
        SCOPED_TRACE(failing);
        const bool stops = failing % 2 == 0;
        if (stops)
            files_.stopAt(failing / 2);
        else
            files_.failAt(failing / 2 + 1, ErrorKind::io);
        done = static_cast<bool>(store::repair(*space_, false, {})) && !files_.hasFailed();
        files_.failAt(0, ErrorKind::io);
        if (stops)
            files_.losePower(test::MemoryFiles::Loss::everythingUnsynced);
        ASSERT_TRUE(open());
        EXPECT_TRUE(restores("new", stream));
        const store::RepairOutcome again = mend();
        EXPECT_EQ(again.lostBlocks, 0U);
        EXPECT_TRUE(restores("old", stream));
        EXPECT_EQ(records(), 0U);
        putBack(start);
    }
}

/// A block that was sealed under another one's identity opens, and must not be trusted all the
/// same.
TEST_F(DamagedPack, ThatContradictsAnIdentityStaysNotedWhateverWritesItAgain)
{
    const std::string stream = noise('n'), other = noise('o');
    const std::string pack = forge(storeInOwnPack("old", stream + other), Wrong::last);
    flip(pack, 300'000);
    EXPECT_EQ(packsFoundDamaged(), 1U);
    ASSERT_TRUE(backUp("half", stream));
    std::vector<std::string> lost;
    EXPECT_EQ(mend(&lost).mendedPacks, 1U) << "the frame that was flipped";
    EXPECT_EQ(lost, std::vector<std::string>{"/fs//old"});
    EXPECT_EQ(records(), 1U) << "of the block that is wrong still";
    EXPECT_EQ(mend().mendedPacks, 0U) << "nothing can be gained";
    ASSERT_TRUE(backUp("rest", other));
    EXPECT_TRUE(restores("rest", other)) << "it counts on the wrong block";
    EXPECT_EQ(mend().lostBlocks, 0U);
    EXPECT_TRUE(restores("old", stream + other));
    EXPECT_EQ(records(), 0U);
    restoreStart();

    const std::string few = stream.substr(0, 300'000);
    const std::string mostlyDead = storeInOwnPack("old", stream + other);
    ASSERT_TRUE(backUp("few", few) && remove("old"));
    forge(mostlyDead, Wrong::first);
    const auto totals = reclaimed();
    EXPECT_EQ(totals.rewrittenPacks, 0U);
    EXPECT_EQ(totals.damagedPacks.size(), 1U);
    EXPECT_EQ(records(), 1U) << "reclaiming found it";
    ASSERT_TRUE(backUp("again", few));
    EXPECT_TRUE(restores("again", few));
}

/// What no pack has any more stays known, however often its pack is written again.
TEST_F(DamagedPack, ThatLacksBlocksStaysNoted)
{
    const std::string stream = noise('n') + noise('o');
    const std::string start = stream.substr(0, 500'000);
    flip(storeInOwnPack("old", stream), 300'000);
    ASSERT_TRUE(backUp("start", start));
    EXPECT_EQ(packsFoundDamaged(), 1U);
    ASSERT_TRUE(backUp("part", stream.substr(0, 350'000)));
    EXPECT_EQ(mend().mendedPacks, 1U);
    EXPECT_EQ(records(), 1U);
    ASSERT_TRUE(remove("old") && remove("part"));
    const auto totals = reclaimed();
    EXPECT_EQ(totals.rewrittenPacks, 1U);
    const std::function<void()> finders[] = {
        [] {},                                           // reclaiming itself
        [&] { EXPECT_FALSE(restores("start", start)); }, // a restore
        [&] { (void)store::verify(*space_, {}, {}); },   // verify
    };
    for (const auto &find : finders) {
        find();
        EXPECT_EQ(records(), 1U);
        for (const std::string &path : files_.paths())
            if (path.starts_with("/r/damage/")) {
                ASSERT_TRUE(files_.unlink(path));
            }
    }
    (void)store::verify(*space_, {}, {});
    ASSERT_TRUE(backUp("again", start));
    EXPECT_EQ(mend().lostBlocks, 0U);
    EXPECT_TRUE(restores("start", start));
}

TEST_F(DamagedPack, ThatTheDiskFailsToReadHoldsUpNothingElse)
{
    using Broken = test::MemoryFiles::Broken;
    const std::string stream = noise('n'), other = noise('o');
    const std::string bad = storeInOwnPack("bad", other);
    flip(storeInOwnPack("old", stream), 300'000);
    flip(bad, 300'000);
    EXPECT_EQ(packsFoundDamaged(), 2U);
    ASSERT_TRUE(backUp("new", stream));
    for (const Broken how : {Broken::reading, Broken::opening}) {
        files_.breakFile(bad, how);
        const store::RepairOutcome outcome = mend();
        EXPECT_EQ(outcome.stuckPacks, 1U);
        EXPECT_TRUE(restores("old", stream));
        const auto totals = reclaimed();
        EXPECT_EQ(totals.damagedPacks.size(), 1U);
        for (const std::string &path : files_.paths())
            EXPECT_FALSE(path.starts_with("/r/removed/")) << "it frees what is dead";
    }
    files_.breakFile(bad, Broken::no);
    flip(bad, 300'000);
    EXPECT_TRUE(restores("bad", other));
}

} // namespace
