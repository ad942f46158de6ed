// Pieces of a database that changes from day to day: their blocks lie in the packs of many days.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <filesystem>
#include <sys/resource.h>

namespace keel::test
{

namespace
{

using ChainTest = ClientTest;

constexpr std::size_t kBlock = 8192;

std::string blocksOfADatabase(std::size_t blocks, std::size_t seed)
{
    std::string stream = randomBytes(blocks * kBlock, seed);
    for (std::size_t i = 0; i < blocks; ++i)
        stream[i * kBlock] = '\x06';
    return stream;
}

/// A database as it is on each of some days: on every day but the first, one block in seven is new.
std::vector<std::string> databaseOfDays(std::size_t blocks, int days)
{
    std::string stream = blocksOfADatabase(blocks, 1);
    std::fill_n(stream.begin() + (3 << 20), std::size_t{6} << 20, '\0');
    std::vector<std::string> all{stream};
    for (int day = 1; day < days; ++day) {
        for (auto i = static_cast<std::size_t>(day); i < blocks; i += 7) {
            const std::string fresh =
                randomBytes(kBlock - 1, i * 100 + static_cast<std::size_t>(day));
            stream.replace(i * kBlock + 1, fresh.size(), fresh);
        }
        all.push_back(stream);
    }
    return all;
}

// More than is kept in memory at a time, from many packs at once, with zeros in a row.
TEST_F(ChainTest, APieceOfManyDaysComesBackExactly)
{
    ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK); // registers the filespace
    hoxHandle_t handle = 0;
    ASSERT_EQ(logOn(handle, nullptr, nullptr, "-memory=32 -threads=3 -compression=no"), HOX_RC_OK);
    const auto days = databaseOfDays(3500, 4);
    for (std::size_t day = 0; day < days.size(); ++day)
        ASSERT_EQ(backUp(handle, "day" + std::to_string(day), days[day]), HOX_RC_OK);
    for (const std::size_t block : {std::size_t{1} << 20, std::size_t{40960 + 512}})
        EXPECT_TRUE(restore(handle, "day3", block) == days.back()) << block;
    // The last day's changes before the oldest blocks: the same frames again and again.
    const std::string twice = days.back() + days.front() + days.back();
    ASSERT_EQ(backUp(handle, "mixed", twice), HOX_RC_OK);
    EXPECT_TRUE(restore(handle, "mixed", 1 << 18) == twice);
}

// Of every frame one block in four is left, so each is expanded for little. In a stream of many
// days some of that is stored again every day, as little as was promised, and none of it twice. In
// one that lies in the packs of few others nothing is: files that are multiplexed in another order
// look the same.
TEST_F(ChainTest, WhatLiesScatteredIsStoredAgainLittleByLittle)
{
    ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK);
    hoxHandle_t handle = 0;
    ASSERT_EQ(logOn(handle, nullptr, nullptr, "-compression=no"), HOX_RC_OK);
    const auto packBytes = [&] {
        std::uintmax_t sum = 0;
        for (const auto &pack : stored("packs"))
            sum += std::filesystem::file_size(pack);
        return sum;
    };
    constexpr std::size_t blocks = 3584;
    for (const std::size_t apart : {1, 16}) {
        SCOPED_TRACE(apart);
        const std::string piece = "apart" + std::to_string(apart);
        const std::string all = blocksOfADatabase(blocks, apart);
        std::string stream(all.size(), '\0');
        // On each day before, one block of so many is new.
        for (std::size_t changed = 0; changed < apart; ++changed) {
            for (std::size_t i = changed; i < blocks; i += apart)
                stream.replace(i * kBlock, kBlock, all, i * kBlock, kBlock);
            ASSERT_EQ(backUp(handle, piece + "before" + std::to_string(changed), stream),
                      HOX_RC_OK);
        }
        std::uintmax_t left = 0;
        for (std::size_t i = 0; i < blocks; ++i)
            if ((i / apart) % 4 != 0)
                std::fill_n(stream.begin() + static_cast<std::ptrdiff_t>(i * kBlock), kBlock, '\0');
            else
                left += kBlock;
        const std::uintmax_t before = packBytes();
        std::uintmax_t more = 1;
        int day = 0;
        for (; day < 40 && more != 0; ++day) {
            const std::uintmax_t now = packBytes();
            ASSERT_EQ(backUp(handle, piece + std::to_string(day), stream), HOX_RC_OK);
            more = packBytes() - now;
            EXPECT_LT(more, stream.size() / 32 + 8192) << day;
        }
        EXPECT_LT(day, 40);
        if (apart == 1) {
            EXPECT_EQ(packBytes(), before);
            continue;
        }
        // What comes first in the stream comes before there is a share to spend.
        EXPECT_GT(packBytes() - before, left / 100 * 80);
        EXPECT_LT(packBytes() - before, left / 100 * 101);
        EXPECT_TRUE(restore(handle, piece + std::to_string(day - 1), 1 << 20) == stream);
    }
}

// One block of every day in a pack of its own. Most files of the process are the database's.
TEST_F(ChainTest, APieceOfManyPacksTakesFewFiles)
{
    const hoxHandle_t handle = logOn();
    constexpr std::size_t days = 80;
    std::string stream = blocksOfADatabase(days, 1);
    const std::string fresh = blocksOfADatabase(days, 2);
    for (std::size_t day = 0; day < days; ++day) {
        stream.replace(day * kBlock, kBlock, fresh, day * kBlock, kBlock);
        ASSERT_EQ(backUp(handle, "day" + std::to_string(day), stream), HOX_RC_OK);
    }
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    // Those of 16 packs, of what is just being read, and some of the session.
    const auto open = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    const rlimit few{static_cast<rlim_t>(open) + 26, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const auto back = restore(handle, "day" + std::to_string(days - 1), 1 << 16);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(back == stream);
}

} // namespace

} // namespace keel::test
