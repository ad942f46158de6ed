// A process that makes a change sleeps at any step of it, while others see a plan that was left and
// settle it; then it wakes. What holds is one decision, the same for everybody.
#include "client/store/records/numbered_record.h"
#include "tests/client/store/late_fixture.h"

#include <map>

namespace
{

using namespace arca;
using test::AnotherHost;

class LateChange : public test::LateFixture
{
protected:
    std::vector<std::string> manifests() { return pathsUnder({"pieces", "inactive", "coming"}); }

    void neverEnds(const Work &work);
    Met expectOneWinner(int n, int m, bool removed);
    void removeActive(store::PieceId id);
};

TEST_F(LateChange, MeetsWhatWasDecidedWhileItSlept)
{
    for (const Work &work : works()) {
        const std::map<std::string, std::size_t> left = {{"rename", 1},
                                                         {"together", 2},
                                                         {"superseding", 3},
                                                         {"replacing", 1},
                                                         {"replacing and keeping", 2}};
        if (!left.contains(work.name))
            continue;
        int settledBefore = 0, settledAfter = 0;
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(work.name) + ", step " + std::to_string(n));
            moveToOtherHost();
            host_->stopBefore(n, [&] { settleHere(); });
            const auto done = work.run(*this);
            if (!host_->hasStopped())
                break;
            EXPECT_EQ(state(), done ? work.after : work.before);
            ++(done ? settledAfter : settledBefore);
            ASSERT_TRUE(open());
            EXPECT_EQ(state(), done ? work.after : work.before);
            EXPECT_TRUE(isSound());
            EXPECT_TRUE(space_->tidyOutcomes());
            EXPECT_EQ(manifests().size(), done ? left.at(work.name) : 1U);
            // It can be made again, under the same names.
            if (!done) {
                EXPECT_TRUE(work.run(*this));
            }
            EXPECT_EQ(state(), work.after);
            EXPECT_TRUE(reclaimAll());
            EXPECT_EQ(state(), work.after);
            restoreStart();
        }
        EXPECT_GT(settledBefore, 3) << work.name;
        EXPECT_GT(settledAfter, 1) << work.name;
        restoreStart();
    }
}

/// The maker dies when it wakes, at any later step; what it published late never shows.
TEST_F(LateChange, ThatNeverEndsHidesNothingAndHoldsNoName)
{
    for (const Work &work : works())
        if (std::set<std::string>{"superseding", "replacing"}.contains(work.name))
            neverEnds(work);
}

void LateChange::neverEnds(const Work &work)
{
    for (int n = 1;; ++n) {
        bool stopped = false;
        for (int more = 1; more < 40; ++more) {
            SCOPED_TRACE(work.name + (", stopped at step " + std::to_string(n)) + ", dead after " +
                         std::to_string(more));
            moveToOtherHost();
            bool died = false;
            host_->stopBefore(n, [&] {
                settleHere();
                host_->stopBefore(more, [&] {
                    died = true;
                    files_.stopAt(1);
                });
            });
            const auto done = work.run(*this);
            files_.stopAt(0);
            stopped = died || host_->hasStopped();
            ASSERT_TRUE(open());
            const std::string shown = state();
            EXPECT_TRUE(shown == work.before || shown == work.after) << shown;
            EXPECT_TRUE(!done || shown == work.after);
            settleHere();
            EXPECT_EQ(state(), shown);
            if (shown == work.before) {
                EXPECT_TRUE(work.run(*this)) << "a name is held by what nobody sees";
            }
            EXPECT_EQ(state(), work.after);
            EXPECT_TRUE(isSound());
            restoreStart();
            if (!died)
                break;
        }
        if (!stopped || HasFailure())
            break;
    }
}

