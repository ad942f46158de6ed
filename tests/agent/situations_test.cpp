// What a fault of the storage client comes to, call by call: which calls the agent makes then, in
// which order and with which vote, what it tells the two event logs, the database, the error log
// and the traces, and what it leaves in the context.

#include <functional>

#include "agents/oracle/common/orcobj.h"
#include "tests/agent/agent_fixture.h"

namespace
{

struct Situation {
    const char *what;
    const char *faults;  // as a script has them
    const char *outcome; // of the call, or of the first one that failed
    const char *left;    // the state of the context, with a "+" when its session is still open
    const char *text;    // in the error text, and in the error log ("log ...": there alone)
    const char *traced;  // how the traces tell it, in order: "one|other"
    std::string story;
    unsigned long copy = 1;
};

class SituationTest : public ScriptedAgentTest
{
protected:
    SituationTest()
    {
        installation.configureAgent({"VELO_TRACE_FILE " + path("agent.trc"),
                                     "VELO_TRACE_FLAGS ORACLE", "VELO_MGMT_CLASS_2 SILVER"});
    }

    static bool has(const std::string &text, const std::string &part)
    {
        return text.find(part) != std::string::npos;
    }

    void expectTold(std::string text, bool logged)
    {
        if (has(text, "log "))
            text.erase(0, 4);
        else
            EXPECT_TRUE(has(errorText(), text)) << errorText();
        const std::string log = errorLog(); // in the host's language, where the client has it
        EXPECT_EQ(logged && !text.empty(),
                  !log.empty() && has(log, text.substr(0, text.find(" Server"))))
            << log;
    }

