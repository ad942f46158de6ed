// What a host remembers of packs stays within its bound, and leads to no pack that it is not of.
#include "client/base/local/database.h"
#include "client/engine/duplicates/hint_catalogue.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>

namespace
{

using namespace arca;
using namespace arca::engine;

/// The same for the same numbers.
std::array<std::byte, 16> idOf(std::uint32_t number, std::uint32_t part)
{
    std::array<std::byte, 16> id{};
    std::memcpy(id.data(), &number, sizeof number);
    std::memcpy(id.data() + sizeof number, &part, sizeof part);
    return id;
}

PackId packOf(std::uint32_t number)
{
    return idOf(number, 0);
}

constexpr std::uint32_t kBlocks = 40; // of a pack; all are sampled

PackIndex blocksOf(std::uint32_t number)
{
    PackIndex index;
    for (std::uint32_t part = 1; part <= kBlocks; ++part) {
        index.blocks.emplace_back();
        index.blocks.back().id = idOf(number, part);
    }
    return index;
}

// The schema of a file is checked before it is read; a statement over it is bounded all the same.
TEST(DatabaseTest, AStatementThatWouldNeverEndMakesTheFileDoubtful)
{
    Database database(Database::kInMemory, {}, 0);
    ASSERT_TRUE(database.open());
    const Statement endless = database.prepare("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT"
                                               " x+1 FROM c) SELECT count(*) FROM c");
    StatementUse use(endless);
    EXPECT_FALSE(use.row());
    EXPECT_FALSE(use.atEnd());
    EXPECT_TRUE(database.isDoubtful());
}

TEST(HintsTest, WhatWasNotFoundForLongestMakesRoom)
{
    const keel::test::TempDir directory;
    constexpr std::uint32_t kPacks = 800, kKept = 50;
    const auto open = [&] { return HintCatalogue(directory.path(), "node", kKept * kBlocks); };
    const auto isFound = [](HintCatalogue &hints, std::uint32_t number) {
        return hints.packsWith(blocksOf(number).blocks.front().id, 4) ==
               std::vector{packOf(number)};
    };
    std::uintmax_t half = 0;
    {
        auto hints = open();
        for (std::uint32_t number = 0; number < kPacks; ++number) {
            hints.remember(packOf(number), blocksOf(number));
            EXPECT_TRUE(isFound(hints, 0)) << "it is found again and again: " << number;
            if (number == kPacks / 2)
                half = std::filesystem::file_size(directory.path() / "node.sqlite");
        }
    }
    auto hints = open();
    EXPECT_TRUE(isFound(hints, 0));
    EXPECT_TRUE(isFound(hints, kPacks - 1));
    EXPECT_TRUE(isFound(hints, kPacks - kKept / 2));
    EXPECT_FALSE(isFound(hints, 1));
    EXPECT_EQ(hints.packs().size(), kPacks) << "or a comparison would bring them back";
    EXPECT_LT(std::filesystem::file_size(directory.path() / "node.sqlite") - half, kPacks / 2 * 100)
        << "only their names stay";

    const std::uint32_t gone = kPacks - 1, next = kPacks;
    hints.forget(packOf(gone));
    hints.remember(packOf(next), blocksOf(next));
    EXPECT_FALSE(isFound(hints, gone));
    EXPECT_TRUE(hints.packsWith(blocksOf(gone).blocks.front().id, 4).empty())
        << "the number of a pack that is gone is not given again";
}

} // namespace
