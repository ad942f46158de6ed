// What the agent reports: events to the server's and the client's log, and the error log.

#include "tests/agent/agent_fixture.h"
#include "tests/support/host_locale.h"

#include <fstream>
#include <regex>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

using Operations = std::vector<std::string>;

class EventTest : public ScriptedAgentTest
{
protected:
    /// The events sent since the calls were last cleared, without what all have in common.
    Operations events()
    {
        Operations found;
        for (std::string event : client.callsOf({"hoxLogEventEx"})) {
            const std::string pid = "(" + std::to_string(getpid()) + ")";
            for (const std::string &part : {std::string("hoxLogEventEx "),
                                            std::string("id=RBQ0599 app=KEEL Oracle SUN on "
                                                        "64bit 7.1.3.0 "),
                                            pid})
                if (const auto at = event.find(part); at != std::string::npos)
                    event.erase(at, part.size());
            found.push_back(event);
        }
        client.calls.clear();
        return found;
    }
    static bool matches(const std::string &text, const std::string &form)
    {
        return std::regex_search(text, std::regex(form));
    }
};

/// In English, whatever the host speaks; the database's trace is for the host.
TEST_F(EventTest, TellsTheServerOfEveryPieceBackedUpAndRestored)
{
    const keel::test::HostLocale host("de_DE", "UTF-8");
    installation.configureAgent({"VELO_NUM_FMT 2"});
    openChannel(1);
    char first[] = "ORCL", second[] = "100%s";
    std::uint64_t archived = SBT_FILETYPE_ARCHLOG;
    const sbtPair objects[] = {{SBTOBJECT_DBNAME, first},
                               {SBTOBJECT_FILETYPE, &archived},
                               {SBTOBJECT_DBNAME, second},
                               {SBTOBJECT_END, nullptr}};
    client.totals.encryptionType = HOX_ENCRYPT_AES_256BIT;
    client.totals.objCompressed = 1;
    client.totals.compressRatio = 2550;
    ASSERT_EQ("", backUp("piece", std::string(8192, 'x'), {.objects = objects}));
    std::string data;
    ASSERT_EQ("", restore("piece", data));
    const std::string session = "handle=1 log=0 severity=0 kind=4 id= app=KEEL Oracle on Sol ",
                      prefix = "^handle=\\d log=0 severity=0 kind=0 text=KEEL for Oracle: : =>"
                               "\\(\\w+\\) ";
    const Operations told = events();
    ASSERT_EQ(6U, told.size());
    EXPECT_EQ(session + "7.1.3.0 text=", told[0]);
    const std::pair<int, const char *> forms[] = {
        {1, "RBQ2535I .*/lumoorc//piece"},
        {2, "RBQ2526I .*\"ORCL100%s\".*sent 8192,.* \\d+\\.\\d\\d KB/s, compressed Yes \\("
            "reduction 25\\.50%\\), deduplicated No.*0\\.00%.*AES_256BIT"},
        {4, "RBQ2536I Restore of .*/lumoorc//piece.* 8192 bytes"},
        {5, "RBQ2527I Restore details.*/lumoorc//piece.*received 8192,.* \\d+\\.\\d\\d KB/s"}};
    for (const auto &[number, form] : forms)
        EXPECT_TRUE(matches(told[static_cast<std::size_t>(number)], prefix + form)) << number;
    EXPECT_TRUE(matches(trace(), "sbtclose2\\(\\): RBQ2526I .*\"ORCL100.*Bytes 8\\.192, Dauer.* "
                                 "\\d+,\\d\\d KB/s, komprimiert Ja \\(Ersparnis 25,50"))
        << trace();
    EXPECT_TRUE(matches(trace(), "Bytes 8\\.192, Dauer.*Durchsatz \\d+,\\d\\d KB/s\\.")) << trace();
}

TEST_F(EventTest, SendsFailuresToBothLogsTheLocalOneFirst)
{
    openChannel();
    client.on("hoxEndTxn", 1, 2302, 2110);
    EXPECT_EQ("sbtclose2 7501", backUp("piece", "data", {.blockSize = 4}));
    Operations told = events();
    told.erase(told.begin()); // the session's
    EXPECT_EQ((Operations{"handle=1 log=1 severity=3 kind=0 text=KEEL for Oracle: : => "
                          "(scriptednode) RBS2110E Local text of code 2110.",
                          "handle=1 log=0 severity=3 kind=0 text=KEEL for Oracle: : => "
                          "(scriptednode) RBS2110E Server text of code 2110."}),
              told);

    EXPECT_EQ("", remove({"missing"}));
    told = events();
    ASSERT_EQ(2U, told.size());
    EXPECT_TRUE(matches(told[0], "^handle=2 log=1 severity=1 kind=0 text=KEEL for Oracle: : "
                                 "=>\\(scriptednode\\) RBQ2604W .*/lumoorc//missing"))
        << told[0];
    EXPECT_TRUE(matches(told[1], "^handle=2 log=0 severity=1 .*RBQ2604W")) << told[1];

    // A commit that fails is told at once, in the client's own form; a deletion's failure waits.
    client.objects["/lumoorc//piece"] = {.data = "data", .id = {7, 1}};
    client.script("EndTxn:1=2302/2113");
    EXPECT_EQ("sbtremove2 7501", remove({"piece"}));
    EXPECT_TRUE(matches(events()[0], "=> \\(scriptednode\\) RBS2113E Local text"));
    client.objects["/lumoorc//piece"] = {.data = "data", .id = {7, 1}};
    client.script("DeleteObj:1=2107");
    EXPECT_EQ("", remove({"piece"}));
    EXPECT_TRUE(matches(events()[0], "=>\\(scriptednode\\) RBS2107E Local text"));
}

