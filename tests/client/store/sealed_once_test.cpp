// What is sealed twice, by one node or by two, before and after a restart, never comes out the
// same: no salt, no nonce, no box, no identity of a block, no name; and no node opens what another
// one sealed.
#include "client/base/crypto/password.h"
#include "client/blob/directory/directory_store.h"
#include "client/engine/mending/pack_rewriter.h"
#include "client/store/keys/exported_key.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/listing/catalogue_file.h"
#include "client/store/listing/remembered_name.h"
#include "client/store/log/activity_log.h"
#include "client/store/nodes/access.h"
#include "client/store/nodes/repository.h"
#include "client/store/pieces/manifest_format.h"
#include "tests/client/store/memory_files.h"

#include <gtest/gtest.h>

namespace
{

using namespace arca;

const std::string kPassword(64, 'a');

/// Every name and every password is the same in each of its repositories.
class SealedOnce : public testing::Test
{
protected:
    void expectNew(const std::string &what, ByteView bytes)
    {
        EXPECT_TRUE(seen_.emplace(textOf(bytes)).second) << what << " was there before";
    }

    void makeRepository()
    {
        files_ = std::make_unique<test::MemoryFiles>();
        ASSERT_TRUE(files_->makeDirectory("/r"));
        repository_ =
            store::Repository::create(std::make_unique<blob::DirectoryStore>("/r", *files_), "r")
                .value();
        expectNew("the identifier of the repository", viewOf(repository_->uuid()));
        ASSERT_TRUE(store::publishRecoveryHalf(blobs(), *store::publicHalfOf(recovery_)));
        for (const char *node : {"one", "two"})
            ASSERT_TRUE(repository_->nodes().registerNode(node, kPassword));
    }

    /// Stores, grants and logs the same, as each new process of the node does it.
    void work(const std::string &node, bool first)
    {
        const auto space = repository_->logOn(node, kPassword).value();
        space->use({.deduplication = first, .threads = 1});
        if (first) {
            ASSERT_TRUE(space->registerFilespace({"", "/fs", "", "", 0, 0, 0}));
            const SecretKey rows = store::catalogueKeyOf(*space).value();
            for (const ByteView key :
                 {space->dataKey().view(), space->domain().recordKey().view(),
                  space->domain().packs().packKey(), space->domain().manifestKey().view(),
                  space->domain().nameKey().view(), rows.view()})
                expectNew("a key of " + node, key);
        }
        for (const char *piece : {"a", "b"}) {
            store::PieceDescription description;
            description.name = {"/fs", "/", (first ? "/1" : "/2") + std::string(piece), 1};
            const auto writer = space->beginPiece(description).value();
            ASSERT_TRUE(writer->append(viewOf("the same stream")) && writer->finish() &&
                        writer->commit());
            expectNew("the name of a piece", viewOf(writer->blobName()).last(32));
        }
        ASSERT_TRUE(repository_->nodes().changePassword(node, kPassword, kPassword));
        const std::string other = node == "one" ? "two" : "one";
        ASSERT_TRUE(store::AccessRules::of(blobs(), node)
                        ->add({0, "", other, first ? "x" : "y", {"/fs", "/", "/a", 1}, {}, {}},
                              space->dataKey()));
        const auto seal = store::LogSeal::of(space->dataKey(), 0);
        const std::string event = "an event";
        for (int i = 0; i < 2; ++i) {
            const std::string field = *seal->seal("head", event);
            expectNew("the nonce of an event",
                      viewOf(field).last(2 * (12 + event.size() + 16)).first(24));
        }
        std::vector<engine::PackName> packs;
        ASSERT_TRUE(space->domain().packs().list([&](const engine::PackName &pack) {
            packs.push_back(pack);
            return true;
        }));
        for (const engine::PackName &pack : packs) {
            const auto opened = space->domain().packs().open(pack).value();
            std::vector<engine::DamagedPart> found;
            ASSERT_TRUE(first ||
                        engine::rewritePack(
                            space->domain(), *opened, {2, {}}, [](auto) { return true; }, found));
            const engine::PackIndex index = opened->readIndex().value();
            for (const engine::BlockEntry &block : index.blocks)
                if (first && block.id != BlockId{})
                    expectNew("the identity of a block", block.id);
        }
    }

