// Records of keys as somebody who can write files would leave them: changed and made to look whole,
// taken from elsewhere, or invented. None gives out a key, and none passes for the real one.
#include "client/blob/directory/directory_store.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/access.h"
#include "client/store/nodes/repository.h"
#include "client/store/upkeep/verify.h"
#include "tests/client/store/memory_files.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{

using namespace arca;
using test::MemoryFiles;

const std::string kPassword(64, 'a');

class KeyFaults : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(files_.makeDirectory("/r"));
        repository_ =
            store::Repository::create(std::make_unique<blob::DirectoryStore>("/r", files_), "r")
                .value();
        ASSERT_TRUE(store::publishRecoveryHalf(blobs(), *store::publicHalfOf(recovery_)));
        for (const char *node : {"maker", "reader", "thief"})
            ASSERT_TRUE(repository_->nodes().registerNode(node, kPassword));
        keys_ = repository_->authenticate("maker", kPassword).value();
    }

    blob::BlobStore &blobs() { return repository_->blobs(); }
    store::AccessRules rules() { return *store::AccessRules::of(blobs(), "maker"); }
    static store::AccessRule ruleFor(const std::string &node)
    {
        return {0, "maker", node, "", {"/fs", "/", "/p", 1}, {}, {}};
    }
    Result<SecretKey> keyFor(const std::string &node)
    {
        ARCA_TRY(const auto own, repository_->authenticate(node, kPassword));
        return rules().keyFor(node, "", own.identity);
    }
    bool isMakersKey(const Result<SecretKey> &key)
    {
        return key && equalSecrets(key->view(), keys_.data.view());
    }

    /// The only file below a directory of the repository.
    std::string fileIn(const std::string &directory)
    {
        std::string found;
        for (const std::string &path : files_.paths())
            if (path.starts_with("/r/" + directory + "/"))
                found = path;
        return found;
    }
    static std::string placeOf(const std::string &node) { return "nodes/" + *store::nodeKey(node); }

    MemoryFiles files_;
    std::unique_ptr<store::Repository> repository_;
    const SecretKey recovery_ = SecretKey::random().value();
    store::NodeKeys keys_;
};

/// A record whose byte was changed, with a checksum that fits.
std::string changed(std::string record, std::size_t at)
{
    record[at] = static_cast<char>(record[at] ^ 0x10);
    record.resize(record.size() - 8);
    ByteWriter checksum;
    checksum.u64(checksum64(viewOf(record)));
    return record.append(textOf(checksum.view()));
}

TEST_F(KeyFaults, AChangedByteIsFoundAlthoughTheRecordLooksWhole)
{
    ASSERT_TRUE(rules().add(ruleFor("reader"), keys_.data));
    const struct {
        std::string directory;
        std::function<bool()> works;
    } records[] = {
        {placeOf("maker"),
         [&] {
             return repository_->authenticate("maker", kPassword) &&
                    repository_->nodes().recover("maker", recovery_);
         }},
        {"grants", [&] { return static_cast<bool>(keyFor("reader")); }},
        {"access", [&] { return keyFor("reader") && static_cast<bool>(rules().list(keys_.data)); }},
    };
    for (const auto &record : records) {
        std::string &content = files_.contentOf(fileIn(record.directory));
        const std::string good = content;
        ASSERT_TRUE(record.works()) << record.directory;
        for (std::size_t i = 0; i < good.size() - 8; ++i) {
            content = changed(good, i);
            EXPECT_FALSE(record.works()) << record.directory << ", byte " << i;
        }
        content = good;
    }
    EXPECT_TRUE(isMakersKey(keyFor("reader")));
}