/// The one that settles sleeps, another one settles the rest, and new pieces take the names.
TEST_F(LateChange, IsSettledByALateProcessThatTakesNothingOfWhatCameSince)
{
    for (const bool decided : {false, true}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE((decided ? "done, step " : "undecided, step ") + std::to_string(n));
            moveToOtherHost();
            host_->dieDeciding(decided);
            ASSERT_FALSE(works()[6].run(*this));
            files_.stopAt(0);

            moveToOtherHost();
            host_->stopBefore(n, [&] {
                auto here = store::Repository::open(blobs(), "test").value();
                auto space = here->logOn("node", test::kPassword).value();
                space->settleChanges();
                std::swap(space, space_);
                EXPECT_EQ(state(), decided ? " new newer (kept)" : " kept");
                EXPECT_EQ(static_cast<bool>(works()[6].run(*this)), !decided);
                if (decided) {
                    EXPECT_TRUE(remove("new") && backUp("new", 'n', 3000) &&
                                backUp("kept", 'k', 5000));
                }
                std::swap(space, space_);
            });
            space_->settleChanges();
            const bool stopped = host_->hasStopped();
            ASSERT_TRUE(open());
            if (stopped) {
                EXPECT_EQ(state(), decided ? " kept new newer (kept)" : " new newer (kept)");
                EXPECT_TRUE(isSound());
            }
            restoreStart();
            if (!stopped || HasFailure())
                break;
        }
    }
}

// What is superseded goes, and its number is free again; a writer that slept must not take it for
// the next one.
TEST_F(LateChange, ARecordsNumberIsGivenOnce)
{
    blob::DirectoryStore here("/r", files_);
    store::NumberedRecord record(here, "records/one");
    const auto write = [&](std::uint32_t after, const std::string &text) {
        return record.write(after, viewOf(text)) ? "" : "conflict";
    };
    for (std::uint32_t after = 0; after < 5; ++after) {
        for (std::uint32_t late = 0; late < after; ++late)
            EXPECT_STREQ(write(late, "late"), "conflict") << late << " of " << after;
        EXPECT_STREQ(write(after, std::to_string(after)), "");
    }
    const auto latest = record.latest();
    ASSERT_TRUE(latest && *latest);
    EXPECT_EQ(textOf((*latest)->bytes), "4");
}

/// A listing may miss the state that comes meanwhile, and the one that goes.
TEST_F(LateChange, ARecordIsFoundByAListingThatAChangeGoesOnBeside)
{
    AnotherHost files(files_);
    blob::DirectoryStore here("/r", files_), there("/r", files);
    store::NumberedRecord record(here, "records/one");
    for (std::uint32_t after = 0; after < 4; after += 2) {
        ASSERT_TRUE(record.write(after, viewOf("before")));
        files.whileListing = [&] { EXPECT_TRUE(record.write(after + 1, viewOf("meanwhile"))); };
        const auto latest = store::NumberedRecord(there, "records/one").latest();
        EXPECT_TRUE(latest && *latest) << after;
    }
}

/// What came with a change that is not made is neither stored, nor removed, when its filespace
/// goes.
TEST_F(LateChange, IntoAFilespaceThatIsDeletedMeanwhileShowsBeforeOrNever)
{
    const auto shows = [&](store::NodeSpace &space) {
        const auto found = space.find(nameOf("new"));
        return found && *found;
    };
    const auto storeOne = [&]() -> Result<void> {
        ARCA_TRY(const auto writer, finished("new", test::streamOf('n', 3000)));
        return space_->commit(*writer, registration_);
    };
    // Whichever is first stops where the other one meets it.
    for (const auto &[deletesFirst, several] :
         {std::pair(false, true), {true, true}, {false, false}})
        meetEverywhere([&, deletesFirst = deletesFirst, several = several](int n, int m) {
            Elsewhere maker(files_), other(files_);
            Result<void> done;
            bool before = false, atEnd = false;
            std::swap(maker.space, space_);
            const auto makes = [&] {
                done = several ? exchange(Old::removed) : storeOne();
                atEnd = shows(*space_);
            };
            const auto deletes = [&] {
                before = shows(*other.space);
                (void)other.space->deleteFilespace("/fs");
            };
            const auto met = deletesFirst ? meet(other.host, n, deletes, maker.host, m, makes)
                                          : meet(maker.host, n, makes, other.host, m, deletes);
            EXPECT_TRUE(!done || before || atEnd || deletesFirst)
                << "acknowledged in a filespace that was deleted";
            EXPECT_TRUE(open());
            EXPECT_TRUE(space_->visitRemoved([&](const store::RemovedPiece &piece) {
                const std::string &name = piece.info.description.name.lowLevel;
                EXPECT_TRUE(!name.starts_with("/new") || done) << name << " was never stored";
                return true;
            }));
            restoreStart();
            return met;
        });
}

