// A process that removes a node, or works in one, sleeps at any step of it; meanwhile the node is
// removed, and another one is registered under its name.
#include "client/store/nodes/node_removal.h"
#include "tests/client/store/late_fixture.h"

namespace
{

using namespace arca;
using LateNode = test::LateFixture;

/// The number of the state that a change of the password is about to write is not given again to
/// the next node of the name.
TEST_F(LateNode, APasswordOfARemovedOneLeavesALaterOneAlone)
{
    const std::string later(64, 'b'), late(64, 'c');
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        moveToOtherHost();
        host_->stopBefore(n, [&] {
            const auto here = store::Repository::open(blobs(), "test").value();
            EXPECT_TRUE(store::removeNode(here->blobs(), "node", [](auto) { return true; }));
            EXPECT_FALSE(here->nodes().isRegistered("node").value());
            EXPECT_TRUE(here->nodes().registerNode("node", later));
        });
        (void)repository_->nodes().changePassword("node", test::kPassword, late);
        if (!host_->hasStopped())
            break;
        EXPECT_TRUE(repository_->logOn("node", later));
        EXPECT_FALSE(repository_->logOn("node", late));
        restoreStart();
    }
}

/// A session that logged on before the node was removed stores nothing in what is left of it.
TEST_F(LateNode, ThatIsRemovedMeanwhileTakesNothingMore)
{
    const auto storeOne = [&]() -> Result<void> {
        ARCA_CHECK(space_->registerFilespace({"", "/late", "ORACLE", "", 0, 0, 0}));
        store::PieceDescription description;
        description.name = {"/late", "/", "/new", 1};
        ARCA_TRY(const auto writer, space_->beginPiece(description));
        ARCA_CHECK(writer->append(viewOf(test::streamOf('n', 3000))));
        ARCA_CHECK(writer->finish());
        return space_->commit(*writer, 1);
    };
    for (const bool several : {false, true})
        for (int n = 1;; ++n) {
            SCOPED_TRACE(n);
            moveToOtherHost();
            bool shown = false;
            host_->stopBefore(n, [&] {
                const auto here = store::Repository::open(blobs(), "test").value();
                auto space = here->logOn("node", test::kPassword).value();
                const auto one = space->find({several ? "/fs" : "/late", "/", "/new", 1});
                shown = one && *one;
                space.reset();
                (void)store::removeNode(here->blobs(), "node", [](auto) { return true; });
            });
            const auto done = several ? exchange(Old::removed) : storeOne();
            if (!host_->hasStopped())
                break;
            EXPECT_TRUE(!done || shown) << "acknowledged in a node that was removed before";
            EXPECT_EQ(pathsUnder({"filespaces"}), std::vector<std::string>{}) << "a ghost";
            space_.reset();
            files_.putBack(start_);
            ASSERT_TRUE(open());
        }
}

/// A removal sleeps at any step; another one finishes it, and a node of that name is registered.
TEST_F(LateNode, ARemovalLeavesALaterOneAlone)
{
    const std::string later(64, 'b');
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        moveToOtherHost();
        bool removed = false;
        host_->stopBefore(n, [&] {
            const auto here = store::Repository::open(blobs(), "test").value();
            (void)store::removeNode(here->blobs(), "node", [](auto) { return true; });
            removed = !here->nodes().isRegistered("node").value() &&
                      here->nodes().registerNode("node", later);
            auto space = here->logOn("node", later).value();
            EXPECT_TRUE(space->registerFilespace({"", "/fs", "ORACLE", "", 0, 0, 0}));
            std::swap(space_, space);
            EXPECT_TRUE(backUp("kept", 'n', 3000));
            std::swap(space_, space);
        });
        (void)store::removeNode(repository_->blobs(), "node", [](auto) { return true; });
        if (!host_->hasStopped())
            break;
        const auto again = store::Repository::open(blobs(), "test").value();
        ASSERT_TRUE(removed);
        space_ = again->logOn("node", later).value();
        expectPiece("kept", 'n', 3000);
        EXPECT_TRUE(isSound());
        space_.reset();
        files_.putBack(start_);
        ASSERT_TRUE(open());
    }
}

/// Somebody was shown what a node keeps, and agreed. What is stored while it is being removed is
/// refused or makes the removal give up, unless another one finishes that.
TEST_F(LateNode, ARemovalTakesOnlyWhatWasShown)
{
    for (const bool finishes : {false, true})
        for (int n = 1;; ++n) {
            SCOPED_TRACE(n);
            moveToOtherHost();
            Elsewhere channel(files_);
            const auto shown = store::summaryOf(repository_->blobs(), "node").value();
            bool stored = false, finished = false;
            host_->stopBefore(n, [&] {
                std::swap(space_, channel.space);
                const auto writer = this->finished("late", test::streamOf('l', 3000));
                stored = writer && space_->commit(**writer, registration_);
                std::swap(space_, channel.space);
                const auto here = store::Repository::open(blobs(), "test").value();
                finished =
                    finishes && store::removeNode(here->blobs(), "node", [](auto) { return true; });
            });
            const auto removed = store::removeNode(
                repository_->blobs(), "node", [](auto) { return true; }, &shown);
            const bool stopped = host_->hasStopped();
            const auto here = store::Repository::open(blobs(), "test").value();
            EXPECT_EQ(here->nodes().isRegistered("node").value(), !removed && !finished);
            EXPECT_EQ(finished, finishes && stopped);
            EXPECT_FALSE(removed && stored && !finished) << "it goes without having been shown";
            if (!removed && !finished) {
                EXPECT_TRUE(open());
                expectPiece("kept", 'k', 5000);
                EXPECT_TRUE(isSound());
            }
            space_.reset();
            files_.putBack(start_);
            ASSERT_TRUE(open());
            if (!stopped)
                break;
        }
}

} // namespace
