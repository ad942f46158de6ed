// Channels that die: killed at whatever moment, or out of space. What was acknowledged is whole,
// the rest is absent, and what was left behind is in nobody's way.
#include "tests/client/api/client_fixture.h"
#include "tests/support/child.h"

#include <csignal>
#include <map>
#include <random>
#include <sched.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#ifdef __linux__
#include <sys/mount.h>
#endif
#include <unistd.h>

namespace keel::test
{

namespace
{

using KilledTest = ClientTest;

std::string streamOf(int round, int piece)
{
    return randomBytes(300000 + static_cast<std::size_t>(piece) * 50021,
                       static_cast<std::uint64_t>(round * 1000 + piece));
}

std::string nameOfPiece(int round, int piece)
{
    return std::to_string(round) + "." + std::to_string(piece);
}

TEST_F(KilledTest, ChannelsKilledAtRandomLeaveWholePiecesAndNothingElse)
{
    // The child tells a letter before each piece, after each block, and, in capitals, after each
    // commit that returned 0. It is killed after a random number of letters, so wherever it is.
    std::mt19937 random(20261121);
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Child child([&](int told) {
            const hoxHandle_t handle = logOn();
            for (int piece = 0; piece < 20; ++piece) {
                const std::string stream = streamOf(round, piece);
                tell(told, "b");
                int code = send(handle, nameOfPiece(round, piece), stream.substr(0, 200000));
                tell(told, "b");
                std::string rest = stream.substr(200000);
                DataBlk data = blockOf(rest);
                if (code == HOX_RC_OK)
                    code = api_.hoxSendData(handle, &data);
                tell(told, "b");
                if (code == HOX_RC_OK && commit(handle) == HOX_RC_OK)
                    tell(told, "C");
            }
        });
        const int letters = std::uniform_int_distribution<int>(1, 40)(random);
        int acknowledged = 0;
        char letter = 0;
        for (int i = 0; i < letters && read(child.told, &letter, 1) == 1; ++i)
            acknowledged += letter == 'C';
        (void)child.end(SIGKILL);
        while (read(child.told, &letter, 1) == 1)
            acknowledged += letter == 'C';

        const hoxHandle_t handle = logOn();
        EXPECT_TRUE(stored("tmp").empty()) << "the next session cleans up";
        for (int piece = 0; piece < 20; ++piece) {
            const auto stream = restore(handle, nameOfPiece(round, piece), 100000);
            if (piece < acknowledged) {
                ASSERT_TRUE(stream) << "an acknowledged piece is lost";
            }
            if (stream) {
                EXPECT_TRUE(*stream == streamOf(round, piece)) << "half a piece shows";
                EXPECT_LE(piece, acknowledged) << "a piece shows that was not begun";
            }
        }
        if (acknowledged < 20 && !restore(handle, nameOfPiece(round, acknowledged))) {
            EXPECT_EQ(backUp(handle, nameOfPiece(round, acknowledged), "again"), HOX_RC_OK);
        }
        ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    }
}

TEST_F(KilledTest, WhereverAPasswordChangeIsKilledTheNodeLogsOn)
{
    // The child changes the kept password over and over and tells a letter after each change.
    std::mt19937 random(20261121);
    for (int round = 0; round < 15; ++round) {
        Child child([&](int told) {
            const hoxHandle_t handle = logOn();
            while (api_.hoxChangePW(handle, nullptr, nullptr) == HOX_RC_OK)
                tell(told, "c");
        });
        const int letters = std::uniform_int_distribution<int>(1, 6)(random);
        char letter = 0;
        for (int i = 0; i < letters; ++i)
            ASSERT_EQ(read(child.told, &letter, 1), 1) << "a change failed";
        (void)child.end(SIGKILL);
        ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK);
    }
}

