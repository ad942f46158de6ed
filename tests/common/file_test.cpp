// Files: the line reader, opening, and lines appended by many at once.
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"
#include "common/ut/utline.h"
#include "tests/support/child.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

static bool withoutLocks = false; // as on a file system that has none

extern "C" int fcntl(int descriptor, int command, ...)
{
    va_list rest;
    va_start(rest, command);
    void *const argument = va_arg(rest, void *);
    va_end(rest);
    if (withoutLocks && command == F_SETLK) {
        errno = ENOLCK;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fcntl, descriptor, command, argument));
}

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
    std::filesystem::create_symlink(directory / "file", directory / "ours");
    std::filesystem::create_symlink(directory / "file", directory / "theirs");
    const bool foreign =
        lchown((directory / "theirs").c_str(), 65534, 65534) == 0; // root alone can
    const struct {
        std::filesystem::path path;
        const char *mode;
        bool opens;
    } cases[] = {
        {directory / "file", "r", true},
        {directory / "new", "a", true},
        {"/dev/null", "r", true},
        {"/dev/null", "a", true},
        {"/dev/zero", "r", false},
        {directory.path(), "r", false},
        {directory / "pipe", "r", false},
        {directory / "pipe", "a", false},
        {directory / "none", "r", false},
        {directory / "no/new", "w", false},
        {"/dev/full", "a", false},
        {"/dev/null", "w", true},
        {directory / "ours", "a", true},
        {directory / "theirs", "r", true},
        {directory / "theirs", "w", !foreign},
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
    EXPECT_EQ(readFile(directory / "file"), foreign ? "text" : "");
    EXPECT_EQ(psFileWritableDir(directory.path().c_str()), 1);
    EXPECT_EQ(psFileWritableDir((directory / "file").c_str()), 0);
    EXPECT_EQ(psFileWritableDir((directory / "none").c_str()), 0);
}

TEST(FileOpen, TakesNoneOfTheNumbersOfTheStandardStreams)
{
    TempDir directory;
    EXPECT_EQ(0, inChild([&] {
                  for (const int stream : {0, 1, 2})
                      close(stream);
                  std::string unnamed = (directory / "XXXXXX").string();
                  int ends[2] = {-1, -1};
                  const bool piped = psPipe(ends);
                  const FILE *file =
                      psFileOpen((directory / "file").c_str(), "w", nullptr, nullptr);
                  const int all[] = {psFileOpenDescriptor("/dev/null", O_WRONLY),
                                     psFileOpenDirectory(directory.path().c_str()),
                                     psFileTemporary(unnamed.data()),
                                     ends[0],
                                     ends[1],
                                     file == nullptr ? -1 : fileno(const_cast<FILE *>(file))};
                  for (const int descriptor : all)
                      if (!piped || descriptor < 3 || fcntl(descriptor, F_GETFD) != FD_CLOEXEC)
                          return 1;
                  for (const int stream : {0, 1, 2})
                      if (fcntl(stream, F_GETFD) != -1)
                          return 2;
                  return 0;
              }));
}

TEST(FileOpen, LeavesToTheOwnerWhatTheUmaskTakes)
{
    TempDir directory;
    EXPECT_EQ(0, inChild([&] {
                  umask(0777);
                  std::string unnamed = (directory / "XXXXXX").string();
                  for (const int made :
                       {psFileOpenDescriptor((directory / "a").c_str(), O_WRONLY | O_CREAT, 0666),
                        psFileTemporary(unnamed.data())}) {
                      struct stat file {
                      };
                      if (fstat(made, &file) != 0 || (file.st_mode & 0777) != 0600)
                          return 1;
                  }
                  return 0;
              }));
}

TEST(Write, FailsWithACodeWhereTheSystemWouldEndTheHost)
{
    TempDir directory;
    EXPECT_EQ(0, inChild([&] {
                  const struct rlimit limit = {5, 5};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  const std::string path = (directory / "file").string();
                  const int file = psFileOpenDescriptor(path.c_str(), O_RDWR | O_CREAT);
                  const int log = psFileOpenDescriptor(path.c_str(), O_RDWR | O_APPEND);
                  int ends[2];
                  if (psWriteAll(file, "longer", 6) || errno != EFBIG ||
                      psWriteAllAt(file, "x", 1, 5) || errno != EFBIG ||
                      psAppendWhole(log, "x", 1) || ftruncate(log, 3) != 0 ||
                      psAppendWhole(log, "xyz", 3) || !psAppendWhole(log, "ok", 2))
                      return 1;
                  if (!psPipe(ends) || close(ends[0]) != 0 || psWriteAll(ends[1], "x", 1) ||
                      errno != EPIPE)
                      return 2;
                  sigset_t blocked, pending;
                  sigemptyset(&blocked);
                  sigaddset(&blocked, SIGXFSZ);
                  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
                  raise(SIGXFSZ); // the host's own, which it looks at later
                  psWriteAll(file, "x", 1);
                  sigpending(&pending);
                  return sigismember(&pending, SIGXFSZ) == 1 ? 0 : 3;
              }));
    EXPECT_EQ(readFile(directory / "file"), std::string("lonok"));
}

