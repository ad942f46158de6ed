// Sessions through the exported operations: what goes in comes back, and a transaction that met a
// failure stores nothing whatever the vote.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <cstring>
#include <thread>

namespace keel::test
{

namespace
{

using SessionTest = ClientTest;

using Codes = std::vector<int>;

TEST_F(SessionTest, StreamsOfAnyLengthComeBackExactly)
{
    const hoxHandle_t handle = logOn();
    constexpr std::size_t kBuffer = 4096;
    const struct {
        std::size_t length;
        Codes reads; ///< empty: not looked at
    } cases[] = {
        {0, {HOX_RC_FINISHED}},
        {1, {HOX_RC_FINISHED}},
        {kBuffer - 1, {HOX_RC_FINISHED}},
        {kBuffer, {HOX_RC_FINISHED}},
        {kBuffer + 1, {HOX_RC_MORE_DATA, HOX_RC_FINISHED}},
        {3 * kBuffer, {HOX_RC_MORE_DATA, HOX_RC_MORE_DATA, HOX_RC_FINISHED}},
        {(1 << 20) - 1, {}},
        {1 << 20, {}},
        {(1 << 20) + 1, {}},
        {(5 << 20) + 12345, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.length);
        const std::string piece = "p" + std::to_string(c.length);
        const std::string stream = randomBytes(c.length, c.length);
        ASSERT_EQ(backUp(handle, piece, stream), HOX_RC_OK);
        Codes reads;
        const auto back = restore(handle, piece, kBuffer, &reads);
        ASSERT_TRUE(back);
        EXPECT_TRUE(*back == stream);
        if (!c.reads.empty()) {
            EXPECT_EQ(reads, c.reads);
        }
    }
}

TEST_F(SessionTest, AnswersDescribeThePiece)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "p", std::string(70000, 'x')), HOX_RC_OK);
    qryRespBackupData found{};
    EXPECT_EQ(query(handle, "p", &found), (Codes{HOX_RC_OK, HOX_RC_MORE_DATA, HOX_RC_FINISHED}));
    EXPECT_STREQ(found.objName.fsName, "/fs");
    EXPECT_STREQ(found.objName.llName, "/p");
    EXPECT_STREQ(found.mcName, "STANDARD");
    EXPECT_STREQ(found.owner, "oracle");
    EXPECT_EQ(found.objInfoLength, HOX_MAX_OBJ_INFO);
    EXPECT_EQ(std::string(found.objInfo, 9), std::string("stStream\0", 9));
    EXPECT_EQ(found.mediaClass, HOX_MEDIA_FIXED);
    EXPECT_EQ(found.size.lo, 70000U);
    EXPECT_GT(found.storedSize.lo, 0U);
    EXPECT_LT(found.storedSize.lo, 7000U);
    EXPECT_EQ(found.objCompressed, 1);
    EXPECT_EQ(found.objDeduplicated, 1);
    EXPECT_EQ(found.encryptionType, HOX_ENCRYPT_AES_256BIT);
    EXPECT_EQ(found.expDate.year, 0);

    const Codes none{HOX_RC_OK, HOX_RC_NO_MATCH};
    EXPECT_EQ(query(handle, "p", nullptr, "oracle").size(), 3U);
    EXPECT_EQ(query(handle, "p", nullptr, "somebody"), none);
    EXPECT_EQ(query(handle, "p", nullptr, nullptr, HOX_STATE_INACTIVE), none);

    hoxObjName elsewhere = nameOf("p");
    std::strcpy(elsewhere.fsName, "/misspelt");
    const qryBackupData asked{HOX_QRY_BACKUP_VERSION, &elsewhere, nullptr, HOX_STATE_ACTIVE};
    EXPECT_EQ(api_.hoxBeginQuery(handle, HOX_QUERY_BACKUP, &asked), HOX_RC_FS_UNKNOWN);
    EXPECT_NE(text(HOX_RC_FS_UNKNOWN).find("/misspelt"), std::string::npos);
}