/// A deletion, or a registration after one, sleeps while the filespace is registered again and gets
/// pieces.
TEST_F(LateChange, OfAFilespaceTakesNothingThatCameIntoALaterOne)
{
    const store::Filespace filespace{"", "/fs", "ORACLE", "", 0, 0, 0};
    for (const bool registers : {false, true})
        for (int n = 1; !HasFailure(); ++n) {
            SCOPED_TRACE((registers ? "registers, step " : "deletes, step ") + std::to_string(n));
            if (registers) {
                ASSERT_TRUE(space_->deleteFilespace("/fs"));
            }
            Elsewhere late(files_);
            bool stored = false;
            late.host.stopBefore(n, [&] {
                (void)space_->deleteFilespace("/fs");
                EXPECT_TRUE(space_->registerFilespace(filespace));
                const auto writer = finished("kept", test::streamOf('s', 3000));
                const auto again = (*space_->filespace("/fs"))->registration;
                stored = writer && space_->commit(**writer, again);
                EXPECT_TRUE(stored);
            });
            (void)(registers ? late.space->registerFilespace(filespace)
                             : late.space->deleteFilespace("/fs", registration_));
            const bool stopped = late.host.hasStopped();
            EXPECT_TRUE(open());
            if (stopped) {
                expectPiece("kept", 's', 3000);
            }
            restoreStart();
            if (!stopped)
                break;
        }
}

/// A deletion reads the plan of a change that is being made, and sleeps before it decides. The
/// change is made, and its outcome forgotten, before it wakes.
TEST_F(LateChange, ThatIsMadeBeforeADeletionDecidesItLosesNothing)
{
    Elsewhere maker(files_), deleter(files_);
    std::promise<void> begun, mayRead, hasRead, mayDecide;
    bool reads = false, decides = false;
    deleter.host.beforeName = [&](const std::string &to) {
        if (to.starts_with("/r/filespaces/") && !std::exchange(reads, true)) {
            // It has settled what was there.
            begun.set_value();
            mayRead.get_future().wait();
        } else if (to.starts_with("/r/outcomes/") && !std::exchange(decides, true)) {
            hasRead.set_value();
            mayDecide.get_future().wait();
        }
    };
    std::thread thread([&] { (void)deleter.space->deleteFilespace("/fs"); });
    begun.get_future().wait();
    maker.host.beforeName = [&](const std::string &to) {
        if (to.starts_with("/r/outcomes/")) {
            mayRead.set_value();
            hasRead.get_future().wait();
        }
    };
    std::swap(maker.space, space_);
    EXPECT_TRUE(exchange(Old::removed));
    mayDecide.set_value();
    thread.join();
    ASSERT_TRUE(open());
    std::size_t kept = 0;
    EXPECT_TRUE(space_->visitRemoved([&](const store::RemovedPiece &piece) {
        kept += piece.info.description.name.lowLevel.starts_with("/new") ? 1 : 0;
        return true;
    }));
    EXPECT_EQ(kept, 2U) << "both are removed with their filespace, and can be brought back";
    EXPECT_EQ(store::verify(*space_, {}, {})->missing, 0U);
}