TEST_F(KilledTest, SeveralProcessesWriteOneRepositoryAndOneOfThemWinsEachName)
{
    constexpr int kProcesses = 4, kPieces = 10;
    std::vector<std::unique_ptr<Child>> children;
    for (int process = 0; process < kProcesses; ++process)
        children.push_back(std::make_unique<Child>([&](int told) {
            const hoxHandle_t handle = logOn();
            for (int piece = 0; piece < kPieces; ++piece) {
                const int code = backUp(handle, nameOfPiece(0, piece), streamOf(process, piece));
                tell(told, code == HOX_RC_OK ? "W" : code == HOX_RC_OBJECT_EXISTS ? "L" : "?");
            }
        }));
    std::map<int, int> winner;
    for (int process = 0; process < kProcesses; ++process) {
        Child &child = *children[static_cast<std::size_t>(process)];
        for (int piece = 0; piece < kPieces; ++piece) {
            char letter = 0;
            ASSERT_EQ(read(child.told, &letter, 1), 1);
            ASSERT_TRUE(letter == 'W' || letter == 'L') << letter;
            if (letter == 'W') {
                EXPECT_TRUE(winner.emplace(piece, process).second) << "two won " << piece;
            }
        }
        EXPECT_EQ(child.wait(), 0);
    }
    const hoxHandle_t handle = logOn();
    for (int piece = 0; piece < kPieces; ++piece) {
        ASSERT_TRUE(winner.contains(piece));
        EXPECT_TRUE(restore(handle, nameOfPiece(0, piece)) == streamOf(winner[piece], piece));
    }
}

TEST_F(KilledTest, OfProcessesThatRenameAndDeleteOneObjectEachIsToldWhatCameOfIt)
{
    // Two rename, one of which is killed on the way, and one deletes.
    constexpr int kRounds = 12;
    std::mt19937 random(20261121);
    const hoxHandle_t handle = logOn();
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        const std::string piece = nameOfPiece(round, 0);
        ASSERT_EQ(backUp(handle, piece, streamOf(round, 0)), HOX_RC_OK);
        std::vector<std::unique_ptr<Child>> children;
        for (int process = 0; process < 3; ++process)
            children.push_back(std::make_unique<Child>([&](int told) {
                const hoxHandle_t own = logOn();
                const hoxObjName name = nameOf(piece);
                tell(told, "b");
                const std::string wanted = "/" + nameOfPiece(round, process);
                const int code = process == 0 ? remove(own, piece)
                                              : api_.hoxRenameObj(own, HOX_SEND_BACKUP, &name, "/",
                                                                  wanted.c_str());
                tell(told, code == HOX_RC_OK ? "W" : code == HOX_RC_OBJECT_UNKNOWN ? "L" : "?");
            }));
        char told[3] = {};
        for (int process = 2; process >= 0; --process) {
            Child &child = *children[static_cast<std::size_t>(process)];
            ASSERT_EQ(read(child.told, &told[process], 1), 1);
            if (process == 2) {
                for (auto turns = std::uniform_int_distribution<int>(0, 400)(random); turns > 0;
                     --turns)
                    sched_yield();
                kill(child.pid, SIGKILL);
            }
            if (read(child.told, &told[process], 1) != 1) {
                told[process] = 'k';
            }
            (void)child.wait();
            EXPECT_NE(told[process], '?');
        }
        int shown = 0;
        ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK);
        for (int name = 0; name < 3; ++name) {
            const auto stream = restore(handle, nameOfPiece(round, name), 100000);
            shown += stream.has_value();
            EXPECT_TRUE(!stream || *stream == streamOf(round, 0));
            EXPECT_FALSE(stream && told[name] == 'L') << "a name shows that was refused";
        }
        EXPECT_EQ(shown, told[0] == 'W' ? 0 : 1) << told[0] << told[1] << told[2];
        EXPECT_FALSE(told[1] == 'W' && told[2] == 'W');
        EXPECT_TRUE(stored("changes").empty());
    }
}

