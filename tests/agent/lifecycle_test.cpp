// A channel's life from sbtinit to sbtend, as the database sees it, and what may go wrong in it.

#include "agents/oracle/common/orcobj.h"
#include "keel_paths.h"
#include "tests/agent/agent_fixture.h"

#include <cstdlib>

namespace fs = std::filesystem;
using LifecycleTest = ScriptedAgentTest;

TEST_F(LifecycleTest, NegotiatesWhatTheDatabaseNeeds)
{
    const char *versions[][2] = {
        {nullptr, "512"}, {"2.1.10", "257"}, {"2.1.1", "512"}, {"", "512"}};
    for (const auto &[variable, expected] : versions) {
        if (variable)
            setenv("KEEL_ORACLE", variable, 1);
        openChannel();
        EXPECT_EQ(expected, std::to_string(*static_cast<std::uint64_t *>(initOut[1].value)));
        endChannel();
    }
    openChannel();
    EXPECT_EQ(0U, *static_cast<std::uint64_t *>(initOut[0].value));
    EXPECT_EQ(1048576U, *static_cast<std::uint64_t *>(initOut[4].value));
    EXPECT_EQ(117506816U, *static_cast<std::uint64_t *>(initOut[5].value));
    veloVersion version;
    agent.veloQueryVersion(&version);
    agent.veloQueryVersion(nullptr);
    EXPECT_EQ(7130, version.version * 1000 + version.release * 100 + version.level * 10);
    EXPECT_STREQ("64bit KEEL Oracle SUN", version.text);
    void **functions = static_cast<void **>(initOut[3].value);
    EXPECT_EQ(reinterpret_cast<void *>(agent.sbtbackup), functions[SBT_FN_BACKUP]);
    EXPECT_EQ(reinterpret_cast<void *>(agent.sbterror), functions[SBT_FN_ERROR]);
    EXPECT_EQ(reinterpret_cast<void *>(agent.sbtwrite2), functions[SBT_FN_WRITE2]);
}

TEST_F(LifecycleTest, OffersProxyCopyOnlyWithAWholeProxyLibrary)
{
    const struct {
        const char *lacking, *traced; // "": the library itself
    } table[] = {{"", "cannot open"},
                 {"sbtpcbackup", "sbtpcbackup()"},
                 {"sbtpccancel", "sbtpccancel()"},
                 {"sbtpccommit", "sbtpccommit()"},
                 {"sbtpcend", "sbtpend()"},
                 {"sbtpcquerybackup", "sbtpcquerybackup()"},
                 {"sbtpcqueryrestore", "sbtpcqueryrestore()"},
                 {"sbtpcrestore", "sbtpcrestore()"},
                 {"sbtpcstart", "sbtpcstart()"},
                 {"sbtpcstatus", "sbtpcstatus()"},
                 {"sbtpcvalidate", "sbtpcvalidate()"},
                 {"sbtpcGetDescription", "pcGetDescrFuncP)"},
                 {nullptr, ""}}; // last, for it stays loaded
    const fs::path place = KEEL_PROXY_LIBRARY;
    fs::create_directories(place.parent_path());
    installation.configureAgent({"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ORCLEVEL0"});
    for (const auto &row : table) {
        SCOPED_TRACE(row.traced);
        const bool whole = row.lacking == nullptr;
        std::string library = keel::test::readFile(KEEL_SCRIPTED_PROXY);
        // Under another first letter in the table of names, a function is not found any more.
        const std::string name = std::string(1, '\0') + (whole ? "" : row.lacking) + '\0';
        if (name.size() > 2)
            library.at(library.find(name) + 1) = 'x';
        fs::remove(place);
        if (whole || name.size() > 2)
            keel::test::writeFile(place, library);
        openChannel();
        fs::remove(place);
        std::string codes = "3";
        for (const sbtPair *item = initOut; item->code != SBTINIT_END; ++item)
            codes += " " + std::to_string(item[1].code);
        EXPECT_EQ(whole ? "3 4 5 6 7 8 9 10 1" : "3 4 5 6 7 8 1", codes);
        EXPECT_EQ(std::string("Keel for Oracle: version 7.1.3.0") +
                      (whole ? " scripted proxy" : ""),
                  static_cast<char *>(initOut[2].value));
        void **functions = static_cast<void **>(initOut[3].value);
        for (int i = SBT_FN_PROXY_FIRST; i < SBT_FN_COUNT; ++i)
            EXPECT_EQ(whole, functions[i] != nullptr) << i;
        EXPECT_NE(std::string::npos, contents("agent.trc").find(row.traced));
        endChannel();
    }
}

