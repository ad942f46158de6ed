// The message compiler: what it refuses, so that a bad translation never gets as far as a user.
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{
using namespace keel::test;

const std::string head = "$prefix RBQ\n$language EN_US\n";
const std::string english = head + "1E A %1$s of %2$d.\n2W Two\n";

class MessageCompiler : public testing::Test
{
protected:
    /// Empty when the source compiled, else what was said without the directory.
    std::string compile(const std::string &source)
    {
        writeFile(directory / "en.msg", english);
        writeFile(directory / "x.msg", source);
        const std::string where = directory.path().string() + "/";
        const std::string command = std::string(KEEL_TEST_MSGC) + " catalogue " + where +
                                    "en.msg " + where + "x.msg " + where + "out 2>" + where + "err";
        const bool done = std::system(command.c_str()) == 0;
        std::string said = readFile(directory / "err");
        if (said.compare(0, where.size(), where) == 0)
            said.erase(0, where.size());
        EXPECT_EQ(done, said.empty());
        return said;
    }

    TempDir directory;
};

TEST_F(MessageCompiler, WritesWhatTheRepositoryReads)
{
    EXPECT_EQ(compile(head + "# c\n1E %2$d\\\\ of\n   \"%1$s\" 5%%\n\n2W Zwei äöü\\n\n"), "");
    EXPECT_EQ(readFile(directory / "out"), "$ codeset=UTF-8\n$set 1\n$quote \"\n"
                                           "1 \"RBQ0001E \x11"
                                           "2\\\\ of \\\"\x11"
                                           "1\\\" 5%\x10"
                                           "21s%s\x10"
                                           "2n%d\x10\"\n"
                                           "2 \"RBQ0002W Zwei äöü\\n\"\n");
}

TEST_F(MessageCompiler, RefusesWhatWouldMisleadAUser)
{
    const struct {
        std::string source;
        const char *said;
    } cases[] = {
        {"1E A %1$s of %2$d.\n2W Two\n", "x.msg: lacks $prefix"},
        {head + "1E A %1$s of %2$d.\n", "x.msg: message 2 is missing"},
        {head + "1E A %1$s of %2$d.\n2W Two\n3I Three\n", "x.msg:5: the English source lacks"},
        {head + "1E A %1$s of %2$d.\n2E Two\n", "x.msg:4: another severity"},
        {head + "1E A %2$d of %1$d.\n2W Two\n", "x.msg:3: other inserts"},
        {head + "1E A %1$s.\n2W Two\n", "x.msg:3: other inserts"},
        {head + "1E A %2$d.\n2W Two\n", "x.msg:3: argument 1 is not shown"},
        {head + "1E A %1$s of %1$d\n2W Two\n", "x.msg:3: argument 1 has two conversions"},
        {head + "1E A %s of %2$d\n2W Two\n", "x.msg:3: a percent sign begins an insert"},
        {head + "1E A %1$y of %2$d\n2W Two\n", "x.msg:3: \"%y\" is no conversion"},
        {head + "1E 100%\n", "x.msg:3: a percent sign"},
        {head + "1X A\n", "x.msg:3: no severity"},
        {head + "1EA\n", "x.msg:3: expected NUMBER"},
        {head + "1E A %1$s of %2$d.\n1E A %1$s of %2$d.\n", "x.msg:4: message 1 is already"},
        {head + "1E bad \xFF byte\n", "x.msg:3: a control character or a byte"},
        {head + "  a line before any message\n", "x.msg:3: a continued line"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(compile(one.source).find(one.said), 0U)
            << one.said << "\nsaid: " << compile(one.source);
}
} // namespace