TEST_F(EventTest, WritesWholeLinesFromManyProcessesAtOnce)
{
    constexpr int kProcesses = 4, kLines = 200;
    int gate[2]; // opens for all of them at once
    ASSERT_EQ(0, pipe(gate));
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t child = fork();
        if (child == 0) { // a channel of its own, as the database's are
            ::close(gate[1]);
            char nothing;
            const bool ready = initialise().empty() && ::read(gate[0], &nothing, 1) == 0;
            for (int line = 0; ready && line < kLines; ++line)
                agent.sbtcommand(nullptr, 0, nullptr);
            _exit(0);
        }
        children.push_back(child);
    }
    ::close(gate[0]);
    ::close(gate[1]);
    for (const pid_t child : children) {
        waitpid(child, nullptr, 0);
        EXPECT_EQ(kLines,
                  occurrences(errorLog(), " TID<" + std::to_string(child) + "> ==> RBQ2539"));
    }
    std::istringstream log(errorLog());
    for (std::string line; std::getline(log, line);)
        EXPECT_TRUE(matches(line, "^\\S+ \\S+ TID<\\d+> ==> RBQ2539S .*sbtcommand\\(\\).*ctx"))
            << line;
    EXPECT_EQ(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
              std::filesystem::status("veloerror.log").permissions());
}

TEST_F(EventTest, LogsWhereTheOptionFileSaysAndElseWhereItStands)
{
    openChannel();
    agent.sbtcommand(nullptr, 0, nullptr);
    EXPECT_EQ(1, occurrences(errorLog(), "RBQ2539S"));
    // The place is looked up for every line; one that is no directory is no place.
    std::filesystem::create_directory("elsewhere");
    keel::test::writeFile("velo.opt", "HOXI_LOG elsewhere/\nHOXI_LOG nowhere\n");
    agent.sbtcommand(nullptr, 0, nullptr);
    EXPECT_EQ(1, occurrences(contents("elsewhere/veloerror.log"), "RBQ2539S"));
    keel::test::writeFile("velo.opt", "HOXI_LOG nowhere\n");
    agent.sbtcommand(nullptr, 0, nullptr);
    EXPECT_EQ(2, occurrences(errorLog(), "RBQ2539S"));
}

TEST_F(EventTest, LetsNoNameForgeALineOfTheErrorLog)
{
    openChannel();
    const std::string name = "p\n11/22/2026 00:00:00 TID<1> ==> forged\r\t\x1b[0m";
    client.objects["/lumoorc//" + name] = {};
    EXPECT_EQ("sbtbackup 7503", open(name));
    const std::string log = errorLog();
    EXPECT_EQ(1, occurrences(log, "\n")) << log;
    EXPECT_NE(std::string::npos,
              log.find("//p\\n11/22/2026 00:00:00 TID<1> ==> forged\\r\\t\\x1b[0m exists"))
        << log;
}

TEST_F(EventTest, EndsALineOfTheEarlyLogThatADiskCut)
{
    const auto log = keel::test::stage() / "oracle/bin64/veloerror.log";
    const std::string cut = "cut by " + std::to_string(getpid());
    std::ofstream(log, std::ios::app) << cut;
    setenv("VELO_OPTFILE", path("no\nsuch").c_str(), 1);
    EXPECT_EQ("7011 2534", initialise());
    const std::string written = keel::test::readFile(log);
    EXPECT_NE(std::string::npos, written.find(cut + "\n"));
    const std::string head = " TID<" + std::to_string(getpid()) + ">  ==>  RBQ2615E ";
    EXPECT_TRUE(inOrder(written, head + "|" + path("no\\nsuch"))) << "and shows it on one line";
}

TEST_F(EventTest, KeepsTheLastFailureForWhoeverAsks)
{
    openChannel();
    EXPECT_EQ("sbtrestore 7502", openRestore("missing"));
    EXPECT_EQ("", close());
    const std::string text = errorText();
    EXPECT_NE(std::string::npos, text.find("Server text of code 2."));
    EXPECT_EQ("1=missing 8 9999", info({"missing"}));
    EXPECT_EQ(7502U, errorCode());
    EXPECT_EQ(text, errorText());
}

TEST_F(EventTest, PrintsNothingOnTheHostsConsole)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    setenv("VELO_OPTFILE", path("missing.opt").c_str(), 1);
    initialise();
    setenv("VELO_OPTFILE", path("velo.opt").c_str(), 1);
    keel::test::writeFile("velo.opt", "NONSENSE 1\n");
    initialise();
    installation.configureAgent({"HOXI_ORC_DIR " + path("nowhere")});
    initialise();
    installation.configureAgent({"VELO_TRACE_FILE " + path("no/such/trace")});
    for (const char *home : {"/nonexistent", installation.directory().c_str()}) {
        setenv("ORACLE_HOME", home, 1);
        openChannel();
        client.on("hoxSendData", 1, 2102);
        backUp("piece", "data", {.blockSize = 4});
        close();
        openRestore("missing");
        endChannel();
    }
    agent.sbtcommand(nullptr, 0, nullptr);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ("", out + testing::internal::GetCapturedStderr());
}