class EveryCallTest : public ScriptedAgentTest
{
protected:
    /// What the calls come to on a context, one after the other: "-" for -1, "0" for 0.
    std::string outcomes(void *context, bool withArguments)
    {
        std::string block(4096, 'x');
        char name[] = "piece", *names[] = {name, nullptr};
        char *piece = withArguments ? name : nullptr, **list = withArguments ? names : nullptr;
        char *data = withArguments ? block.data() : nullptr;
        sbtPair *items = nullptr;
        unsigned long code = 0;
        void *text = nullptr;
        std::string told;
        for (const int rc :
             {agent.sbtbackup(context, 0, piece, nullptr, 4096, 0, 1, 0),
              agent.sbtwrite2(context, 0, data), agent.sbtclose2(context, 0),
              agent.sbtrestore(context, 0, piece, 4096), agent.sbtread2(context, 0, data),
              agent.sbtclose2(context, 0), agent.sbtinfo2(context, 0, list, &items),
              agent.sbtremove2(context, 0, list), agent.sbtcommand(context, 0, nullptr),
              agent.sbterror(context, 0, &code, &text, &text)})
            told += rc == 0 ? "0" : rc == -1 ? "-" : "?";
        return told;
    }
    static constexpr const char *kNothing = "----------", *kNoWork = "--0--0--00";
};

TEST_F(EveryCallTest, FailsCleanlyAfterASecondChannelWasRefused)
{
    openChannel();
    ASSERT_EQ("", open("piece", {.blockSize = 4}));
    client.calls.clear();
    EXPECT_EQ("7011 65535", initialise());
    EXPECT_EQ("CleanUp", client.story()) << "with all that the first channel had open";
    EXPECT_EQ(kNoWork, outcomes(ctx, true));
    EXPECT_EQ(-1, agent.sbtinit2(memory.data(), 0, nullptr));
    endChannel();
    EXPECT_TRUE(client.objects.empty());
    openChannel();
    EXPECT_EQ("", backUp("piece", "data", {.blockSize = 4}));
}

TEST_F(EveryCallTest, SurvivesNullPointersAndComingTooEarlyOrTooLate)
{
    std::string garbage(1048576, '\0');
    for (const char *when : {"before", "after"}) {
        SCOPED_TRACE(when);
        EXPECT_EQ(kNothing, outcomes(nullptr, true));
        EXPECT_EQ(kNoWork, outcomes(garbage.data(), false));
        EXPECT_EQ(-1, agent.sbtinit2(garbage.data(), 0, nullptr));
        EXPECT_EQ(-1, agent.sbtinit2(nullptr, 0, nullptr));
        EXPECT_EQ(0, agent.sbtend(garbage.data(), 0) + agent.sbtend(nullptr, 0));
        openChannel();
        EXPECT_EQ(kNothing, outcomes(nullptr, true));
        EXPECT_EQ(kNoWork, outcomes(ctx, false));
        agent.sbterror(ctx, 0, nullptr, nullptr, nullptr);
        char *none[] = {nullptr};
        EXPECT_EQ(-1, agent.sbtinfo2(ctx, 0, none, nullptr));
        EXPECT_EQ("", open("piece", {.blockSize = 4})); // the channel is none the worse for it
        EXPECT_EQ(-1, agent.sbtwrite2(ctx, 0, nullptr));
        EXPECT_EQ(7501U, errorCode());
        EXPECT_EQ("sbtwrite2 7501", write("data")) << "a block was lost, so no later one may count";
        EXPECT_EQ(0, agent.sbtend(nullptr, 0)) << "ends the channel";
        endChannel();
    }
    sbtInitError error;
    const sbtPair end[] = {{SBTINIT_END, nullptr}};
    EXPECT_EQ(-1, agent.sbtinit(nullptr, end, &initOut));
    EXPECT_EQ(-1, agent.sbtinit(&error, end, nullptr));
    EXPECT_EQ(0, agent.sbtinit(&error, nullptr, &initOut));
    EXPECT_EQ(-1, agent.sbtinit2(nullptr, 0, nullptr)) << "ends the channel too";
    openChannel();
}

TEST_F(LifecycleTest, ChecksTheLevelOfTheStorageClient)
{
    const struct {
        unsigned short version, release, level, subLevel;
        const char *outcome;
    } table[] = {{7, 1, 2, 9, "7011 2507"}, {6, 9, 9, 9, "7011 2507"}, {7, 1, 3, 0, ""},
                 {8, 0, 0, 0, ""},          {7, 0, 13, 0, ""},         {6, 11, 3, 0, ""}};
    for (const auto &row : table) {
        client.level = {2, row.version, row.release, row.level, row.subLevel};
        EXPECT_EQ(row.outcome, initialise()) << row.version << row.release << row.level;
        if (!*row.outcome) {
            EXPECT_EQ(0, agent.sbtend(memory.assign(1048576, '\0').data(), 0));
        }
    }
    EXPECT_NE(std::string::npos, errorLog().find("RBQ2572")) << errorLog();
    EXPECT_NE(std::string::npos, errorLog().find("RBQ2573"));
    openChannel(); // the failures left nothing behind
}

