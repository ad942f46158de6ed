// What goes wrong is said in one line with the right status, and leaves nothing half done.
#include "tests/keel/keel_fixture.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace keel::test
{

using RefusalTest = KeelTest;

TEST_F(RefusalTest, RefusalIsOneLineWithCodeAndStatus)
{
    backUp("taken", "content");
    const auto directory = installation_.directory();
    writeFile(directory / "wrong.opt", "VELO_FSS prod\n");
    writeFile(directory / "elsewhere.arca", "REPOSITORY file://" +
                                                (directory / "nowhere").string() +
                                                "\nNODENAME testnode\nPASSWORDACCESS generate\n");
    writeFile(directory / "elsewhere.opt", "HOXI_LOG " + directory.string() + "\nHOXI_ORC_CONFIG " +
                                               (directory / "elsewhere.arca").string() + "\n");
    const std::pair<Words, std::string> cases[] = {
        {{"backup", "taken", "-i", "-"}, "keel backup taken: SBT 7503: "},
        {{"restore", "absent", "-o", "-"}, "keel restore absent: SBT 7502: "},
        {{"backup", std::string(256, 'n'), "-i", "-"}, ": SBT 7501: "},
        {{"restore", std::string(5000, 'n'), "-o", "-"}, ": SBT 7502: "},
        {{"info", "p", "--optfile", directory / "wrong.opt"}, "keel info p: SBT 7011: "},
        {{"info", "p", "--optfile", directory / "absent.opt"}, "keel info p: SBT 7011: "},
        {{"backup", "p", "-i", "-", "--optfile", directory / "elsewhere.opt"},
         "keel backup p: SBT 7"},
        {{"backup", "p", "-i", directory / "absent"}, "keel backup p: cannot open "},
        {{"backup", "p", "-i", directory}, "keel backup p: cannot read "},
        {{"restore", "taken", "-o", directory}, "keel restore taken: cannot write "},
        {{"restore", "taken", "-o", directory / "absent/file"},
         "keel restore taken: cannot create "},
        {{"restore", "taken", "-o", "/dev/full"}, "keel restore taken: cannot write "},
        {{"info", "p", "--library", directory / "absent.so"},
         "keel info p: cannot load the agent: "},
        {{"info", "p", "--library", clientLibrary()}, "is no agent"},
    };
    for (const auto &[arguments, said] : cases)
        expectRefusal(arguments, 1, said, "stream");
    if (::geteuid() == 0) { // a repository that root must not write into
        const std::string format = installation_.repository() / "format";
        ASSERT_EQ(::chown(format.c_str(), 12345, 12345), 0);
        expectRefusal({"backup", "p", "-i", "-"}, 1, "belongs to the user with the number 12345",
                      "stream");
        expectRefusal({"restore", "taken", "-o", "-"}, 1, "12345");
        ASSERT_EQ(::chown(format.c_str(), 0, 0), 0);
    }
    EXPECT_EQ(restored("taken"), "content");
    EXPECT_FALSE(isStored("p"));
    EXPECT_FALSE(std::filesystem::exists(directory / "nowhere"));
}

/// The agent appends its trace to whatever file it is given.
TEST_F(RefusalTest, ATraceIsAppendedToNothingButATrace)
{
    writeFile("in", "content");
    backUp("p", "content");
    std::filesystem::create_hard_link("in", "same");
    writeFile("log", "");
    const struct {
        Words arguments;
        const char *trace;
        int status;
    } cases[] = {
        {{"backup", "q", "-i", "in"}, "same", 2},
        {{"backup", "q", "-i", "-"}, "/dev/stdin", 2},
        {{"bench", "-i", "in"}, "./in", 2},
        {{"restore", "p", "-o", "in", "-f"}, "in", 2},
        {{"restore", "p", "-o", "out"}, "./out", 2},
        {{"info", "p", "--log", "log"}, "log", 2},
        {{"info", "p"}, "in", 1},
        {{"restore", "p", "-o", "out", "--log", "./out"}, nullptr, 2},
        {{"backup", "q", "-i", "in", "--log", "same"}, nullptr, 2},
    };
    for (const auto &c : cases) {
        Words arguments = c.arguments;
        if (c.trace != nullptr)
            arguments.insert(arguments.end(), {"--trace", c.trace});
        expectRefusal(arguments, c.status, c.status == 2 ? "needs a file of its own" : "in holds");
        EXPECT_EQ(readFile("in"), "content");
        EXPECT_FALSE(std::filesystem::exists("out"));
    }
    EXPECT_FALSE(isStored("q"));
    for (const char *trace : {"new", "new", "/dev/null"})
        EXPECT_EQ(keel({"info", "p", "--trace", trace}).status, 0) << trace;
    EXPECT_GT(readFile("new").size(), 500U);
}

TEST_F(RefusalTest, WrongUseIsStatus2AndHelpIs0)
{
    const auto wrong = linesOf(
        "; sing; backup; backup p; info; backup p -i - --block-size 1000; "
        "backup p -i - --block-size 0; backup p -i - --block-size 1G; backup p -i - --copy 5; "
        "backup p -i - --type tablespace; backup p -i - --trace-level 2; restore p -o - --json; "
        "restore p -o /dev/stdout --json; info p --optfile " +
        std::string(1025, 'x'));
    for (const Words &arguments : wrong)
        expectRefusal(arguments, 2);
    // The agent would silently take the installed option file, and another repository, instead.
    backUp("kept", "content");
    const auto file = installation_.directory() / "velo.opt";
    std::string longName = file.parent_path().string();
    while (longName.size() <= 1024)
        longName += "/.";
    longName += "/velo.opt";
    for (const Words &verb : {Words{"remove", "kept", "--yes"}, {"info", "kept"}, {"doctor"}}) {
        ProgramOptions options;
        options.environment["VELO_OPTFILE"] = longName;
        Words words = verb;
        words.insert(words.begin(), keelProgram());
        const ProgramResult result = run(words, options);
        EXPECT_EQ(result.status, 2) << verb[0] << result.out;
        EXPECT_NE(result.err.find("VELO_OPTFILE"), std::string::npos) << result.err;
    }
    EXPECT_TRUE(isStored("kept"));
    for (const char *verb : {"backup", "restore", "info", "remove", "passwd", "trace"}) {
        const ProgramResult help = keel({verb, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(help.out.find("Example: "), std::string::npos) << verb;
    }
}

TEST_F(RefusalTest, RestoreThatWaitsForAReaderEndsWithTheFirstSignal)
{
    backUp("p", "content");
    ASSERT_EQ(::mkfifo("fifo", 0600), 0);
    for (const bool reads : {false, true}) {
        Program waits({keelProgram(), "restore", "p", "-o", "fifo"});
        const std::string status = "/proc/" + std::to_string(waits.pid()) + "/status";
        // Until it notes signals: before that, this one ends it as any program.
        const auto notes = [&] {
            const std::string told = readFile(status);
            const auto at = told.find("SigCgt:");
            return at != std::string::npos &&
                   (std::stoull(told.substr(at + 7), nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
        };
        while (!notes())
            ASSERT_NE(readFile(status), "");
        if (!reads)
            waits.signal(SIGTERM);
        EXPECT_EQ(reads ? readFile("fifo") : "content", "content");
        EXPECT_EQ(waits.wait().status, reads ? 0 : 1);
    }
}

TEST_F(RefusalTest, BackupThatIsEndedBySignalLeavesNothing)
{
    const std::string half = randomBytes(std::size_t{4} << 20, 5);
    for (const int number : {SIGINT, SIGTERM, SIGKILL}) {
        Program program({keelProgram(), "backup", "half", "--input", "-"});
        // More than the pipe holds, so that it is at work, or waiting for more, when the signal
        // comes.
        ASSERT_TRUE(program.feed(half));
        program.signal(number);
        const ProgramResult result = program.wait();
        if (number == SIGKILL) {
            EXPECT_EQ(result.status, 128 + SIGKILL);
        } else {
            EXPECT_EQ(result.status, 1) << result.err;
            EXPECT_EQ(result.err.substr(0, 18), "keel backup half: ") << result.err;
        }
        EXPECT_FALSE(isStored("half"));
    }
    backUp("half", half);
    EXPECT_TRUE(restored("half") == half);
}

TEST_F(RefusalTest, DamagedPieceLeavesNoFile)
{
    backUp("damaged", randomBytes(1'000'000, 6));
    damageFiles(installation_.repository() / "packs", 500'000);
    const auto directory = installation_.directory() / "output";
    std::filesystem::create_directory(directory);
    const ProgramResult result = keel({"restore", "damaged", "--output", directory / "file"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("SBT 7501"), std::string::npos) << result.err;
    EXPECT_EQ(listing(directory), std::vector<std::string>());
}

TEST_F(RefusalTest, ReaderThatGoesAwayIsAnError)
{
    backUp("long", randomBytes(std::size_t{8} << 20, 7));
    const ProgramResult result = run(
        {"bash", "-c",
         "set -o pipefail; " + keelProgram().string() + " restore long --output - | head -c 10"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out.size(), 10U);
    EXPECT_NE(result.err.find("cannot write standard output"), std::string::npos) << result.err;
}

} // namespace keel::test
