// What a host remembers of the packs is a cache: whatever becomes of it, backups go on, and the
// next session finds duplicates as before.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <thread>

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
        for (const fs::path &path : cached(""))
            if (!path.filename().string().starts_with("objects-"))
                return path;
        return {};
    }

    static std::string blocks()
    {
        std::string stream = randomBytes(std::size_t{400} * 8192, 5);
        for (std::size_t i = 0; i < stream.size(); i += 8192)
            stream[i] = '\x06';
        return stream;
    }

    std::uint64_t storedSize(hoxHandle_t handle, const std::string &piece)
    {
        return recordOf(handle, piece).storedSize.lo;
    }
};

void overwrite(const fs::path &path, std::size_t from)
{
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(from));
    file << std::string(fs::file_size(path) - from, 'x');
}

/// Changes a file of SQLite by statements; the constraints of its schema do not hold.
void alter(const fs::path &path, const std::string &statements)
{
    const ProgramResult altered = run({"python3", "-c",
                                       "import sqlite3, sys\n"
                                       "c = sqlite3.connect(sys.argv[1])\n"
                                       "c.execute('PRAGMA ignore_check_constraints=1')\n"
                                       "c.executescript(sys.argv[2])\n",
                                       path, statements});
    ASSERT_EQ(altered.status, 0) << altered.err;
}

TEST_F(CacheTest, WhateverBecomesOfItBackupsGoOnAndDuplicatesAreFoundAgain)
{
    const std::string content = blocks();
    const fs::path victim = installation_.directory() / "victim";
    writeFile(victim, "of the user");
    {
        const hoxHandle_t handle = logOn();
        ASSERT_EQ(backUp(handle, "first", content), HOX_RC_OK);
        ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    }
    ASSERT_FALSE(file().empty());
    const fs::path catalogue = file();
    const fs::path yesterday = catalogue.string() + ".yesterday";
    fs::copy_file(catalogue, yesterday);
    alter(catalogue, "DELETE FROM hints; DELETE FROM packs;"
                     "UPDATE about SET value=value+1000000 WHERE name='compared';");
    {
        const hoxHandle_t handle = logOn();
        ASSERT_EQ(backUp(handle, "ahead", content), HOX_RC_OK);
        EXPECT_LT(storedSize(handle, "ahead"), content.size() / 100) << "by a clock that was ahead";
        ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    }
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
        {"an endless view",
         [](const fs::path &path) {
             alter(path, "DROP TABLE hints; CREATE VIEW hints(key, pack) AS WITH RECURSIVE c(x) AS"
                         " (SELECT 1 UNION ALL SELECT x+1 FROM c) SELECT x, x FROM c;");
         }},
        {"a trigger",
         [](const fs::path &path) {
             alter(path, "CREATE TRIGGER t AFTER INSERT ON packs BEGIN DELETE FROM hints; END;");
         }},
        {"one table more",
         [](const fs::path &path) { alter(path, "CREATE TABLE more(x); ANALYZE;"); }},
        {"other types",
         [](const fs::path &path) {
             alter(path, "UPDATE packs SET id='text ' || number; UPDATE about SET value=x'00';");
         }},
        {"values of many bytes",
         [](const fs::path &path) {
             alter(path, "INSERT INTO packs VALUES(7777, zeroblob(50000000), 7777, 1);");
         }},
        {"another node's",
         [](const fs::path &path) { alter(path, "UPDATE about SET value='other';"); }},
        {"a write-ahead log",
         [](const fs::path &path) { alter(path, "PRAGMA journal_mode=WAL; DELETE FROM hints;"); }},
        {"a link",
         [&](const fs::path &path) {
             fs::remove(path);
             fs::create_symlink(victim, path);
         }},
        {"a second name",
         [&](const fs::path &path) {
             fs::remove(path);
             fs::create_hard_link(victim, path);
         }},
        {"a pipe",
         [](const fs::path &path) {
             fs::remove(path);
             ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
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
        fs::remove(catalogue.string() + "-journal");
        one.hurt(catalogue);
        // The first session may be the one that finds it out.
        for (const char *time : {"a", "b"}) {
            const hoxHandle_t handle = logOn();
            const std::string name = time + std::to_string(number);
            EXPECT_EQ(backUp(handle, name, content), HOX_RC_OK);
            EXPECT_EQ(restore(handle, name), content);
            if (*time == 'b' && std::string(one.name) != "a directory") {
                EXPECT_LT(storedSize(handle, name), content.size() / 100) << "stored once more";
            }
            EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
        }
        ++number;
    }
    EXPECT_EQ(readFile(victim), "of the user");
}

TEST_F(CacheTest, IsCutAndOverwrittenWhileItIsUsed)
{
    const std::string content = blocks();
    hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "first", content), HOX_RC_OK);
    std::atomic<bool> over = false;
    std::thread vandal([&] {
        for (unsigned round = 0; !over; ++round)
            for (const fs::path &path : cached("")) {
                std::error_code gone;
                if (round % 2 == 0)
                    fs::resize_file(path, round % 3 * 4096, gone);
                else if (std::fstream file(path, std::ios::in | std::ios::out); file)
                    file.seekp(round % 7 * 1000) << std::string(3000, static_cast<char>(round));
            }
    });
    const qryObjectsData all = everything();
    for (int i = 0; i < 12; ++i) {
        const std::string piece = "while" + std::to_string(i);
        EXPECT_EQ(backUp(handle, piece, content + piece), HOX_RC_OK);
        EXPECT_EQ(restore(handle, piece), content + piece);
        int found = 0;
        const int code =
            ask<qryRespBackupData>(handle, HOX_QUERY_OBJECTS, &all, [&](auto &) { ++found; });
        // It may be damaged again and again, but never answers anything else than what is there.
        EXPECT_TRUE(code == HOX_RC_REPOSITORY_IO || (code == HOX_RC_FINISHED && found == i + 2))
            << code << ": " << found;
        EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
        handle = logOn();
    }
    over = true;
    vandal.join();
}

