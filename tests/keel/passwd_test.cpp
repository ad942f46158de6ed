// keel passwd writes the agent's password file, and nobody sees the password.
#include "tests/keel/keel_fixture.h"
#include "tests/support/terminal.h"

#include <algorithm>
#include <csignal>
#include <sstream>
#include <thread>

namespace keel::test
{

class KeelPasswdTest : public KeelTest
{
protected:
    KeelPasswdTest()
    {
        writeFile(installation_.clientOptions(), "REPOSITORY file://" +
                                                     installation_.repository().string() +
                                                     "\nPASSWORDACCESS prompt\n");
        installation_.configureAgent({"velo_node \"dbhost1\" ", "VELO_PSWDPATH " + path_.string()});
    }
    [[nodiscard]] std::string written() const { return readFile(path_ / "VELO.dbhost1"); }

    std::filesystem::path path_ = installation_.directory() / "passwords";
};

TEST_F(KeelPasswdTest, PasswordFromStandardInputIsWrittenAndTheOptionsAreNamed)
{
    const ProgramResult result = keel({"passwd", "--stdin"}, "correct horse\nsecond line\n");
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string file = written();
    EXPECT_EQ(file.size(), 39U + 2 * 9) << "13 characters";
    EXPECT_EQ(file.find("correct"), std::string::npos);
    for (const std::string &expected :
         {(path_ / "VELO.dbhost1").string(), std::string("VELO_NODE       dbhost1\n"),
          "VELO_PSWDPATH   " + path_.string() + "\n", std::string("PASSWORDACCESS  prompt\n"),
          installation_.clientOptions().string()})
        EXPECT_NE(result.out.find(expected), std::string::npos) << expected << result.out;

    EXPECT_EQ(keel({"passwd", "--stdin"}, std::string(64, 'x')).status, 0);
    const std::string longest = written();
    EXPECT_EQ(longest.size(), 39U + 8 * 9);
    for (const std::string &wrong :
         {std::string(65, 'x'), std::string(100'000, 'x'), std::string(), std::string("\n"),
          std::string("a\0b\n", 4), std::string("a\tb\n")}) {
        const ProgramResult refused = keel({"passwd", "--stdin"}, wrong);
        EXPECT_EQ(refused.status, 1) << wrong.size();
        EXPECT_EQ(std::ranges::count(refused.err, '\n'), 1) << refused.err;
        EXPECT_EQ(refused.err.find("xx"), std::string::npos) << "never shown";
        EXPECT_TRUE(written() == longest) << "nothing is half done";
    }
    EXPECT_EQ(keel({"passwd", "secret"}).status, 2) << "never on the command line";
}

TEST_F(KeelPasswdTest, AStopInTheMiddleOfAPipedLineTakesNothingFromIt)
{
    const auto handled = [](pid_t pid, int number) { // by the process, or it has stopped
        std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
        for (std::string word; status >> word;)
            if (word == "ShdPnd:" && status >> word)
                return (std::stoull(word, nullptr, 16) >> (number - 1)) % 2 == 0;
        return false;
    };
    Program keel({keelProgram(), "passwd", "--stdin"});
    ASSERT_TRUE(keel.feed("correct"));
    while (!keel.taken())
        std::this_thread::yield();
    keel.signal(SIGTSTP);
    while (!handled(keel.pid(), SIGTSTP))
        std::this_thread::yield();
    keel.signal(SIGCONT);
    ASSERT_TRUE(keel.feed(" horse\n"));
    keel.closeInput();
    const ProgramResult result = keel.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(written().size(), 39U + 2 * 9) << "13 characters";
}

TEST_F(KeelPasswdTest, AgentLogsOnWithTheFileAndWithNoOtherPassword)
{
    const auto repository = installation_.directory() / "chosen";
    writeFile(installation_.clientOptions(), "REPOSITORY file://" + repository.string() +
                                                 "\nNODENAME dbhost1\nPASSWORDACCESS prompt\n");
    ProgramOptions options;
    options.input = "correct horse\n";
    const ProgramResult made = run(
        {arcaProgram(), "init", "--stdin", "--optfile", installation_.clientOptions()}, options);
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(keel({"backup", "p", "-i", "-"}, "content").status, 1) << "there is no file yet";
    EXPECT_EQ(keel({"passwd", "--stdin", "--quiet"}, "wrong horse\n").status, 0);
    EXPECT_EQ(keel({"backup", "p", "-i", "-"}, "content").status, 1);
    EXPECT_EQ(keel({"passwd", "--stdin", "--quiet"}, "correct horse\n").status, 0);
    backUp("p", "content");
    EXPECT_EQ(restored("p"), "content");
    EXPECT_EQ(keel({"--sbt1", "restore", "p", "-o", "-"}).out, "content");
}

TEST_F(KeelPasswdTest, TerminalIsAskedTwiceWithoutEchoAndLeftAsItWas)
{
    Terminal good({keelProgram(), "passwd"});
    good.answer("Password of node dbhost1: ", "correct horse\n");
    good.answer("The same again: ", "correct horse\n");
    EXPECT_EQ(good.finish(), 0) << good.shown;
    EXPECT_EQ(good.shown.find("horse"), std::string::npos) << good.shown;
    const std::string file = written();
    EXPECT_EQ(file.size(), 39U + 2 * 9);

    Terminal different({keelProgram(), "passwd"});
    different.answer("Password of node", "correct horse\n");
    different.answer("The same again: ", "correct house\n");
    EXPECT_EQ(different.finish(), 1);
    EXPECT_NE(different.shown.find("not the same"), std::string::npos) << different.shown;

    // Whoever is left with a terminal that shows nothing is lost.
    for (const auto &[key, status] : {std::pair("\x03", 1), std::pair("\x1c", 128 + SIGQUIT)}) {
        Terminal interrupted({keelProgram(), "passwd"});
        interrupted.answer("Password of node", "\x1a"); // nobody could let us go on: asked again
        interrupted.answer("Password of node", key);
        EXPECT_EQ(interrupted.finish(), status) << interrupted.shown;
        EXPECT_EQ(interrupted.shown.find("interrupted") == std::string::npos, status != 1);
        EXPECT_TRUE(interrupted.echoes());
    }
    EXPECT_TRUE(written() == file);
}

TEST_F(KeelPasswdTest, RefusalSaysWhatToSet)
{
    const auto refused = [&](const std::string &expected) {
        expectRefusal({"passwd", "--stdin"}, 1, expected, "password");
    };
    installation_.configureAgent({"VELO_NODE dbhost1", "VELO_PSWDPATH /proc/nowhere"});
    refused("cannot write /proc/nowhere/VELO.dbhost1: its directory cannot be made (code 167)");
    installation_.configureAgent(
        {"VELO_NODE dbhost1", "VELO_PSWDPATH " + installation_.clientOptions().string()});
    refused("its directory cannot be used (code 2521)");
    installation_.configureAgent({});
    refused("set VELO_NODE there and PASSWORDACCESS prompt in " +
            installation_.clientOptions().string());
    writeFile(installation_.clientOptions(), "REPOSITORY file://" +
                                                 installation_.repository().string() +
                                                 "\nPASSWORDACCESS generate\n");
    installation_.configureAgent({"VELO_NODE dbhost1"});
    refused("the storage client keeps the password itself");
    EXPECT_FALSE(std::filesystem::exists(path_));
}

} // namespace keel::test
