// Pieces go to a real repository and come back: what the database relies on, call by call.

#include "tests/agent/agent_fixture.h"

#include <ctime>
#include <sys/resource.h>
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

TEST_F(TransferTest, RefusesNamesThatDoNotFitAndLosesNothing)
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
    EXPECT_EQ(-1, agent.sbtbackup(ctx, 0, nullptr, nullptr, 4096, 0, 1, 0));
    EXPECT_EQ(7501U, errorCode());
    EXPECT_EQ(-1, agent.sbtrestore(ctx, 0, nullptr, 4096));
    EXPECT_EQ(7502U, errorCode());
    std::string data;
    EXPECT_EQ("", restore(std::string(255, 'x'), data, 4));
    EXPECT_EQ("kept", data);
}

TEST_F(TransferTest, TellsWhyAPieceCannotBeOpened)
{
    openChannel(0);
    ASSERT_EQ("", backUp("there", "old!", {.blockSize = 4}));
    EXPECT_EQ("sbtbackup 7503", backUp("there", "new!", {.blockSize = 4}));
    EXPECT_NE(std::string::npos, errorText().find("RBQ2503E")) << errorText();
    EXPECT_NE(std::string::npos, errorLog().find("/lumoorc//there"));
    EXPECT_EQ("sbtrestore 7502", openRestore("missing"));
    EXPECT_NE(std::string::npos, trace().find("Exit File Not Found"));
    close();
    for (const unsigned long size : {0UL, 1UL << 32})
        EXPECT_EQ("sbtbackup 7501", open("sized", {.blockSize = size})) << size;
    std::string data;
    EXPECT_EQ("", restore("there", data, 4));
    EXPECT_EQ("old!", data);
}

TEST_F(TransferTest, StoresNothingOfWhatWasNotClosed)
{
    openChannel();
    ASSERT_EQ("", open("given up", {.blockSize = 4}));
    ASSERT_EQ("", write("data"));
    EXPECT_EQ("", close(SBT_CLOSE_ABORT));
    ASSERT_EQ("", open("ended", {.blockSize = 4}));
    ASSERT_EQ("", write("data"));
    endChannel();
    openChannel();
    EXPECT_EQ("1=given up 8 1=ended 8 9999", info({"given up", "ended"}));
    EXPECT_EQ("", backUp("given up", "done", {.blockSize = 4}));
    EXPECT_EQ("", backUp("ended", "done", {.blockSize = 4}));
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

TEST_F(TransferTest, BindsEachCopyToItsClass)
{
    installation.configureAgent({"VELO_MGMT_CLASS_2 STANDARD", "VELO_MGMT_CLASS_4 GOLD"});
    openChannel();
    const struct {
        unsigned long copy;
        const char *outcome, *message;
    } table[] = {{0, "", ""},
                 {1, "", ""},
                 {2, "", ""},
                 {3, "sbtbackup 7501", "RBS2025"},
                 {4, "sbtbackup 7501", "RBS"},
                 {5, "sbtbackup 7501", "RBQ2511"}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.copy);
        const std::string piece = "copy" + std::to_string(row.copy);
        EXPECT_EQ(row.outcome, backUp(piece, "data", {.blockSize = 4, .copyNumber = row.copy}));
        EXPECT_NE(std::string::npos, errorLog().find(row.message)) << errorLog();
        if (*row.outcome)
            close();
        const std::string answer = info({piece});
        EXPECT_EQ(*row.outcome == '\0', answer.find(" 9=STANDARD 9999") != std::string::npos)
            << answer;
    }
}

