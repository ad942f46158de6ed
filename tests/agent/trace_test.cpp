// The database trace: the file that the database names, through the exported calls and, where only
// the class itself can be asked, through RMANTrace.

#include "agents/oracle/common/diagnostics/rmantrace.h"
#include "tests/agent/agent_fixture.h"

#include <regex>
#include <thread>

using keel::test::readFile;
using DatabaseTraceTest = ScriptedAgentTest;

static const char kBanner[] = "===========================================================\n"
                              "Tracing started for:\n"
                              "-----------------------------------------------------------\n"
                              "   Application Client :   KEEL Oracle SUN\n"
                              "              Version :   7.1.3.0\n"
                              "===========================================================\n";

TEST_F(DatabaseTraceTest, TracesAsMuchAsTheDatabaseAsksFor)
{
    const struct {
        int level;
        bool errors, flow, detail;
    } table[] = {{-1, false, false, false},
                 {0, true, false, false},
                 {1, true, true, false},
                 {2, true, true, true},
                 {9, true, true, true}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.level);
        std::filesystem::remove("rman.trc");
        openChannel(row.level);
        const std::string data(4096, '\x5a');
        EXPECT_EQ("", backUp("100%s%n" + std::to_string(row.level), data));
        EXPECT_EQ("sbtrestore 7502", openRestore("%n"));
        close();
        endChannel();
        const std::string written = trace();
        EXPECT_EQ(row.errors,
                  written.find("sbtrestore(): Exit File Not Found") != std::string::npos);
        EXPECT_EQ(row.flow, written.find(" sbtbackup(): Enter\n") != std::string::npos);
        EXPECT_EQ(row.flow, written.find(" sbtinit2(): Exit - OK\n\n") != std::string::npos);
        EXPECT_EQ(row.flow, written.find(" sbtend(): Exit - OK   Last trace for this session\n") !=
                                std::string::npos);
        std::string dump(64, '5');
        for (std::size_t i = 1; i < dump.size(); i += 2)
            dump[i] = 'A';
        EXPECT_EQ(row.detail, written.find("\n Buffer: ") != std::string::npos &&
                                  written.find(dump + "\n") != std::string::npos);
        EXPECT_EQ(row.level >= 0 ? 1 : 0, occurrences(written, kBanner));
        if (row.level < 0)
            continue;
        const std::regex line("SBT-" + std::to_string(getpid()) +
                              " \\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d [a-z0-9]+(\\.cpp)?"
                              "\\(\\d+\\): \\w+\\(\\)[\\s\\S]*");
        EXPECT_TRUE(std::regex_match(written.substr(sizeof kBanner - 1), line)) << written;
    }
}

TEST_F(DatabaseTraceTest, ReadsTheTypeOfAFileOnlyForTheTraceThatShowsIt)
{
    // Some databases pass the number itself there, and some pass nothing.
    const auto storeWithType = [&](const std::string &piece, std::uintptr_t type) {
        openChannel();
        const sbtPair objects[] = {{SBTOBJECT_FILETYPE, reinterpret_cast<void *>(type)},
                                   {SBTOBJECT_END, nullptr}};
        EXPECT_EQ("", backUp(piece, std::string(4096, 'x'), {.objects = objects}));
        endChannel();
    };
    storeWithType("number", 2);
    installation.configureAgent({"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ALL"});
    storeWithType("nothing", 0);
    EXPECT_EQ(1, occurrences(contents("agent.trc"), "type FILETYPE, value UNKNOWN(0)"));
}

TEST_F(DatabaseTraceTest, IsNotDisturbedByATraceFileItCannotWrite)
{
    for (const std::string &name : {path("no/such/directory"), path(std::string(300, 'x')),
                                    installation.directory().string()}) {
        std::string copy = name;
        const sbtPair items[] = {{SBTINIT_TRACEFILE, copy.data()}, {SBTINIT_END, nullptr}};
        std::uint64_t level = 2;
        const sbtPair items2[] = {{SBTINIT2_TRACELEVEL, &level}, {SBTINIT2_END, nullptr}};
        sbtInitError error;
        ASSERT_EQ(0, agent.sbtinit(&error, items, &initOut));
        memory.assign(1048576, '\0');
        ctx = memory.data();
        ASSERT_EQ(0, agent.sbtinit2(ctx, 0, items2));
        // Another thread of the host is not kept waiting by what the first could not open.
        std::thread([&] { EXPECT_EQ("", backUp("piece", "data", {.blockSize = 4})); }).join();
        EXPECT_EQ("", remove({"piece"}));
        endChannel();
    }
}