    /// Each situation in a channel of its own, over what stock puts there; and then a piece, to see
    /// that the channel lives on.
    void expectEach(const std::vector<Situation> &table, const std::function<void()> &stock,
                    const std::function<std::string(const Situation &)> &act, bool logged = true)
    {
        for (const Situation &row : table) {
            SCOPED_TRACE(row.what);
            for (const char *file : {"agent.trc", "rman.trc", "veloerror.log"})
                std::filesystem::remove(file);
            client = ScriptedClient();
            stock();
            openChannel(0);
            client.calls.clear();
            client.script(row.faults);
            EXPECT_EQ(row.outcome, act(row));
            EXPECT_EQ(row.story, client.story());
            const auto *context = static_cast<const orcObj_t *>(ctx);
            EXPECT_EQ(row.left, std::to_string(context->state) + (context->hoxHandle ? "+" : ""));
            expectTold(row.text, logged || !has(row.story, "BeginQuery"));
            EXPECT_TRUE(inOrder(contents("agent.trc"), row.traced)) << contents("agent.trc");
            if (std::string(row.traced).compare(0, 3, "sbt") == 0) {
                EXPECT_TRUE(inOrder(trace(), row.traced)) << trace();
            }
            if (*row.outcome != 's') { // the database is told of failed calls alone
                EXPECT_EQ("", trace());
            }
            if (has(row.outcome, "sbtwrite2")) { // what failed takes no more, and commits nothing
                EXPECT_EQ(row.outcome, write(std::string(4096, 'x')));
                EXPECT_EQ("", close());
                EXPECT_EQ(row.story + " Terminate", client.story());
            }
            close();
            EXPECT_EQ("", backUp("afterwards", "data", {.blockSize = 4}));
            client.calls.clear();
            endChannel();
            EXPECT_EQ("CleanUp", client.story());
        }
    }
};

#define SESSION "InitEx QuerySessOptions QuerySessInfo "
#define FOUND "BeginQuery GetNextQObj GetNextQObj EndQuery "
#define NOT_FOUND "BeginQuery GetNextQObj EndQuery "

#define OPENED SESSION "K4 " NOT_FOUND "RegisterFS BindMC "
#define SENDING OPENED "BeginTxn SendObj "
#define STORED "EndSendObjEx EndTxn1 UpdateFS S0 S0 Terminate"
#define CLASS_FOUND "BeginQuery GetNextQObj GetNextQObj EndQuery "

TEST_F(SituationTest, APieceIsSent)
{
    const char *const whole = SENDING "SendData SendData " STORED;
    const std::vector<Situation> table = {
        {"all goes well", "", "", "6", "", "", whole},
        {"a copy without a number is the first", "", "", "6", "", "", whole, 0},
        {"the server is busy twice", "InitEx:1=-50 InitEx:2=-50", "", "6", "", "",
         std::string(whole).insert(0, "InitEx InitEx ")},
        {"the server stays busy",
         "InitEx:1=-50 InitEx:2=-50 InitEx:3=-50 InitEx:4=-50 InitEx:5=-50", "sbtbackup 7501", "1",
         "RBS-050E Server", "sbtbackup(): Exit - veloSession() failed. hoxHandle = 0, rc = -50",
         "InitEx InitEx InitEx InitEx InitEx"},
        {"the log-on is refused", "InitEx:1=137", "sbtbackup 7501", "1", "RBS0137E Server",
         "sbtbackup(): Exit - veloSession() failed. hoxHandle = 0, rc = 137", "InitEx"},
        {"the options are not told, which nothing needs", "QuerySessOptions:1=2008", "", "6",
         "log RBS2008E", "", whole},
        {"the session is not described", "QuerySessInfo:1=2008", "sbtbackup 7501", "2+",
         "RBS2008E Server",
         "Exit veloSession(): HOXQUERYSESSINFO() failed, hoxHandle = 1, rc = 2008",
         "InitEx QuerySessOptions QuerySessInfo"},
        {"the look-up of the name does not begin", "BeginQuery:1=2102", "sbtbackup 7503", "6",
         "RBS2102E Server", "sbtbackup(): Exit - veloQueryObj() failed. hoxHandle = 1, rc = -1",
         SESSION "K4 BeginQuery Terminate"},
        {"the filespace is new", "BeginQuery:1=124", "", "6", "",
         "veloQueryObj(): Exit - File Space Not Found.",
         SESSION "K4 BeginQuery RegisterFS BindMC BeginTxn SendObj SendData SendData " STORED},
        {"the look-up of the name fails", "GetNextQObj:1=2102", "sbtbackup 7503", "6",
         "RBS2102E Server", "sbtbackup(): Exit - veloQueryObj() failed. hoxHandle = 1, rc = 2102",
         SESSION "K4 " NOT_FOUND "Terminate"},
        {"an end without an answer counts as a piece of that name", "GetNextQObj:1=121",
         "sbtbackup 7503", "6", "RBQ2503E",
         "|calling HOXENDQUERY()|sbtbackup(): Exit - veloQueryObj() failed. hoxHandle = 1, rc = 8",
         SESSION "K4 " NOT_FOUND "Terminate"},
        {"a success without an answer fails", "GetNextQObj:1=0", "sbtbackup 7503", "6", "code 0.",
         "veloQueryObj(): Exit - HOXGETNEXT", SESSION "K4 " NOT_FOUND "Terminate"},
        {"the filespace is there already", "RegisterFS:1=2062", "", "6", "", "", whole},
        {"the filespace is refused", "RegisterFS:1=2102", "sbtbackup 7501", "2+", "RBS2102E Server",
         "sbtbackup(): Exit - veloPrepSend().hoxHandle = 1, rc = 2102",
         SESSION "K4 " NOT_FOUND "RegisterFS"},
        {"the class is refused", "BindMC:1=2064", "sbtbackup 7501", "2+", "RBS2064E Server",
         "sbtbackup(): Exit - veloPrep", OPENED "L3 S3"},
        {"the transaction does not begin", "BeginTxn:1=2102", "sbtbackup 7501", "2+",
         "RBS2102E Server", "Exit veloPrepSend(): Error HOXBEGINTXN. hoxHandle = 1, rc = 2102",
         OPENED "BeginTxn L3 S3"},
        {"the object is refused", "SendObj:1=2110", "sbtbackup 7501", "2+", "RBS2110E Server",
         "veloPrepSend() : HOXSENDOBJ failed - Calling HOXENDTXN(). hoxHandle = 1, rc = 2110",
         SENDING "L3 S3 EndTxn1"},
        {"the object is refused, and so is the end", "SendObj:1=2110 EndTxn:1=2302/2113",
         "sbtbackup 7501", "2+", "RBS2110E Server",
         "veloPrepSend() : HOXSENDOBJ failed|veloPrepSend() : HOXENDTXN failed, hoxHandle = 1, "
         "rc = 2113, reason = 2113",
         SENDING "L3 S3 EndTxn1"},
        {"a second copy has a class of its own", "", "", "6", "", "",
         OPENED CLASS_FOUND "BeginTxn SendObj SendData SendData " STORED, 2},
        {"a success without an answer ends that look-up", "GetNextQObj:3=0", "", "6", "", "",
         OPENED CLASS_FOUND "BeginTxn SendObj SendData SendData " STORED, 2},
        {"the look-up of that class does not begin", "BeginQuery:2=2102", "sbtbackup 7501", "2+",
         "RBS2102E Server", "management class 'SILVER'", OPENED "BeginQuery L3 S3", 2},
        {"that class is not there", "GetNextQObj:2=2", "sbtbackup 7501", "2+", "RBS0002E Server",
         "management class 'SILVER'", OPENED "BeginQuery GetNextQObj L3 S3 EndQuery", 2},
        {"the look-up of that class fails", "GetNextQObj:3=2102", "sbtbackup 7501", "2+",
         "RBS2102E Server", "hoxHandle = 1, rc = 2102",
         OPENED "BeginQuery GetNextQObj GetNextQObj L3 S3 EndQuery", 2},
        {"a third copy has no class", "", "sbtbackup 7501", "2+", "RBS2025E Server",
         "veloPrepSend(): Exit - Empty MClass Name in options file. hoxHandle = 1, rc = 2025, "
         "Copy Number = 3",
         OPENED "L3 S3", 3},
        {"there is no fifth copy", "", "sbtbackup 7501", "2+", "RBQ2511E",
         "veloPrepSend(): Exit - copy number exceeds 4. hoxHandle = 1, rc = 11, Copy Number = 5",
         OPENED "L3 S3", 5},
        {"the first block is refused", "SendData:1=2103", "sbtwrite2 7501", "2+", "RBS2103E Server",
         "sbtwrite2(): Exit HOXSEND", SENDING "SendData EndTxn2"},
        {"the second block is refused, to the object alone", "SendData:2=157", "sbtwrite2 7501",
         "2+", "RBS0157E Server", "sbtwrite2(): Exit HOXSEND",
         SENDING "SendData SendData EndSendObj EndTxn1"},
        {"the first block is refused, and so is the end", "SendData:1=157 EndTxn:1=2302/2112",
         "sbtwrite2 7501", "2+", "RBS0157E Server", "sbtwrite2(): Exit HOXSEND",
         SENDING "SendData EndSendObj EndTxn1"},
        {"the end of the object fails", "EndSendObjEx:1=2103", "sbtclose2 7501", "6",
         "RBS2103E Server", "sbtclose2(): Exit, hoxHandle = 1, rc = 2103",
         SENDING "SendData SendData EndSendObjEx EndTxn1 L3 S3 Terminate"},
        {"the commit is refused for a reason", "EndTxn:1=2302/2110", "sbtclose2 7501", "6",
         "RBS2110E Server", "sbtclose2(): Exit, hoxHandle = 1, rc = 2110",
         SENDING "SendData SendData EndSendObjEx EndTxn1 L3 S3 Terminate"},
        {"the commit is refused without one", "EndTxn:1=2302", "sbtclose2 7501", "6",
         "RBS2302E Server", "sbtclose2(): Exit, hoxHandle = 1, rc = 2302",
         SENDING "SendData SendData EndSendObjEx EndTxn1 L3 S3 Terminate"},
        {"the commit fails, whatever the reason", "EndTxn:1=2102/9", "sbtclose2 7501", "6",
         "RBS2102E Server", "sbtclose2(): Exit, hoxHandle = 1, rc = 2102",
         SENDING "SendData SendData EndSendObjEx EndTxn1 L3 S3 Terminate"},
        {"the filespace is not updated, and the piece is stored", "UpdateFS:1=2102",
         "sbtclose2 7501", "6", "RBS2102E Server",
         "psveloUpdateFS(): Exit HOXUPDATEFS() failed. hoxHandle = 1, rc = 2102", whole},
        {"the logs and the end of the session fail", "LogEventEx:*=2041 Terminate:1=2002", "", "6",
         "", "", whole},
    };
    expectEach(
        table, [] {},
        [this](const Situation &row) {
            const std::string outcome =
                backUp("piece", std::string(8192, 'x'), {.copyNumber = row.copy});
            EXPECT_EQ(has(row.text, "RBQ2503E"), has(contents("agent.trc"), "calling HOXENDQUERY"));
            const bool stored = outcome.empty() || has(row.faults, "UpdateFS");
            EXPECT_EQ(stored ? 1U : 0U, client.objects.count("/lumoorc//piece"));
            return outcome;
        });
}

#define RESTORING SESSION "K4 " FOUND "BeginGetData GetObj "
#define RESTORED "EndGetObj EndGetData S0 S0 Terminate"

TEST_F(SituationTest, APieceIsRead)
{
    const std::vector<Situation> table = {
        {"all goes well", "", "", "6", "", "", RESTORING "GetData GetData " RESTORED},
        {"the log-on is refused", "InitEx:1=137", "sbtrestore 7501", "1", "RBS0137E Server",
         "sbtrestore(): Exit veloSession() failed, hoxHandle = 0, rc       : 137", "InitEx"},
        {"the session is not described", "QuerySessInfo:1=2008", "sbtrestore 7501", "1+",
         "RBS2008E Server",
         "sbtrestore(): Exit veloSession() failed, hoxHandle = 1, rc       : 2008",
         "InitEx QuerySessOptions QuerySessInfo"},
        {"the filespace is not there", "BeginQuery:1=124", "sbtrestore 7502", "3+",
         "RBS0124E Server", "sbtrestore(): Exit File Not Found, hoxHandle = 1, rc =  7",
         SESSION "K4 BeginQuery"},
        {"the look-up does not begin", "BeginQuery:1=2102", "sbtrestore 7502", "3+",
         "RBS2102E Server", "sbtrestore(): Exit File Not Found, hoxHandle = 1, rc =  -1",
         SESSION "K4 BeginQuery"},
        {"the piece is not there", "GetNextQObj:1=2", "sbtrestore 7502", "3+", "RBS0002E Server",
         "veloQueryObj(): Exit - file doesn't exist. hoxHandle = 1, rc = 2",
         SESSION "K4 BeginQuery GetNextQObj EndQuery"},
        {"an end without an object leaves nothing to read by", "GetNextQObj:1=121",
         "sbtrestore 7502", "3+", "RBS0002E Server",
         "veloQueryObj(): Exit - file doesn't exist. hoxHandle = 1, rc = 2",
         SESSION "K4 BeginQuery GetNextQObj EndQuery"},
        {"the look-up fails behind its answer", "GetNextQObj:2=2102", "sbtrestore 7502", "3+",
         "RBS2102E Server",
         "veloQueryObj(): Exit - HOXGETNEXTQOBJ() failed. hoxHandle = 1, rc = 2102",
         SESSION "K4 BeginQuery GetNextQObj GetNextQObj EndQuery"},
        {"the reading does not begin", "BeginGetData:1=2111", "sbtrestore 7501", "3+",
         "RBS2111E Server", "sbtrestore(): Exit veloPrepGet() failed, hoxHandle = 1, rc 2111",
         SESSION "K4 " FOUND "BeginGetData"},
        {"the object does not begin", "GetObj:1=2105", "sbtrestore 7501", "3+", "RBS2105E Server",
         "sbtrestore(): Exit veloPrepGet() failed, hoxHandle = 1, rc 2105",
         SESSION "K4 " FOUND "BeginGetData GetObj"},
        {"an end is no beginning", "GetObj:1=121", "sbtrestore 7501", "3+", "RBS0121E Server",
         "sbtrestore(): Exit veloPrep", SESSION "K4 " FOUND "BeginGetData GetObj"},
        {"nor is a success without data", "GetObj:1=0", "sbtrestore 7501", "3+", "code 0.",
         "sbtrestore(): Exit veloPrepGet()", SESSION "K4 " FOUND "BeginGetData GetObj"},
        {"the first block fails", "GetData:1=2105", "sbtread2 7501", "3+", "RBS2105E Server",
         "sbtread2(): Exit HOXGETDATA() failed. hoxHandle = 1, rc = 2105", RESTORING "GetData"},
        {"the second block fails", "GetData:2=2105", "sbtread2 7501", "3+", "RBS2105E Server",
         "sbtread2(): Exit HOXGETDATA", RESTORING "GetData GetData"},
        {"bytes that did not come are no data", "GetData:1=2200", "sbtread2 7501", "3+",
         "RBS2008E Server", "sbtread2(): Exit HOXGETDATA() failed. hoxHandle = 1, rc = 2008",
         RESTORING "GetData"},
        {"an end without data is told by the code alone", "GetData:2=121", "", "6", "",
         "|sbtread2(): Exit - EOF, hoxHandle = 1", RESTORING "GetData GetData " RESTORED},
        {"the end of the object fails, which is told", "EndGetObj:1=2105", "", "6",
         "RBS2105E Server", "closeGet(): HOXENDGETOBJ() failed. hoxHandle = 1, rc = 2105",
         RESTORING "GetData GetData EndGetObj EndGetData L0 S0 S0 S0 Terminate"},
        {"the end of the reading fails", "EndGetData:1=2106", "sbtclose2 7501", "6",
         "RBS2106E Server", "sbtclose2(): Exit, hoxHandle = 1, rc = 2106",
         RESTORING "GetData GetData EndGetObj EndGetData L0 S0 Terminate"},
        {"both ends fail", "EndGetObj:1=2105 EndGetData:1=2106", "sbtclose2 7501", "6",
         "RBS2106E Server", "closeGet(): Exit HOXENDGETDATA() failed. hoxHandle = 1, rc  = 2106",
         RESTORING "GetData GetData EndGetObj EndGetData L0 S0 L0 S0 Terminate"},
        {"the logs and the end of the session fail", "LogEventEx:*=2041 Terminate:1=2002", "", "6",
         "", "", RESTORING "GetData GetData " RESTORED},
    };
    expectEach(
        table,
        [this] {
            client.objects["/lumoorc//piece"] = {.data = std::string(8192, 'x'), .id = {7, 9}};
        },
        [this](const Situation &) {
            std::string data;
            return restore("piece", data);
        });
}

TEST_F(SituationTest, PiecesAreDescribed)
{
    const char *const answers = "1=p 2=1 6=2 7=2 3=0 4=0 5=0 9=STANDARD 1=gone 8 9999";
    const char *const whole = SESSION FOUND NOT_FOUND "Terminate";
    const std::vector<Situation> table = {
        {"all goes well", "", answers, "6", "", "", whole},
        {"a success without an answer ends the answers", "GetNextQObj:2=0", answers, "6", "", "",
         whole},
        {"an end without an answer is no piece", "GetNextQObj:1=121", "1=p 8 1=gone 8 9999", "6",
         "", "", SESSION NOT_FOUND NOT_FOUND "Terminate"},
        {"the ends fail, which nothing needs", "EndQuery:*=2003 Terminate:1=2002", answers, "6", "",
         "", whole},
        {"the log-on is refused", "InitEx:1=137", "sbtinfo2 7501", "1", "RBS0137E Server",
         "sbtinfo2(): Exit veloSession() failed, hoxHandle = 0, rc       : 137", "InitEx"},
        {"the session is not described", "QuerySessInfo:1=2008", "sbtinfo2 7501", "1+",
         "RBS2008E Server", "sbtinfo2(): Exit veloSession() failed",
         "InitEx QuerySessOptions QuerySessInfo"},
        {"the first look-up does not begin", "BeginQuery:1=124", "sbtinfo2 7501", "6",
         "RBS0124E Server",
         "sbtinfo2(): Exit HOXBEGINQUERY() failed, hoxHandle = 1, rc = 124, Object Name = "
         "'/lumoorc//p', Owner '', Object State = 1",
         SESSION "BeginQuery Terminate"},
        {"the second look-up does not begin", "BeginQuery:2=2102", "sbtinfo2 7501 after p", "6",
         "RBS2102E Server", "sbtinfo2(): Exit HOXBEGINQUERY() failed",
         SESSION FOUND "BeginQuery Terminate"},
        {"the first look-up fails behind its answer", "GetNextQObj:2=2102", "sbtinfo2 7501 after p",
         "6", "RBS2102E Server",
         "sbtinfo2(): Exit HOXGETNEXTQOBJ() failed, hoxHandle = 1, rc = 2102, Object Name = "
         "'/lumoorc//p', Owner ''",
         SESSION "BeginQuery GetNextQObj GetNextQObj Terminate"},
    };
    expectEach(
        table,
        [this] {
            client.objects["/lumoorc//p"] = {.data = "", .id = {7, 1}, .inserted = {}};
        },
        [this](const Situation &row) {
            char first[] = "p", second[] = "gone";
            char *names[] = {first, second, nullptr};
            sbtPair *items = nullptr;
            if (!has(row.outcome, "sbtinfo2"))
                return info({first, second});
            // What is known already is handed out all the same.
            const int rc = agent.sbtinfo2(ctx, 0, names, &items);
            const bool begun = items != nullptr && items->code == SBTBFINFO_NAME;
            return "sbtinfo2 " + std::to_string(rc == 0 ? 0 : errorCode()) +
                   (begun ? std::string(" after ") + static_cast<char *>(items->value) : "");
        });
}

#define MISSING NOT_FOUND "L1 S1 "
#define LOOKED_UP SESSION FOUND MISSING FOUND
#define DELETED "BeginTxn DeleteObj EndTxn1 "
#define QUEUED "L3 S3 "

TEST_F(SituationTest, PiecesAreRemoved)
{
    const char *const whole = LOOKED_UP DELETED DELETED "Terminate";
    const std::vector<Situation> table = {
        {"the middle one of three is missing, which is no failure", "", "", "6", "RBS0002E Server",
         "", whole},
        {"a success without an answer ends the answers", "GetNextQObj:2=0", "", "6",
         "RBS0002E Server", "", whole},
        {"an end without an answer removes no piece", "GetNextQObj:1=121", " a", "6",
         "RBS0002E Server", "", SESSION MISSING MISSING FOUND DELETED "Terminate"},
        {"the ends fail, which nothing needs", "EndQuery:*=2003 Terminate:1=2002", "", "6",
         "RBS0002E Server", "", whole},
        {"the log-on is refused", "InitEx:1=137", "sbtremove2 7501 a c", "1", "RBS0137E Server",
         "sbtremove2(): Exit veloSession() failed, hoxHandle = 0, rc = 137", "InitEx"},
        {"the session is not described", "QuerySessInfo:1=2008", "sbtremove2 7501 a c", "1+",
         "RBS2008E Server", "sbtremove2(): Exit veloSession() failed, hoxHandle = 1, rc = 2008",
         "InitEx QuerySessOptions QuerySessInfo"},
        {"the first look-up does not begin: its session stays behind", "BeginQuery:1=124",
         "sbtremove2 7501 a c", "6+", "RBS0124E Server",
         "sbtremove2(): Exit HOXBEGINQUERY() failed, hoxHandle = 1, rc = 124, Object Name = "
         "'/lumoorc//a', Owner =  '', Object State = 1",
         SESSION "BeginQuery L3 S3"},
        {"the last look-up does not begin: nothing is deleted", "BeginQuery:3=2102",
         "sbtremove2 7501 a c", "6+", "RBS2102E Server",
         "sbtremove2(): Exit HOXBEGINQUERY() failed, hoxHandle = 1, rc = 2102",
         SESSION FOUND MISSING "BeginQuery L3 S3"},
        {"the first look-up fails", "GetNextQObj:1=2102", "sbtremove2 7501 a c", "6",
         "RBS2102E Server",
         "sbtremove2(): Exit HOXGETNEXTQOBJ() failed, hoxHandle = 1, rc = 2102, Object Name = "
         "'/lumoorc//a', Owner = , Object State = 1",
         SESSION NOT_FOUND "L3 S3 EndQuery Terminate"},
        {"the last look-up fails: nothing is deleted", "GetNextQObj:5=2102", "sbtremove2 7501 a c",
         "6", "RBS2102E Server",
         "sbtremove2(): Exit HOXGETNEXTQOBJ() failed, hoxHandle = 1, rc = 2102",
         SESSION FOUND MISSING FOUND "L3 S3 EndQuery Terminate"},
        {"the first transaction does not begin", "BeginTxn:1=2104", "sbtremove2 7501 a c", "6",
         "RBS2104E Server", "veloDelBackObj(): Exit HOXBEGINTXN() failed, hoxHandle = 1, rc = 2104",
         LOOKED_UP "BeginTxn L3 S3 Terminate"},
        {"the second transaction does not begin", "BeginTxn:2=2104", "sbtremove2 7501 c", "6",
         "RBS2104E Server", "sbtremove2(): Exit - veloDelBackObj() failed.",
         LOOKED_UP DELETED "BeginTxn L3 S3 Terminate"},
        {"the first commit is refused for a reason", "EndTxn:1=2302/2113", "sbtremove2 7501 c", "6",
         "RBS2113E Server",
         "veloDelBackObj(): Exit HOXENDTXN() failed, hoxHandle = 1, rc = 2113, reason = 2113",
         LOOKED_UP DELETED "L3 S3 Terminate"},
        {"the first commit is refused without one", "EndTxn:1=2302", "sbtremove2 7501 c", "6",
         "RBS2302E Server", "sbtremove2(): Exit - veloDelBackObj() failed.",
         LOOKED_UP DELETED "L3 S3 Terminate"},
        {"the second commit fails, whatever the reason", "EndTxn:2=2102/9", "sbtremove2 7501", "6",
         "RBS2102E Server",
         "veloDelBackObj(): Exit HOXENDTXN() failed, hoxHandle = 1, rc = 2102, reason = 9",
         LOOKED_UP DELETED DELETED "L3 S3 Terminate"},
        {"an end that says 0 and gives a reason is told", "EndTxn:1=0/2113", "", "6", "code 0.",
         "veloDelBackObj(): Exit HOXENDTXN() failed, hoxHandle = 1, rc = 0, reason = 2113",
         LOOKED_UP DELETED QUEUED DELETED "Terminate"},
        {"a deletion fails, and the next one is tried", "DeleteObj:1=2107", " a", "6",
         "RBS2107E Server", "veloDelBackObj(): Exit - HOXDELETEOBJ() failed",
         LOOKED_UP DELETED QUEUED DELETED "Terminate"},
        {"every deletion fails", "DeleteObj:*=2107", " a c", "6", "RBS2107E Server",
         "veloDelBackObj(): hoxDeletObj() failed",
         LOOKED_UP DELETED QUEUED DELETED QUEUED "Terminate"},
        {"a deletion and its end fail", "DeleteObj:1=2107 EndTxn:1=2302/2113",
         "sbtremove2 7501 a c", "6", "RBS2113E Server",
         "veloDelBackObj(): HOXENDTXN() failed\n rc       : 2113\n hoxHandle: 1\n reason   : 2113",
         LOOKED_UP DELETED QUEUED QUEUED "Terminate"},
        {"a deletion fails, and its end gives a reason", "DeleteObj:1=2107 EndTxn:1=0/9", " a", "6",
         "code 0.",
         "|veloDelBackObj(): HOXENDTXN() failed\n rc       : 0|logQueuedMsgs(): Enter|"
         "logQueuedMsgs(): Exit - OK|veloDelBackObj(): Exit - HOXDELETEOBJ() failed",
         LOOKED_UP DELETED QUEUED QUEUED DELETED "Terminate"},
        {"the log takes nothing: it is offered once more and dropped", "LogEventEx:*=2041", "", "6",
         "RBS0002E Server", "|logQueuedMsgs(): Exit - messages not sent: 1. rc = 2041",
         SESSION FOUND MISSING FOUND "L1 S1 " DELETED DELETED "L1 S1 Terminate"},
    };
    expectEach(
        table,
        [this] {
            client.objects["/lumoorc//a"] = {.data = "data", .id = {7, 1}};
            client.objects["/lumoorc//c"] = {.data = "data", .id = {7, 3}};
        },
        [this](const Situation &) {
            std::string outcome = remove({"a", "b", "c"});
            EXPECT_EQ(7501U, errorCode());
            for (const auto &entry : client.objects)
                outcome += " " + entry.first.substr(10);
            return outcome;
        },
        false);
}

} // namespace
