// The first version of the interface over the scripted client: what a fault of the storage client
// comes to, and which calls are made for it.
#include "tests/agent/version1.h"

using Version1FaultTest = Version1Test<ScriptedAgentTest>;
using Operations = std::vector<std::string>;

// The session of the file written before is ended when the next one opens.
#define SESSION "Terminate Init QuerySessOptions "
#define FOUND "BeginQuery GetNextQObj GetNextQObj EndQuery "
#define NOT_FOUND "BeginQuery GetNextQObj EndQuery "
#define RELEASED "Terminate CleanUp"

/// The end of a call in the agent trace: the reason, and the exit before the traces are released.
static std::string tracedAs(const std::string &call, const std::string &outcome)
{
    const std::string name = " " + call + ": ";
    const bool info = call == "sbtinfo()", failed = outcome.find('/') != std::string::npos;
    std::string reason;
    if (failed) {
        const int code =
            static_cast<std::int16_t>(std::stoi(outcome.substr(outcome.find('/') + 1)));
        char text[16];
        std::snprintf(text, sizeof text, code > 2500 && code < 2600 ? "RBQ%04d" : "RBS%04d",
                      code == 0    ? HOX_RC_NO_MATCH
                      : code == -1 ? 0 // an object that did not begin, which the client called 0
                                   : code);
        reason = name + "'" + text + "|";
    }
    return reason + name +
           (!failed                ? "Exit - OK"
            : call == "sbtwrite()" ? "HOXSENDDATA"
                                   : "Exit") +
           (info ? "|Last trace for sbtinfo()|veloCleanUp(): Enter" : "");
}

