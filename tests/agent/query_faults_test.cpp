// sbtinfo2 and sbtremove2 over answers that only a script brings about.

#include "tests/agent/agent_fixture.h"

#include <ctime>

using Operations = std::vector<std::string>;

static ScriptedObject object(std::uint32_t id)
{
    return {.data = "data", .id = {7, id}};
}

TEST_F(ScriptedAgentTest, DescribesWhatTheServerKnowsOfAPiece)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0", 1);
    tzset();
    const struct {
        std::uint8_t mediaClass;
        std::uint32_t restoreOrder;
        const char *className, *info;
        hoxDate inserted, expires;
        const char *answer;
    } table[] = {
        {16,
         0,
         "STANDARD",
         "stStream",
         {2026, 7, 1, 12, 30, 15, 0},
         {},
         "2=1 6=2 7=2 3=1782901815 4=0 5=0 9=STANDARD"},
        {7,
         4711,
         "",
         "other",
         {1960, 1, 1, 0, 0, 0, 0},
         {2027, 7, 1, 12, 30, 15, 0},
         "2=2 6=1 7=1 3=0 4=1814437815 5=4711"},
        // In winter too the daylight flag is set, and nothing longer than its room gets in.
        {16,
         0xffffffff,
         "A23456789012345678901234567890",
         "stStreams",
         {2026, 1, 15, 12, 0, 0, 0},
         {},
         "2=2 6=2 7=2 3=1768471200 4=0 5=-1 9=A2345678901234567890123456789"},
    };
    openChannel();
    for (const auto &row : table) {
        ScriptedObject one = object(1);
        one.mediaClass = row.mediaClass;
        one.restoreOrder = row.restoreOrder;
        one.className = row.className;
        one.info = row.info;
        one.inserted = row.inserted;
        one.expires = row.expires;
        client.objects = {{"/lumoorc//p", one}, {"/lumoorc//q", object(2)}};
        const std::string answer = info({"p", "gone", "q", "p"});
        const std::string expected = std::string("1=p ") + row.answer;
        EXPECT_EQ(expected + " 1=gone 8 1=q 2=1 ", answer.substr(0, expected.size() + 18));
        EXPECT_EQ(expected + " 9999", answer.substr(answer.rfind("1=p ")));
    }
    unsetenv("TZ");
    tzset();
}

TEST_F(ScriptedAgentTest, HandsOutWhatItKnowsWhenAQueryFails)
{
    client.objects = {{"/lumoorc//p", object(1)}};
    openChannel();
    const struct {
        const char *operation;
        int nth, rc;
        const char *begun; // the first item, when the array was begun
    } table[] = {{"hoxInitEx", 1, 137, nullptr},
                 {"hoxBeginQuery", 1, 124, ""},
                 {"hoxBeginQuery", 2, 2102, "p"},
                 {"hoxGetNextQObj", 3, 2102, "p"}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.operation);
        client.calls.clear();
        client.on(row.operation, row.nth, row.rc);
        char first[] = "p", second[] = "q";
        char *names[] = {first, second, nullptr};
        sbtPair *items = nullptr;
        EXPECT_EQ(-1, agent.sbtinfo2(ctx, 0, names, &items));
        EXPECT_EQ(7501U, errorCode());
        EXPECT_NE(std::string::npos,
                  errorText().find("Server text of code " + std::to_string(row.rc)));
        EXPECT_EQ(row.begun != nullptr, items != nullptr);
        if (row.begun && *row.begun) {
            EXPECT_STREQ(row.begun, static_cast<char *>(items->value));
        }
        EXPECT_EQ(row.begun ? 1U : 0U, client.callsOf({"hoxTerminate"}).size());
        EXPECT_EQ("1=p 2=1", info({"p"}).substr(0, 7)) << "the channel lives on";
    }
}

TEST_F(ScriptedAgentTest, RemovesWhatItFindsAndTellsTheRest)
{
    const struct {
        const char *operation;
        int nth, rc, reason;
        const char *outcome;
        Operations deleted, left;
        unsigned terminated;
        const char *text;
    } table[] = {
        {"", 0, 0, 0, "", {"a", "c"}, {}, 1, "Server text of code 2."},
        // No deletion before every name was looked up.
        {"hoxGetNextQObj", 4, 2102, 0, "sbtremove2 7501", {}, {"a", "c"}, 1, "RBS2102E Server"},
        {"hoxBeginQuery", 3, 2102, 0, "sbtremove2 7501", {}, {"a", "c"}, 0, "RBS2102E Server"},
        // A deletion that fails in a transaction that ends well is told, and the next one tried.
        {"hoxDeleteObj", 1, 2107, 0, "", {"a", "c"}, {"a"}, 1, "RBS2107E Server"},
        // A transaction that fails ends the removal.
        {"hoxBeginTxn", 1, 2104, 0, "sbtremove2 7501", {}, {"a", "c"}, 1, "RBS2104E Server"},
        {"hoxEndTxn", 1, 2302, 2113, "sbtremove2 7501", {"a"}, {"c"}, 1, "RBS2113E Server"},
        {"hoxEndTxn", 1, 0, 2113, "", {"a", "c"}, {}, 1, "Server text of code 0."},
        {"hoxEndTxn", 2, 2102, 0, "sbtremove2 7501", {"a", "c"}, {}, 1, "RBS2102E Server"},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.operation) + " " + std::to_string(row.nth));
        client.objects = {{"/lumoorc//a", object(1)}, {"/lumoorc//c", object(3)}};
        openChannel();
        client.calls.clear();
        client.on(row.operation, row.nth, row.rc, row.reason);
        EXPECT_EQ(row.outcome, remove({"a", "b", "c"}));
        EXPECT_EQ(7501U, errorCode());
        EXPECT_NE(std::string::npos, errorText().find(row.text)) << errorText();
        Operations deleted, left;
        for (const std::string &call : client.callsOf({"hoxDeleteObj"}))
            deleted.push_back(call.substr(call.find("//") + 2));
        for (const auto &entry : client.objects)
            left.push_back(entry.first.substr(entry.first.find("//") + 2));
        EXPECT_EQ(row.deleted, deleted);
        EXPECT_EQ(row.left, left);
        EXPECT_EQ(row.terminated, client.callsOf({"hoxTerminate"}).size());
        EXPECT_EQ("", backUp("new", "data", {.blockSize = 4})) << "the channel lives on";
        endChannel();
    }
}