TEST_F(SessionTest, ATransactionThatMetAFailureStoresNothingWhateverTheVote)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "old", "old"), HOX_RC_OK);
    DataBlk broken{HOX_DATABLK_VERSION, 10, 0, nullptr};
    const struct {
        const char *what;
        std::function<void()> steps;
        int reason;
    } cases[] = {
        {"the object is not ended", [&] { EXPECT_EQ(send(handle, "p", "x"), HOX_RC_OK); },
         HOX_RC_STEP_FAILED},
        {"the name is taken", [&] { EXPECT_EQ(send(handle, "old", "x"), HOX_RC_OBJECT_EXISTS); },
         HOX_RC_OBJECT_EXISTS},
        {"a block is refused",
         [&] {
             EXPECT_EQ(send(handle, "p", "x"), HOX_RC_OK);
             EXPECT_EQ(api_.hoxSendData(handle, &broken), HOX_RC_NULL_ARGUMENT);
             std::string more = "more";
             DataBlk good{HOX_DATABLK_VERSION, 4, 0, more.data()};
             EXPECT_EQ(api_.hoxSendData(handle, &good), HOX_RC_WILL_ABORT);
             EXPECT_EQ(api_.hoxEndSendObj(handle), HOX_RC_WILL_ABORT);
         },
         HOX_RC_NULL_ARGUMENT},
        {"there is nothing to delete",
         [&] {
             hoxDelInfo info{};
             info.backID = {HOX_DELBACK_VERSION, {1, 2}};
             EXPECT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
             EXPECT_EQ(api_.hoxDeleteObj(handle, HOX_DELETE_BACKUP_ID, &info),
                       HOX_RC_OBJECT_UNKNOWN);
         },
         HOX_RC_OBJECT_UNKNOWN},
    };
    for (const auto &c : cases) {
        for (const auto vote : {HOX_VOTE_COMMIT, HOX_VOTE_ABORT}) {
            SCOPED_TRACE(c.what);
            c.steps();
            EXPECT_EQ(endTransaction(handle, static_cast<std::uint8_t>(vote)),
                      vote == HOX_VOTE_COMMIT ? c.reason : HOX_RC_ABORTED);
            EXPECT_EQ(query(handle, "p"), (Codes{HOX_RC_OK, HOX_RC_NO_MATCH}));
        }
    }
    EXPECT_EQ(stored("pieces").size(), 1U);
    EXPECT_EQ(restore(handle, "old"), "old");
    EXPECT_EQ(backUp(handle, "p", "after all"), HOX_RC_OK) << "the session goes on";
}

