// Pieces over the scripted client: what the agent hands to the storage client with them and takes
// from it, under the options and the test flags.

#include "tests/agent/agent_fixture.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

using ScriptedTransferTest = ScriptedAgentTest;
using Operations = std::vector<std::string>;

static bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST_F(ScriptedTransferTest, SaysOfAPieceWhatTheServerIsToKeep)
{
    openChannel();
    client.calls.clear();
    ASSERT_EQ("", backUp("piece", std::string(8192, 'x')));
    EXPECT_EQ((Operations{"hoxRegisterFS fs=/lumoorc type=ORACLE info=KEEL for Oracle",
                          "hoxBindMC type=0 name=/lumoorc//piece",
                          "hoxSendObj type=2 name=/lumoorc//piece owner= estimate=0:52428800 "
                          "class=STANDARD info=stStream:255",
                          "hoxUpdateFS fs=/lumoorc type=ORACLE occupancy=0:8192 capacity=0:0 "
                          "protected=0 mask=200030"}),
              client.callsOf({"hoxRegisterFS", "hoxBindMC", "hoxSendObj", "hoxUpdateFS"}));
    EXPECT_EQ("hoxSendData bytes=4096", client.callsOf({"hoxSendData"})[0]);
    std::string data;
    ASSERT_EQ("", restore("piece", data)); // the active piece of the name, and no other
    EXPECT_EQ(
        (Operations{"hoxBeginGetData mustBeActive=1 type=0 count=1 id=7:1", "hoxGetObj id=7:1"}),
        client.callsOf({"hoxBeginGetData", "hoxGetObj"}));
}

TEST_F(ScriptedTransferTest, AbortsOnRequestWithoutAFilespaceUpdate)
{
    openChannel();
    ASSERT_EQ("", open("piece"));
    ASSERT_EQ("", write(std::string(4096, 'x')));
    client.calls.clear();
    EXPECT_EQ("", close(SBT_CLOSE_ABORT));
    EXPECT_EQ("EndTxn2 Terminate", client.story());
    EXPECT_TRUE(has(errorText(), "RBS2112E")) << errorText();
    ASSERT_EQ("", open("other"));
    client.calls.clear();
    endChannel();
    EXPECT_EQ("Terminate CleanUp", client.story()) << "what is open at the end is given up";
    EXPECT_TRUE(client.objects.empty());
}

TEST_F(ScriptedTransferTest, EstimatesTheSizeOfAPiece)
{
    const struct {
        const char *option;
        unsigned long maxSize;
        const char *estimate;
    } table[] = {{"", 0, "0:52428800"},
                 {"", 3, "0:3145728"},
                 {"VELO_AVG_SIZE 50", (1UL << 32) + 7, "0:7340032"},
                 {"VELO_AVG_SIZE 100", 3, "0:104857600"},
                 {"VELO_AVG_SIZE 5000", 0, "1:947912704"}};
    for (const auto &row : table) {
        installation.configureAgent({row.option});
        openChannel();
        ASSERT_EQ("", backUp(row.estimate, "data", {.blockSize = 4, .maxSize = row.maxSize}));
        EXPECT_TRUE(has(client.callsOf({"hoxSendObj"}).back(),
                        std::string(" estimate=") + row.estimate + " "))
            << client.callsOf({"hoxSendObj"}).back();
        endChannel();
    }
}

TEST_F(ScriptedTransferTest, SendsTheClassOfACopy)
{
    installation.configureAgent({"VELO_MGMT_CLASS_2 SILVER"});
    client.boundClass = "BOUND";
    openChannel();
    ASSERT_EQ("", backUp("one", "data", {.blockSize = 4, .copyNumber = 1}));
    EXPECT_TRUE(client.callsOf({"hoxBeginQuery type=4"}).empty());
    ASSERT_EQ("", backUp("two", "data", {.blockSize = 4, .copyNumber = 2}));
    EXPECT_EQ(Operations{"hoxBeginQuery type=4 class=SILVER detail=1"},
              client.callsOf({"hoxBeginQuery type=4"}));
    EXPECT_EQ("BOUND", client.objects["/lumoorc//one"].className);
    EXPECT_EQ("SILVER", client.objects["/lumoorc//two"].className);
}

