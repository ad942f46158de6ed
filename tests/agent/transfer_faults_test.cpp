// What only a fault can bring about while a piece is sent or read: which calls the agent makes
// then, how it votes, and what it tells the database.

#include "tests/agent/agent_fixture.h"

#include <cstdlib>

using Operations = std::vector<std::string>;

static bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST_F(ScriptedAgentTest, SendsOnePieceInOneTransaction)
{
    openChannel();
    client.calls.clear();
    ASSERT_EQ("", backUp("piece", std::string(8192, 'x')));
    EXPECT_EQ((Operations{"hoxInitEx", "hoxQuerySessOptions", "hoxQuerySessInfo", "hoxBeginQuery",
                          "hoxGetNextQObj", "hoxEndQuery", "hoxRegisterFS", "hoxBindMC",
                          "hoxBeginTxn", "hoxSendObj", "hoxSendData", "hoxSendData",
                          "hoxEndSendObjEx", "hoxEndTxn", "hoxUpdateFS", "hoxTerminate"}),
              client.operations());
    EXPECT_EQ((Operations{"hoxRegisterFS fs=/lumoorc type=ORACLE info=KEEL for Oracle",
                          "hoxBindMC type=0 name=/lumoorc//piece",
                          "hoxSendObj type=2 name=/lumoorc//piece owner= estimate=0:52428800 "
                          "class=STANDARD info=stStream:255",
                          "hoxUpdateFS fs=/lumoorc type=ORACLE occupancy=0:8192 capacity=0:0 "
                          "protected=0 mask=200030"}),
              client.callsOf({"hoxRegisterFS", "hoxBindMC", "hoxSendObj", "hoxUpdateFS"}));
    EXPECT_EQ("hoxSendData bytes=4096", client.callsOf({"hoxSendData"})[0]);
}

TEST_F(ScriptedAgentTest, TellsWhyAPieceCouldNotBeSent)
{
    const struct {
        const char *operation;
        int nth, rc, reason;
        const char *outcome;
        std::vector<std::string> after; // the calls after the failing one, up to the end
        const char *text;
    } table[] = {
        // When the piece is opened. Closing what did not open makes the calls all the same.
        {"hoxGetNextQObj",
         1,
         2102,
         0,
         "sbtbackup 7503",
         {"hoxEndQuery", "hoxTerminate"},
         "RBS2102"},
        {"hoxBeginQuery", 1, 2102, 0, "sbtbackup 7503", {"hoxTerminate"}, "RBS2102"},
        {"hoxRegisterFS", 1, 2102, 0, "sbtbackup 7501", {}, "RBS2102"},
        {"hoxBeginTxn", 1, 2102, 0, "sbtbackup 7501", {}, "RBS2102"},
        {"hoxSendObj", 1, 2110, 0, "sbtbackup 7501", {"hoxEndTxn vote=1"}, "RBS2110"},
        // While data is sent.
        {"hoxSendData", 1, 2103, 0, "sbtwrite2 7501", {"hoxEndTxn vote=2"}, "RBS2103"},
        {"hoxSendData", 2, 2102, 0, "sbtwrite2 7501", {"hoxEndTxn vote=2"}, "RBS2102"},
        {"hoxSendData",
         2,
         157,
         0,
         "sbtwrite2 7501",
         {"hoxEndSendObj", "hoxEndTxn vote=1"},
         "RBS0157"},
        // When it is closed. Both calls are made, and the first failure counts.
        {"hoxEndSendObjEx",
         1,
         2103,
         0,
         "sbtclose2 7501",
         {"hoxEndTxn vote=1", "hoxTerminate"},
         "RBS2103"},
        {"hoxEndTxn", 1, 2302, 2110, "sbtclose2 7501", {"hoxTerminate"}, "RBS2110"},
        {"hoxEndTxn", 1, 2302, 0, "sbtclose2 7501", {"hoxTerminate"}, "RBS2302"},
        {"hoxEndTxn", 1, 2102, 9, "sbtclose2 7501", {"hoxTerminate"}, "RBS2102"},
        {"hoxUpdateFS", 1, 2102, 0, "sbtclose2 7501", {"hoxTerminate"}, "RBS2102"},
        // What is as good as success.
        {"hoxRegisterFS", 1, 2062, 0, "", {}, nullptr},
        {"hoxBeginQuery", 1, 124, 0, "", {}, nullptr},
    };
    openChannel();
    int number = 0;
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.operation) + " " + std::to_string(row.rc));
        client.calls.clear();
        client.on(row.operation, row.nth, row.rc, row.reason);
        const std::string piece = "piece" + std::to_string(++number);
        EXPECT_EQ(row.outcome, backUp(piece, std::string(8192, 'x')));
        if (!row.text) {
            EXPECT_EQ(1U, client.objects.count("/lumoorc//" + piece));
            continue;
        }
        EXPECT_TRUE(has(errorText(), row.text)) << errorText();
        EXPECT_TRUE(has(errorText(), "Server text")) << errorText();
        EXPECT_TRUE(has(errorLog(), row.text)) << "not in the error log";
        const Operations calls = client.callsOf({"hoxEnd", "hoxTerminate", row.operation});
        Operations after;
        int seen = 0;
        for (const std::string &call : calls) {
            if (seen >= row.nth)
                after.push_back(call.substr(0, call.find(" handle")));
            seen += call.compare(0, call.find(' '), row.operation) == 0;
        }
        EXPECT_EQ(row.after, after);

        const bool opened = !has(row.outcome, "sbtbackup");
        if (opened && has(row.outcome, "sbtwrite2")) {
            client.calls.clear();
            EXPECT_EQ("sbtwrite2 7501", write(std::string(4096, 'x')));
            EXPECT_EQ("", close()) << "the transaction ended with the failure";
            EXPECT_EQ(Operations{"hoxTerminate"}, client.operations());
        } else if (!opened) {
            close();
        }
        EXPECT_EQ(has(row.operation, "hoxUpdateFS") ? 1U : 0U,
                  client.objects.count("/lumoorc//" + piece));
        EXPECT_EQ("", backUp(piece + " again", std::string(4096, 'x'))) << "the channel lives on";
    }
}

