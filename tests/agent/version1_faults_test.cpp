// The first version of the interface over the scripted client: what a fault of the storage client
// comes to, and which calls are made for it.
#include "tests/agent/version1.h"

using Version1FaultTest = Version1Test<ScriptedAgentTest>;
using Operations = std::vector<std::string>;

TEST_F(Version1FaultTest, TellsTheStorageCodeOfEveryFailure)
{
    enum Step { Open, Write, Close, OpenToRead, Read, CloseRead, Remove, Info };
    const struct {
        const char *operation;
        int rc, reason;
        Step step;
        const char *outcome;
        const char *lastEnd; // the last call that ends something
    } table[] = {
        {"hoxInit", 2101, 0, Open, "7011/2101", "hoxCleanUp"},
        {"hoxInit", -50, 0, Open, "", ""}, // and again, with success
        {"hoxRegisterFS", 2102, 0, Open, "7011/2102", "hoxCleanUp"},
        {"hoxBeginTxn", 2102, 0, Open, "7011/2102", "hoxCleanUp"},
        {"hoxBindMC", 2102, 0, Open, "7011/2102", "hoxCleanUp"},
        {"hoxSendObj", 2110, 0, Open, "7011/2110", "hoxCleanUp"},
        {"hoxSendData", 2103, 0, Write, "7043/2103", ""},
        {"hoxEndSendObj", 2103, 0, Close, "7023/2103", "hoxCleanUp"},
        {"hoxEndTxn", 2302, 2110, Close, "7023/2110", "hoxCleanUp"},
        {"hoxEndTxn", 2302, 0, Close, "7023/2302", "hoxCleanUp"},
        {"hoxUpdateFS", 2102, 0, Close, "", ""},
        {"hoxBeginGetData", 2111, 0, OpenToRead, "7011/2111", "hoxCleanUp"},
        {"hoxGetObj", 2105, 0, OpenToRead, "7011/2105", "hoxCleanUp"},
        {"hoxGetData", 2105, 0, Read, "7064/2105", ""},
        {"hoxEndGetObj", 2105, 0, CloseRead, "7023/2105", "hoxCleanUp"},
        {"hoxEndGetData", 2105, 0, CloseRead, "7023/2105", "hoxCleanUp"},
        {"hoxDeleteObj", 2111, 0, Remove, "7011/2111", ""},
        {"hoxEndTxn", 2302, 2113, Remove, "7011/2113", ""},
        {"hoxBeginQuery", 2102, 0, Info, "7011/2102", "hoxCleanUp"},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.operation) + " " + std::to_string(row.rc));
        client.objects.clear();
        begin();
        ASSERT_EQ("", store("kept", std::string(1024, 'k')));
        std::string block(1024, 'b');
        std::string outcome;
        const auto fault = [&](Step step) {
            if (step == row.step) {
                client.calls.clear();
                client.on(row.operation, 1, row.rc, row.reason);
            }
        };
        fault(row.step);
        switch (row.step) {
        case Open:
            outcome = open("new", SBT1_WRITE);
            break;
        case Write:
        case Close:
            ASSERT_EQ("", open("new", SBT1_WRITE));
            outcome = write(block);
            if (row.step == Close) {
                outcome += close();
            }
            break;
        case OpenToRead:
            outcome = open("kept", SBT1_READ);
            break;
        case Read:
        case CloseRead:
            ASSERT_EQ("", open("kept", SBT1_READ));
            outcome = row.step == Read ? read(block) : close();
            break;
        case Remove:
            outcome = remove("kept");
            break;
        case Info:
            outcome = info("kept") == nullptr ? told() : "found";
            break;
        }
        EXPECT_EQ(row.outcome, outcome);
        const Operations operations = client.operations();
        ASSERT_FALSE(operations.empty());
        if (*row.lastEnd != '\0') {
            EXPECT_EQ(row.lastEnd, operations.back()) << "the channel is released";
        }
        if (*row.outcome != '\0') {
            EXPECT_NE(std::string::npos,
                      errorLog().find("RBS" + std::string(row.outcome).substr(5)))
                << "the log tells";
        }
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
