// doctor, bench, rman and remove: what a person who sets an installation up relies on.
#include "tests/keel/keel_fixture.h"
#include "tests/support/terminal.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <unistd.h>

namespace keel::test
{

using InstallTest = KeelTest;

namespace
{

using Json = nlohmann::json;

/// What keel doctor said of a check; null when it said nothing.
Json checkOf(const ProgramResult &result, const std::string &name)
{
    const Json told = Json::parse(result.out);
    for (const Json &check : told["checks"])
        if (check["check"] == name)
            return check;
    return nullptr;
}

} // namespace

TEST_F(InstallTest, DoctorFindsNothingWrongAndLeavesNothing)
{
    const ProgramResult result = keel({"doctor", "--json"});
    EXPECT_EQ(result.status, 0) << result.err << result.out;
    const Json told = Json::parse(result.out);
    for (const Json &check : told["checks"])
        EXPECT_NE(check["status"], "failed") << check;
    EXPECT_NE(checkOf(result, "client")["text"].get<std::string>().find("44 operations"),
              std::string::npos);
    EXPECT_EQ(checkOf(result, "piece")["text"], "stored, read back, compared, removed");
    // The place is a text in which %20 stands for a blank.
    std::string options = readFile(installation_.clientOptions());
    options.replace(options.find("/repository"), 11, "/a%20repository");
    writeFile(installation_.clientOptions(), options);
    std::filesystem::rename(installation_.repository(), "a repository");
    EXPECT_EQ(keel({"doctor"}).status, 0);
}

TEST_F(InstallTest, DoctorCountsWhatIsDamagedAndItsCureWorks)
{
    writeFile("input", randomBytes(100'000, 3));
    ASSERT_EQ(keel({"backup", "p", "--input", "input", "--quiet"}).status, 0);
    damageFiles(installation_.repository() / "pieces");
    const std::string nothing = "no damaged part of a pack is recorded, and no manifest is set "
                                "aside; arca verify looks for more";
    EXPECT_EQ(checkOf(keel({"doctor", "--json"}), "damage")["text"], nothing);
    const std::string options = installation_.clientOptions();
    const auto arca = [&](const std::string &words) {
        return run({"sh", "-c", arcaProgram().string() + words + " --yes"});
    };
    ASSERT_EQ(arca(" rm p --filespace '*' --optfile " + options).status, 0);
    const Json check = checkOf(keel({"doctor", "--json"}), "damage");
    EXPECT_EQ(check["text"], "0 damaged parts of packs, 1 damaged manifest set aside");
    const std::string cure = check["cure"];
    const std::size_t command = cure.find(" rm --blob");
    ASSERT_NE(command, std::string::npos) << cure;
    EXPECT_EQ(arca(cure.substr(command)).status, 0);
    EXPECT_EQ(checkOf(keel({"doctor", "--json"}), "damage")["text"], nothing);
    // Another node's is none that this option file may give up.
    ASSERT_EQ(run({arcaProgram(), "node", "add", "other", "--optfile", options}).status, 0);
    std::filesystem::create_directories(installation_.repository() / "quarantine/00ff");
    writeFile(installation_.repository() / "quarantine/00ff/m", "damaged");
    const Json others = checkOf(keel({"doctor", "--json"}), "damage");
    EXPECT_NE(others["text"].get<std::string>().find("of the node with the key 00ff"),
              std::string::npos);
    EXPECT_EQ(others["cure"].get<std::string>().find(options), std::string::npos) << others;
}

TEST_F(InstallTest, DoctorNamesWhatIsBrokenWithItsCure)
{
    const auto directory = installation_.directory();
    const std::string client = "REPOSITORY file://" + installation_.repository().string() +
                               "\nNODENAME testnode\nPASSWORDACCESS ";
    const std::string agent = "HOXI_ORC_CONFIG " + installation_.clientOptions().string() +
                              "\nHOXI_LOG " + directory.string() + "\n";
    const std::string velo = "velo.opt", arca = "arca.opt", keys = "arca.opt.keys";
    const struct {
        const char *what;
        std::string file, text; // what is wrong in which; without a text it is gone
        std::vector<std::string> arguments;
        const char *check, *cure;
    } cases[] = {
        {"no agent", "", "", {"--library", directory / "none.so"}, "agent", "SBT_LIBRARY"},
        {"another library", "", "", {"--library", clientLibrary()}, "agent", "SBT_LIBRARY"},
        {"no option file", "", "", {"--optfile", directory / "none"}, "options", "VELO_OPTFILE"},
        {"a misspelt keyword", velo, "VELO_FSS prod\n", {}, "options", "line"},
        {"a keyword alone", velo, "VELO_FS \"\"\n", {}, "options", "line"},
        {"no log directory", velo, "HOXI_LOG /proc/none\n", {}, "directory", "HOXI_LOG"},
        {"no catalogue", velo, "HOXI_ORC_DIR " + directory.string(), {}, "messages", "EN_US"},
        {"no client", velo, "HOXI_ORC_CONFIG /proc/none", {}, "arca.opt", "HOXI_ORC_CONFIG"},
        {"none named", arca, "NODENAME testnode\n", {}, "arca.opt", "REPOSITORY"},
        {"none there", arca, "REPOSITORY file:///proc/none\n", {}, "repository", "arca init"},
        {"a password nobody gave", arca, client + "prompt\n", {}, "password", "keel passwd"},
        {"a password that is gone", keys, "", {}, "password", "arca init"},
    };
    const std::string kept = readFile(installation_.clientOptions().string() + ".keys");
    for (const auto &broken : cases) {
        SCOPED_TRACE(broken.what);
        writeFile(installation_.agentOptions(), agent);
        writeFile(installation_.clientOptions(), client + "generate\n");
        writeFile(installation_.clientOptions().string() + ".keys", kept);
        if (!broken.text.empty())
            writeFile(directory / broken.file, (broken.file == velo ? agent : "") + broken.text);
        else if (!broken.file.empty())
            std::filesystem::remove(directory / broken.file);
        const ProgramResult result = keel({"doctor", "--json"}, {}, broken.arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
        const Json check = checkOf(result, broken.check);
        ASSERT_FALSE(check.is_null()) << result.out;
        EXPECT_EQ(check["status"], "failed") << result.out;
        EXPECT_NE(check["cure"].get<std::string>().find(broken.cure), std::string::npos) << check;
        // A log that is named is there.
        const Json told = Json::parse(result.out);
        for (const Json &found : told["checks"]) {
            const std::string cure = found.value("cure", "");
            const std::size_t end = cure.find(" tells more");
            const std::size_t begin = cure.rfind(' ', end - 1) + 1;
            if (end != std::string::npos) {
                EXPECT_TRUE(std::filesystem::exists(cure.substr(begin, end - begin))) << cure;
            }
        }
    }
}

TEST_F(InstallTest, DoctorAsksWhatTheEffectiveUserMay)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can have another effective user";
    std::filesystem::permissions(installation_.directory(), std::filesystem::perms{0755});
    const ProgramResult result =
        run({"setpriv", "--euid", "12345", "--clear-groups", keelProgram(), "doctor", "--json"});
    EXPECT_EQ(checkOf(result, "user")["text"], "no name (12345)") << result.out << result.err;
    EXPECT_EQ(checkOf(result, "directory")["status"], "failed") << result.out;
}

TEST_F(InstallTest, BenchStoresWhatItSaysAndRemovesItEvenWhenInterrupted)
{
    writeFile("input", randomBytes(100'000, 3));
    const struct {
        std::vector<std::string> arguments;
        std::uint64_t dayBytes;
        std::size_t days, channels;
    } cases[] = {
        {{"--size", "1M", "--channels", "2", "--days", "2", "--restore"}, 1 << 20, 2, 2},
        {{"--input", "input", "--channels", "3", "--block-size", "8K", "--restore"}, 100'000, 1, 3},
    };
    for (const auto &row : cases) {
        const ProgramResult result = keel({"bench", "--json"}, {}, row.arguments);
        ASSERT_EQ(result.status, 0) << result.err;
        const Json told = Json::parse(result.out);
        ASSERT_EQ(told["days"].size(), row.days);
        EXPECT_GE(told["days"][0]["bytes"], row.dayBytes);
        EXPECT_EQ(told["days"][0]["channels"].size(), row.channels);
        EXPECT_GT(told["days"][0]["storedBytes"], 10'000);
        EXPECT_GE(told["restore"]["bytes"], row.dayBytes);
        if (row.days > 1) {
            EXPECT_LT(told["days"][1]["storedBytes"], told["days"][0]["storedBytes"]);
        }
    }
    Program program({keelProgram(), "bench", "--size", "1G", "--channels", "2"});
    const auto pieces = installation_.repository() / "tmp"; // what is being stored has a file there
    while (std::filesystem::is_empty(pieces))
        ::usleep(1000);
    program.signal(SIGINT);
    const ProgramResult interrupted = program.wait();
    EXPECT_EQ(interrupted.status, 1);
    EXPECT_EQ(interrupted.err, "keel bench: interrupted\n");
    const ProgramResult left =
        run({arcaProgram(), "stats", "--json", "--optfile", installation_.clientOptions()});
    EXPECT_EQ(Json::parse(left.out)["pieces"], 0) << left.out << left.err;
}

TEST_F(InstallTest, RmanCommandsNameThisInstallation)
{
    const std::string parms = "'SBT_LIBRARY=" + agentLibrary().string() +
                              ",\n     ENV=(VELO_OPTFILE=" + installation_.agentOptions().string() +
                              ")'";
    const struct {
        std::vector<std::string> arguments;
        std::vector<const char *> lines;
    } cases[] = {
        {{}, {"CONFIGURE CHANNEL DEVICE TYPE 'SBT_TAPE' PARMS", "PARALLELISM 1;"}},
        {{"--channels", "4", "--format", "%d_%U"}, {"PARALLELISM 4;", "FORMAT '%d_%U';"}},
        {{"--run", "--channels", "2"}, {"RUN {", "ALLOCATE CHANNEL c2 ", "RELEASE CHANNEL c2;"}},
        {{"--duplicate-from", "dbhost1"}, {"AUXILIARY CHANNEL a1 ", "SEND '-asnode=dbhost1';"}},
    };
    for (const auto &row : cases) {
        const ProgramResult result = keel({"rman"}, {}, row.arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_NE(result.out.find(parms), std::string::npos) << result.out;
        for (const char *line : row.lines)
            EXPECT_NE(result.out.find(line), std::string::npos) << result.out;
    }
    EXPECT_EQ(keel({"rman", "--format", "it's"}).status, 2);
    EXPECT_EQ(keel({"rman", "--optfile", "a)b"}).status, 2);
}

TEST_F(InstallTest, RemoveAsksAndLogsAndTimesWhenAsked)
{
    EXPECT_EQ(keel({"backup", "p", "-i", "-", "--log", "keel.log"}, "content").status, 0);
    const ProgramResult timed = keel({"restore", "p", "-o", "out", "--json", "--timing"});
    const Json timing = Json::parse(timed.out)["timing"];
    EXPECT_EQ(timing["client calls"]["calls"], 3) << "length, beginning and end";
    EXPECT_GE(timing["transfer"]["calls"], 1);
    EXPECT_EQ(keel({"remove", "p"}).status, 2) << "nobody to ask";
    for (const char *shell : {"exec", "trap '' HUP; exec"}) {
        Terminal gone({"/bin/sh", "-c",
                       shell + (" " + keelProgram().string()) + " remove p --log keel.log --json"});
        gone.hangUp("Remove p? [y/N] ");
        EXPECT_EQ(gone.finish(), 1) << shell;
    }
    for (const auto &[typed, status] : {std::pair("\n", 1), std::pair("maybe\nno\n", 1),
                                        std::pair("\x03", 1), std::pair("Yes\n", 0)}) {
        EXPECT_TRUE(isStored("p"));
        Terminal terminal({keelProgram(), "remove", "p", "p", "--log", "keel.log"});
        terminal.answer("Remove p? [y/N] ", typed);
        EXPECT_EQ(terminal.finish(), status) << terminal.shown;
    }
    EXPECT_FALSE(isStored("p"));
    const std::string log = readFile("keel.log");
    EXPECT_NE(log.find("Z keel backup p: done\n"), std::string::npos) << log;
    EXPECT_NE(log.find("Z keel remove p: nothing was removed\n"), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with("Z keel remove p: done\n")) << log;
}

} // namespace keel::test