TEST_F(KeyFaults, WhoeverCanWriteFilesIsGivenNoKey)
{
    // A rule of his own making, for the maker's next session to complete.
    store::AccessRule forged = ruleFor("thief");
    forged.number = 7;
    const std::string place = "access/" + *store::nodeKey("maker") + "/00000007";
    ASSERT_TRUE(blob::putWhole(blobs(), place, encodeAccessRule(forged)));
    const auto completed = rules().complete(keys_.data);
    ASSERT_FALSE(completed);
    EXPECT_EQ(completed.error().kind, ErrorKind::damaged);
    EXPECT_EQ(rules().list(keys_.data)->size(), 0U);
    EXPECT_FALSE(keyFor("thief"));
    EXPECT_EQ(fileIn("grants"), "");
    ASSERT_TRUE(rules().remove(7));

    // His own public key in the place of the reader's, once the grant is out of the way.
    ASSERT_TRUE(rules().add(ruleFor("reader"), keys_.data));
    const std::string grant = fileIn("grants");
    const std::string readers = files_.contentOf(fileIn(placeOf("reader")));
    ASSERT_TRUE(files_.unlink(fileIn(placeOf("reader"))));
    ASSERT_TRUE(repository_->nodes().registerNode("reader", kPassword));
    ASSERT_TRUE(files_.unlink(grant));
    EXPECT_TRUE(rules().complete(keys_.data));
    EXPECT_EQ(fileIn("grants"), "");
    // The reader's real record again: the next session of the maker gives the key back.
    files_.contentOf(fileIn(placeOf("reader"))) = readers;
    EXPECT_FALSE(keyFor("reader"));
    EXPECT_TRUE(rules().complete(keys_.data));
    EXPECT_TRUE(isMakersKey(keyFor("reader")));

    // A grant whose rule is gone, as somebody who was killed leaves it, does not stay.
    ASSERT_TRUE(files_.unlink(fileIn("access")));
    EXPECT_TRUE(rules().complete(keys_.data));
    EXPECT_EQ(fileIn("grants"), "");

    // A record of another node in the place of the maker's.
    files_.contentOf(fileIn(placeOf("maker"))) = files_.contentOf(fileIn(placeOf("thief")));
    EXPECT_FALSE(repository_->authenticate("maker", kPassword));
    EXPECT_FALSE(repository_->nodes().recover("maker", recovery_));
}

/// Everybody can seal something to the recovery key.
TEST_F(KeyFaults, WhatIsPutInTheRecoveryBoxesTakesNoNodeOver)
{
    const auto half = *store::publicHalfOf(recovery_);
    const auto thiefs = repository_->authenticate("thief", kPassword).value();
    ASSERT_TRUE(repository_->logOn("maker", kPassword)
                    .value()
                    ->registerFilespace({"", "/fs", "", "", 0, 0, 0}));
    const auto start = files_.snapshot();
    const auto own =
        store::decodeNodeRecord(viewOf(files_.contentOf(fileIn(placeOf("maker"))))).value();
    const auto forged = store::makeNodeRecord({"maker", 4, 0}, "his", thiefs, half).value();
    const auto change = [&](const auto &how) {
        store::NodeRecord record = own;
        how(record);
        files_.putBack(start);
        files_.contentOf(fileIn(placeOf("maker"))) = textOf(store::encodeNodeRecord(record));
    };
    const struct {
        const char *what;
        std::function<void(store::NodeRecord &)> how;
        bool logsOn;
    } cases[] = {
        {"a spoilt box", [](auto &r) { r.recoverableIdentity[50] ^= std::byte{1}; }, true},
        {"his boxes",
         [&](auto &r) {
             r.recoverableData = forged.recoverableData;
             r.recoverableIdentity = forged.recoverableIdentity;
         },
         true},
        {"his boxes and identity",
         [&](auto &r) {
             const auto kept = r;
             r = forged;
             r.sealedData = kept.sealedData;
         },
         false},
        {"a record of his own", [&](auto &r) { r = forged; }, false},
        {"one of his own of before",
         [&](auto &r) { r = store::makeNodeRecord({"maker"}, "his", thiefs, half).value(); },
         false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        change(c.how);
        EXPECT_FALSE(repository_->nodes().recover("maker", recovery_));
        EXPECT_FALSE(repository_->nodes().recover("maker", recovery_, kPassword));
        const auto keys = repository_->authenticate("maker", kPassword);
        EXPECT_EQ(static_cast<bool>(keys), c.logsOn) << "a node must not be stopped by it";
        if (!keys)
            continue;
        EXPECT_FALSE(keys->proven);
        const auto space = repository_->logOn("maker", kPassword).value();
        EXPECT_EQ(store::verify(*space, {}, {})->hurtRecords, 1U);
        // Nor does a new password make it look right.
        EXPECT_TRUE(repository_->nodes().changePassword("maker", kPassword, kPassword));
        EXPECT_FALSE(repository_->authenticate("maker", kPassword)->proven);
    }
    change([](auto &) {});
    EXPECT_TRUE(repository_->authenticate("maker", kPassword)->proven);
    EXPECT_TRUE(repository_->nodes().recover("maker", recovery_));
}

} // namespace
