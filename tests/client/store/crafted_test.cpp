// Manifests that are sealed as they should be and say what is not so, and a compressor that makes
// something else of the data: what they lead to is never delivered, and never taken as stored.
#include "client/store/pieces/manifest_writer.h"
#include "tests/client/store/store_faults_fixture.h"

#include <zstd.h>

static bool spoilsCompression = false;

extern "C" {
std::size_t __real_ZSTD_compressCCtx(ZSTD_CCtx *, void *, std::size_t, const void *, std::size_t,
                                     int);
/// As a processor or a memory at fault compresses: what expands, to something else.
std::size_t __wrap_ZSTD_compressCCtx(ZSTD_CCtx *context, void *to, std::size_t room,
                                     const void *from, std::size_t length, int level)
{
    std::string data(static_cast<const char *>(from), length);
    data[length / 2] = static_cast<char>(data[length / 2] ^ (spoilsCompression ? 1 : 0));
    return __real_ZSTD_compressCCtx(context, to, room, data.data(), length, level);
}
}

namespace
{

using namespace arca;
using Runs = std::vector<engine::Run>;

class Crafted : public test::StoreFaults
{
protected:
    struct Content {
        Runs runs;
        store::ManifestEnd end;
        store::PieceDescription description;
    };
    /// Seals the manifest of the piece again, with another content.
    void forge(const std::string &piece, const std::function<void(Content &)> &change)
    {
        const engine::Domain &domain = space_->domain();
        const std::string name = nameOfBlob(piece);
        const auto blob = domain.blobs().open(name).value();
        const auto manifest = store::readManifest(*blob, domain.manifestKey()).value();
        Content content{
            {}, {manifest.info.totals, manifest.info.insertedAt}, manifest.info.description};
        store::ManifestRuns runs(*blob, manifest);
        for (auto run = runs.next(); run && *run; run = runs.next())
            content.runs.push_back(**run);
        change(content);
        const auto writer = store::ManifestWriter::begin(domain, Cipher::aes256, manifest.info.id,
                                                         content.description)
                                .value();
        for (const engine::Run &run : content.runs)
            ASSERT_TRUE(writer->take(run));
        ASSERT_TRUE(writer->finish(content.end) && domain.blobs().remove(name, *blob) &&
                    writer->commit(name));
    }
    std::string nameOfBlob(const std::string &piece)
    {
        store::PieceDescription description;
        description.name = nameOf(piece);
        const auto id = space_->find(nameOf(piece)).value()->id;
        return space_->beginPiece(description, {&id, 1}).value()->blobName();
    }
};

TEST_F(Crafted, RunsThatAreNotThoseOfTheStreamAreRefused)
{
    const std::string stream =
        test::streamOf('s', 40'000) + std::string(50'000, '\0') + test::streamOf('t', 40'000);
    const auto digestOf = [](const std::string &bytes) {
        StreamDigest digest;
        digest.update(viewOf(bytes));
        return digest.value();
    };
    ASSERT_TRUE(backUp("other", stream.substr(100)));
    Runs others;
    forge("other", [&](Content &c) { others = c.runs; });
    const std::pair<const char *, std::function<void(Content &)>> cases[] = {
        {"in another order", [](Content &c) { std::swap(c.runs.front(), c.runs.back()); }},
        {"another piece's", [&](Content &c) { c.runs = others; }},
        {"a run less", [](Content &c) { c.runs.pop_back(); }},
        {"none", [](Content &c) { c.runs.clear(); }},
        {"more of them",
         [](Content &c) {
             c.runs.push_back({{}, 0, 0, 1});
         }},
        {"a block more than the pack has", [](Content &c) { c.runs.back().blocks += 1; }},
        {"a shorter length",
         [&](Content &c) {
             c.end.totals.streamBytes -= 1;
             c.end.totals.digest = digestOf(stream.substr(0, stream.size() - 1));
         }},
        {"no length",
         [&](Content &c) {
             c.end.totals.streamBytes = 0;
             c.end.totals.digest = digestOf("");
         }},
        {"a longer length", [](Content &c) { c.end.totals.streamBytes += 1; }},
        {"another digest", [](Content &c) { c.end.totals.digest[15] ^= std::byte{1}; }},
        {"another name", [](Content &c) { c.description.name.lowLevel = "/else"; }},
        {"another node", [](Content &c) { c.description.node = "reader"; }},
    };
    for (const auto &[what, change] : cases) {
        SCOPED_TRACE(what);
        ASSERT_TRUE(backUp("new", stream));
        forge("new", [](Content &) {});
        EXPECT_EQ(*restore("new"), stream) << "the kit does no harm";
        forge("new", change);
        const auto got = restore("new");
        EXPECT_TRUE(!got && got.error().kind == ErrorKind::damaged);
        putBack(start_);
        ASSERT_TRUE(backUp("other", stream.substr(100)));
    }
}

TEST_F(Crafted, ACompressorAtFaultIsFoundBeforeThePieceCountsAsStored)
{
    for (const bool verifies : {true, false}) {
        space_->use({.verify = verifies, .threads = 1});
        spoilsCompression = true;
        const auto stored = backUp("new", std::string(5000, 'x'));
        spoilsCompression = false;
        EXPECT_EQ(static_cast<bool>(stored), !verifies);
        EXPECT_EQ(static_cast<bool>(restore("new")), verifies) << "there is none, or a damaged one";
    }
}

} // namespace
