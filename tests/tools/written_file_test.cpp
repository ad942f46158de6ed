// What the programs write under names that they are given: whole or not at all, under the right
// permissions, and never what a link or a name prepared by somebody else leads to.
#include "tests/support/files.h"
#include "tools/common/command/written_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

// Where a network file system refuses at last what it took.
static bool closeFails = false;

extern "C" int close(int descriptor)
{
    const long closed = syscall(SYS_close, descriptor);
    errno = closeFails ? EDQUOT : errno;
    return closeFails ? -1 : static_cast<int>(closed);
}

namespace keel::test
{

namespace fs = std::filesystem;
using tools::Existing;
using tools::FileRules;
using tools::WrittenFile;

class WrittenFileTest : public testing::Test
{
protected:
    /// What it leads to in the end; what was said when it fails.
    std::string written(const std::string &name, const FileRules &rules = {}) const
    {
        try {
            tools::writeWhole(directory_ / name, "text", rules);
            return readFile(directory_ / name);
        } catch (const tools::FileFailure &failure) {
            EXPECT_NE(std::string(failure.what()).find(name), std::string::npos) << failure.what();
            return failure.what();
        }
    }
    mode_t modeOf(const std::string &name) const
    {
        struct stat status = {};
        EXPECT_EQ(::stat((directory_ / name).c_str(), &status), 0);
        return status.st_mode & 07777;
    }
    std::size_t files() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator()));
    }

    TempDir directory_;
};

TEST_F(WrittenFileTest, ANameIsReplacedWholeOrLeftAsItIs)
{
    ::umask(027);
    EXPECT_EQ(written("new"), "text");
    EXPECT_EQ(modeOf("new"), 0640U);
    EXPECT_EQ(written("open", {Existing::replace, "", 0644, true}), "text");
    EXPECT_EQ(modeOf("open"), 0644U);
    writeFile(directory_ / "old", "old");
    ASSERT_EQ(::chmod((directory_ / "old").c_str(), 04600), 0);
    EXPECT_NE(written("old", {Existing::keep, "; do that", {}, true}).find("already; do that"),
              std::string::npos);
    EXPECT_EQ(readFile(directory_ / "old"), "old");
    EXPECT_EQ(written("old"), "text");
    EXPECT_EQ(modeOf("old"), 04600U);
    EXPECT_NE(written("none/new").find("No such file"), std::string::npos);
    EXPECT_NE(written("").find("directory"), std::string::npos);

    fs::create_symlink("old", directory_ / "link");
    fs::create_symlink("nothing", directory_ / "dangling");
    for (const char *name : {"link", "dangling"})
        EXPECT_NE(written(name).find("is a symbolic link"), std::string::npos);
    EXPECT_FALSE(fs::exists(directory_ / "nothing"));
    EXPECT_EQ(files(), 5U) << "nothing is left beside them";
}

TEST_F(WrittenFileTest, WhatTheSystemRefusesAtTheCloseIsNotPublished)
{
    writeFile(directory_ / "old", "old");
    closeFails = true;
    EXPECT_THROW(tools::writeWhole(directory_ / "old", "text", {}), tools::FileFailure);
    closeFails = false;
    EXPECT_EQ(readFile(directory_ / "old"), "old");
    EXPECT_EQ(files(), 1U);
}

TEST_F(WrittenFileTest, WhatComesInBetweenIsNotReplaced)
{
    const std::string name = directory_ / "name";
    const std::pair<Existing, std::function<void()>> cases[] = {
        {Existing::keep, [&] { writeFile(name, "theirs"); }},
        {Existing::keep, [&] { fs::create_symlink("victim", name); }},
        {Existing::replace, [&] { fs::create_symlink("victim", name); }},
        {Existing::replace, [&] { ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0); }},
    };
    for (const auto &[existing, appears] : cases) {
        WrittenFile file(name, {existing, "", {}, true});
        file.write("text");
        appears();
        const auto kind = fs::symlink_status(name).type();
        EXPECT_THROW(file.publish(), tools::FileFailure);
        EXPECT_EQ(fs::symlink_status(name).type(), kind);
        fs::remove(name);
    }
    EXPECT_EQ(files(), 0U);
    {
        WrittenFile dropped(name);
        dropped.write("text");
    }
    EXPECT_EQ(files(), 0U) << "what is not published goes";
}

TEST_F(WrittenFileTest, OtherThingsAreWrittenToAsTheyAre)
{
    const std::string pipe = directory_ / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    tools::writeWhole(pipe, "text", {Existing::keep, "", 0644, true});
    char got[8] = "";
    EXPECT_EQ(::read(reader, got, sizeof got), 4);
    EXPECT_TRUE(fs::is_fifo(pipe));
    EXPECT_EQ(modeOf("pipe"), 0600U);
    ::close(reader);

    // A descriptor of the process goes on where it is, in a file too.
    const std::string log = directory_ / "log";
    const int open = ::open(log.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::write(open, "before ", 7), 7);
    tools::writeWhole("/dev/fd/" + std::to_string(open), "text");
    EXPECT_EQ(readFile(log), "before text");
    ::close(open);
    EXPECT_THROW(tools::writeWhole("/dev/fd/" + std::to_string(open), "text"), tools::FileFailure);
    EXPECT_THROW(tools::writeWhole("/proc/self/fd/x", "text"), tools::FileFailure);
}

} // namespace keel::test