/// The manifest alone, as a process does that has come to that step of a removal.
void LateChange::removeActive(store::PieceId id)
{
    blob::DirectoryStore here("/r", files_);
    for (const std::string &path : pathsUnder({"pieces"})) {
        const auto opened = here.open(path.substr(3)).value();
        if (store::peekIdentifier(*opened).value() == id) {
            EXPECT_TRUE(here.remove(path.substr(3), *opened));
        }
    }
}

/// One process replaces "kept", and another one stores a piece of that name. `removed`: a third one
/// takes the old piece away while the first one sleeps.
LateChange::Met LateChange::expectOneWinner(int n, int m, bool removed)
{
    Elsewhere other(files_);
    std::swap(other.space, space_);
    const auto successor = this->successor('c', "3").value();
    const auto old = space_->find(nameOf("kept")).value();
    std::swap(other.space, space_);

    moveToOtherHost();
    const auto replacing = this->successor('r', "2").value();
    Result<void> first, second;
    const Met met = meet(
        *host_, n,
        [&] {
            const store::NodeSpace::Sent sent{replacing.get(), registration_};
            first = space_->commitTogether({std::span(&sent, 1), std::span(&old->id, 1), {}});
        },
        other.host, m,
        [&] {
            if (removed && host_->hasStopped())
                removeActive(old->id);
            second = other.space->commit(*successor, registration_);
        });

    EXPECT_FALSE(first && second) << "both were told that they have the name";
    settleHere();
    const std::string shown = state();
    EXPECT_TRUE(shown == (first ? " kept2" : second ? " kept3" : shown)) << shown;
    EXPECT_TRUE(isSound());
    EXPECT_TRUE(space_->tidyOutcomes());
    EXPECT_TRUE(
        store::Reclaim(*space_, {.grace = 0, .maxFreed = 100, .acceptMissing = true}).run());
    EXPECT_EQ(state(), shown);
    EXPECT_EQ(manifests().size(), shown.empty() ? 0U : 1U);
    return met;
}

TEST_F(LateChange, ThatReplacesAPieceAndAnotherPieceOfItsNameAreNotBothStored)
{
    for (const bool removed : {false, true})
        meetEverywhere([&](int n, int m) {
            const Met met = expectOneWinner(n, m, removed);
            restoreStart();
            return met;
        });
}

TEST_F(LateChange, ANameThatOthersMayCountOnStaysWhenItsSyncFails)
{
    blob::DirectoryStore here("/r", files_);
    AnotherHost files(files_);
    blob::DirectoryStore there("/r", files);
    const auto content = [&](const std::string &name) {
        const auto found = blob::readWhole(here, name, 100);
        return found ? std::string(textOf(*found)) : "";
    };
    const struct {
        blob::Unsure unsure;
        bool replaced; // meanwhile, by another one of that name
        const char *left;
    } cases[] = {{blob::Unsure::leave, false, "mine"},
                 {blob::Unsure::takeBack, false, ""},
                 {blob::Unsure::takeBack, true, "theirs"}};
    for (const auto &one : cases) {
        const std::string name = "packs/aa/" + std::to_string(&one - cases);
        bool seen = false;
        files.beforeSync = [&](const std::string &path) -> Result<void> {
            if (path != "/r/packs/aa/")
                return {};
            if (!seen && one.replaced) {
                EXPECT_TRUE(here.remove(name, **here.open(name)));
                EXPECT_TRUE(blob::putWhole(here, name, viewOf("theirs")));
            }
            EXPECT_TRUE(seen || one.replaced || content(name) == "mine") << "others find it";
            seen = true;
            return Error{ErrorKind::io, "the disk said no"};
        };
        const auto writer = there.begin().value();
        EXPECT_TRUE(writer->append(viewOf("mine")));
        EXPECT_FALSE(writer->commit(name, one.unsure)) << "it may not survive";
        EXPECT_TRUE(seen);
        EXPECT_EQ(content(name), one.left);
    }
}

} // namespace