TEST_F(DatabaseTraceTest, ShowsBuffersAndCodesInTheAgentTrace)
{
    installation.configureAgent(
        {"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ORCBUFF EXTRC_DETAIL"});
    openChannel();
    ASSERT_EQ("", backUp("piece", std::string(1100, 'x'), {.blockSize = 1100}));
    std::string data;
    ASSERT_EQ("", restore("piece", data, 2000));
    EXPECT_EQ("sbtbackup 7503", open("piece"));
    const std::string written = contents("agent.trc");
    EXPECT_EQ(2, occurrences(written, "\n Buffer:\n 00000000 78787878 78787878 "));
    EXPECT_EQ(2, occurrences(written, "\n 00000440 78787878 78787878 78787878\n"));
    EXPECT_EQ(0, occurrences(written, "00000460")) << "what did not come is not shown";
    client.script("InitEx:1=137");
    EXPECT_EQ("sbtremove2 7501", remove({"piece"}));
    EXPECT_EQ(1, occurrences(contents("agent.trc"), "hoxHandle = 0, rc = 137, 'RBS0137E Server"));
}

TEST_F(DatabaseTraceTest, TellsTheEndOfACallThatReleasesTheTraces)
{
    installation.configureAgent({"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ORACLE"});
    ASSERT_EQ("", initialise());
    EXPECT_EQ(-1, agent.sbtinit2(nullptr, 0, nullptr));
    EXPECT_TRUE(inOrder(contents("agent.trc"), "sbtinit2(): Exit - NULL context|veloCleanUp()"))
        << contents("agent.trc");
}

TEST_F(DatabaseTraceTest, KeepsTheFormsThatScriptsLookFor)
{
    installation.configureAgent({"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ORACLE"});
    openChannel(2);
    char command[] = "-a=1";
    EXPECT_EQ(0, agent.sbtcommand(ctx, 0, command));
    EXPECT_EQ(-1, agent.sbtremove2(ctx, 0, nullptr));
    ASSERT_EQ("", open("piece"));
    EXPECT_EQ("sbtremove2 7501", remove({"piece"}));
    // What differs between the two traces has always differed.
    EXPECT_TRUE(inOrder(contents("agent.trc"),
                        "sbtcommand(): command = '-a=1'\n|"
                        "sbtremove2(): Exit - NULL filename, hoxHandle = 0\n|"
                        "sbtremove2(): Exit - wrong state, hoxHandle = 1, state = 2\n|"
                        "sbterror(): Enter\n"))
        << contents("agent.trc");
    EXPECT_TRUE(inOrder(trace(), "sbtremove2(): Exit File Name is NULL, hoxHandle = 0\n|"
                                 "sbtremove2(): Exit - Wrong State, hoxHandle = 1, state = 2\n|"
                                 "sbterror(): Enter \n|"
                                 "sbterror():  Error Code = 7501, Native Message = 'RBQ2614E|"
                                 "', Unicode Message = '(null)'\n"))
        << trace();
}

class TraceTest : public ::testing::Test
{
protected:
    std::string written() const
    {
        const std::string text = readFile(file);
        EXPECT_EQ(0U, text.find(kBanner));
        return text.substr(std::min(text.size(), sizeof kBanner - 1));
    }
    keel::test::TempDir directory;
    std::string file = (directory / "trace").string();
    RMANTrace trace;
};