TEST_F(TransferTest, DescribesAndRemovesByName)
{
    openChannel();
    EXPECT_EQ("9999", info({}));
    EXPECT_EQ("", remove({}));
    ASSERT_EQ("", backUp("one", "data", {.blockSize = 4}));
    ASSERT_EQ("", backUp("three", "data", {.blockSize = 4}));
    std::string answer = info({"one", "two", "three"});
    EXPECT_EQ(0U, answer.find("1=one 2=1 6=2 7=2 3="));
    EXPECT_NE(std::string::npos, answer.find(" 4=0 5=")) << answer;
    EXPECT_NE(std::string::npos, answer.find(" 9=STANDARD 1=two 8 1=three 2=1 ")) << answer;
    const long created = std::stol(answer.substr(answer.find(" 3=") + 3));
    EXPECT_NEAR(static_cast<double>(std::time(nullptr)), static_cast<double>(created), 7200);

    EXPECT_EQ("", remove({"one", "two", "three"})); // what is not there is no failure of the call
    EXPECT_EQ(7501U, errorCode());
    EXPECT_EQ("1=one 8 1=two 8 1=three 8 9999", info({"one", "two", "three"}));
    EXPECT_EQ("", backUp("one", "more", {.blockSize = 4}));
}

TEST_F(TransferTest, StoresAndRemovesUnderANameWhosePieceIsDamaged)
{
    openChannel();
    for (const bool stored : {true, false}) {
        SCOPED_TRACE(stored);
        ASSERT_EQ("", backUp("bad", "data", {.blockSize = 4}));
        keel::test::damageFiles(installation.repository() / "pieces");
        std::string data;
        EXPECT_NE("", restore("bad", data, 4));
        close();
        if (stored) {
            EXPECT_EQ("", backUp("bad", "more", {.blockSize = 4}));
            EXPECT_EQ("", restore("bad", data, 4));
            EXPECT_EQ("more", data);
        }
        EXPECT_EQ("", remove({"bad"}));
        EXPECT_EQ("1=bad 8 9999", info({"bad"}));
    }
}

TEST_F(TransferTest, TellsWhatIsWrongWithTheRepository)
{
    openChannel();
    ASSERT_EQ("", backUp("kept", "data", {.blockSize = 4}));
    endChannel();
    const std::string place = installation.repository().string();
    const std::string good = contents("arca.opt");
    const struct {
        std::string clientOptions;
        std::vector<std::string> agentOptions;
        const char *info; // of a piece that is there under the good options
        std::string told;
    } table[] = {
        {"REPOSITORY file://" + place + ".gone\nNODENAME testnode\n",
         {},
         "sbtinfo2 7501",
         place + ".gone"},
        {"REPOSITORY file://" + place + "\nNODENAME stranger\nPASSWORDACCESS generate\n",
         {},
         "sbtinfo2 7501",
         "stranger"},
        {good, {"VELO_FS misspelt"}, "sbtinfo2 7501", "misspelt"},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.told);
        keel::test::writeFile("arca.opt", row.clientOptions);
        installation.configureAgent(row.agentOptions);
        openChannel();
        EXPECT_EQ(row.info, info({"kept"}));
        EXPECT_NE(std::string::npos, errorText().find("RBS")) << errorText();
        EXPECT_NE(std::string::npos, errorLog().find(row.told)) << errorLog();
        EXPECT_EQ("sbtremove2 7501", remove({"kept"}));
        EXPECT_EQ("sbtrestore", openRestore("kept").substr(0, 10));
        endChannel();
    }
    EXPECT_FALSE(std::filesystem::exists(place + ".gone")) << "made without being asked for";
    keel::test::writeFile("arca.opt", good);
    installation.configureAgent({});
    openChannel();
    std::string data;
    EXPECT_EQ("", restore("kept", data, 4));
}

TEST_F(TransferTest, SurvivesAFileSystemThatTakesNoMore)
{
    openChannel();
    rlimit unlimited{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &unlimited));
    const rlimit limited{1U << 20, unlimited.rlim_max};
    const std::string data = randomBytes(8U << 20, 5);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limited));
    const std::string failure = backUp("big", data, {.blockSize = 1U << 18});
    EXPECT_TRUE(failure == "sbtwrite2 7501" || failure == "sbtclose2 7501") << failure;
    EXPECT_EQ(0U, errorText().find("RBS")) << errorText();
    close();
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &unlimited));
    EXPECT_EQ("1=big 8 9999", info({"big"}));
    ASSERT_EQ("", backUp("big", data, {.blockSize = 1U << 18}));
    std::string back;
    EXPECT_EQ("", restore("big", back, 1U << 18));
    EXPECT_TRUE(back == data);
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
