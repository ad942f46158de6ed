// A piece that is moved by one process while another one changes, removes, sets aside or brings
// back what has its name: wherever either of them stops, the piece is in one of its places.
#include "client/store/marks/quarantine.h"
#include "client/store/upkeep/blob_removal.h"
#include "client/store/upkeep/repair.h"
#include "tests/client/store/late_fixture.h"
#include "tests/client/store/reclaim_fixture.h"

namespace
{

using namespace arca;

class LatePiece : public test::LateFixture
{
protected:
    std::string pathUnder(const std::string &room)
    {
        auto paths = pathsUnder({room});
        std::erase_if(paths, [](const std::string &path) { return path.ends_with(".packs"); });
        EXPECT_EQ(paths.size(), 1U) << room;
        return paths.empty() ? std::string() : paths.front();
    }
    /// Makes the manifest unreadable, or readable again.
    void flip(const std::string &path) { files_.contentOf(path)[70] ^= 1; }
    void repair(store::NodeSpace &space) { EXPECT_TRUE(store::repair(space, false, {})); }
    store::NodeSpace::Sent sent(const std::unique_ptr<store::PieceWriter> &writer) const
    {
        return {writer.get(), registration_};
    }
    /// A process replaces "kept" and dies with the decision; `decided`: just after it.
    void dieReplacing(bool decided)
    {
        Elsewhere dying(files_);
        std::swap(dying.space, space_);
        dying.host.dieDeciding(decided);
        EXPECT_FALSE(replace(Old::removed));
        files_.stopAt(0);
        std::swap(dying.space, space_);
    }
};

// The name is free for a moment while a piece comes in the place of another one: just then a repair
// puts the piece of the quarantine there.
TEST_F(LatePiece, BroughtBackWhileAnotherOneComesUnderItsNameBecomesInactive)
{
    const std::string path = pathUnder("pieces");
    const auto next = successor('c', "3").value();
    flip(path);
    ASSERT_TRUE(space_->setAside(nameOf("kept")));
    ASSERT_TRUE(space_->commit(*next, registration_));
    flip(pathUnder("quarantine"));
    const auto begun = files_.snapshot();
    for (const bool repairFirst : {false, true})
        meetEverywhere([&](int n, int m) {
            Elsewhere one(files_), other(files_);
            auto &maker = repairFirst ? other : one;
            std::swap(maker.space, space_);
            const auto fresh = successor('r', "2").value();
            const auto old = space_->find(nameOf("kept")).value();
            std::swap(maker.space, space_);
            const store::NodeSpace::Sent all[] = {sent(fresh)};
            Result<void> replaced;
            const auto replaceIt = [&] {
                replaced = maker.space->commitTogether({all, std::span(&old->id, 1), {}});
            };
            const auto met =
                repairFirst
                    ? meet(
                          one.host, n, [&] { repair(*one.space); }, other.host, m, replaceIt)
                    : meet(one.host, n, replaceIt, other.host, m, [&] { repair(*other.space); });
            settleHere();
            EXPECT_TRUE(open());
            repair(*space_);
            EXPECT_EQ(state(), replaced ? " kept2 (kept)" : " kept3 (kept)");
            EXPECT_TRUE(isSound());
            putBack(begun);
            return met;
        });
}

// A read that failed in passing: one process sets the piece aside, a second one finds it readable
// in the quarantine.
TEST_F(LatePiece, SetAsideAndBroughtBackAtOnceIsLostByNeither)
{
    const std::string path = pathUnder("pieces");
    for (const bool repairFirst : {false, true})
        meetEverywhere([&](int n, int m) {
            // As one that was killed within leaves it.
            const std::string bytes = files_.contentOf(path);
            flip(path);
            const auto aside = space_->setAside(nameOf("kept"));
            EXPECT_TRUE(aside);
            flip("/r/" + *aside);
            EXPECT_TRUE(blob::putWhole(repository_->blobs(), path.substr(3), viewOf(bytes)));
            Elsewhere one(files_), other(files_);
            auto &setter = repairFirst ? other : one;
            const auto judged = setter.repository->blobs().open(path.substr(3)).value();
            const auto setAside = [&] { (void)setter.space->setAside(path.substr(3), *judged); };
            const auto met =
                repairFirst
                    ? meet(
                          one.host, n, [&] { repair(*one.space); }, other.host, m, setAside)
                    : meet(one.host, n, setAside, other.host, m, [&] { repair(*other.space); });
            EXPECT_TRUE(open());
            repair(*space_);
            EXPECT_EQ(state(), " kept");
            EXPECT_TRUE(isSound());
            restoreStart();
            return met;
        });
}

// What becomes of a piece that is in its place as well as in the quarantine, as a repair or a
// setting aside leaves it that was killed; and while a repair sleeps, which another one overtakes.
TEST_F(LatePiece, OfTheQuarantineStaysWhatItBecameSince)
{
    using Ids = std::span<const store::PieceId>;
    const auto id = space_->find(nameOf("kept")).value()->id;
    const Ids ids(&id, 1);
    const auto deactivate = [&] { EXPECT_TRUE(space_->commitTogether({{}, {}, ids})); };
    const auto remove = [&] { EXPECT_TRUE(space_->remove(id)); };
    const auto purge = [&] { EXPECT_TRUE(reclaimAll()); };
    const auto rename = [&] { EXPECT_TRUE(space_->rename(nameOf("kept"), nameOf("moved"))); };
    const auto store = [&] {
        EXPECT_TRUE(finished("kept", test::streamOf('r', 4100), "2").value()->commit());
    };
    using Steps = std::vector<std::function<void()>>;
    const struct {
        const char *what;
        Steps steps;
        const char *after;
        bool inactive = false;
    } cases[] = {
        {"inactive", {deactivate}, " (kept)"},
        {"inactive, and its name in use", {deactivate, store}, " kept2 (kept)"},
        {"removed", {remove}, ""},
        {"removed, and its name in use", {remove, store}, " kept2"},
        {"purged", {remove, purge}, ""},
        {"renamed", {rename}, " moved"},
        {"renamed and purged", {rename, purge}, " moved"},
        {"brought back", {remove, [&] { EXPECT_TRUE(space_->undelete(id)); }}, " kept"},
        {"removed when it was inactive", {remove}, "", true},
        {"purged when it was inactive", {remove, purge}, "", true},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        if (one.inactive)
            deactivate();
        const std::string path = pathUnder(one.inactive ? "inactive" : "pieces");
        const std::string bytes = files_.contentOf(path);
        flip(path);
        flip("/r/" +
             space_->setAside(path.substr(3), **repository_->blobs().open(path.substr(3))).value());
        const auto aside = files_.snapshot();
        bool stopped = true;
        for (int n = 0; stopped && !HasFailure(); ++n) {
            SCOPED_TRACE(n);
            Elsewhere late(files_);
            const auto meanwhile = [&] {
                for (const auto &step : one.steps)
                    step();
            };
            if (n == 0) { // killed
                EXPECT_TRUE(blob::putWhole(repository_->blobs(), path.substr(3), viewOf(bytes)));
                meanwhile();
            } else {
                late.host.stopBefore(n, [&] {
                    repair(*space_);
                    meanwhile();
                });
                store::RepairWatcher watcher;
                watcher.setAside = [&](const store::SetAside &told) {
                    EXPECT_TRUE(!told.now.empty() || told.dropped ||
                                !pathsUnder({"quarantine"}).empty())
                        << "what lies there no more is not kept there: " << told.reason;
                };
                (void)store::repair(*late.space, false, watcher);
                stopped = late.host.hasStopped();
            }
            EXPECT_TRUE(open());
            repair(*space_);
            if (stopped) {
                EXPECT_EQ(state(), one.after);
                if (!space_->find(nameOf("kept")).value())
                    store(); // nothing keeps its name
            }
            files_.putBack(aside);
            EXPECT_TRUE(open());
        }
        restoreStart();
    }
}

/// With a piece that needs little of its pack, so that reclaiming marks it.
class LateReturn : public test::ReclaimTest
{
protected:
    struct Meeting : test::LateFixture { // lends how two processes meet
        using LateFixture::meet;
    };
    void flip(const std::string &path) { files_.contentOf(path)[70] ^= 1; }
};

// What takes the claim of a repair for dead has not counted what that publishes afterwards.
TEST_F(LateReturn, BesideAReclaimingThatCallsItsClaimDeadLosesNothing)
{
    const auto active = space_->find(nameOf("few")).value()->id;
    std::string path;
    for (const std::string &one : files_.paths())
        if (one.starts_with("/r/pieces/"))
            path = one;
    flip(path);
    const auto aside = space_->setAside(nameOf("few"));
    ASSERT_TRUE(aside);
    flip("/r/" + *aside);
    const auto begun = files_.snapshot();
    bool paused = true;
    for (int m = 1; paused && !HasFailure(); ++m) {
        SCOPED_TRACE(m);
        OtherHost repairing(*this), reclaiming(*this);
        // Stops where it has its claims and looks for the lock.
        const auto met = Meeting::meet(
            repairing.files, 2, [&] { (void)store::repair(*repairing.space, false, {}); },
            reclaiming.files, m,
            [&] {
                for (const std::string &claim : files_.paths())
                    if (claim.starts_with("/r/tmp/")) {
                        EXPECT_TRUE(files_.unlink(claim));
                    }
                (void)store::Reclaim(*reclaiming.space, test::kAtOnce).run();
            });
        EXPECT_TRUE(met.stopped);
        paused = met.paused;
        open();
        EXPECT_TRUE(store::repair(*space_, false, {}));
        expectPiece(active, few_);
        putBack(begun);
    }
}

TEST_F(LatePiece, SetAsideWhileItWaitedIsBroughtBackToItsNameIfItsChangeIsDone)
{
    for (const bool decided : {false, true}) {
        SCOPED_TRACE(decided);
        dieReplacing(decided);
        const std::string path = pathUnder("coming"), whole = files_.contentOf(path);
        flip(path);
        if (decided) {
            settleHere();
        } else {
            // It is damaged, and goes with its change at the same moment.
            (void)store::removeBlob(*space_, path.substr(3));
        }
        EXPECT_EQ(pathsUnder({"coming"}).size(), 0U);
        flip(pathUnder("quarantine"));
        ASSERT_TRUE(open());
        EXPECT_EQ(store::repair(*space_, true, {})->broughtBack, decided ? 1U : 0U);
        EXPECT_EQ(store::repair(*space_, false, {})->broughtBack, decided ? 1U : 0U);
        EXPECT_EQ(state(), decided ? " kept2" : " kept");
        EXPECT_EQ(isSound(), decided) << "verifying names what stays in the quarantine";
        restoreStart();
    }
}

// Where blobs cannot have two names a settling process puts a copy, late as it may be.
TEST_F(LatePiece, RemovedOrInactiveStaysSoWhenItIsCopiedToItsNameLate)
{
    for (const bool removes : {false, true}) {
        bool stopped = true;
        for (int n = 1; stopped && !HasFailure(); ++n) {
            SCOPED_TRACE((removes ? "removed, step " : "inactive, step ") + std::to_string(n));
            dieReplacing(true);
            Elsewhere late(files_);
            late.host.links = false;
            late.host.stopBefore(n, [&] {
                const auto found = space_->find(nameOf("kept"));
                ASSERT_TRUE(found && *found);
                const std::span<const store::PieceId> id(&(*found)->id, 1);
                EXPECT_TRUE(removes ? space_->remove(id[0]) : space_->commitTogether({{}, {}, id}));
            });
            late.space->settleChanges();
            stopped = late.host.hasStopped();
            ASSERT_TRUE(open());
            const auto shown = space_->find(nameOf("kept"));
            EXPECT_TRUE(shown && static_cast<bool>(*shown) == !stopped);
            EXPECT_EQ(space_->inactiveOf(nameOf("kept"))->size(), stopped && !removes ? 1U : 0U);
            EXPECT_EQ(pathsUnder({"coming", "pieces"}).size(), stopped ? 0U : 1U);
            EXPECT_TRUE(isSound());
            restoreStart();
        }
    }
}

// Killed between the last two steps of a change, a piece is in two places.
TEST_F(LatePiece, ThatIsInTwoPlacesLeavesBothWhenItBecomesInactive)
{
    dieReplacing(true);
    const std::string coming = pathUnder("coming"), bytes = files_.contentOf(coming);
    settleHere();
    ASSERT_TRUE(blob::putWhole(repository_->blobs(), coming.substr(3), viewOf(bytes)));
    const auto found = space_->find(nameOf("kept"));
    ASSERT_TRUE(found && *found);
    ASSERT_TRUE(space_->commitTogether({{}, {}, std::span(&(*found)->id, 1)}));
    EXPECT_EQ(pathsUnder({"coming", "pieces"}).size(), 0U);
    EXPECT_FALSE(*space_->find(nameOf("kept")));
}

} // namespace
