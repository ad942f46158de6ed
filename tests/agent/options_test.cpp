// The option file: what it sets, and what makes it stop the initialisation.

#include "tests/agent/agent_fixture.h"
#include "tests/support/child.h"

#include <cstdlib>
#include <regex>
#include <unistd.h>

namespace fs = std::filesystem;
using keel::test::writeFile;

class OptionsTest : public ScriptedAgentTest
{
protected:
    /// Where messages go before the option file is known.
    static std::string earlyLog()
    {
        return keel::test::readFile(keel::test::stage() / "oracle/bin64/veloerror.log") +
               keel::test::readFile("veloerror.log");
    }
};

TEST_F(OptionsTest, ReadsLinesAsTheyAreMeant)
{
    const struct {
        const char *lines;
        std::vector<const char *> settings;
    } table[] = {
        {"",
         {"VELO_AVG_SIZE      : 50", "VELO_FS            : /lumoorc",
          "VELO_NODE          : ", "VELO_NUM_BUFFERS   : 1", "HOXI_ORC_CONFIG    : "}},
        {"velo_node   MyNode   \n", {"VELO_NODE          : MyNode"}},
        {"  \tVELO_NODE\tone\r\n\r\n", {"VELO_NODE          : one"}},
        {"VELO_NODE,one", {"VELO_NODE          : one"}},
        {"VELO_NODE , one", {"VELO_NODE          : , one"}},
        {"VELO_FS \"a b\"\nVELO_NODE o\"n\"e 'x'",
         {"VELO_FS            : /a b", "VELO_NODE          : one 'x'"}},
        {"VELO_FS \\first\nVELO_FS \\second", {"VELO_FS            : /second"}},
        {"* VELO_NODE no\n  * no\n   \t \nVELO_NODE a*b", {"VELO_NODE          : a*b"}},
        {"VELO_TEST_FLAGS   A=\"1\"  B  ", {"VELO_TEST_FLAGS    :   A=\"1\"  B  "}},
        {"VELO_DATE_FMT 3\nVELO_LANGUAGE %s%n",
         {"VELO_DATE_FORMAT   : 3", "VELO_LANGUAGE      : %s%n"}},
    };
    const std::string common = "HOXI_LOG " + installation.directory().string() +
                               "\nVELO_TRACE_FILE agent.trc\nVELO_TRACE_FLAGS ORACLE\n";
    for (const auto &row : table) {
        writeFile("velo.opt", common + row.lines);
        openChannel();
        endChannel();
        const std::string dump = contents("agent.trc");
        for (const char *setting : row.settings)
            EXPECT_NE(std::string::npos, dump.find(std::string("\n ") + setting + "\n"))
                << setting << " not in " << dump;
        fs::remove("agent.trc");
    }
}

TEST_F(OptionsTest, StopsAtTheFirstLineItCannotTake)
{
    const std::string optionFile = path("velo.opt");
    const std::string junk("\x7f\x45\x4c\x46\x01\xff\n%s%n\0\0\n", 15);
    const struct {
        std::string content;
        std::vector<std::string> reported;
    } table[] = {{"velo_nodes x\n", {"RBQ2603E", "VELO_NODES"}},
                 {"VELO_NODE\n", {"RBQ2616E", "VELO_NODE"}},
                 {"VELO_NODE  \t \n", {"RBQ2616E", "VELO_NODE"}},
                 {"VELO_NODE \"\" \"\"\n", {"RBQ2616E", "VELO_NODE"}},
                 {" , \n", {"RBQ2603E"}},
                 {"VELO_NODE x\nVELO%s%n 1\n", {"RBQ2603E"}},
                 {junk, {"RBQ2603E"}},
                 {std::string(100000, 'x'), {"RBQ2603E"}},
                 {"VELO_FS " + std::string(600, 'f'), {"RBQ2603E"}}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.content.substr(0, 40));
        const std::size_t before = earlyLog().size();
        writeFile(optionFile, row.content);
        EXPECT_EQ("7011 2534", initialise());
        for (const std::string &part : row.reported)
            EXPECT_NE(std::string::npos, earlyLog().find(part, before)) << part;
        EXPECT_NE(std::string::npos, earlyLog().find(optionFile, before));
    }
    EXPECT_TRUE(client.calls.empty()) << "nothing is set up before the options are known";
    writeFile(optionFile, "");
    openChannel(); // an empty file is a valid one
    endChannel();
    writeFile(optionFile, "");
    fs::resize_file(optionFile, 1UL << 24); // one line of nothing
    openChannel();
}