TEST_F(SessionTest, WhatOneChannelReadsAnotherMayDelete)
{
    const hoxHandle_t reader = logOn();
    const std::string stream = randomBytes(3 << 20, 1);
    ASSERT_EQ(backUp(reader, "p", stream), HOX_RC_OK);
    const hox64_t id = recordOf(reader, "p").objId;
    ASSERT_EQ(beginGet(reader, id), HOX_RC_OK);
    ASSERT_EQ(api_.hoxGetObj(reader, &id, nullptr), HOX_RC_MORE_DATA);

    const hoxHandle_t other = logOn();
    EXPECT_EQ(remove(other, "p"), HOX_RC_OK);
    EXPECT_EQ(query(other, "p"), (Codes{HOX_RC_OK, HOX_RC_NO_MATCH}));
    EXPECT_EQ(remove(other, "p"), HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(backUp(other, "p", "new"), HOX_RC_OK);

    std::string buffer(4 << 20, '\0');
    DataBlk data = blockOf(buffer);
    EXPECT_EQ(api_.hoxGetData(reader, &data), HOX_RC_FINISHED);
    EXPECT_TRUE(buffer.substr(0, data.numBytes) == stream);
    EXPECT_EQ(api_.hoxEndGetObj(reader), HOX_RC_OK);
    hoxEndGetDataExIn_t input{HOX_ENDGETEX_VERSION};
    hoxEndGetDataExOut_t output{};
    EXPECT_EQ(api_.hoxEndGetDataEx(reader, &input, &output), HOX_RC_OK);
    EXPECT_EQ(output.totalBytesReceived.lo, stream.size());
}

TEST_F(SessionTest, ANodeSeesNothingOfAnother)
{
    const hoxHandle_t mine = logOn();
    ASSERT_EQ(backUp(mine, "p", "mine"), HOX_RC_OK);
    const hox64_t id = recordOf(mine, "p").objId;
    writeFile(installation_.clientOptions(), repositoryLine() + "NODENAME other\n");
    ASSERT_EQ(arca({"init"}).status, 0);
    ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);
    const hoxHandle_t other = logOn();
    EXPECT_EQ(query(other, "p"), (Codes{HOX_RC_OK, HOX_RC_NO_MATCH}));
    EXPECT_EQ(beginGet(other, id), HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(changeById(other, HOX_DELETE_BACKUP_ID, id), HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(backUp(other, "p", "other's"), HOX_RC_OK);
    hoxHandle_t again = 0;
    ASSERT_EQ(logOn(again, "testnode", nullptr, nullptr), HOX_RC_OK);
    EXPECT_EQ(restore(again, "p"), "mine");
}

TEST_F(SessionTest, DamageIsFoundBeforeABadByteIsDelivered)
{
    const hoxHandle_t handle = logOn();
    const std::string stream = randomBytes(3 << 20, 5);
    ASSERT_EQ(backUp(handle, "p", stream), HOX_RC_OK);
    const auto file = stored("pieces").front();
    flipByte(file, static_cast<std::ptrdiff_t>(file_size(file) / 2));

    const hox64_t id = recordOf(handle, "p").objId;
    ASSERT_EQ(beginGet(handle, id), HOX_RC_OK);
    ASSERT_EQ(api_.hoxGetObj(handle, &id, nullptr), HOX_RC_MORE_DATA);
    std::string delivered, buffer(256 << 10, '\0');
    int code = HOX_RC_MORE_DATA;
    while (code == HOX_RC_MORE_DATA) {
        DataBlk data = blockOf(buffer);
        code = api_.hoxGetData(handle, &data);
        delivered.append(buffer, 0, data.numBytes);
    }
    EXPECT_EQ(code, HOX_RC_REPOSITORY_DAMAGED);
    EXPECT_TRUE(stream.starts_with(delivered)) << "bytes were delivered that were never stored";
    EXPECT_NE(text(code).find("/fs//p"), std::string::npos);
}

TEST_F(SessionTest, EventsReachTheLogsTheyAreMeantFor)
{
    const hoxHandle_t handle = logOn();
    const auto log = [&](hoxHandle_t where, std::uint32_t type, std::uint32_t severity,
                         const char *message) {
        hoxLogEventExIn_t told = event(type, severity, message);
        std::strcpy(told.messageId, "RBQ0599");
        std::strcpy(told.appName, "KEEL Oracle SUN");
        hoxLogEventExOut_t output{};
        return api_.hoxLogEventEx(where, &told, &output);
    };
    const auto serverLog = [&] {
        // Without the texts, which are sealed for the node, and then these.
        std::string lines;
        for (const auto &file : stored("log"))
            lines += readFile(file);
        return lines + arca({"log"}).out;
    };
    const auto localLog = [&] { return readFile(installation_.errorLog()); };
    EXPECT_EQ(log(handle, HOX_LOG_SERVER, HOX_SEVERITY_SEVERE, "at once %s"), HOX_RC_OK);
    EXPECT_NE(serverLog().find("\tS\ttestnode\tKEEL Oracle SUN\tRBQ0599\tsealed:"),
              std::string::npos);
    EXPECT_NE(serverLog().find("  KEEL Oracle SUN  RBQ0599  at once %s\n"), std::string::npos);
    EXPECT_EQ(log(handle, HOX_LOG_BOTH, HOX_SEVERITY_INFO, "both\nlines"), HOX_RC_OK);
    EXPECT_EQ(log(handle, HOX_LOG_LOCAL, HOX_SEVERITY_ERROR, "here only"), HOX_RC_OK);
    EXPECT_EQ(log(0, HOX_LOG_SERVER, HOX_SEVERITY_ERROR, "no session"), HOX_RC_OK);
    EXPECT_EQ(log(handle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, ""), HOX_RC_OK);
    // What one log cannot take, the other one does.
    const auto aside = installation_.directory() / "aside";
    std::filesystem::rename(installation_.errorLog(), aside);
    std::filesystem::create_directory(installation_.errorLog());
    EXPECT_EQ(log(handle, HOX_LOG_BOTH, HOX_SEVERITY_ERROR, "there at least"),
              HOX_RC_LOG_UNAVAILABLE);
    EXPECT_NE(serverLog().find("there at least"), std::string::npos);
    std::filesystem::remove(installation_.errorLog());
    std::filesystem::rename(aside, installation_.errorLog());
    EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);

    EXPECT_NE(serverLog().find("both?lines"), std::string::npos);
    EXPECT_EQ(serverLog().find("here only"), std::string::npos);
    EXPECT_EQ(serverLog().find("no session"), std::string::npos);
    const std::string process = " TID<" + std::to_string(getpid()) + ">  ==>  RBQ0599 ";
    for (const char *line : {"both\\nlines\n", "here only\n", "no session\n"})
        EXPECT_NE(localLog().find(process + line), std::string::npos) << line;
    EXPECT_EQ(localLog().find("at once"), std::string::npos);
}

TEST_F(SessionTest, TheLocalLogGetsWholeLinesFromManyThreads)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            const std::string message(500, static_cast<char>('a' + t));
            const auto told = event(HOX_LOG_LOCAL, HOX_SEVERITY_INFO, message.c_str());
            for (int i = 0; i < 50; ++i)
                EXPECT_EQ(api_.hoxLogEventEx(0, &told, nullptr), HOX_RC_OK);
        });
    for (std::thread &thread : threads)
        thread.join();
    const std::string log = readFile(installation_.errorLog());
    std::size_t lines = 0;
    for (std::size_t at = 0; at < log.size(); ++lines) {
        const std::size_t end = log.find('\n', at);
        const std::string message = log.substr(log.find("==>  ", at) + 5, 501);
        EXPECT_EQ(message, std::string(500, message[0]) + "\n");
        at = end + 1;
    }
    EXPECT_EQ(lines, 400U);
}