TEST_F(TraceTest, JoinsEachBodyToTheHeaderOfItsThread)
{
    ASSERT_EQ(0U, trace.trBegin(file.c_str()));
    ASSERT_EQ(0U, trace.trBegin((file + ".other").c_str()));
    trace.trPrintHdr("a/b/unit.cpp", 7);
    std::vector<std::thread> threads;
    std::atomic<unsigned> prepared{0}; // more headers at once than there were slots to begin with
    for (unsigned i = 1; i <= 8; ++i)
        threads.emplace_back([&, i] {
            trace.trPrintHdr("/src/thread", i);
            for (++prepared; prepared < 8;)
                std::this_thread::yield();
            trace.trPrintBdy(" body of %u\n", i);
        });
    for (std::thread &thread : threads)
        thread.join();
    trace.trPrintBdy(" first, 100%% of %s\n", "100%s%n");
    trace.trPrintBdy(" second\n");
    const std::string text = written();
    for (unsigned i = 1; i <= 8; ++i)
        EXPECT_EQ(1, occurrences(text, " thread(" + std::to_string(i) + "): body of " +
                                           std::to_string(i) + "\n"))
            << text;
    EXPECT_EQ(1, occurrences(text, " unit.cpp(7): first, 100")) << text;
    EXPECT_NE(std::string::npos, text.find("(Lost Message Hdr)  second\n")) << text;
    EXPECT_EQ("", readFile(file + ".other"));
}

TEST_F(TraceTest, CutsWhatIsTooLongAndKeepsTheLineEnd)
{
    ASSERT_EQ(0U, trace.trBegin(file.c_str()));
    const std::string longName(300, 'n'), longBody(10000, 'b');
    trace.trPrintHdr(longName.c_str(), 1);
    trace.trPrintBdy(" %s\n", longBody.c_str());
    trace.trPrintHdr("unit", 2);
    trace.trPrintBdy(" next\n");
    const std::string text = written();
    EXPECT_NE(std::string::npos, text.find("bbb\nSBT-")) << text.size();
    EXPECT_LT(text.size(), 4300U);
}

TEST_F(TraceTest, DumpsInEachForm)
{
    std::string text72, hex36, words33;
    for (int i = 0; i < 72; ++i)
        text72 += std::string(i == 70 ? "\n" : "") + "A";
    for (int i = 0; i < 36; ++i)
        hex36 += std::string(i == 35 ? "\n" : "") + "41";
    for (int i = 0; i < 33; ++i)
        words33 += std::string(i > 0 && i % 4 == 0 ? " " : "") + (i == 32 ? "\n" : "") + "41";
    const struct {
        std::string bytes;
        int form;
        std::string dump;
    } table[] = {{"", 2, ""},
                 {std::string("a \x01\xff\n~", 6), 0, "a ...~"},
                 {std::string(72, 'A'), 0, text72},
                 {std::string(72, 'A'), 1, text72},
                 {std::string(72, 'A'), 4, text72},
                 {std::string("\x00\xff\x5a", 3), 2, "00FF5A"},
                 {std::string(36, 'A'), 2, hex36},
                 {std::string(33, 'A'), 3, words33},
                 {std::string(32, 'A'), 3, words33.substr(0, 71)},
                 {std::string(65, 'A'), 7, "A"},
                 {std::string(2, 'A'), 7, "."},
                 {"", 7, "."}};
    ASSERT_EQ(0U, trace.trBegin(file.c_str()));
    for (const auto &row : table) {
        std::filesystem::remove(file);
        trace.trPrintStr(reinterpret_cast<const unsigned char *>(row.bytes.data()),
                         static_cast<int>(row.bytes.size()), static_cast<CharForm>(row.form));
        EXPECT_EQ(row.dump + "\n", readFile(file)) << row.form;
    }
    trace.trPrintStr(nullptr, 0, RMANTR_FORM_TEXT);
    trace.trPrintStr(reinterpret_cast<const unsigned char *>("x"), -1, RMANTR_FORM_HEX);
    RMANTrace unnamed;
    EXPECT_EQ(0U, unnamed.trBegin(""));
    unnamed.trPrintHdr("unit", 1);
    unnamed.trPrintBdy(" nothing\n");
}