TEST_F(OptionsTest, FindsTheFileThatTheEnvironmentNames)
{
    const std::string file = path("velo.opt");
    fs::create_directory("directory");
    const struct {
        std::string value, outcome, reported;
    } table[] = {
        {"'" + file + "'", "", ""},
        {"\"" + file + "\"", "", ""},
        {"'" + file, "7011 2534", "'" + file},
        {"\"" + file + "'", "7011 2534", "\"" + file + "'"},
        {path("missing"), "7011 2534", path("missing")},
        {path("directory"), "7011 2534", path("directory")},
        {path("%s%n%d"), "7011 2534", path("")},
        // Over-long or empty is as good as unset: the default file, which is not there.
        {"", "7011 2534", "oracle/bin64/velo.opt"},
        {std::string(1025 - file.size(), '/') + file, "7011 2534", "oracle/bin64/velo.opt"},
        {std::string(1024 - file.size(), '/') + file, "", ""}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.value);
        setenv("VELO_OPTFILE", row.value.c_str(), 1);
        const std::size_t before = earlyLog().size();
        EXPECT_EQ(row.outcome, initialise());
        if (row.outcome.empty())
            agent.sbtend(memory.assign(1048576, '\0').data(), 0);
        else
            EXPECT_NE(std::string::npos, earlyLog().find(row.reported, before));
    }
}

TEST_F(OptionsTest, ShowsDateAndTimeAsAskedFor)
{
    const struct {
        const char *date, *time, *form; // of a line in the error log
    } table[] = {{"3", "2", "\\d{4}-\\d\\d-\\d\\d \\d\\d\\.\\d\\d\\.\\d\\d"},
                 {"4", "4", "\\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d [AP]M"},
                 {"0", "x", "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"},
                 {"9", "5", "\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d"},
                 {"-1", "-1", "\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d"}};
    for (const auto &row : table) {
        fs::remove("veloerror.log");
        installation.configureAgent(
            {std::string("VELO_DATE_FMT ") + row.date, std::string("VELO_TIME_FMT ") + row.time});
        openChannel();
        agent.sbtcommand(nullptr, 0, nullptr);
        endChannel();
        EXPECT_TRUE(
            std::regex_search(errorLog(), std::regex(std::string("^") + row.form + " TID<")))
            << row.date << " " << row.time << ": " << errorLog();
    }
}

TEST_F(OptionsTest, NeedsAMessageCatalogue)
{
    const fs::path catalogue = keel::test::stage() / "oracle/bin64/EN_US/velo.cat";
    const std::string whole = keel::test::readFile(catalogue);
    ASSERT_FALSE(whole.empty());
    installation.configureAgent({"HOXI_ORC_DIR " + path("catalogue")});
    EXPECT_EQ("7011 2", initialise());
    fs::create_directories("catalogue/EN_US");
    for (const std::size_t size : {std::size_t{0}, std::size_t{11}, whole.size() / 2}) {
        writeFile("catalogue/EN_US/velo.cat", whole.substr(0, size));
        EXPECT_EQ("7011 2", initialise()) << size;
    }
    EXPECT_NE(std::string::npos, errorLog().find("Nls initialization failed. rc = 2"));
    writeFile("catalogue/EN_US/velo.cat", whole);
    openChannel();
}

TEST_F(OptionsTest, LogsBesideTheHostWhenTheInstallationIsNotWritable)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can take the part of somebody else";
    fs::permissions(installation.directory(), fs::perms::all);
    setenv("VELO_OPTFILE", "/missing.opt", 1);
    EXPECT_EQ(0, keel::test::inChild(
                     [this] { return setuid(65534) == 0 && initialise() == "7011 2534" ? 0 : 1; }));
    EXPECT_NE(std::string::npos, errorLog().find("RBQ2615E")) << errorLog();
}