TEST_F(LifecycleTest, SetsTheStorageClientUpAndCleansUpWhatItSetUp)
{
    const std::string setUp =
        "hoxSetUp mt=1 argv=1 program=4700 config=" + installation.clientOptions().string() +
        " logName=veloerror.log";
    const struct {
        const char *faults;
        std::uint8_t access;
        const char *outcome, *story, *logged;
        bool localTexts = true, serverTexts = true;
    } table[] = {
        {"", HOX_PASSWORDACCESS_GENERATE, "", "SetUp QueryCliOptions CleanUp", ""},
        {"", HOX_PASSWORDACCESS_PROMPT, "", "SetUp QueryCliOptions CleanUp SetUp CleanUp", ""},
        {"SetUp:1=2030", 1, "7011 2030", "SetUp", "RBS2030E Local text"},
        {"SetUp:2=2030", 0, "7011 2030", "SetUp QueryCliOptions CleanUp SetUp", "RBS2030E Local"},
        {"SetUp:1=2030", 1, "7011 2030", "SetUp", "RBS2030E Server text", false},
        {"SetUp:1=2030", 1, "7011 2030", "SetUp", "RBQ0003S", false, false},
        // A first channel that fails leaves nothing behind.
        {"QueryCliOptions:1=2007", 1, "7011 2007", "SetUp QueryCliOptions CleanUp", ""},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.faults) + " " + std::to_string(row.access));
        fs::remove("veloerror.log");
        client = ScriptedClient();
        client.passwordAccess = row.access;
        client.localTexts = row.localTexts;
        client.serverTexts = row.serverTexts;
        client.script(row.faults);
        EXPECT_EQ(row.outcome, initialise());
        if (*row.outcome == '\0')
            agent.sbtend(memory.assign(1048576, '\0').data(), 0);
        EXPECT_EQ(row.story, client.story());
        EXPECT_EQ(setUp, client.calls[0]);
        for (const std::string &again : client.callsOf({"hoxSetUp mt=1 argv=0"}))
            EXPECT_NE(std::string::npos, again.find(" program=0 "));
        EXPECT_NE(std::string::npos, errorLog().find(row.logged)) << errorLog();
        // The file that stands for the program stays only where the first set-up failed.
        EXPECT_EQ(std::string(row.faults) == "SetUp:1=2030", fs::remove(client.programName));
    }
}

TEST_F(LifecycleTest, GoesByTheNodeOfTheOptionsTheClientTheEnvironmentOrTheHost)
{
    char host[65] = "";
    gethostname(host, sizeof host - 1);
    const std::string longest(64, 'n'), tooLong(65, 'n');
    const struct {
        const char *option, *client, *environment;
        std::string node;
    } table[] = {{"VELO_NODE mine", "clients", "hosts", "mine"},
                 {"", "clients", "envs", "clients"},
                 {"", "", "envs", "envs"},
                 {"", "", longest.c_str(), longest},
                 {"", "", tooLong.c_str(), ""},
                 {"", "", "", host}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.node);
        client = ScriptedClient();
        client.passwordAccess = *row.option ? HOX_PASSWORDACCESS_PROMPT : 1;
        client.nodeName = row.client;
        setenv("HOXO_NODE", row.environment, 1);
        installation.configureAgent({row.option});
        if (row.node.empty()) {
            EXPECT_EQ("7011 23", initialise());
            EXPECT_NE(std::string::npos, errorLog().find("RBS0023E")) << errorLog();
            continue;
        }
        openChannel();
        EXPECT_EQ(row.node, static_cast<orcObj_t *>(ctx)->nodeName);
        endChannel();
    }
    unsetenv("HOXO_NODE");
}

TEST_F(LifecycleTest, OpensEachSessionAsTheClientAsks)
{
    installation.configureAgent({"VELO_NODE mynode", "VELO_OWNER me", "VELO_FS \\prod"});
    openChannel();
    EXPECT_EQ(1, occurrences(errorLog(), "RBQ2610W"));
    ASSERT_EQ("", backUp("piece", "data", {.blockSize = 4}));
    auto sessions = client.callsOf({"hoxInitEx"});
    ASSERT_EQ(1U, sessions.size());
    EXPECT_EQ("hoxInitEx node=(null) owner=(null) password= application=KEEL Oracle SUN class=3 "
              "options=[ ]",
              sessions[0]);
    EXPECT_EQ(1U, client.objects.count("/prod//piece"));

    // What sbtcommand brings is handed over as it stands, and stops at the end of its room.
    endChannel();
    openChannel();
    const std::string longOption(600, 'x');
    const struct {
        std::string command, options;
    } table[] = {{"-a=1", "-a=1 "},
                 {"", "-a=1 "},
                 {"\t-b=2 -c", "-a=1 \t-b=2 -c"},
                 {longOption, "-a=1 \t-b=2 -c" + longOption.substr(0, 500)},
                 {longOption, "-a=1 \t-b=2 -c" + longOption.substr(0, 500)}};
    for (std::size_t i = 0; i < std::size(table); ++i) {
        std::string command = table[i].command;
        EXPECT_EQ(0, agent.sbtcommand(ctx, 0, command.data()));
        EXPECT_EQ("", remove({"nothing"}));
        sessions = client.callsOf({"hoxInitEx"});
        EXPECT_NE(std::string::npos, sessions.back().find("options=[" + table[i].options + "]"))
            << sessions.back();
    }
}
