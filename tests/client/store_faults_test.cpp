// The repository over files that fail, and over a machine that stops: for every file operation of a
// small piece of work in turn. Whatever happens, what was acknowledged is there, what was not is
// there whole or not at all, and the work can be done again.
#include "client/blob/directory_store.h"
#include "client/store/access.h"
#include "client/store/reclaim.h"
#include "client/store/recovery_key.h"
#include "client/store/repository.h"
#include "client/store/verify.h"
#include "tests/client/memory_files.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <set>

namespace
{

using namespace arca;
using test::MemoryFiles;

const std::string kPassword(64, 'a');

std::string streamOf(char seed, std::size_t length)
{
    std::string stream(length, '\0');
    for (std::size_t i = 0; i < length; ++i)
        stream[i] = static_cast<char>(static_cast<std::size_t>(seed) + i * i / 7);
    return stream;
}

class StoreFaults : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(files_.makeDirectory("/r"));
        ASSERT_TRUE(files_.syncDirectory("/"));
        auto made = store::Repository::create(blobs(), "test");
        ASSERT_TRUE(made) << made.error().text;
        const auto recovery = store::publicHalfOf(*SecretKey::random());
        ASSERT_TRUE(recovery && store::publishRecoveryHalf((*made)->blobs(), *recovery));
        ASSERT_TRUE((*made)->nodes().registerNode("node", kPassword));
        ASSERT_TRUE((*made)->nodes().registerNode("reader", kPassword));
        ASSERT_TRUE(open());
        ASSERT_TRUE(space_->registerFilespace({"", "/fs", "ORACLE", "", 0, 0, 0}));
        ASSERT_TRUE(backUp("kept", 'k', 5000));
        ASSERT_TRUE(backUp("gone", 'g', 4000) && remove("gone")); // something to reclaim
        ASSERT_EQ(state(), " kept");
        ASSERT_TRUE(isSound());
        start_ = files_.snapshot();
        startPaths_ = files_.paths();
    }

    std::unique_ptr<blob::BlobStore> blobs()
    {
        return std::make_unique<blob::DirectoryStore>("/r", files_);
    }

    Result<void> open()
    {
        space_.reset();
        ARCA_TRY(repository_, store::Repository::open(blobs(), "test"));
        ARCA_TRY(space_, repository_->logOn("node", kPassword));
        space_->use({.threads = 1}); // the streams are small and many
        return repository_->blobs().removeLeftovers();
    }

    static store::ObjectName nameOf(const std::string &piece)
    {
        return {"/fs", "/", "/" + piece, 1};
    }

    Result<void> backUp(const std::string &piece, char seed, std::size_t length)
    {
        store::PieceDescription description;
        description.name = nameOf(piece);
        ARCA_TRY(const auto writer, space_->beginPiece(description));
        ARCA_CHECK(writer->append(viewOf(streamOf(seed, length))));
        ARCA_CHECK(writer->finish());
        return writer->commit();
    }

    Result<void> remove(const std::string &piece)
    {
        ARCA_TRY(const auto info, space_->find(nameOf(piece)));
        return info ? space_->remove(info->id) : Error{ErrorKind::notFound, "not there"};
    }

    /// The stream, or nothing when there is no such piece.
    Result<std::optional<std::string>> restore(const std::string &piece)
    {
        ARCA_TRY(const auto info, space_->find(nameOf(piece)));
        return info ? restore(info->id) : std::optional<std::string>();
    }
    Result<std::optional<std::string>> restore(store::PieceId id)
    {
        ARCA_TRY(const auto reader, space_->openPiece(id));
        std::string stream(reader->info().totals.streamBytes + 1, '\0');
        ARCA_TRY(const std::size_t got, reader->read(std::as_writable_bytes(std::span(stream))));
        stream.resize(got);
        return std::optional<std::string>(std::move(stream));
    }

    /// The blobs that came since, the packs first.
    std::vector<std::string> added(const std::vector<std::string> &before)
    {
        std::vector<std::string> found;
        for (const std::string &path : files_.paths())
            if ((path.starts_with("/r/pieces/") || path.starts_with("/r/packs/")) &&
                std::find(before.begin(), before.end(), path) == before.end())
                found.push_back(path);
        return found;
    }

    void expectPiece(const std::string &piece, char seed, std::size_t length)
    {
        const auto stream = restore(piece);
        ASSERT_TRUE(stream) << stream.error().text;
        ASSERT_TRUE(*stream) << piece << " is lost";
        EXPECT_TRUE(**stream == streamOf(seed, length)) << piece << " is not what was stored";
    }

    store::AccessRules rules() { return *store::AccessRules::of(repository_->blobs(), "node"); }
    Result<SecretKey> readersKey()
    {
        ARCA_TRY(const auto keys, repository_->authenticate("reader", kPassword));
        return rules().keyFor("reader", "", keys.identity);
    }

    /// One of the pieces of work, tried after everything before it went well, and what shows before
    /// and after it.
    struct Work {
        const char *name;
        std::function<Result<void>(StoreFaults &)> run;
        const char *before, *after;
    };
    static std::vector<Work> works()
    {
        return {
            {"backup", [](auto &t) { return t.backUp("new", 'n', 3000); }, " kept", " kept new"},
            {"removal", [](auto &t) { return t.remove("kept"); }, " kept", ""},
            {"filespace",
             [](auto &t) {
                 return t.space_->updateFilespace(
                     "/fs", [](store::Filespace &fs) { fs.occupancyBytes += 7; });
             },
             " kept", " kept +7"},
            {"attributes",
             [](auto &t) {
                 return t.space_->update(nameOf("kept"),
                                         [](store::PieceDescription &d) { d.info = "!"; });
             },
             " kept", " kept!"},
            {"rename", [](auto &t) { return t.space_->rename(nameOf("kept"), nameOf("moved")); },
             " kept", " moved"},
            {"together", [](auto &t) { return t.exchange(Old::removed); }, " kept", " new newer"},
            {"superseding", [](auto &t) { return t.exchange(Old::inactive); }, " kept",
             " new newer (kept)"},
            {"emptying", [](auto &t) { return t.space_->deleteFilespace("/fs"); }, " kept", ""},
            {"grant",
             [](auto &t) {
                 return t.rules().add({0, "", "reader", "", nameOf("kept"), {}, {}},
                                      t.space_->dataKey());
             },
             " kept", " kept granted"},
            {"session", [](auto &t) { return t.open(); }, " kept", " kept"},
            {"restore", [](auto &t) { return t.restoreKept(); }, " kept", " kept"},
            {"reclaim", [](auto &t) { return t.reclaim(); }, " kept", " kept"},
            {"what a host remembers", [](auto &t) { return t.remember(); }, " kept", " kept again"},
        };
    }

    Result<void> restoreKept()
    {
        ARCA_TRY(const auto stream, restore("kept"));
        EXPECT_TRUE(stream && *stream == streamOf('k', 5000)) << "told to have gone well";
        return {};
    }

    Result<void> reclaim()
    {
        ARCA_TRY(const auto totals, store::Reclaim(space_->domain()).run());
        EXPECT_EQ(totals.deadPacks + totals.waitingPacks, 1U);
        return {};
    }

    /// From the packs that are there, as a host that knows nothing yet does it.
    Result<void> remember()
    {
        (void)space_->domain().hints();
        return backUp("again", 'k', 5000);
    }

    /// Two pieces that come and one that goes, or becomes inactive, in one step.
    enum class Old { removed, inactive };
    Result<void> exchange(Old becomes)
    {
        std::vector<std::unique_ptr<store::PieceWriter>> writers;
        std::vector<store::NodeSpace::Sent> sent;
        for (const Known &piece : {kKnown[1], kKnown[2]}) {
            store::PieceDescription description;
            description.name = nameOf(piece.name);
            ARCA_TRY(auto writer, space_->beginPiece(description));
            ARCA_CHECK(writer->append(viewOf(streamOf(piece.seed, piece.length))));
            ARCA_CHECK(writer->finish());
            sent.push_back({writer.get(), registration_});
            writers.push_back(std::move(writer));
        }
        ARCA_TRY(const auto kept, space_->find(nameOf("kept")));
        const std::span<const store::PieceId> old(&kept->id, 1), none;
        return becomes == Old::removed ? space_->commitTogether({sent, old, none})
                                       : space_->commitTogether({sent, none, old});
    }

    /// What shows: each piece, whole, with its information, and what the filespace occupies.
    std::string state()
    {
        const auto filespace = space_->filespace("/fs");
        EXPECT_TRUE(filespace) << filespace.error().text;
        if (!filespace || !*filespace)
            return {};
        registration_ = (*filespace)->registration;
        std::string shown;
        for (const Known &piece : kKnown) {
            const auto stream = restore(piece.name);
            if (!stream)
                return stream.error().text;
            if (!*stream)
                continue;
            EXPECT_TRUE(**stream == streamOf(piece.seed, piece.length)) << piece.name;
            shown += std::string(" ") + piece.name +
                     (*space_->find(nameOf(piece.name)))->description.info;
        }
        const auto inactive = space_->inactiveOf(nameOf("kept"));
        EXPECT_TRUE(inactive) << inactive.error().text;
        for (const store::PieceInfo &info : *inactive) {
            const auto stream = restore(info.id);
            EXPECT_TRUE(stream && **stream == streamOf('k', 5000));
            shown += " (kept)";
        }
        const auto made = rules().list(space_->dataKey());
        EXPECT_TRUE(made && made->empty() == !readersKey()) << "a rule without its key";
        return shown + ((*filespace)->occupancyBytes == 0 ? "" : " +7") +
               (made && !made->empty() ? " granted" : "");
    }

    /// After a work that was disturbed. Returns what shows.
    std::string expectWhole(const Work &work, bool done)
    {
        // An interrupted grant is completed by the next session of who made it, or is none.
        if (!done) {
            EXPECT_TRUE(rules().complete(space_->dataKey()));
        }
        const std::string shown = state();
        EXPECT_TRUE(shown == work.after || (!done && shown == work.before)) << shown;
        const auto before = files_.paths();
        // Else there is nothing that was not proven at the start.
        EXPECT_TRUE(before == startPaths_ || isSound()) << "verifying finds something";
        space_->settleChanges();
        if (files_.paths() != before) {
            EXPECT_EQ(state(), shown) << "tidying up behind the dead changes what shows";
        }
        return shown;
    }

    bool isSound()
    {
        store::VerifyRequest everything;
        everything.readData = true;
        const auto verified = store::verify(*space_, everything, {});
        return verified && verified->hurt() == 0;
    }

    /// Back to where every work begins.
    void restoreStart()
    {
        const auto made = rules().list(space_->dataKey());
        ASSERT_TRUE(made) << made.error().text;
        for (const auto &rule : *made)
            EXPECT_TRUE(rules().remove(rule.number));
        EXPECT_TRUE(rules().complete(space_->dataKey()));
        for (const std::string &path : files_.paths())
            EXPECT_FALSE(path.starts_with("/r/tmp/") || path.starts_with("/r/changes/") ||
                         path.starts_with("/r/grants/"))
                << path << " was left behind";
        space_.reset();
        repository_.reset();
        files_.putBack(start_);
        ASSERT_TRUE(open());
    }

    struct Known {
        const char *name;
        char seed;
        std::size_t length;
    };
    static constexpr Known kKnown[] = {{"kept", 'k', 5000},
                                       {"new", 'n', 3000},
                                       {"newer", 'm', 10},
                                       {"moved", 'k', 5000},
                                       {"again", 'k', 5000}};

    std::uint32_t registration_ = 1;
    MemoryFiles files_;
    std::shared_ptr<MemoryFiles::Node> start_;
    std::vector<std::string> startPaths_;
    std::unique_ptr<store::Repository> repository_;
    std::unique_ptr<store::NodeSpace> space_;
};