TEST_F(ScriptedTransferTest, GathersBlocksInTheTransferBufferWhenTestingAsksForIt)
{
    const struct {
        const char *flag;
        int blocks;
        const char *sends; // the bytes of each
    } table[] = {{"TEST_BUFFERORACLEDATA=4", 4, "400 "},
                 {"TEST_BUFFERORACLEDATA=4", 2, "200 "},
                 {"TEST_BUFFERORACLEDATA=2", 5, "200 200 100 "},
                 {"TEST_BUFFERORACLEDATA", 2, "100 100 "},
                 {"TEST_BUFFERORACLEDATA=4", 0, ""}};
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.flag) + " " + std::to_string(row.blocks));
        client.calls.clear();
        client.objects.clear();
        installation.configureAgent({std::string("VELO_TEST_FLAGS ") + row.flag});
        openChannel();
        const std::string data =
            keel::test::randomBytes(static_cast<std::size_t>(row.blocks) * 100, 3);
        EXPECT_EQ("", backUp("piece", data, {.blockSize = 100}));
        std::string sends;
        for (const std::string &call : client.callsOf({"hoxSendData"}))
            sends += call.substr(call.find('=') + 1) + " ";
        EXPECT_EQ(row.sends, sends);
        EXPECT_TRUE(client.objects["/lumoorc//piece"].data == data);
        EXPECT_TRUE(has(client.callsOf({"hoxUpdateFS"})[0],
                        "occupancy=0:" + std::to_string(data.size()) + " "));
        endChannel();
    }
    openChannel(); // what was taken is lost when the last send fails, and the close says so
    ASSERT_EQ("", open("lost", {.blockSize = 100}));
    ASSERT_EQ("", write(std::string(100, 'x')));
    client.on("hoxSendData", 1, HOX_RC_REPOSITORY_IO);
    EXPECT_EQ("sbtclose2 7501", close());
    EXPECT_EQ(0U, client.objects.count("/lumoorc//lost"));
    // and a channel that ends with a filled buffer
    ASSERT_EQ("", open("other", {.blockSize = 100}));
    ASSERT_EQ("", write(std::string(100, 'x')));
}

TEST_F(ScriptedTransferTest, CopiesTheStreamWhenTestingAsksForIt)
{
    installation.configureAgent({"VELO_TEST_FLAGS TEST_ORACLEDATA TEST_ORACLEDELAY=0"});
    openChannel();
    ASSERT_EQ("", backUp("piece", "12345678", {.blockSize = 4}));
    EXPECT_EQ("12345678", contents("piece.SEND"));
    std::string data;
    ASSERT_EQ("", restore("piece", data, 6));
    EXPECT_EQ("12345678", contents("piece.GET").substr(0, 8));
    EXPECT_EQ(12U, contents("piece.GET").size());
    std::filesystem::create_directory("place");
    EXPECT_EQ("", backUp("place/inside", "1234", {.blockSize = 4}));
    EXPECT_TRUE(std::filesystem::is_empty("place")) << "only plain names get a copy";
}

TEST_F(ScriptedTransferTest, AsksTheDatabaseForItsSize)
{
    const std::string head = "echo run >>runs\nread -r line && echo input >>runs\n";
    const struct {
        const char *flags, *script, *size;
        int runs;
    } table[] = {
        {"NONE", "printf '\\nSUM\\n---\\n   2048\\n\\n'", "2048", 1},
        {"NONE", "printf '\\nSUM\\n---\\n   2048\\n'; exit 3", "2048", 2},
        {"NONE", "echo ORA-01034; exit 1", "0", 3},
        {"NONE", "printf '\\nSUM\\n---\\n-7\\n'", "0", 4},
        {"TEST_ORCPROTECTSIZE", "printf '\\nSUM\\n---\\n2048\\n'", "0", 4},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.script);
        installSqlplus(head + row.script);
        installation.configureAgent({std::string("VELO_TEST_FLAGS ") + row.flags});
        openChannel();
        EXPECT_EQ("", backUp(std::string(row.flags) + row.script, "data", {.blockSize = 4}));
        EXPECT_TRUE(has(client.callsOf({"hoxUpdateFS"}).back(),
                        std::string(" capacity=0:0 protected=") + row.size + " "))
            << client.callsOf({"hoxUpdateFS"}).back();
        EXPECT_EQ(row.runs, occurrences(contents("runs"), "run"));
        endChannel();
    }
    EXPECT_FALSE(has(contents("runs"), "input")) << "the host's standard input was read";
    EXPECT_EQ("/ as sysdba\nselect sum(bytes)/1024/1024 from dba_data_files;\nexit",
              contents(".sql"));
    std::filesystem::remove(".sql");
    std::filesystem::create_symlink("prepared",
                                    ".sql"); // by another user, who may write where the host stands
    openChannel();
    EXPECT_EQ("", backUp("link", "data", {.blockSize = 4}));
    EXPECT_FALSE(std::filesystem::exists("prepared"));
}

