// Removed pieces, and what verifying and reclaiming say when something is not where it should be.
#ifndef KEEL_TESTS_CLIENT_STORE_REMOVED_FIXTURE_H
#define KEEL_TESTS_CLIENT_STORE_REMOVED_FIXTURE_H

#include "client/store/upkeep/verify.h"
#include "tests/client/store/reclaim_fixture.h"

namespace arca::test
{

using store::PieceId;

class RemovedTest : public ReclaimTest
{
protected:
    PieceId idOf(const std::string &piece)
    {
        const auto found = space_->find(nameOf(piece));
        EXPECT_TRUE(found && *found) << piece;
        return found && *found ? (*found)->id : 0;
    }
    /// The blob of an active piece.
    std::string manifestOf(PieceId id)
    {
        std::string name;
        EXPECT_TRUE(store_->list("pieces/", [&](const std::string &blobName) {
            const auto blob = store_->open(blobName);
            if (blob && *store::peekIdentifier(**blob) == id)
                name = blobName;
            return true;
        }));
        return name;
    }
    std::vector<std::string> removed(store::NodeSpace &space)
    {
        std::vector<std::string> names;
        EXPECT_TRUE(space.visitRemoved([&](const store::RemovedPiece &piece) {
            names.push_back(piece.info.description.name.lowLevel.substr(1));
            return true;
        }));
        std::ranges::sort(names);
        return names;
    }
    void removeFiles(const std::string &beginning)
    {
        for (const std::string &path : files_.paths())
            if (path.starts_with(beginning)) {
                ASSERT_TRUE(files_.unlink(path));
            }
    }
    ErrorKind refusal(const store::ReclaimRequest &request)
    {
        const std::size_t before = packs();
        const auto done = store::Reclaim(*space_, request).run();
        EXPECT_FALSE(done);
        EXPECT_EQ(packs(), before);
        return done ? ErrorKind::internal : done.error().kind;
    }
    store::VerifyOutcome verified()
    {
        const auto outcome = store::verify(*space_, {}, {});
        EXPECT_TRUE(outcome);
        return outcome ? *outcome : store::VerifyOutcome{};
    }
};

} // namespace arca::test

#endif
