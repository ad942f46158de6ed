// Pieces go to a real repository and come back: what the database relies on, call by call.

#include "tests/agent/agent_fixture.h"

#include <unistd.h>

using keel::test::randomBytes;
using TransferTest = RealAgentTest;

TEST_F(TransferTest, GivesBackEveryBlockAndThenTheEndOfTheFile)
{
    openChannel();
    const struct {
        std::size_t blocks;
        unsigned long written, read; // bytes a block
    } table[] = {{0, 4096, 4096}, {1, 4096, 4096},     {3, 4096, 4096}, {5, 262144, 262144},
                 {7, 1, 1},       {2, 100003, 100003}, {3, 1000, 2048}, {2, 4096, 512}};
    for (const auto &row : table) {
        const std::string piece = "piece " + std::to_string(row.blocks) + "." +
                                  std::to_string(row.written) + "." + std::to_string(row.read);
        SCOPED_TRACE(piece);
        const std::string sent = randomBytes(row.blocks * row.written, row.blocks);
        ASSERT_EQ("", backUp(piece, sent, {.blockSize = row.written})) << errorText();
        ASSERT_EQ("", openRestore(piece, row.read)) << errorText();
        std::string block, received;
        while (received.size() < sent.size()) { // the last block is a whole one, or what is left
            ASSERT_EQ("", read(block)) << "after " << received.size();
            received += block;
        }
        EXPECT_EQ("sbtread2 7504", read(block));
        EXPECT_EQ("sbtread2 7504", read(block));
        EXPECT_EQ("", close());
        EXPECT_TRUE(received.substr(0, sent.size()) == sent);
    }
}

TEST_F(TransferTest, KeepsEveryNameToTheByte)
{
    openChannel();
    EXPECT_EQ("9999", info({}));
    EXPECT_EQ("", remove({}));
    const std::string names[] = {"a b",
                                 " a b",
                                 "a b ",
                                 "%s%n%d%100s",
                                 "../../../etc/passwd",
                                 "..",
                                 "/",
                                 "a//b/",
                                 "a/b/",
                                 "\x01\t\n\x7f",
                                 "Gr\xc3\xbc\xc3\x9f"
                                 "e",
                                 "*",
                                 "?",
                                 "\xff\xfe",
                                 "\"quoted\" 'name'",
                                 "p",
                                 "P",
                                 std::string(255, 'x'),
                                 std::string(254, 'x')};
    for (const std::string &name : names) // all before the first is read: none may hide another
        ASSERT_EQ("", backUp(name, name, {.blockSize = name.size()})) << name << errorText();
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        std::string data;
        EXPECT_EQ(0U, info({name}).find("1=" + name + " 2=1 "));
        EXPECT_EQ("", restore(name, data, name.size()));
        EXPECT_EQ(name, data);
        EXPECT_EQ("", remove({name}));
        EXPECT_EQ("1=" + name + " 8 9999", info({name}));
    }
}

TEST_F(TransferTest, RefusesNamesAndSizesThatDoNotFitAndLosesNothing)
{
    openChannel();
    ASSERT_EQ("", backUp(std::string(255, 'x'), "kept", {.blockSize = 4}));
    for (const std::size_t length : {std::size_t{256}, std::size_t{5000}}) {
        const std::string name(length, 'x');
        EXPECT_EQ("sbtbackup 7501", open(name));
        EXPECT_NE(std::string::npos, errorText().find("RBQ")) << errorText();
        EXPECT_EQ("sbtrestore 7502", openRestore(name));
        const std::string answer = info({name, "other"});
        EXPECT_EQ("8 1=other 8 9999", answer.substr(answer.find(' ') + 1));
        EXPECT_EQ("", remove({name}));
    }
    for (const unsigned long size : {0UL, 1UL << 32})
        EXPECT_EQ("sbtbackup 7501", open("sized", {.blockSize = size})) << size;
    EXPECT_EQ(-1, agent.sbtbackup(ctx, 0, nullptr, nullptr, 4096, 0, 1, 0));
    EXPECT_EQ(7501U, errorCode());
    EXPECT_EQ(-1, agent.sbtrestore(ctx, 0, nullptr, 4096));
    EXPECT_EQ(7502U, errorCode());
    std::string data;
    EXPECT_EQ("", restore(std::string(255, 'x'), data, 4));
    EXPECT_EQ("kept", data);
}

TEST_F(TransferTest, RejectsCallsInTheWrongStateAndGoesOn)
{
    openChannel();
    ASSERT_EQ("", backUp("first", "12345678", {.blockSize = 4}));
    const auto rejectsEverythingElse = [&](const char *state) {
        SCOPED_TRACE(state);
        const unsigned long size = blockSize;
        EXPECT_EQ("sbtbackup 7501", open("other", {.blockSize = 16, .copyNumber = 3}));
        EXPECT_NE(std::string::npos, errorText().find("RBQ2614E")) << errorText();
        EXPECT_EQ("sbtrestore 7501", openRestore("other", 16));
        EXPECT_EQ("sbtinfo2 7501", info({"first"}));
        EXPECT_EQ("sbtremove2 7501", remove({"first"}));
        EXPECT_EQ(-1, agent.sbtremove2(ctx, 0, nullptr));
        EXPECT_EQ(-1, agent.sbtinfo2(ctx, 0, nullptr, nullptr));
        blockSize = size;
    };
    std::string block(4, ' ');
    ASSERT_EQ("", open("second", {.blockSize = 4}));
    ASSERT_EQ("", write("abcd"));
    rejectsEverythingElse("while a backup is open");
    EXPECT_EQ("sbtread2 7501", read(block));
    ASSERT_EQ("", write("efgh"));
    EXPECT_EQ("", close());

    ASSERT_EQ("", openRestore("first", 4));
    ASSERT_EQ("", read(block));
    rejectsEverythingElse("while a restore is open");
    ASSERT_EQ("", read(block));
    EXPECT_EQ("5678", block);
    rejectsEverythingElse("at the end of the file");
    EXPECT_EQ("sbtread2 7504", read(block));
    EXPECT_EQ("", close());

    EXPECT_EQ("sbtwrite2 7501", write("late"));
    EXPECT_EQ("sbtread2 7501", read(block));
    EXPECT_EQ("", close()); // idle: accepted, and reported for whoever asks
    EXPECT_EQ(7501U, errorCode());
    EXPECT_NE(std::string::npos, errorText().find("RBQ2614E")) << errorText();
    std::string data;
    EXPECT_EQ("", restore("second", data, 4));
    EXPECT_EQ("abcdefgh", data);
}

TEST_F(TransferTest, LeavesTheProcessHealthyWhenItGoes)
{
    for (int round = 0; round < 2; ++round) {
        AgentLibrary guest(keel::test::agentLibrary());
        sbtInitError error;
        sbtPair *out = nullptr;
        ASSERT_EQ(0, guest.sbtinit(&error, nullptr, &out)) << error.secondary;
        memory.assign(1048576, '\0');
        ASSERT_EQ(0, guest.sbtinit2(memory.data(), 0, nullptr));
        ASSERT_EQ(0, guest.sbtbackup(memory.data(), 0, "piece", nullptr, 4, 0, 1, 0) +
                         guest.sbtend(memory.data(), 0));
    }
    std::size_t length = 0;
    for (char **variable = environ; *variable; ++variable)
        length += std::string(*variable).size(); // none may point into what was unloaded
    EXPECT_GT(length, 0U);
    EXPECT_EQ(0, keel::test::run({"true"}).status);
}