TEST_F(CacheTest, AFileThatAStoppedProcessHoldsIsAskedOnceAndThenLeft)
{
    const std::string content = blocks();
    const fs::path held = installation_.directory() / "held";
    hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "first", content), HOX_RC_OK);
    Program holder({"python3", "-c",
                    "import sqlite3, sys\n"
                    "c = sqlite3.connect(sys.argv[1], isolation_level=None)\n"
                    "c.execute('BEGIN EXCLUSIVE')\n"
                    "open(sys.argv[2], 'w').close()\n"
                    "sys.stdin.read()\n",
                    file(), held});
    while (!fs::exists(held))
        std::this_thread::yield();
    const auto stores = [&](const char *piece) {
        EXPECT_EQ(backUp(handle, piece, content), HOX_RC_OK);
        return storedSize(handle, piece) > content.size() / 2;
    };
    EXPECT_TRUE(stores("held"));
    holder.closeInput();
    EXPECT_EQ(holder.wait().status, 0);
    EXPECT_TRUE(stores("let-go")) << "this session asks a file again that others may hold";
    EXPECT_EQ(restore(handle, "let-go"), content);
    ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    handle = logOn();
    EXPECT_FALSE(stores("next"));
}

TEST_F(CacheTest, LiesWhereTheHostKeepsCachesAndIsPrivate)
{
    const std::string log = installation_.directory() / "veloerror.log";
    const auto modeOf = [](const fs::path &path) {
        return static_cast<unsigned>(fs::status(path).permissions());
    };
    const auto session = [&](const std::string &line) {
        const std::string options = readFile(installation_.clientOptions());
        writeFile(installation_.clientOptions(), options + line);
        ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
        for (const char *piece : {"p", "q"}) {
            const hoxHandle_t handle = logOn();
            EXPECT_EQ(backUp(handle, piece, "x"), HOX_RC_OK) << line;
            EXPECT_EQ(remove(handle, piece), HOX_RC_OK);
            EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
        }
        writeFile(installation_.clientOptions(), options);
    };
    const auto warnings = [&] {
        const std::string text = fs::exists(log) ? readFile(log) : std::string();
        std::size_t count = 0;
        for (std::size_t at = text.find("Warning: the cache directory"); at != std::string::npos;
             at = text.find("Warning: the cache directory", at + 1))
            ++count;
        return count;
    };
    session("CACHE no\n");
    EXPECT_FALSE(fs::exists(installation_.caches()));
    EXPECT_EQ(warnings(), 0U) << "nobody wanted one";

    const fs::path asked = installation_.directory() / "of" / "mine";
    session("CACHE " + asked.string() + "\n");
    const auto one = *fs::directory_iterator(asked);
    EXPECT_EQ(modeOf(one), 0700U);
    for (const auto &file : fs::directory_iterator(one))
        EXPECT_EQ(modeOf(file), 0600U) << file;
    EXPECT_FALSE(fs::exists(installation_.caches()));
    EXPECT_FALSE(fs::exists(installation_.repository() / "cache"));

    // None of these is used, each is told once.
    fs::permissions(asked, fs::perms::all);
    session("CACHE " + asked.string() + "\n");
    EXPECT_EQ(warnings(), 1U) << "others could put another directory there";
    fs::permissions(asked, fs::perms::owner_all);
    const fs::path elsewhere = installation_.directory() / "elsewhere";
    fs::create_directory(elsewhere);
    fs::remove_all(one);
    fs::create_directory_symlink(elsewhere, one);
    session("CACHE " + asked.string() + "\n");
    EXPECT_TRUE(fs::is_empty(elsewhere));
    EXPECT_EQ(warnings(), 2U);
    session("CACHE " + installation_.clientOptions().string() + "/below\n");
    EXPECT_EQ(warnings(), 3U);

    // Without the option, where a cache belongs, else beside the option file.
    session("");
    EXPECT_FALSE(cached("").empty());
    ::setenv("XDG_CACHE_HOME", installation_.clientOptions().c_str(), 1);
    session("");
    EXPECT_TRUE(fs::exists(installation_.clientOptions().string() + ".cache"));
    EXPECT_EQ(warnings(), 3U);
    EXPECT_EQ(setUp(installation_.directory() / "arca.opt"), HOX_RC_OK);
}

