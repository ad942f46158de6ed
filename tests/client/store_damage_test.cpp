// Blobs that are not what was stored: flipped, cut, exchanged, or of another release.
#include "tests/client/store_faults_fixture.h"

namespace
{

using namespace arca;
using StoreDamage = test::StoreFaults;

TEST_F(StoreDamage, EveryFlippedByteAndEveryCutOfAPieceIsFound)
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

TEST_F(StoreDamage, AStoredPieceInThePlaceOfAnotherIsFound)
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

TEST_F(StoreDamage, ARepositoryOfAnotherReleaseIsRefused)
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

/// The place of a record decides what it must be, not its bytes.
TEST_F(StoreDamage, ARecordInThePlaceOfAnotherKindIsFound)
{
    const auto under = [&](const std::string &prefix) {
        for (const std::string &path : files_.paths())
            if (path.starts_with(prefix))
                return path;
        return std::string();
    };
    const std::string paths[] = {under("/r/keys/recovery/"), under("/r/filespaces/")};
    for (int i = 0; i < 2; ++i) {
        const std::string good = files_.contentOf(paths[i]);
        files_.contentOf(paths[i]) = files_.contentOf(paths[1 - i]);
        const auto verified = store::verify(*space_, {}, {});
        ASSERT_TRUE(verified) << verified.error().text;
        EXPECT_EQ(verified->hurtRecords, 1U) << paths[i];
        files_.contentOf(paths[i]) = good;
    }
    EXPECT_TRUE(isSound());
}

} // namespace