TEST_F(Version1FaultTest, TellsTheStorageCodeOfEveryFailure)
{
    enum Step { Open, Write, Close, OpenToRead, Read, CloseRead, Remove, Info };
    const struct {
        Step step;
        const char *faults, *outcome, *story, *traced = "";
    } table[] = {
        {Open, "Init:1=2101", "7011/2101", "Terminate Init CleanUp"},
        {Open, "Init:1=-50", "",
         "Terminate Init Init QuerySessOptions " NOT_FOUND "RegisterFS BeginTxn BindMC SendObj"},
        {Open, "Init:1=-50 Init:2=-50 Init:3=-50 Init:4=-50 Init:5=-50", "7011/65486",
         "Terminate Init Init Init Init Init CleanUp", "rc = -50, oer = 7011, errno = 65486"},
        {Open, "BeginQuery:1=124", "", SESSION "BeginQuery RegisterFS BeginTxn BindMC SendObj"},
        {Open, "BeginQuery:1=2102", "7011/2102", SESSION "BeginQuery " RELEASED},
        {Open, "GetNextQObj:1=2105", "", SESSION NOT_FOUND "RegisterFS BeginTxn BindMC SendObj"},
        {Open, "GetNextQObj:1=2102", "7011/2102", SESSION NOT_FOUND RELEASED},
        {Open, "GetNextQObj:1=121", "7011/2503", SESSION NOT_FOUND RELEASED},
        {Open, "GetNextQObj:1=0", "7011/2503", SESSION NOT_FOUND RELEASED},
        {Open, "RegisterFS:1=2062", "", SESSION NOT_FOUND "RegisterFS BeginTxn BindMC SendObj"},
        {Open, "RegisterFS:1=2102", "7011/2102", SESSION NOT_FOUND "RegisterFS " RELEASED,
         "regFS(): Exit - hoxHandle"},
        {Open, "BeginTxn:1=2102", "7011/2102", SESSION NOT_FOUND "RegisterFS BeginTxn " RELEASED},
        {Open, "BindMC:1=2064", "7011/2064",
         SESSION NOT_FOUND "RegisterFS BeginTxn BindMC EndTxn1 " RELEASED},
        {Open, "SendObj:1=2110", "7011/2110",
         SESSION NOT_FOUND "RegisterFS BeginTxn BindMC SendObj EndTxn1 " RELEASED},
        {Write, "SendData:1=2103", "7043/2103", "SendData"},
        {Close, "EndSendObj:1=2103", "7023/2103", "EndSendObj EndTxn1 UpdateFS " RELEASED},
        {Close, "EndTxn:1=2302/2110", "7023/2110", "EndSendObj EndTxn1 UpdateFS " RELEASED,
         "closeSend(): Exit - hoxHandle"},
        {Close, "EndTxn:1=2302", "7023/2302", "EndSendObj EndTxn1 UpdateFS " RELEASED},
        {Close, "UpdateFS:1=2102", "", "EndSendObj EndTxn1 UpdateFS L3 S3"},
        {OpenToRead, "BeginQuery:1=124", "7000/0", SESSION "BeginQuery " RELEASED},
        {OpenToRead, "GetNextQObj:1=2", "7000/0", SESSION NOT_FOUND RELEASED},
        {OpenToRead, "GetNextQObj:1=0", "7011/121", SESSION NOT_FOUND RELEASED},
        {OpenToRead, "GetNextQObj:2=0", "", SESSION FOUND "BeginGetData GetObj"},
        {OpenToRead, "GetObj:1=0", "7011/65535", SESSION FOUND "BeginGetData GetObj " RELEASED},
        {OpenToRead, "BeginGetData:1=2111", "7011/2111", SESSION FOUND "BeginGetData " RELEASED,
         "prepareGet(): Exit - hoxHandle"},
        {OpenToRead, "GetObj:1=2105", "7011/2105", SESSION FOUND "BeginGetData GetObj " RELEASED},
        {Read, "GetData:1=2105", "7064/2105", "GetData"},
        {Read, "GetData:1=2200", "7064/2008", "GetData"},
        {Read, "GetData:1=121", "7061/2505", "GetData"},
        {CloseRead, "EndGetObj:1=2105", "7023/2105", "EndGetObj EndGetData " RELEASED},
        {CloseRead, "EndGetData:1=2106", "7023/2106", "EndGetObj EndGetData " RELEASED,
         "closeGet(): Exit - hoxHandle"},
        {Remove, "GetNextQObj:1=2", "7011/2", SESSION NOT_FOUND},
        {Remove, "GetNextQObj:1=0", "7011/121", SESSION NOT_FOUND},
        {Remove, "BeginTxn:1=2104", "7011/2104", SESSION FOUND "BeginTxn"},
        {Remove, "DeleteObj:1=2111", "7011/2111", SESSION FOUND "BeginTxn DeleteObj EndTxn1"},
        {Remove, "EndTxn:1=2302/2113", "7011/2113", SESSION FOUND "BeginTxn DeleteObj EndTxn1",
         "sbtremove(): After HOXDELETEOBJ(). Deleted 'kept'"},
        {Info, "BeginQuery:1=2102", "7011/2102", SESSION "BeginQuery " RELEASED},
        {Info, "GetNextQObj:1=0", "7011/121", SESSION NOT_FOUND RELEASED},
        // The class of a file is looked up for the trace alone: it may be deleted.
        {Info, "GetNextQObj:3=2", "found", SESSION FOUND NOT_FOUND RELEASED},
        {Info, "BeginQuery:2=2102", "found", SESSION FOUND "BeginQuery " RELEASED},
    };
    installation.configureAgent(
        {"VELO_TRACE_FILE " + path("agent.trc"), "VELO_TRACE_FLAGS ORACLE"});
    for (const auto &row : table) {
        SCOPED_TRACE(std::to_string(row.step) + " " + row.faults);
        std::filesystem::remove("veloerror.log");
        std::filesystem::remove("agent.trc");
        client = ScriptedClient();
        begin();
        ASSERT_EQ("", store("kept", std::string(1024, 'k')));
        if (row.step == Write || row.step == Close) {
            ASSERT_EQ("", open("new", SBT1_WRITE));
        } else if (row.step == Read || row.step == CloseRead) {
            ASSERT_EQ("", open("kept", SBT1_READ));
        }
        client.calls.clear();
        client.script(row.faults);
        std::string block(1024, 'b');
        const auto act = [&] {
            switch (row.step) {
            case Open:
                return open("new", SBT1_WRITE);
            case OpenToRead:
                return open("kept", SBT1_READ);
            case Write:
                return write(block);
            case Read:
                return read(block);
            case Remove:
                return remove("kept");
            case Info:
                return info("kept") == nullptr ? told() : "found";
            default:
                return close();
            }
        };
        EXPECT_EQ(row.outcome, act());
        std::string story = row.story;
        story.erase(story.find_last_not_of(' ') + 1);
        EXPECT_EQ(story, client.story());
        EXPECT_EQ(*row.outcome != '\0', errorLog().find("RB") != std::string::npos) << errorLog();
        static const char *const calls[] = {"sbtopen()", "sbtwrite()", "sbtclose()",  "sbtopen()",
                                            "sbtread()", "sbtclose()", "sbtremove()", "sbtinfo()"};
        const std::string call = calls[row.step];
        EXPECT_NE(std::string::npos, contents("agent.trc").find(row.traced));
        EXPECT_TRUE(inOrder(contents("agent.trc"), tracedAs(call, row.outcome)))
            << tracedAs(call, row.outcome) << "\n"
            << contents("agent.trc");
        release();
    }
}

TEST_F(Version1FaultTest, CountsTheTextOfEachBlockForTheFilespace)
{
    begin();
    ASSERT_EQ("", open("counted", SBT1_WRITE));
    EXPECT_EQ("", write(std::string(1024, 'x')));
    EXPECT_EQ("", write(std::string(1024, '\0')));
    EXPECT_EQ("", write("seven.." + std::string(1017, '\0')));
    EXPECT_EQ("", close());
    const Operations updates = client.callsOf({"hoxUpdateFS"});
    ASSERT_EQ(1U, updates.size());
    EXPECT_NE(std::string::npos, updates[0].find("occupancy=0:1031 ")) << updates[0];
    EXPECT_EQ("", open("next", SBT1_WRITE));
    EXPECT_EQ("", close());
    EXPECT_NE(std::string::npos, client.callsOf({"hoxUpdateFS"})[1].find("occupancy=0:0 "));
}