TEST_F(ScriptedTransferTest, WaitsOnceForASqlplusThatHangsAndEndsWhatItLeavesBehind)
{
    ASSERT_EQ(0, mkfifo("held", 0600));
    const int held = ::open("held", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(held, 0);
    const struct {
        const char *flag, *script;
        int runs; // of two pieces in a channel
    } table[] = {{"TEST_ORCPROTECTLIMIT=1", "exec sleep 1000", 1},
                 // What stays behind has the pipe open as long as it lives.
                 {"NONE", "exec 3>held\nsleep 1000 >/dev/null 2>&1 &", 2}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.script);
        installSqlplus(row.script);
        installation.configureAgent({std::string("VELO_TEST_FLAGS ") + row.flag,
                                     "VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ORCLEVEL2"});
        for (int channel = 1; channel <= 2; ++channel) {
            std::filesystem::remove("agent.trc");
            openChannel();
            for (const char *piece : {"one", "two"})
                EXPECT_EQ("", backUp(piece, "data", {.blockSize = 4}));
            EXPECT_EQ(row.runs, occurrences(contents("agent.trc"), "Calling SQLPLUS with"));
            endChannel();
            client.objects.clear();
        }
    }
    char byte;
    pollfd waiting{held, POLLIN, 0};
    EXPECT_EQ(1, poll(&waiting, 1, 60000)) << "something lives on";
    EXPECT_EQ(0, ::read(held, &byte, 1));
    ::close(held);
}

static hoxDate date(const char *text)
{
    unsigned part[6] = {};
    std::sscanf(text, "%u-%u-%u %u:%u:%u", &part[0], &part[1], &part[2], &part[3], &part[4],
                &part[5]);
    const auto small = [&](int i) { return static_cast<std::uint8_t>(part[i]); };
    return {
        static_cast<std::uint16_t>(part[0]), small(1), small(2), small(3), small(4), small(5), 0};
}

TEST_F(ScriptedTransferTest, DescribesWhatTheServerKnowsOfAPiece)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0", 1);
    tzset();
    const struct {
        std::uint8_t mediaClass;
        std::uint32_t restoreOrder;
        const char *className, *info, *inserted, *expires, *answer;
    } table[] = {
        {16, 0, "STANDARD", "stStream", "2026-07-01 12:30:15", "",
         "2=1 6=2 7=2 3=1782901815 4=0 5=0 9=STANDARD"},
        {7, 4711, "", "other", "1960-01-01 00:00:00", "2027-07-01 12:30:15",
         "2=2 6=1 7=1 3=0 4=1814437815 5=4711"},
        // In winter too the daylight flag is set, and nothing longer than its room gets in.
        {16, 0xffffffff, "A23456789012345678901234567890", "stStreams", "2026-01-15 12:00:00", "",
         "2=2 6=2 7=2 3=1768471200 4=0 5=-1 9=A2345678901234567890123456789"},
    };
    openChannel();
    for (const auto &row : table) {
        ScriptedObject one, two;
        one = {"data",         {7, 1},           row.className,      row.info,
               row.mediaClass, row.restoreOrder, date(row.inserted), date(row.expires)};
        client.objects = {{"/lumoorc//p", one}, {"/lumoorc//q", two}};
        const std::string answer = info({"p", "gone", "q", "p"});
        const std::string expected = std::string("1=p ") + row.answer;
        EXPECT_EQ(expected + " 1=gone 8 1=q 2=1 ", answer.substr(0, expected.size() + 18));
        EXPECT_EQ(expected + " 9999", answer.substr(answer.rfind("1=p ")));
    }
    unsetenv("TZ");
    tzset();
}