TEST_F(CacheTest, ACopyOfTheRepositoryHasItsOwn)
{
    const std::string content = blocks();
    hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "both", content), HOX_RC_OK);
    ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    const fs::path copy = installation_.directory() / "copy";
    fs::copy(installation_.repository(), copy, fs::copy_options::recursive);
    const std::string options = readFile(installation_.clientOptions());
    const std::string original = "file://" + installation_.repository().string();
    std::string other = options;
    other.replace(other.find(original), original.size(), "file://" + copy.string());
    for (int round = 0; round < 3; ++round)
        for (const std::string &which : {options, other}) {
            writeFile(installation_.clientOptions(), which);
            ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
            handle = logOn();
            const std::string piece = "own" + std::to_string(round);
            const std::string stream = content + piece + (which == options ? "" : " of the copy");
            EXPECT_EQ(backUp(handle, piece, stream), HOX_RC_OK);
            EXPECT_EQ(restore(handle, piece), stream);
            EXPECT_LT(storedSize(handle, piece), content.size() / 10) << "duplicates are found";
            EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
        }
    EXPECT_EQ(cached("").size(), 2U) << "one each";
    writeFile(installation_.clientOptions(), options);
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
        found += storedSize(handle, piece) < 10'000 ? 1 : 0;
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
        EXPECT_EQ(storedSize(handle, one.piece) > content.size() / 2, one.storedAnew) << one.piece;
        EXPECT_EQ(restore(handle, one.piece), content);
        EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    }
}

} // namespace

} // namespace keel::test
