// What a host remembers of the packs is a cache: whatever becomes of it, backups go on, and the
// next session finds duplicates as before.
#include "tests/client/client_fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

namespace keel::test
{

namespace
{

namespace fs = std::filesystem;

class CacheTest : public ClientTest
{
protected:
    /// The file of SQLite; the test's repository has one node and one host.
    fs::path file() const
    {
        for (const fs::path &path : stored("cache"))
            if (path.extension() == ".sqlite")
                return path;
        return {};
    }

    static std::string blocks()
    {
        std::string stream(std::size_t{400} * 8192, ' ');
        std::mt19937_64 random(5);
        std::generate(stream.begin(), stream.end(), [&] { return static_cast<char>(random()); });
        for (std::size_t i = 0; i < stream.size(); i += 8192)
            stream[i] = '\x06';
        return stream;
    }
};

void overwrite(const fs::path &path, std::size_t from)
{
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(from));
    file << std::string(fs::file_size(path) - from, 'x');
}

TEST_F(CacheTest, WhateverBecomesOfItBackupsGoOnAndDuplicatesAreFoundAgain)
{
    const std::string content = blocks();
    {
        const hoxHandle_t handle = logOn();
        ASSERT_EQ(backUp(handle, "first", content), HOX_RC_OK);
        ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    }
    ASSERT_FALSE(file().empty());
    const fs::path catalogue = file();
    const fs::path yesterday = catalogue.string() + ".yesterday";
    fs::copy_file(catalogue, yesterday);
    struct Case {
        const char *name;
        std::function<void(const fs::path &)> hurt;
    };
    const Case cases[] = {
        {"nothing", [](const fs::path &) {}},
        {"deleted", [](const fs::path &path) { fs::remove(path); }},
        {"emptied", [](const fs::path &path) { fs::resize_file(path, 0); }},
        {"cut", [](const fs::path &path) { fs::resize_file(path, fs::file_size(path) / 2); }},
        {"no catalogue", [](const fs::path &path) { overwrite(path, 0); }},
        {"damaged inside", [](const fs::path &path) { overwrite(path, 4096); }},
        {"from yesterday",
         [&](const fs::path &at) {
             fs::copy_file(yesterday, at, fs::copy_options::overwrite_existing);
         }},
        {"a directory",
         [](const fs::path &path) {
             fs::remove(path);
             fs::create_directory(path);
         }},
    };
    int number = 0;
    for (const Case &one : cases) {
        SCOPED_TRACE(one.name);
        for (const char *ending : {"-wal", "-shm"})
            fs::remove(catalogue.string() + ending);
        one.hurt(catalogue);
        // The first session may be the one that finds it out.
        for (const char *time : {"a", "b"}) {
            const hoxHandle_t handle = logOn();
            const std::string name = time + std::to_string(number);
            EXPECT_EQ(backUp(handle, name.c_str(), content), HOX_RC_OK);
            EXPECT_EQ(restore(handle, name.c_str()), content);
            qryRespBackupData found{};
            (void)query(handle, name.c_str(), &found);
            if (*time == 'b' && std::string(one.name) != "a directory") {
                EXPECT_LT(found.storedSize.lo, content.size() / 100) << "stored once more";
            }
            EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
        }
        ++number;
    }
}

TEST_F(CacheTest, MuchThatIsMissingIsFilledInBesideTheStreams)
{
    constexpr int kPacks = 64; // one for each piece
    const auto content = [](int number) {
        return randomBytes(80'000, static_cast<std::uint64_t>(number));
    };
    hoxHandle_t handle = logOn();
    for (int i = 0; i < kPacks; ++i)
        ASSERT_EQ(backUp(handle, "old" + std::to_string(i), content(i)), HOX_RC_OK);
    ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    fs::remove(file());
    handle = logOn();
    int found = 0;
    for (int i = kPacks - 1; i >= 0; --i) {
        const std::string piece = "new" + std::to_string(i);
        ASSERT_EQ(backUp(handle, piece, content(i)), HOX_RC_OK);
        qryRespBackupData stored{};
        (void)query(handle, piece, &stored);
        found += stored.storedSize.lo < 10'000 ? 1 : 0;
    }
    EXPECT_GT(found, 0) << "none of the packs is known again";
    // A session that ends at once leaves the rest to another.
    fs::remove(file());
    handle = logOn();
    EXPECT_EQ(backUp(handle, "last", content(0)), HOX_RC_OK);
    EXPECT_EQ(restore(handle, "last"), content(0));
}

TEST_F(CacheTest, WhatIsStoredEncryptedDoesNotRelyOnBlocksInTheClear)
{
    const std::string content = blocks();
    ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK); // registers the filespace
    struct Case {
        const char *piece;
        const char *options;
        bool storedAnew;
    };
    for (const Case &one : {Case{"clear", "-encryption=no", true}, Case{"sealed", " ", true},
                            Case{"sealed-again", " ", false}}) {
        hoxHandle_t handle = 0;
        ASSERT_EQ(logOn(handle, nullptr, nullptr, one.options), HOX_RC_OK);
        ASSERT_EQ(backUp(handle, one.piece, content), HOX_RC_OK);
        qryRespBackupData found{};
        (void)query(handle, one.piece, &found);
        EXPECT_EQ(found.storedSize.lo > content.size() / 2, one.storedAnew) << one.piece;
        EXPECT_EQ(restore(handle, one.piece), content);
        EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    }
}

} // namespace

} // namespace keel::test
