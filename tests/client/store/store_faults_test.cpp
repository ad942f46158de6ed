// The repository over files that fail, and over a machine that stops: for every file operation of a
// small piece of work in turn. Whatever happens, what was acknowledged is there, what was not is
// there whole or not at all, and the work can be done again.
#include "tests/client/store/store_faults_fixture.h"

namespace
{

using namespace arca;
using test::kPassword;
using test::MemoryFiles;
using test::StoreFaults;
using test::streamOf;

// Under a sanitizer only some of the operations, others for each way to fail: it takes ten times as
// long.
#ifdef KEEL_TEST_SANITIZED
constexpr int kStride = 4;
#else
constexpr int kStride = 1;
#endif

class AnyOperation : public StoreFaults, public testing::WithParamInterface<MemoryFiles::Fault>
{
};

TEST_P(AnyOperation, ThatGoesWrongIsOneClearErrorOrNoneAndHurtsNothing)
{
    for (const Work &work : works()) {
        for (int n = 1 + static_cast<int>(GetParam()) % kStride;; n += kStride) {
            SCOPED_TRACE(std::string(work.name) + ", operation " + std::to_string(n));
            files_.failAt(n, n / kStride % 2 == 0 ? ErrorKind::full : ErrorKind::io, GetParam());
            const auto done = work.run(*this);
            const bool came = files_.hasFailed();
            files_.failAt(0, ErrorKind::io);
            if (!done) {
                EXPECT_TRUE(came) << done.error().text;
                EXPECT_NE(done.error().text, "");
            }
            ASSERT_TRUE(open());
            const std::string shown = expectWhole(work, static_cast<bool>(done));
            if (!done && std::string(work.name) != "removal") {
                ASSERT_EQ(shown, work.before) << "what was refused shows";
            }
            restoreStart();
            if (!came || HasFailure())
                break;
        }
    }
}

std::string nameOfFault(const testing::TestParamInfo<MemoryFiles::Fault> &tested)
{
    constexpr const char *kNames[] = {"Fails", "Tears", "IsLost", "IsDelayed"};
    return kNames[static_cast<int>(tested.param)];
}

INSTANTIATE_TEST_SUITE_P(OfEveryWork, AnyOperation,
                         testing::Values(MemoryFiles::Fault::fails, MemoryFiles::Fault::tears,
                                         MemoryFiles::Fault::isLost, MemoryFiles::Fault::delays),
                         nameOfFault);

TEST_F(StoreFaults, AtNoBytesFreeWhatFreesSpaceGoesOnAndTheRestIsRefusedWhole)
{
    const std::set<std::string> free = {"removal", "emptying", "session", "restore", "reclaim"};
    const std::string kinds[] = {"as it was", "without a reserve", "with one again"};
    for (const std::string &kind : kinds) {
        for (const Work &work : works()) {
            SCOPED_TRACE(work.name + (", " + kind));
            const bool reserve = kind != kinds[1];
            if (reserve)
                repository_->blobs().keepReserve();
            files_.limitSpace(0);
            const auto done = work.run(*this);
            if (!free.contains(work.name)) {
                EXPECT_TRUE(!done && done.error().kind == ErrorKind::full);
            } else if (reserve) {
                EXPECT_TRUE(done) << done.error().text;
            }
            ASSERT_TRUE(open());
            EXPECT_EQ(state(), done ? work.after : work.before);
            files_.liftLimit();
            expectWhole(work, static_cast<bool>(done));
            restoreStart();
        }
    }
}

class PowerLoss : public StoreFaults, public testing::WithParamInterface<MemoryFiles::Loss>
{
};

TEST_P(PowerLoss, WhateverMomentItComesNothingAcknowledgedIsLost)
{
    for (const Work &work : works()) {
        for (int n = 1 + static_cast<int>(GetParam()) % kStride;; n += kStride) {
            SCOPED_TRACE(std::string(work.name) + ", operation " + std::to_string(n));
            files_.stopAt(n);
            const auto done = work.run(*this);
            const bool came = files_.hasFailed();
            space_.reset();
            repository_.reset();
            files_.losePower(GetParam());
            const auto opened = open();
            ASSERT_TRUE(opened) << opened.error().text;
            expectWhole(work, static_cast<bool>(done));
            restoreStart();
            if (!came)
                break;
        }
    }
}

std::string nameOfLoss(const testing::TestParamInfo<MemoryFiles::Loss> &tested)
{
    constexpr const char *kNames[] = {"NamesAndContent", "Content", "Names"};
    return kNames[static_cast<int>(tested.param)];
}

INSTANTIATE_TEST_SUITE_P(OfWhatIsNotSynced, PowerLoss,
                         testing::Values(MemoryFiles::Loss::everythingUnsynced,
                                         MemoryFiles::Loss::contentUnsynced,
                                         MemoryFiles::Loss::namesUnsynced),
                         nameOfLoss);

/// One process dies, another goes on over what it left, and then the power goes: with it goes what
/// the first one did, or took away, and did not sync. The other one must not have counted on that.
TEST_F(StoreFaults, WhatADeadProcessDidNotSyncIsCountedOnByNobody)
{
    const auto die = [&](int n, const auto &act) {
        files_.stopAt(n);
        act();
        const bool came = files_.hasFailed();
        space_.reset();
        repository_.reset();
        files_.failAt(0, ErrorKind::io);
        EXPECT_TRUE(open());
        return came;
    };
    const auto losePower = [&] {
        space_.reset();
        repository_.reset();
        files_.losePower(MemoryFiles::Loss::everythingUnsynced);
        EXPECT_TRUE(open());
    };
    bool came = true;
    for (int n = 1; came && !HasFailure(); n += kStride) {
        SCOPED_TRACE("a node, operation " + std::to_string(n));
        came = die(n, [&] { (void)repository_->nodes().registerNode("third", kPassword); });
        const auto known = repository_->authenticate("third", kPassword);
        EXPECT_TRUE(known || repository_->nodes().registerNode("third", kPassword));
        losePower();
        EXPECT_TRUE(repository_->authenticate("third", kPassword));
        putBack(start_);
    }
    const std::set<std::string> some = {"backup",   "removal",     "rename",
                                        "together", "superseding", "replacing"};
    for (const Work &work : works()) {
        came = some.contains(work.name);
        for (int n = 1; came && !HasFailure(); n += 3 * kStride) {
            SCOPED_TRACE(std::string(work.name) + ", operation " + std::to_string(n));
            came = die(n, [&] { (void)work.run(*this); });
            EXPECT_TRUE(rules().complete(space_->dataKey()));
            space_->settleChanges();
            const bool isToDo = state() == work.before && work.before != std::string(work.after);
            const bool done = isToDo && work.run(*this);
            EXPECT_TRUE(reclaimAll());
            losePower();
            expectWhole(work, done);
            restoreStart();
        }
    }
}

TEST_F(StoreFaults, ARemovalNeverTakesThePieceThatReplacedTheOneMeant)
{
    const std::string prefix = "/r/";
    std::string blobName;
    for (const std::string &path : files_.paths())
        if (path.starts_with(prefix + "pieces/"))
            blobName = path.substr(prefix.size());
    const auto old = space_->find(nameOf("kept"));
    auto meant = repository_->blobs().open(blobName);
    ASSERT_TRUE(old && *old && meant);
    ASSERT_TRUE(remove("kept"));
    ASSERT_TRUE(backUp("kept", 'x', 10));

    const auto byIdentifier = space_->remove((*old)->id);
    ASSERT_FALSE(byIdentifier);
    EXPECT_EQ(byIdentifier.error().kind, ErrorKind::notFound);
    // The same when the replacement comes after the look-up.
    const auto lookedUpBefore = repository_->blobs().remove(blobName, **meant);
    ASSERT_FALSE(lookedUpBefore);
    EXPECT_EQ(lookedUpBefore.error().kind, ErrorKind::notFound);
    expectPiece("kept", 'x', 10);
    // And when the one meant has another name by then.
    const auto chosen = space_->find(nameOf("kept")).value()->id;
    const std::span<const store::PieceId> ids(&chosen, 1);
    ASSERT_TRUE(space_->rename(nameOf("kept"), nameOf("moved")));
    for (const auto &late : {space_->remove(chosen), space_->commitTogether({{}, ids, {}}),
                             space_->commitTogether({{}, {}, ids})}) {
        ASSERT_FALSE(late);
        EXPECT_EQ(late.error().kind, ErrorKind::notFound);
    }
    expectPiece("moved", 'x', 10);
}

} // namespace
