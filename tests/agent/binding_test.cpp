// The binding of the storage client as object maintenance uses it, without a channel.

#include <cstring>

#include "agents/common/maint/mtgroup.h"
#include "agents/common/maint/mtremove.h"
#include "agents/common/unx/sun/dhoxapidl.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/unx/psnode.h"
#include "common/ut/trace.h"

#include "tests/agent/agent_fixture.h"
#include <pwd.h>
#include <regex>

namespace
{

using Calls = std::vector<std::string>;

class BindingTest : public ScriptedAgentTest
{
protected:
    BindingTest() { EXPECT_EQ(0, api.Setup()); }
    ~BindingTest() override { api.Cleanup(); }

    static int givePassword(char *password, std::uint32_t size)
    {
        std::snprintf(password, size, "asked");
        return 0;
    }
    DHoxApiStatus status;
    DHoxApiDL api{"ARCA", "itsnode", "itsowner", givePassword};
    hoxHandle_t handle = 0;
};

TEST_F(BindingTest, SetsTheClientUpOnceAndCleansUpWhatIsSetUp)
{
    int rc = 1;
    EXPECT_EQ(0, api.Term(&status));
    client.script("SetUp:1=2030");
    EXPECT_EQ(2030, api.Init(&status, &rc));
    EXPECT_EQ(2030, rc);
    EXPECT_EQ(0, api.Init(&status, nullptr));
    DHoxApiDL other;
    EXPECT_EQ(0, other.Setup());
    EXPECT_EQ(0, other.Init(&status, &rc)) << "done already, by another binding";
    EXPECT_EQ(0, rc);
    EXPECT_EQ(0, api.Term(&status));
    EXPECT_EQ(0, other.Term(&status));
    EXPECT_EQ("SetUp SetUp CleanUp", client.story());
    const envSetUp env{};
    EXPECT_EQ(0, api.dhoxSetUp(&status, 1, &env));
    client.script("SetUp:1=2030");
    EXPECT_EQ(2030, api.dhoxSetUp(&status, 1, &env));
    EXPECT_FALSE(DHoxApi::IsSetUp()) << "a set-up that fails ends the one before it";
    EXPECT_FALSE(status.inCall);
}

TEST_F(BindingTest, LogsOnInEachForm)
{
    const std::string most(1024, 'x');
    EXPECT_TRUE(api.SetOptionsOverride(most.c_str()));
    EXPECT_FALSE(api.SetOptionsOverride((most + "x").c_str())) << "the earlier ones hold";
    EXPECT_EQ(0, api.Logon(&status, &handle));
    EXPECT_EQ(1U, handle);
    EXPECT_EQ(0, api.Logoff(&status, &handle));
    EXPECT_EQ(0, api.Logoff(&status, &handle)) << "it is off already";
    EXPECT_TRUE(api.SetOptionsOverride(nullptr));
    EXPECT_EQ(0, api.Logon(&status, &handle, "secret"));
    EXPECT_EQ(0, api.Logon(&status, &handle, "secret", "newer"));
    EXPECT_EQ(0, api.Logon(&status, &handle, {"node", "other", ""}, "secret"));
    EXPECT_EQ(4U, handle);
    const std::string rest = " application=KEEL Oracle SUN class=3 options=[";
    EXPECT_EQ(
        (Calls{"hoxInitEx node=itsnode owner=itsowner password=asked" + rest + most + "]",
               "hoxTerminate handle=1",
               "hoxInitEx node=itsnode owner=itsowner password=secret" + rest + "(null)]",
               "hoxInitEx node=itsnode owner=itsowner password=secret" + rest + "(null)]",
               "hoxChangePW old=secret new=newer",
               "hoxInitEx node=node as=other owner=(null) password=secret" + rest + "(null)]"}),
        client.calls);

    const struct {
        const char *faults;
        int rc;
        const char *story;
    } table[] = {{"InitEx:1=-50", 0, "InitEx InitEx ChangePW"},
                 {"InitEx:*=-50", -50, "InitEx InitEx InitEx InitEx InitEx"},
                 {"InitEx:1=137", 137, "InitEx"},
                 {"ChangePW:1=137", 137, "InitEx ChangePW Terminate"}};
    for (const auto &row : table) {
        client = ScriptedClient();
        client.script(row.faults);
        EXPECT_EQ(row.rc, api.Logon(&status, &handle, "secret", "newer"));
        EXPECT_EQ(row.story, client.story());
        EXPECT_EQ(row.rc == 0, handle != 0);
    }
}

TEST_F(BindingTest, TellsTheTextOfACode)
{
    const std::string whole = "RBS2102E Local text of code 2102.";
    char text[64] = "";
    unsigned length = 0;
    EXPECT_EQ(0, api.AgtHoxRCMsg(&status, 1, 2102, text, 10, &length));
    EXPECT_EQ(whole.substr(0, 9), text);
    EXPECT_EQ(whole.size(), length);
    api.GetApiError(&status, 1, 2102, text, sizeof text, nullptr);
    EXPECT_EQ(whole, text);
    api.LogApiError(&status, 1, 2102, "hoxDeleteObj");
    EXPECT_EQ("S2 S2 S2", client.story());
    EXPECT_NE(std::string::npos, client.calls.back().find("text=error 2102 returned from "
                                                          "hoxDeleteObj: " +
                                                          whole));
    api.Cleanup();
    EXPECT_EQ(104, api.AgtHoxRCMsg(&status, 1, 2102, text, sizeof text, &length));
    EXPECT_EQ(std::string(), text);
    EXPECT_EQ(0U, length);
    api.GetApiError(&status, 1, 2102, text, sizeof text, &length);
    EXPECT_STREQ("no text returned for LUMO Api error 2102", text);
}

TEST_F(BindingTest, KnowsTheLevelItWasMadeFor)
{
    const struct {
        std::uint16_t version, release, level, subLevel;
        int rc;
    } table[] = {{7, 1, 3, 0, 0}, {7, 1, 2, 999, 107}, {6, 9, 9, 0, 107}, {6, 11, 3, 0, 0}};
    for (const auto &row : table) {
        client.level = {2, row.version, row.release, row.level, row.subLevel};
        hoxApiVersionEx found{};
        EXPECT_EQ(row.rc, api.checkCompatibility(&status, &found));
        EXPECT_EQ(row.subLevel, found.subLevel);
    }
    hoxApiVersionEx none{};
    api.Cleanup();
    EXPECT_EQ(107, api.checkCompatibility(&status, &none)) << "a client that is not there";
    EXPECT_EQ(104, api.dhoxLogMessage(&status, 1, "text"));
}

class MaintenanceTest : public BindingTest
{
protected:
    MaintenanceTest()
    {
        EXPECT_EQ(0, mtSetUp(""));
        EXPECT_EQ(0, session.start({}));
        client.calls.clear();
    }
    ~MaintenanceTest() override
    {
        session.end();
        mtCleanUp();
    }
    mtSession session;
};

TEST_F(MaintenanceTest, ReportsNothingAsDoneThatTheCommitRefused)
{
    for (const char *fault : {"EndTxn:1=2302", "EndTxn:1=2302/2104", "EndTxn:1=2104"}) {
        client.objects["/lumoorc//a"] = {.data = "data", .id = {0, 1}};
        client.script(fault);
        int reported = 0;
        mtRemoval removal(session, mtAction_t::remove, [&](const mtObject_t &, int) {
            ++reported;
            return true;
        });
        mtObject_t object;
        object.objId = 1;
        EXPECT_EQ(0, removal.add(object));
        const int expected = std::string(fault) == "EndTxn:1=2302" ? 2302 : 2104;
        EXPECT_EQ(expected, removal.finish()) << fault;
        EXPECT_EQ(0, reported) << fault;
    }
}

TEST_F(MaintenanceTest, MakesAGroupWholeOrNotAtAll)
{
    const struct {
        const char *faults;
        std::vector<std::uint64_t> members;
        int rc;
        const char *actions; // open 1, close 2, add 3, delete 6
    } table[] = {{"", {1, 2}, 0, "1 3 2 "},
                 {"", {}, 0, "1 2 "},
                 {"GroupHandler:1=2110", {1}, 2110, "1 "},
                 {"GroupHandler:2=2111", {1}, 2111, "1 3 6 "},
                 {"GroupHandler:3=2110", {1}, 2110, "1 3 2 "}};
    for (const auto &row : table) {
        client.calls.clear();
        client.script(row.faults);
        hoxObjName leader{};
        std::uint64_t id = 0;
        EXPECT_EQ(row.rc, mtGroupMake(session, "tag", leader, row.members, id));
        EXPECT_EQ(row.rc == 0 ? 9U : 0U, id);
        std::string actions;
        for (const std::string &call : client.callsOf({"hoxGroupHandler action="}))
            actions += call.substr(23, 2);
        EXPECT_EQ(row.actions, actions) << row.faults;
    }
    client.calls.clear();
    hoxObjName leader{};
    std::strcpy(leader.llName, "/leader");
    std::uint64_t id = 0;
    const std::vector<std::uint64_t> both{1, (std::uint64_t{3} << 32) + 4};
    EXPECT_EQ(0, mtGroupMake(session, "tag", leader, both, id));
    EXPECT_EQ(0, mtGroupAdd(session, 9, both));
    EXPECT_EQ(0, mtGroupTakeOut(session, 9, std::vector<std::uint64_t>{1}));
    EXPECT_EQ(0, mtGroupDelete(session, 9));
    const std::string action = "hoxGroupHandler action=",
                      known = " leads=0 tag=(null) name= leader=0:9";
    EXPECT_EQ((Calls{action + "1 leads=1 tag=tag name=/leader leader=0:0 members=",
                     action + "3" + known + " members= 0:1 3:4",
                     action + "2" + known + " members=", action + "4" + known + " members= 0:1 3:4",
                     action + "5" + known + " members= 0:1", action + "6" + known + " members="}),
              client.calls);
}

TEST_F(BindingTest, HasAnAnswerForWhatIsNotLoaded)
{
    const std::string file = path("agent.trc");
    ASSERT_EQ(0U, trBegin(file.c_str(), 0));
    trEnable("GENERAL API", 1);
#ifdef NDEBUG
    EXPECT_EQ(419, FunctionNotLoaded());
    EXPECT_EQ(1, LumoFunctionNotLoaded());
    const std::string traced = "Function not loaded\n|Lumo function not loaded\n|";
#else
    EXPECT_DEATH(FunctionNotLoaded(), "not loaded");
    EXPECT_DEATH(LumoFunctionNotLoaded(), "not loaded");
    const std::string traced; // a child writes nothing to the trace of its parent
#endif
    api.Cleanup();
    char text[ORC_ERRTEXT_SIZE];
    veloGetApiMsg(0, 1, 104, text); // the code can only be the agent's own then
    EXPECT_STREQ("RBQ0003S An internal processing error has occurred", text);
    trEnd();
    EXPECT_TRUE(inOrder(
        contents("agent.trc"),
        traced + "Enter agentRcMessage(),\n"
                 "  agentRc : 104\n|An unknown agent return code (104) has been detected.\n|"
                 "Exit agentRcMessage(), msgNum = 4\n"))
        << contents("agent.trc");
}

TEST_F(BindingTest, KnowsTheTimeAndWhoAsks)
{
    trBegin(path("agent.trc").c_str(), 0);
    trEnable("API PERFORM", 1);
    DBaseApi::StartApiCall(&status);
    DBaseApi::EndApiCall(&status, "other");
    status.totalTime = 2500;
    api.LogApiStatus(&status);
    trEnd();
    EXPECT_TRUE(inOrder(contents("agent.trc"),
                        "elapsed seconds 0, total time 0 for other Apis|Performance stats: 2 "
                        "seconds spent in ARCA API calls"))
        << contents("agent.trc");
    char text[64];
    DIfcTimeUtil::getTimeStamp(text, sizeof text);
    EXPECT_TRUE(
        std::regex_match(text, std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6}")))
        << text;
    char owner[HOX_MAX_NODE_NAME + 1] = "?";
    EXPECT_EQ(0, psveloGetOwnerName(owner));
    const std::string user = getpwuid(getuid())->pw_name;
    EXPECT_EQ(user == "root" ? "" : user, owner);
}

} // namespace
