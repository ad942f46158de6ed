// A node with three pieces, two of them removed: one pack is dead, the other lives by "few" alone.
#ifndef KEEL_TESTS_CLIENT_STORE_RECLAIM_FIXTURE_H
#define KEEL_TESTS_CLIENT_STORE_RECLAIM_FIXTURE_H

#include "client/blob/blob_store.h"
#include "client/blob/directory/directory_store.h"
#include "client/store/records/record.h"
#include "client/store/space/node_space.h"
#include "client/store/upkeep/reclaim.h"
#include "tests/client/store/another_host.h"
#include "tests/client/store/memory_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace arca::test
{

using store::ReclaimTotals;

/// Without a grace time, and whatever explains what is freed.
constexpr store::ReclaimRequest kAtOnce{.grace = 0, .maxFreed = 100};

constexpr std::size_t kBlock = 8192;

/// Blocks that compress as database blocks do and begin as they do, no two alike.
inline std::string blocks(unsigned seed, std::size_t count)
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
        space_ = spaceOver(*store_);
    }
    std::unique_ptr<store::NodeSpace> spaceOver(blob::BlobStore &blobs) const
    {
        return store::NodeSpace::open(blobs, "node", SecretKey::from(key_).value(),
                                      engine::RecordForm::keyed)
            .value();
    }

    void startAgain() { putBack(start_); }
    void putBack(const std::shared_ptr<MemoryFiles::Node> &snapshot)
    {
        space_.reset();
        files_.putBack(snapshot);
        open();
    }
    /// The node as another host sees it.
    struct OtherHost {
        explicit OtherHost(ReclaimTest &test)
            : files(test.files_), blobs("/r", files), space(test.spaceOver(blobs))
        {
        }
        AnotherHost files;
        blob::DirectoryStore blobs;
        std::unique_ptr<store::NodeSpace> space;
    };

    /// Writes the first state of the node's marks.
    void mark(ByteView record)
    {
        EXPECT_TRUE(store::markRecord(space_->domain()).write(0, record));
    }
    void putDamagedMark()
    {
        const std::string name = store::markRecord(space_->domain()).nameOf(1);
        EXPECT_TRUE(blob::putWhole(*store_, name, viewOf("damaged")));
    }
    /// All packs, as a release wrote it whose marks name no revisions.
    Bytes markOfVersion1()
    {
        std::set<engine::PackId> ids;
        EXPECT_TRUE(space_->domain().packs().list(
            [&](const engine::PackName &pack) { return ids.insert(pack.id).second; }));
        ByteWriter payload;
        payload.u32(static_cast<std::uint32_t>(ids.size()));
        for (const engine::PackId &id : ids)
            payload.raw(id);
        payload.u32(1); // no claims at that time
        payload.u32(0);
        return store::frameRecord("ARCACOND", 1, payload.view());
    }

    /// Before each step of `ours`, in one round after the other, another process does all of
    /// `theirs`. `after`: what is looked at when both are over.
    template <class Theirs, class Ours, class After>
    void beforeEachStep(Theirs theirs, Ours ours, After after, int stride = 1)
    {
        bool came = true;
        for (int n = 1; came && !HasFailure(); n += stride) {
            SCOPED_TRACE(n);
            startAgain();
            blob::DirectoryStore elsewhere("/r", files_);
            const auto other = spaceOver(elsewhere);
            const auto done = ours([&] { files_.runBefore(n, [&] { theirs(*other); }); });
            came = files_.hasRun();
            files_.runBefore(0, nullptr);
            after(done);
        }
    }

    static store::ObjectName nameOf(const std::string &piece)
    {
        return {"/fs", "/", "/" + piece, 1};
    }
    std::unique_ptr<store::PieceWriter> begin(const std::string &piece, const std::string &stream)
    {
        return begin(*space_, piece, stream);
    }
    static std::unique_ptr<store::PieceWriter>
    begin(store::NodeSpace &space, const std::string &piece, const std::string &stream)
    {
        store::PieceDescription description;
        description.name = nameOf(piece);
        auto writer = space.beginPiece(description);
        EXPECT_TRUE(writer && (*writer)->append(viewOf(stream)));
        return std::move(writer).value();
    }
    std::uint64_t end(store::PieceWriter &writer)
    {
        const auto totals = writer.finish();
        EXPECT_TRUE(totals && space_->commit(writer, 1));
        return totals->newBytes;
    }
    std::uint64_t backUp(const std::string &piece, const std::string &stream)
    {
        return end(*begin(piece, stream));
    }
    bool remove(const std::string &piece)
    {
        const auto found = space_->find(nameOf(piece));
        const auto removed = found && *found
                                 ? space_->remove((*found)->id)
                                 : Result<void>(Error{ErrorKind::notFound, "no " + piece});
        EXPECT_TRUE(removed) << removed.error().text;
        return static_cast<bool>(removed);
    }
    void expectPiece(const std::string &piece, const std::string &stream)
    {
        const auto found = space_->find(nameOf(piece));
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
    ReclaimTotals reclaim(const store::ReclaimRequest &request = kAtOnce)
    {
        const auto done = store::Reclaim(*space_, request).run();
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

} // namespace arca::test

#endif