TEST_F(ScriptedAgentTest, AbortsOnRequestWithoutAFilespaceUpdate)
{
    openChannel();
    ASSERT_EQ("", open("piece"));
    ASSERT_EQ("", write(std::string(4096, 'x')));
    client.calls.clear();
    EXPECT_EQ("", close(SBT_CLOSE_ABORT));
    EXPECT_EQ((Operations{"hoxEndTxn vote=2"}), client.callsOf({"hoxEnd", "hoxUpdateFS"}));
    EXPECT_TRUE(has(errorText(), "RBS2112E")) << errorText();
    EXPECT_TRUE(client.objects.empty());
}

TEST_F(ScriptedAgentTest, EstimatesTheSizeOfAPiece)
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

TEST_F(ScriptedAgentTest, SendsTheClassOfACopyOnlyWhenTheServerKnowsIt)
{
    installation.configureAgent({"VELO_MGMT_CLASS_2 SILVER", "VELO_MGMT_CLASS_4 GOLD"});
    client.boundClass = "BOUND";
    openChannel();
    ASSERT_EQ("", backUp("one", "data", {.blockSize = 4, .copyNumber = 1}));
    EXPECT_TRUE(client.callsOf({"hoxBeginQuery type=4"}).empty());
    ASSERT_EQ("", backUp("two", "data", {.blockSize = 4, .copyNumber = 2}));
    EXPECT_EQ(Operations{"hoxBeginQuery type=4 class=SILVER detail=1"},
              client.callsOf({"hoxBeginQuery type=4"}));
    EXPECT_EQ("BOUND", client.objects["/lumoorc//one"].className);
    EXPECT_EQ("SILVER", client.objects["/lumoorc//two"].className);

    client.on("hoxGetNextQObj", 2, HOX_RC_NO_MATCH); // the first finds no piece of that name
    client.calls.clear();
    EXPECT_EQ("sbtbackup 7501", open("four", {.copyNumber = 4}));
    EXPECT_EQ(2U, client.callsOf({"hoxEndQuery"}).size());
    EXPECT_TRUE(client.callsOf({"hoxBeginTxn"}).empty());
}

