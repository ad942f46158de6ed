// Files: the line reader, opening, and lines appended by many at once.
#include "common/unx/psfile.h"
#include "common/ut/utline.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
using namespace keel::test;
using File = std::unique_ptr<FILE, int (*)(FILE *)>;
using Lines = std::vector<std::string>;

Lines readLines(const std::filesystem::path &path, long size, int &count)
{
    const File file(psFileOpen(path.c_str(), "r", nullptr, nullptr), std::fclose);
    Lines lines;
    std::vector<char> buffer(static_cast<std::size_t>(size));
    while (utGetNextLine(buffer.data(), size, file.get(), &count, 0, 0) != nullptr)
        lines.emplace_back(buffer.data());
    return lines;
}

TEST(LineReader, GivesTheLinesThatSaySomething)
{
    TempDir directory;
    const std::string piece(512, 'a');
    const struct {
        std::string content;
        Lines lines;
        int count;
    } cases[] = {
        {"", {}, 0},
        {"one\ntwo", {"one", "two"}, 2},
        {"one\r\ntwo\r", {"one\r", "two"}, 2},
        {"\n \t\v\f\r\n* no\n  * no\n  yes * yes\n", {"  yes * yes"}, 5},
        {piece + piece + "b\n", {piece, piece, "b"}, 3},
        {std::string("\0hidden\nab\0cd\nx", 15), {"ab", "x"}, 3},
        {"\xFF\xFE binary\n", {"\xFF\xFE binary"}, 1},
    };
    for (const auto &one : cases) {
        writeFile(directory / "opt", one.content);
        int count = 0;
        EXPECT_EQ(readLines(directory / "opt", 513, count), one.lines) << one.content;
        EXPECT_EQ(count, one.count) << one.content;
    }
}

TEST(FileOpen, RefusesWhatIsNoFileAndNeverWaits)
{
    TempDir directory;
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    writeFile(directory / "file", "text");
    const struct {
        std::filesystem::path path;
        const char *mode;
        bool opens;
    } cases[] = {
        {directory / "file", "r", true},  {directory / "new", "a", true},
        {"/dev/null", "r", true},         {"/dev/null", "a", true},
        {"/dev/zero", "r", false},        {directory.path(), "r", false},
        {directory / "pipe", "r", false}, {directory / "pipe", "a", false},
        {directory / "none", "r", false}, {directory / "no/new", "w", false},
    };
    for (const auto &one : cases) {
        int encoding = 1;
        const File file(psFileOpen(one.path.c_str(), one.mode, &encoding, nullptr),
                        [](FILE *f) { return f == nullptr ? 0 : std::fclose(f); });
        EXPECT_EQ(file != nullptr, one.opens) << one.path << " " << one.mode;
        EXPECT_EQ(encoding, 0);
        if (file != nullptr) {
            EXPECT_EQ(fcntl(fileno(file.get()), F_GETFD), FD_CLOEXEC) << one.path;
        }
    }
    EXPECT_EQ(psFileWritableDir(directory.path().c_str()), 1);
    EXPECT_EQ(psFileWritableDir((directory / "file").c_str()), 0);
    EXPECT_EQ(psFileWritableDir((directory / "none").c_str()), 0);
}

void appendMany(const std::string &path, char who)
{
    const std::string line = std::string(300, who) + "\n";
    for (int i = 0; i < 100; ++i)
        psAppendLocked(path.c_str(), line.data(), line.size());
}

TEST(LockedAppend, KeepsLinesWholeAmongThreadsAndProcesses)
{
    TempDir directory;
    const std::string path = (directory / "link.log").string();
    std::filesystem::create_symlink(directory / "real.log", path);
    std::vector<pid_t> children;
    for (char who : {'a', 'b', 'c'}) {
        const pid_t child = fork();
        if (child == 0) {
            appendMany(path, who);
            _exit(0);
        }
        children.push_back(child);
    }
    std::thread first(appendMany, path, 'd');
    std::thread second(appendMany, path, 'e');
    first.join();
    second.join();
    for (const pid_t child : children)
        ASSERT_EQ(waitpid(child, nullptr, 0), child);

    const std::string content = readFile(path);
    ASSERT_EQ(content.size(), 5U * 100 * 301);
    for (std::size_t at = 0; at < content.size(); at += 301)
        ASSERT_EQ(content.find_first_not_of(content[at], at), at + 300);
    struct stat file {
    };
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0600U);
}

TEST(LockedAppend, WaitsForAnotherProcessThatHoldsTheFile)
{
    TempDir directory;
    const std::string path = (directory / "log").string();
    int locked[2];
    int release[2];
    ASSERT_EQ(pipe(locked), 0);
    ASSERT_EQ(pipe(release), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        char go = 0;
        const int log = open(path.c_str(), O_RDWR | O_CREAT, 0600);
        const bool good = lockf(log, F_LOCK, 0) == 0 && write(log, "fir", 3) == 3 &&
                          write(locked[1], "l", 1) == 1 && read(release[0], &go, 1) == 1 &&
                          write(log, "st\n", 3) == 3;
        _exit(good ? 0 : 1);
    }
    char word = 0;
    ASSERT_EQ(read(locked[0], &word, 1), 1);
    std::atomic<bool> appended{false};
    std::thread appender([&] {
        psAppendLocked(path.c_str(), "second\n", 7);
        appended = true;
    });
    for (int turn = 0; turn < 2000 && !appended; ++turn)
        std::this_thread::yield();
    EXPECT_FALSE(appended);
    EXPECT_EQ(write(release[1], "r", 1), 1);
    appender.join();
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(readFile(path), "first\nsecond\n");
}

TEST(LockedAppend, StopsAtTheLimitOfTheProcessInsteadOfEndingIt)
{
    TempDir directory;
    const std::string path = (directory / "log").string();
    const pid_t child = fork();
    if (child == 0) {
        const struct rlimit limit = {100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        const std::string line(60, 'x');
        for (const unsigned length : {60U, 60U, 40U, 1U}) // the second and the last do not fit
            psAppendLocked(path.c_str(), line.data(), length);
        psAppendLocked("/", line.data(), line.size());
        psAppendLocked("", line.data(), line.size());
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "ended by a signal";
    EXPECT_EQ(readFile(path).size(), 100U) << "a whole line or none";
}
} // namespace