TEST_F(KilledTest, ALimitOnFileSizesIsNamedAndNoSignal)
{
    Child child([&](int told) {
        const hoxHandle_t handle = logOn();
        (void)backUp(handle, "before", "before");
        const rlimit limit{1 << 20, 1 << 20};
        setrlimit(RLIMIT_FSIZE, &limit);
        const std::string big = randomBytes(8 << 20, 1);
        // What is sent is on its way for a while: the failure is told there or at the end.
        const int sent = send(handle, "big", big);
        const int ended = commit(handle);
        const bool gone = stored("tmp").empty();
        const bool good = (sent == HOX_RC_OK || sent == HOX_RC_REPOSITORY_IO) &&
                          ended == HOX_RC_REPOSITORY_IO && gone &&
                          text(ended).find("limit") != std::string::npos &&
                          backUp(handle, "small", "small") == HOX_RC_OK;
        tell(told, good ? "good" : "bad");
    });
    EXPECT_EQ(child.hear(), "good");
    const hoxHandle_t handle = logOn();
    EXPECT_EQ(restore(handle, "before"), "before");
    EXPECT_EQ(restore(handle, "small"), "small");
    EXPECT_FALSE(restore(handle, "big"));
}

/// A small file system of our own; TMPDIR leads there. It goes with the process at the latest.
class SmallDisk
{
protected:
    SmallDisk()
    {
        char pattern[] = "/tmp/keel-disk.XXXXXX";
        if (mkdtemp(pattern) == nullptr)
            throw std::runtime_error(pattern);
        disk_ = pattern;
#ifdef __linux__
        mounted_ = unshare(CLONE_NEWNS) == 0 &&
                   mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   mount("tmpfs", pattern, "tmpfs", 0, "size=96m") == 0;
        if (mounted_)
            setenv("TMPDIR", pattern, 1);
#endif
    }
    ~SmallDisk()
    {
        unsetenv("TMPDIR");
#ifdef __linux__
        if (mounted_)
            umount2(disk_.c_str(), MNT_DETACH);
#endif
        rmdir(disk_.c_str());
    }

    void fill() const
    {
        std::FILE *const file = std::fopen((disk_ + "/filler").c_str(), "ab");
        ASSERT_NE(file, nullptr);
        std::setbuf(file, nullptr);
        for (std::size_t portion : {std::size_t{1} << 20, std::size_t{4096}, std::size_t{1}}) {
            const std::string bytes(portion, 'f');
            while (std::fwrite(bytes.data(), 1, portion, file) == portion)
                continue;
        }
        std::fclose(file);
        ASSERT_EQ(std::filesystem::space(disk_).available, 0U);
    }

    /// From now on no file more can be made, or `more`.
    void limitFiles([[maybe_unused]] unsigned more) const
    {
#ifdef __linux__
        struct statvfs now = {};
        ASSERT_EQ(statvfs(disk_.c_str(), &now), 0);
        const std::string options =
            "size=96m,nr_inodes=" + std::to_string(now.f_files - now.f_ffree + more);
        ASSERT_EQ(mount(nullptr, disk_.c_str(), nullptr, MS_REMOUNT, options.c_str()), 0);
#endif
    }

    std::string disk_;
    bool mounted_ = false;
};

class FullDiskTest : public SmallDisk, public KilledTest
{
};