class AnyOperation : public StoreFaults, public testing::WithParamInterface<MemoryFiles::Fault>
{
};

TEST_P(AnyOperation, ThatGoesWrongIsOneClearErrorOrNoneAndHurtsNothing)
{
    for (const Work &work : works()) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(work.name) + ", operation " + std::to_string(n));
            files_.failAt(n, n % 2 == 0 ? ErrorKind::full : ErrorKind::io, GetParam());
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
        for (int n = 1;; ++n) {
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

TEST_F(StoreFaults, LeftoversOfTheDeadGoAndThoseOfTheLivingStay)
{
    store::PieceDescription description;
    description.name = nameOf("slow");
    auto living = space_->beginPiece(description);
    ASSERT_TRUE(living);
    ASSERT_TRUE((*living)->append(viewOf(streamOf('s', 100))));
    ASSERT_TRUE(files_.create("/r/tmp/1-dead")); // nobody holds its lock

    auto other = store::Repository::open(blobs(), "test");
    ASSERT_TRUE(other && (*other)->blobs().removeLeftovers());
    EXPECT_FALSE(files_.open("/r/tmp/1-dead"));
    ASSERT_TRUE((*living)->finish());
    ASSERT_TRUE((*living)->commit());
    expectPiece("slow", 's', 100);
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
}

TEST_F(StoreFaults, EveryFlippedByteAndEveryCutOfAPieceIsFound)
{
    const auto before = files_.paths();
    ASSERT_TRUE(backUp("small", 's', 300));
    const auto blobs = added(before);
    ASSERT_EQ(blobs.size(), 2U) << "a manifest and a pack";
    for (const std::string &path : blobs) {
        const std::string good = files_.contentOf(path);
        const auto expectFound = [&](const std::string &bad, const std::string &what) {
            files_.contentOf(path) = bad;
            const auto stream = restore("small");
            ASSERT_FALSE(stream) << path << ": " << what << " passed unnoticed";
            EXPECT_TRUE(stream.error().kind == ErrorKind::damaged ||
                        stream.error().kind == ErrorKind::newerFormat)
                << stream.error().text;
        };
        for (std::size_t i = 0; i < good.size(); ++i) {
            std::string bad = good;
            bad[i] = static_cast<char>(bad[i] ^ 0x10);
            expectFound(bad, "byte " + std::to_string(i));
            expectFound(good.substr(0, i), "a cut at " + std::to_string(i));
        }
        expectFound(good + '\0', "a byte too many");
        files_.contentOf(path) = good;
    }
    expectPiece("small", 's', 300);
    expectPiece("kept", 'k', 5000);
}

TEST_F(StoreFaults, AStoredPieceInThePlaceOfAnotherIsFound)
{
    const auto start = files_.paths();
    ASSERT_TRUE(backUp("a", 'a', 100));
    const auto ofA = added(start);
    const auto afterA = files_.paths();
    ASSERT_TRUE(backUp("b", 'b', 100));
    const auto ofB = added(afterA);
    ASSERT_EQ(ofA.size(), ofB.size());
    for (std::size_t i = 0; i < ofA.size(); ++i) { // the packs, then the manifests
        std::swap(files_.contentOf(ofA[i]), files_.contentOf(ofB[i]));
        for (const char *piece : {"a", "b"}) {
            const auto stream = restore(piece);
            ASSERT_FALSE(stream) << piece << ofA[i];
            EXPECT_EQ(stream.error().kind, ErrorKind::damaged);
        }
        std::swap(files_.contentOf(ofA[i]), files_.contentOf(ofB[i]));
    }
    expectPiece("a", 'a', 100);
}

TEST_F(StoreFaults, ARepositoryOfAnotherReleaseIsRefused)
{
    const std::pair<std::uint32_t, ErrorKind> cases[] = {{1, ErrorKind::olderFormat},
                                                         {4, ErrorKind::newerFormat}};
    for (const auto &[version, kind] : cases) {
        const Bytes other = store::frameRecord("ARCAREPO", version, Bytes(24));
        files_.contentOf("/r/format") = std::string(textOf(other));
        const auto opened = open();
        ASSERT_FALSE(opened);
        EXPECT_EQ(opened.error().kind, kind);
    }
}

} // namespace