TEST_F(ScriptedAgentTest, GathersBlocksInTheTransferBufferWhenTestingAsksForIt)
{
    const struct {
        const char *flag;
        int blocks;
        Operations sends;
    } table[] = {
        {"TEST_BUFFERORACLEDATA=4", 4, {"hoxSendData bytes=400"}},
        {"TEST_BUFFERORACLEDATA=4", 2, {"hoxSendData bytes=200"}},
        {"TEST_BUFFERORACLEDATA=2",
         5,
         {"hoxSendData bytes=200", "hoxSendData bytes=200", "hoxSendData bytes=100"}},
        {"TEST_BUFFERORACLEDATA", 2, {"hoxSendData bytes=100", "hoxSendData bytes=100"}},
        {"TEST_BUFFERORACLEDATA=4", 0, {}},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.flag) + " " + std::to_string(row.blocks));
        client.calls.clear();
        client.objects.clear();
        installation.configureAgent({std::string("VELO_TEST_FLAGS ") + row.flag});
        openChannel();
        const std::string data =
            keel::test::randomBytes(static_cast<std::size_t>(row.blocks) * 100, 3);
        EXPECT_EQ("", backUp("piece", data, {.blockSize = 100}));
        EXPECT_EQ(row.sends, client.callsOf({"hoxSendData"}));
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

TEST_F(ScriptedAgentTest, CopiesTheStreamWhenTestingAsksForIt)
{
    installation.configureAgent({"VELO_TEST_FLAGS TEST_ORACLEDATA TEST_ORACLEDELAY=0"});
    openChannel();
    ASSERT_EQ("", backUp("piece", "12345678", {.blockSize = 4}));
    EXPECT_EQ("12345678", contents("piece.SEND"));
    std::string data;
    ASSERT_EQ("", restore("piece", data, 6));
    EXPECT_EQ("12345678", contents("piece.GET").substr(0, 8));
    EXPECT_EQ(12U, contents("piece.GET").size());
    EXPECT_EQ("", backUp("no/such/place", "1234", {.blockSize = 4}));
}

TEST_F(ScriptedAgentTest, AsksTheDatabaseForItsSize)
{
    const auto program = installation.directory() / "bin" / "sqlplus";
    std::filesystem::create_directories(program.parent_path());
    const std::string head = "#!/bin/sh\necho run >>runs\nread -r line && echo input >>runs\n";
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
    setenv("ORACLE_HOME", installation.directory().c_str(), 1);
    for (const auto &row : table) {
        SCOPED_TRACE(row.script);
        keel::test::writeFile(program, head + row.script + "\n");
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
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
}

TEST_F(ScriptedAgentTest, TellsWhyAPieceCouldNotBeRead)
{
    client.objects["/lumoorc//piece"] = {.data = std::string(8192, 'x'), .id = {7, 9}};
    const struct {
        const char *operation;
        int nth, rc;
        const char *outcome, *text;
    } table[] = {{"hoxBeginQuery", 1, 124, "sbtrestore 7502", "RBS0124"},
                 {"hoxBeginQuery", 1, 2102, "sbtrestore 7502", "RBS2102"},
                 {"hoxGetNextQObj", 1, 2, "sbtrestore 7502", "RBS0002"},
                 {"hoxGetNextQObj", 2, 2102, "sbtrestore 7502", "RBS2102"},
                 {"hoxBeginGetData", 1, 2111, "sbtrestore 7501", "RBS2111"},
                 {"hoxGetObj", 1, 121, "sbtrestore 7501", "RBS0121"},
                 {"hoxGetObj", 1, 2105, "sbtrestore 7501", "RBS2105"},
                 {"hoxGetData", 1, 2105, "sbtread2 7501", "RBS2105"},
                 {"hoxGetData", 2, 2105, "sbtread2 7501", "RBS2105"},
                 {"hoxEndGetObj", 1, 2105, "", "RBS2105"},
                 {"hoxEndGetData", 1, 2106, "sbtclose2 7501", "RBS2106"}};
    openChannel(0);
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.operation) + " " + std::to_string(row.rc));
        client.calls.clear();
        client.on(row.operation, row.nth, row.rc);
        std::string data;
        EXPECT_EQ(row.outcome, restore("piece", data));
        EXPECT_TRUE(has(errorText(), row.text)) << errorText();
        EXPECT_TRUE(has(errorLog(), row.text));
        if (has(row.outcome, "sbtrestore") || has(row.outcome, "sbtread2")) {
            EXPECT_EQ("", close());
        }
        EXPECT_EQ(1U, client.callsOf({"hoxTerminate"}).size()) << "the session is left behind";
        EXPECT_EQ("", restore("piece", data)) << "the channel lives on";
        EXPECT_EQ(8192U, data.size());
    }
    EXPECT_EQ(4U, client.callsOf({"hoxGetData"}).size()) << "nothing is read past the end";
    EXPECT_EQ("hoxGetObj id=7:9", client.callsOf({"hoxGetObj"})[0]);
    EXPECT_EQ("hoxBeginGetData wait=1 type=0 count=1", client.callsOf({"hoxBeginGetData"})[0]);
}
