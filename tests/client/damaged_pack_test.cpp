// What becomes of pieces when a pack is damaged: the damage is recorded for every host, streams
// store its blocks again, and a repair makes old pieces whole from copies.
#include "client/store/damage.h"
#include "client/store/repair.h"
#include "tests/client/store_faults_fixture.h"

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

    Result<void> store(const std::string &piece, const std::string &stream)
    {
        store::PieceDescription description;
        description.name = nameOf(piece);
        ARCA_TRY(const auto writer, space_->beginPiece(description));
        ARCA_CHECK(writer->append(viewOf(stream)));
        ARCA_CHECK(writer->finish());
        return writer->commit();
    }

    /// Returns the path of the pack that it was stored in.
    std::string storeInOwnPack(const std::string &piece, const std::string &stream)
    {
        const auto before = files_.paths();
        EXPECT_TRUE(store(piece, stream));
        const auto blobs = added(before);
        EXPECT_EQ(blobs.size(), 2U) << "a pack and a manifest";
        return blobs.empty() ? std::string() : blobs.front();
    }

    void flip(const std::string &path, std::size_t place)
    {
        std::string &bytes = files_.contentOf(path);
        bytes.at(place) = static_cast<char>(bytes.at(place) ^ 4);
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
        ASSERT_TRUE(store("new", stream));
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

    ASSERT_TRUE(store("half", stream));
    lost.clear();
    const store::RepairOutcome partly = mend(&lost);
    EXPECT_EQ(partly.mendedPacks, 1U);
    EXPECT_GT(partly.lostBlocks, 0U);
    EXPECT_EQ(lost, std::vector<std::string>{"/fs//old"});
    EXPECT_FALSE(restores("old", stream + other));
    EXPECT_EQ(records(), 1U) << "of the blocks that are missing";

    ASSERT_TRUE(open()) << "another process";
    ASSERT_TRUE(store("rest", other));
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
    ASSERT_TRUE(store("new", stream));
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
    ASSERT_TRUE(store("new", stream));
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
        space_.reset();
        repository_.reset();
        files_.putBack(start);
        ASSERT_TRUE(open());
    }
}

} // namespace
