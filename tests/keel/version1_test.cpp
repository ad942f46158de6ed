// The interface of older databases, from outside: keel --sbt1.
#include "tests/keel/keel_fixture.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>

namespace keel::test
{

using KeelVersion1Test = KeelTest;

TEST_F(KeelVersion1Test, FirstVersionGivesStreamsBackAndSharesThemWithTheSecond)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4096},
                                   std::size_t{3 * 4096 + 17}, std::size_t{1'000'000}}) {
        const std::string name = "old-" + std::to_string(size);
        const std::string stream = randomBytes(size, size);
        const ProgramResult stored =
            keel({"--sbt1", "backup", name, "-i", "-", "--block-size", "4K"}, stream);
        EXPECT_EQ(stored.status, 0) << stored.err;
        for (const Words &blocks : {Words{}, {"--block-size", "512"}, {"--block-size", "4K"}}) {
            const ProgramResult result = keel({"--sbt1", "restore", name, "-o", "-"}, {}, blocks);
            EXPECT_TRUE(result.out == stream)
                << name << testing::PrintToString(blocks) << result.err;
        }
        EXPECT_EQ(keel({"--sbt1", "restore", name, "-o", "-", "--block-size", "64M"}).status, 1);
        EXPECT_TRUE(restored(name) == stream) << name;
    }
    backUp("new", "of the second version");
    EXPECT_EQ(keel({"--sbt1", "restore", "new", "-o", "-"}).out, "of the second version");
}

TEST_F(KeelVersion1Test, FirstVersionDescribesAndRemovesEachOfSeveral)
{
    for (const char *name : {"one", "two", "three"})
        EXPECT_EQ(keel({"--sbt1", "backup", name, "-i", "-", "--block-size", "4K"}, name).status,
                  0);
    const ProgramResult info = keel({"--sbt1", "info", "one", "nobody", "two", "--json"});
    EXPECT_EQ(info.status, 1) << info.err;
    const auto pieces = nlohmann::json::parse(info.out)["pieces"];
    ASSERT_EQ(pieces.size(), 3U);
    EXPECT_EQ(pieces[0]["size"], 2 * 4096) << "a block of data and the trailer";
    EXPECT_EQ(pieces[0]["class"], "STANDARD");
    EXPECT_EQ(pieces[0]["created"],
              nlohmann::json::parse(keel({"info", "one", "--json"}).out)["pieces"][0]["created"]);
    EXPECT_EQ(pieces[1], (nlohmann::json{{"name", "nobody"}, {"found", false}}));
    EXPECT_EQ(pieces[2]["found"], true);
    EXPECT_NE(keel({"--sbt1", "info", "one"}).out.find("8.00 KiB"), std::string::npos);

    const ProgramResult removed = keel({"--sbt1", "remove", "one", "nobody", "two", "--yes"});
    EXPECT_EQ(removed.status, 1);
    EXPECT_NE(removed.err.find("there is no piece nobody"), std::string::npos) << removed.err;
    EXPECT_FALSE(isStored("one"));
    EXPECT_FALSE(isStored("two"));
    EXPECT_TRUE(isStored("three"));
}

TEST_F(KeelVersion1Test, FirstVersionRefusesInOneLineWithItsOwnCodes)
{
    backUp("taken", "content");
    const struct {
        Words arguments;
        int status;
        std::string message;
    } cases[] = {
        {{"backup", "p", "-i", "-", "--block-size", "1000"}, 1, "keel backup p: SBT 7003: "},
        {{"restore", "taken", "-o", "-", "--block-size", "1000"}, 1, "SBT 7003: "},
        {{"restore", "absent", "-o", "-"}, 1, "SBT 7000: there is no such piece"},
        {{"backup", "taken", "-i", "-"}, 1, "SBT 7011: a piece of that name is there already"},
        {{"info", std::string(5000, 'n')}, 1, "SBT 7012: "},
        {{"backup", "p", "-i", "-", "--copy", "2"}, 2, "--copy"},
        {{"info", "p", "--trace", "t", "--trace-level", "2"}, 2, "--trace-level"},
    };
    for (const auto &wrong : cases) {
        Words arguments = wrong.arguments;
        arguments.insert(arguments.begin(), "--sbt1");
        expectRefusal(arguments, wrong.status, wrong.message, "stream");
    }
    EXPECT_EQ(restored("taken"), "content");
    EXPECT_FALSE(isStored("p"));
}

// Both ways to close a file commit it, so this is about not closing.
TEST_F(KeelVersion1Test, FirstVersionLeavesNothingOfABackupThatIsGivenUp)
{
    Program program({keelProgram(), "--sbt1", "backup", "half", "-i", "-"});
    ASSERT_TRUE(program.feed(randomBytes(std::size_t{4} << 20, 5)));
    program.signal(SIGTERM);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_FALSE(isStored("half"));
    EXPECT_EQ(keel({"--sbt1", "backup", "half", "-i", "-"}, "whole").status, 0);
    EXPECT_EQ(restored("half"), "whole");
}

} // namespace keel::test