TEST_F(SessionTest, EveryCodeHasATextAndNoneRunsOver)
{
    for (int code = -32768; code <= 32767; ++code) {
        char message[HOX_MAX_RC_MESSAGE + 2];
        std::memset(message, '#', sizeof message);
        ASSERT_EQ(api_.hoxRCMsg(0, static_cast<std::int16_t>(code), message), HOX_RC_OK);
        ASSERT_EQ(message[HOX_MAX_RC_MESSAGE + 1], '#');
        ASSERT_TRUE(std::string(message).starts_with("RBS") && message[8] == ' ') << message;
    }
    hoxRCMsgExIn_t input{HOX_RCMSGEX_VERSION, 0, HOX_RC_NO_MC_NAME, 0};
    hoxRCMsgExOut_t output{};
    ASSERT_EQ(api_.hoxRCMsgEx(0, &input, &output), HOX_RC_OK);
    EXPECT_STREQ(output.identifier, "RBS2025E");
    EXPECT_EQ("RBS2025E " + std::string(output.message), text(HOX_RC_NO_MC_NAME));
}

TEST_F(SessionTest, PasswordFileBlocksOpenOnlyWithTheSecret)
{
    std::uint32_t key[2], same[2], other[2];
    api_.hoxCreateDesKeyEx(key, "node");
    api_.hoxCreateDesKeyEx(same, "node");
    api_.hoxCreateDesKeyEx(other, "another");
    EXPECT_EQ(std::memcmp(key, same, sizeof key), 0);
    EXPECT_NE(std::memcmp(key, other, sizeof key), 0);
    const unsigned char block[] = "8 octets";
    unsigned char sealed[8], opened[8];
    api_.hoxEncryptEx(key, block, sealed);
    EXPECT_NE(std::memcmp(sealed, block, 8), 0);
    api_.hoxDecryptEx(same, sealed, opened);
    EXPECT_EQ(std::memcmp(opened, block, 8), 0);
    const auto secret = installation_.clientOptions().string() + ".secret";
    EXPECT_EQ(std::filesystem::status(secret).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    std::filesystem::remove(secret);
    std::filesystem::create_directory(secret);
    api_.hoxCreateDesKeyEx(same, "node");
    api_.hoxDecryptEx(same, sealed, opened);
    EXPECT_NE(std::memcmp(opened, block, 8), 0);
    EXPECT_NE(readFile(installation_.errorLog()).find(secret), std::string::npos);
}

} // namespace

} // namespace keel::test