    blob::BlobStore &blobs() { return repository_->blobs(); }
    template <class Visit> void eachIn(const std::string &room, Visit visit)
    {
        EXPECT_TRUE(blobs().list(room, [&](const std::string &name) {
            const Bytes bytes = *blob::readWhole(blobs(), name, 1 << 20);
            visit(name, ByteView(bytes));
            return true;
        }));
    }
    void expectNewEverywhere();

    std::set<std::string> seen_;
    std::unique_ptr<test::MemoryFiles> files_;
    std::unique_ptr<store::Repository> repository_;
    const SecretKey recovery_ = SecretKey::random().value();
};

void SealedOnce::expectNewEverywhere()
{
    eachIn("packs/", [&](const std::string &name, ByteView pack) {
        if (name.ends_with(".1"))
            expectNew("the identifier of a stream", pack.subspan(16, 12));
        expectNew("the salt of " + name, pack.subspan(32, 32));
        expectNew("the first frame of " + name, pack.subspan(64, 16));
    });
    eachIn("pieces/", [&](const std::string &name, ByteView manifest) {
        expectNew("the salt of " + name, manifest.subspan(24, 32));
        expectNew("the description of " + name, manifest.subspan(64, 16));
    });
    eachIn("nodes/", [&](const std::string &name, ByteView bytes) {
        const store::NodeRecord record = *store::decodeNodeRecord(bytes);
        expectNew("the salt of " + name, record.salt);
        expectNew("the verifier of " + name, record.verifier);
        for (const ByteView box : {ByteView(record.sealedData), ByteView(record.sealedIdentity)})
            expectNew("a nonce of " + name, box.first(12));
    });
    for (const char *node : {"one", "two"}) {
        const auto keys = repository_->authenticate(node, kPassword).value();
        expectNew("an identity", keys.identity.view());
    }
    eachIn("grants/", [&](const std::string &name, ByteView bytes) {
        const store::Grant grant = *store::decodeGrant(bytes);
        expectNew("the public half of " + name, ByteView(grant.sealed).first(32));
        expectNew("the nonce of " + name, ByteView(grant.sealed).subspan(32, 12));
    });
}

TEST_F(SealedOnce, NothingComesOutTheSameASecondTime)
{
    for (int repositories = 0; repositories < 2; ++repositories) {
        makeRepository();
        for (const bool first : {true, false})
            for (const char *node : {"one", "two"})
                work(node, first);
        expectNewEverywhere();
    }
    const SecretKey key = SecretKey::random().value();
    store::CatalogueFile catalogue(Database::kInMemory, key);
    for (int i = 0; i < 2; ++i) {
        store::CatalogueRow row;
        ASSERT_TRUE(catalogue.seal(row, {}));
        expectNew("the nonce of a row", ByteView(row.sealed).first(12));
        expectNew("the salt of an exported key", store::sealExport({}, "passphrase")->salt);
        const std::string password = *generatePassword();
        for (const std::size_t half : {0U, 32U})
            expectNew("half of a password", viewOf(password).subspan(half, 32));
    }
}

TEST_F(SealedOnce, NoNodeOpensWhatAnotherOneSealed)
{
    makeRepository();
    work("one", true);
    const auto one = repository_->logOn("one", kPassword).value();
    const auto two = repository_->logOn("two", kPassword).value();
    eachIn("packs/", [&](const std::string &name, ByteView) {
        for (auto *const space : {one.get(), two.get()}) {
            const engine::PackStore packs(blobs(), one->domain().nodeKey(),
                                          space->domain().packs().packKey());
            const auto opened = packs.open(*packs.nameFrom(name));
            EXPECT_EQ(opened && (*opened)->readIndex(), space == one.get());
        }
    });
    eachIn("pieces/", [&](const std::string &name, ByteView) {
        for (auto *const space : {one.get(), two.get()})
            EXPECT_EQ(static_cast<bool>(store::readManifest(*blobs().open(name).value(),
                                                            space->domain().manifestKey())),
                      space == one.get());
    });
    eachIn("filespaces/", [&](const std::string &name, ByteView bytes) {
        for (auto *const space : {one.get(), two.get()})
            EXPECT_EQ(static_cast<bool>(store::RecordSeal(space->domain())
                                            .open(name, Bytes(bytes.begin(), bytes.end()))),
                      space == one.get());
    });
}

} // namespace