TEST_F(FullDiskTest, RefusesBackupsWithOneErrorAndStillRestoresRemovesAndReclaims)
{
    if (!mounted_)
        GTEST_SKIP() << "needs the right to mount";
    const auto piece = [](std::uint64_t n) { return randomBytes(std::size_t{10} << 20, n); };
    hoxHandle_t handle = logOn();
    int stored = 0, code = HOX_RC_OK;
    for (; code == HOX_RC_OK && stored < 12; stored += code == HOX_RC_OK)
        code = backUp(handle, std::to_string(stored), piece(static_cast<std::uint64_t>(stored)));
    EXPECT_EQ(code, HOX_RC_REPOSITORY_FULL);
    ASSERT_GT(stored, 3);
    EXPECT_TRUE(KilledTest::stored("tmp").empty());
    // Of the packs of 0 and 1 a third goes on to be needed.
    for (int n : {0, 1})
        ASSERT_EQ(backUp(handle, "part" + std::to_string(n),
                         piece(static_cast<std::uint64_t>(n)).substr(0, std::size_t{3} << 20)),
                  HOX_RC_OK);
    ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    fill();
    handle = logOn();
    EXPECT_EQ(backUp(handle, "more", piece(99)), HOX_RC_REPOSITORY_FULL);
    for (const char *gone : {"0", "1", "2"}) {
        fill();
        EXPECT_EQ(remove(handle, gone), HOX_RC_OK) << gone;
        EXPECT_FALSE(restore(handle, gone));
    }
    EXPECT_EQ(restore(handle, "3", 65536), piece(3));
    fill();
    const ProgramResult reclaimed = arca({"reclaim", "--grace", "0"});
    EXPECT_EQ(reclaimed.status, 0) << reclaimed.err;
    EXPECT_GT(std::filesystem::space(disk_).available, std::size_t{20} << 20);
    EXPECT_EQ(KilledTest::stored("reserve").size(), 54U) << "it is there for the next time";
    EXPECT_EQ(backUp(handle, "more", piece(99)), HOX_RC_OK);
    EXPECT_EQ(restore(handle, "part1", 65536), piece(1).substr(0, std::size_t{3} << 20));
    const ProgramResult verified = arca({"verify", "--read-data"});
    EXPECT_EQ(verified.status, 0) << verified.out << verified.err;
}

TEST_F(FullDiskTest, WhereNoFileCanBeMadeItRestoresRemovesAndReclaimsAllTheSame)
{
    if (!mounted_)
        GTEST_SKIP() << "needs the right to mount";
    const hoxHandle_t handle = logOn();
    for (const std::uint64_t n : {0, 1, 2})
        ASSERT_EQ(backUp(handle, std::to_string(n), randomBytes(1000, n)), HOX_RC_OK);
    for (const char *gone : {"0", "1"}) {
        limitFiles(0);
        EXPECT_EQ(backUp(handle, "more", "more"), HOX_RC_REPOSITORY_FULL);
        EXPECT_EQ(remove(handle, gone), HOX_RC_OK) << gone;
    }
    limitFiles(0);
    EXPECT_EQ(restore(handle, "2"), randomBytes(1000, 2));
    const ProgramResult reclaimed = arca({"reclaim", "--grace", "0"});
    EXPECT_EQ(reclaimed.status, 0) << reclaimed.err;
    limitFiles(1000);
    EXPECT_EQ(backUp(handle, "more", "more"), HOX_RC_OK);
    const ProgramResult verified = arca({"verify", "--read-data"});
    EXPECT_EQ(verified.status, 0) << verified.out << verified.err;
}

TEST_F(KilledTest, ARepositoryThatCannotBeWrittenStillRestores)
{
    // Root may write whatever the mode says, so a child steps down first.
    {
        const hoxHandle_t handle = logOn();
        ASSERT_EQ(backUp(handle, "p", "content"), HOX_RC_OK);
        ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    }
    if (getuid() != 0)
        GTEST_SKIP() << "needs root to step down";
    namespace fs = std::filesystem;
    const auto readable = fs::perms::owner_read | fs::perms::owner_exec;
    const auto handOver = [&](const fs::path &path) {
        fs::permissions(path, readable);
        ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0) << path;
    };
    for (const auto &entry : fs::recursive_directory_iterator(installation_.directory()))
        handOver(entry.path());
    handOver(installation_.directory());
    Child child([&](int told) {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            return;
        const hoxHandle_t handle = logOn();
        const bool restores = restore(handle, "p") == "content";
        const int refused = backUp(handle, "q", "x");
        const bool good =
            restores && refused == HOX_RC_ACCESS_DENIED && api_.hoxTerminate(handle) == HOX_RC_OK;
        tell(told, good ? "good" : "bad");
    });
    EXPECT_EQ(child.hear(), "good");
}

} // namespace

} // namespace keel::test
