// What cannot be read is passed over: it neither hides nor excuses another piece, and holds up
// nothing else.
#include "client/base/text.h"
#include "client/store/blob_removal.h"
#include "client/store/inventory.h"
#include "client/store/quarantine.h"
#include "tests/client/store_faults_fixture.h"

namespace
{

using namespace arca;
using test::streamOf;

class PassedOver : public test::StoreFaults
{
protected:
    /// Stores a piece as a session does it, with a note. Returns its identifier, 0 after a failure.
    store::PieceId put(const std::string &piece, char seed)
    {
        store::PieceDescription description;
        description.name = nameOf(piece);
        const auto writer = space_->beginPiece(description);
        const bool stored = writer && (*writer)->append(viewOf(streamOf(seed, 3000))) &&
                            (*writer)->finish() && space_->commit(**writer, registration_);
        return stored ? (*writer)->id() : 0;
    }
    store::PieceId putInactive(const std::string &piece, char seed)
    {
        const store::PieceId id = put(piece, seed);
        EXPECT_TRUE(space_->commitTogether({{}, {}, std::span(&id, 1)}));
        return id;
    }
    /// The file that holds a manifest: of an active piece what came last, else by its identifier.
    std::string fileUnder(const std::string &room, const std::string &part)
    {
        for (const std::string &path : files_.paths())
            if (path.starts_with("/r/" + room + "/") && path.find(part) != std::string::npos)
                return path;
        ADD_FAILURE() << room << " has no " << part;
        return {};
    }
    static std::string digits(store::PieceId id) { return toHex(id); }
    std::string activeFile(store::PieceId id)
    {
        return fileUnder("pieces", digits(id).substr(0, 8));
    }
    store::Stock stock() { return *store::Inventory(space_->domain()).check(); }
};

TEST_F(PassedOver, AQuarantinedManifestExcusesOneMissingPiece)
{
    const store::PieceId first = putInactive("x", 'i'), second = putInactive("x", 'j');
    const store::PieceId bad = put("x", 'b');
    files_.contentOf(activeFile(bad))[70] ^= 1;
    const auto aside = space_->setAside(nameOf("x"));
    ASSERT_TRUE(aside) << aside.error().text;
    EXPECT_EQ(stock().missing, std::vector<store::PieceId>{}) << "it may be the piece";
    ASSERT_TRUE(files_.unlink(fileUnder("inactive", digits(first))));
    EXPECT_EQ(stock().missing, std::vector{first});
    files_.contentOf("/r/" + *aside)[0] ^= 1; // which piece it was, nothing tells any more
    EXPECT_EQ(stock().missing.size(), 1U);
    EXPECT_EQ(store::verify(*space_, {}, {})->quarantined, 1U);
    ASSERT_TRUE(store::removeBlob(*space_, *aside));
    EXPECT_EQ(stock().missing.size(), 1U) << "one was given up";
    EXPECT_EQ(store::verify(*space_, {}, {})->quarantined, 0U);
    EXPECT_EQ(*restore(second), streamOf('j', 3000));
}

TEST_F(PassedOver, APieceThatTakesTheLastSpaceIsNoted)
{
    int stored = 0;
    for (std::uint64_t space = 0; stored < 12; space += 50) {
        files_.putBack(start_);
        ASSERT_TRUE(open());
        repository_->blobs().keepReserve();
        files_.limitSpace(space);
        const bool done = put("x", 'x') != 0;
        files_.liftLimit();
        EXPECT_EQ(stock().noted, done ? 1U : 0U) << space;
        stored += done ? 1 : 0;
    }
}

} // namespace