void appendMany(const std::string &path, char who)
{
    const std::string line = std::string(300, who) + "\n";
    for (int i = 0; i < 100; ++i)
        psAppendLocked(path.c_str(), line.data(), line.size());
}

TEST(FileOpen, AsksWhatTheEffectiveUserMayWrite)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can take another effective user for a while";
    const TempDir directory;
    EXPECT_EQ(psFileWritableDir(directory.path().c_str()), 1);
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(psFileWritableDir(directory.path().c_str()), 0);
    ASSERT_EQ(seteuid(0), 0);
}

TEST(FileOpen, GivesWhatRootMakesToTheOwnerOfTheDirectory)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can";
    const TempDir directory;
    ASSERT_EQ(chown(directory.path().c_str(), 65534, 65534), 0);
    writeFile(directory / "roots", "line\n");
    for (const auto &[name, owner] : {std::pair("log", 65534U), std::pair("roots", 0U)}) {
        psAppendLocked((directory / name).c_str(), "line\n", 5);
        struct stat file {
        };
        ASSERT_EQ(stat((directory / name).c_str(), &file), 0);
        EXPECT_EQ(file.st_uid, owner) << name;
    }
}

TEST(LockedAppend, KeepsLinesWholeAmongThreadsAndProcesses)
{
    TempDir directory;
    const std::string path = (directory / "link.log").string();
    std::filesystem::create_symlink(directory / "real.log", path);
    std::vector<std::unique_ptr<Child>> children;
    for (char who : {'a', 'b', 'c'})
        children.push_back(std::make_unique<Child>([&](int) { appendMany(path, who); }));
    std::thread first(appendMany, path, 'd');
    std::thread second(appendMany, path, 'e');
    first.join();
    second.join();
    for (const auto &child : children)
        ASSERT_EQ(child->wait(), 0);

    const std::string content = readFile(path);
    ASSERT_EQ(content.size(), 5U * 100 * 301);
    for (std::size_t at = 0; at < content.size(); at += 301)
        ASSERT_EQ(content.find_first_not_of(content[at], at), at + 300);
    struct stat file {
    };
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0600U);
}

/// Another process that has locked the file and written "fir" into it, until it is to go on.
class Holder
{
public:
    explicit Holder(const std::string &path)
    {
        EXPECT_TRUE(psPipe(release_));
        child_ = std::make_unique<Child>([&](int told) {
            char go = 0;
            const int log = open(path.c_str(), O_RDWR | O_CREAT, 0600);
            if (lockf(log, F_LOCK, 0) != 0 || write(log, "fir", 3) != 3)
                _exit(1);
            tell(told, "locked");
            _exit(read(release_[0], &go, 1) == 1 && write(log, "st\n", 3) == 3 ? 0 : 1);
        });
        EXPECT_EQ(child_->hear(), "locked");
    }
    void goOn()
    {
        EXPECT_EQ(write(release_[1], "r", 1), 1);
        EXPECT_EQ(child_->wait(), 0);
    }

private:
    int release_[2] = {-1, -1};
    std::unique_ptr<Child> child_;
};

TEST(LockedAppend, WaitsForAnotherProcessThatHoldsTheFile)
{
    TempDir directory;
    const std::string path = (directory / "log").string();
    Holder holder(path);
    std::atomic<bool> appended{false};
    std::thread appender([&] {
        psAppendLocked(path.c_str(), "second\n", 7);
        appended = true;
    });
    for (int turn = 0; turn < 50 && !appended; ++turn)
        std::this_thread::yield();
    EXPECT_FALSE(appended);
    holder.goOn();
    appender.join();
    EXPECT_EQ(readFile(path), "first\nsecond\n");
}

TEST(LockedAppend, DoesNotWaitForAHolderThatNeverLetsGo)
{
    TempDir directory;
    const std::string path = (directory / "log").string();
    Holder holder(path);
    psAppendLocked(path.c_str(), "line\n", 5);
    EXPECT_EQ(readFile(path), "firline\n");
    holder.goOn();
}

TEST(LockedAppend, DoesWithoutLocksWhereThereAreNone)
{
    TempDir directory;
    const std::string path = (directory / "log").string();
    withoutLocks = true;
    psAppendLocked(path.c_str(), "first\n", 6);
    psAppendLocked(path.c_str(), "second\n", 7);
    withoutLocks = false;
    EXPECT_EQ(readFile(path), "first\nsecond\n");
}

TEST(LockedAppend, StopsAtTheLimitOfTheProcessInsteadOfEndingIt)
{
    TempDir directory;
    const std::string path = (directory / "log").string();
    EXPECT_EQ(0, inChild([&] {
                  const struct rlimit limit = {100, 100};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  const std::string line(60, 'x');
                  for (const unsigned length : {60U, 60U, 40U, 1U}) // the 2nd and 4th do not fit
                      psAppendLocked(path.c_str(), line.data(), length);
                  psAppendLocked("/", line.data(), line.size());
                  psAppendLocked("", line.data(), line.size());
                  return 0;
              }));
    EXPECT_EQ(readFile(path).size(), 100U) << "a whole line or none";
}
} // namespace
