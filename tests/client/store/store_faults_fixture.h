// A small repository over files that fail, or lose what was not synced, and pieces of work on it
// with what must hold afterwards.
#ifndef KEEL_TESTS_CLIENT_STORE_STORE_FAULTS_FIXTURE_H
#define KEEL_TESTS_CLIENT_STORE_STORE_FAULTS_FIXTURE_H

#include "client/blob/directory/directory_store.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/access.h"
#include "client/store/nodes/repository.h"
#include "client/store/upkeep/reclaim.h"
#include "client/store/upkeep/verify.h"
#include "tests/client/store/memory_files.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <set>

namespace arca::test
{

inline const std::string kPassword(64, 'a');

inline std::string streamOf(char seed, std::size_t length)
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

    /// A stream that is open.
    Result<std::unique_ptr<store::PieceWriter>> begin(const std::string &piece,
                                                      const char *info = "",
                                                      std::span<const store::PieceId> replaced = {})
    {
        store::PieceDescription description;
        description.name = nameOf(piece);
        description.info = info;
        return space_->beginPiece(description, replaced);
    }
    /// One that is sent, and not committed yet.
    Result<std::unique_ptr<store::PieceWriter>>
    finished(const std::string &piece, const std::string &stream, const char *info = "",
             std::span<const store::PieceId> replaced = {})
    {
        ARCA_TRY(auto writer, begin(piece, info, replaced));
        ARCA_CHECK(writer->append(viewOf(stream)));
        ARCA_CHECK(writer->finish());
        return writer;
    }
    Result<void> backUp(const std::string &piece, const std::string &stream)
    {
        ARCA_TRY(const auto writer, finished(piece, stream));
        return writer->commit();
    }
    Result<void> backUp(const std::string &piece, char seed, std::size_t length)
    {
        return backUp(piece, streamOf(seed, length));
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

    store::AccessRules rules() { return *store::AccessRules::of(repository_->blobs(), "node", 0); }
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
                 return t.space_->update(nameOf("kept"), {},
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
            {"replacing", [](auto &t) { return t.replace(Old::removed); }, " kept", " kept2"},
            {"replacing and keeping", [](auto &t) { return t.replace(Old::inactive); }, " kept",
             " kept2 (kept)"},
        };
    }

    Result<void> restoreKept()
    {
        ARCA_TRY(const auto stream, restore("kept"));
        EXPECT_TRUE(stream && *stream == streamOf('k', 5000)) << "told to have gone well";
        return {};
    }

    Result<store::ReclaimTotals> reclaimAll()
    {
        return store::Reclaim(*space_, {.grace = 0, .maxFreed = 100}).run();
    }
    /// The same; the test fails when it does.
    store::ReclaimTotals reclaimed()
    {
        const auto totals = reclaimAll();
        EXPECT_TRUE(totals) << totals.error().text;
        return totals ? *totals : store::ReclaimTotals();
    }
    Result<void> reclaim()
    {
        ARCA_TRY(const auto totals, reclaimAll());
        // What cannot be read is named, and may need the pack.
        EXPECT_TRUE(totals.deadPacks + totals.waitingPacks == 1 || !totals.damagedPacks.empty() ||
                    !totals.damagedManifests.empty());
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
            ARCA_TRY(auto writer, finished(piece.name, streamOf(piece.seed, piece.length)));
            sent.push_back({writer.get(), registration_});
            writers.push_back(std::move(writer));
        }
        return commitAndLose(sent, becomes);
    }
    Result<void> commitAndLose(std::span<const store::NodeSpace::Sent> sent, Old becomes)
    {
        ARCA_TRY(const auto kept, space_->find(nameOf("kept")));
        const std::span<const store::PieceId> old(&kept->id, 1), none;
        return becomes == Old::removed ? space_->commitTogether({sent, old, none})
                                       : space_->commitTogether({sent, none, old});
    }

    /// A finished piece that is to have the name of "kept".
    Result<std::unique_ptr<store::PieceWriter>> successor(char seed, const char *info)
    {
        ARCA_TRY(const auto kept, space_->find(nameOf("kept")));
        return finished("kept", streamOf(seed, 4100), info, std::span(&kept->id, 1));
    }
    /// Another piece of the name comes and the old one goes, or becomes inactive, in one step.
    Result<void> replace(Old becomes)
    {
        ARCA_TRY(const auto writer, successor('r', "2"));
        const store::NodeSpace::Sent sent{writer.get(), registration_};
        return commitAndLose({&sent, 1}, becomes);
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
            const std::string info = (*space_->find(nameOf(piece.name)))->description.info;
            EXPECT_TRUE(**stream == (info == "2"   ? streamOf('r', 4100)
                                     : info == "3" ? streamOf('c', 4100)
                                                   : streamOf(piece.seed, piece.length)))
                << piece.name << info;
            shown += std::string(" ") + piece.name + info;
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
        putBack(start_);
    }
    void putBack(const std::shared_ptr<MemoryFiles::Node> &snapshot)
    {
        space_.reset();
        repository_.reset();
        files_.putBack(snapshot);
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

} // namespace arca::test

#endif
