// Calls that no session should make: out of order, through dead handles, with arguments that are no
// good. Each gets a code, and nothing changes.
#include "tests/client/client_fixture.h"

#include <cstring>

namespace keel::test
{

namespace
{

using Codes = std::vector<int>;

TEST_F(ClientTest, CallsOutOfOrderAreRefusedAndChangeNothing)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "p", "content"), HOX_RC_OK);
    qryRespBackupData found{};
    query(handle, "p", &found);

    char room[sizeof(qryRespBackupData)] = "";
    const hoxObjName name = nameOf("q");
    const ObjAttr attr = attributes();
    const qryBackupData asked{HOX_QRY_BACKUP_VERSION, &name, nullptr, HOX_STATE_ACTIVE};
    const hoxGetList list{HOX_GETLIST_VERSION, 1, &found.objId};
    hoxDelInfo info{};
    info.backID = {HOX_DELBACK_VERSION, found.objId};
    const auto data = [&] { return DataBlk{HOX_DATABLK_VERSION, sizeof room, 0, room}; };
    struct Operation {
        const char *name;
        std::function<int()> call;
    };
    const Operation operations[] = {
        {"BeginTxn", [&] { return api_.hoxBeginTxn(handle); }},
        {"SendObj",
         [&] { return api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr); }},
        {"SendData",
         [&] {
             DataBlk block = data();
             return api_.hoxSendData(handle, &block);
         }},
        {"EndSendObj", [&] { return api_.hoxEndSendObj(handle); }},
        {"DeleteObj", [&] { return api_.hoxDeleteObj(handle, HOX_DELETE_BACKUP_ID, &info); }},
        {"BeginQuery", [&] { return api_.hoxBeginQuery(handle, HOX_QUERY_BACKUP, &asked); }},
        {"GetNextQObj",
         [&] {
             DataBlk block = data();
             return api_.hoxGetNextQObj(handle, &block);
         }},
        {"BeginGetData", [&] { return api_.hoxBeginGetData(handle, 1, HOX_GET_BACKUP, &list); }},
        {"GetObj", [&] { return api_.hoxGetObj(handle, &found.objId, nullptr); }},
        {"GetData",
         [&] {
             DataBlk block = data();
             return api_.hoxGetData(handle, &block);
         }},
        {"EndGetObj", [&] { return api_.hoxEndGetObj(handle); }},
        {"EndGetData", [&] { return api_.hoxEndGetData(handle); }},
    };
    const auto refusedExcept = [&](const char *state, const std::vector<std::string> &allowed) {
        for (const Operation &operation : operations) {
            if (std::find(allowed.begin(), allowed.end(), operation.name) != allowed.end())
                continue;
            EXPECT_EQ(operation.call(), HOX_RC_BAD_CALL_SEQUENCE)
                << operation.name << " while " << state;
        }
    };
    refusedExcept("idle", {"BeginTxn", "BeginQuery", "BeginGetData"});
    std::uint16_t reason = 7;
    EXPECT_EQ(api_.hoxEndTxn(handle, HOX_VOTE_COMMIT, &reason), HOX_RC_BAD_CALL_SEQUENCE);

    ASSERT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
    refusedExcept("in a transaction", {"SendObj", "DeleteObj"});
    ASSERT_EQ(api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr), 0);
    refusedExcept("sending", {"SendData", "EndSendObj"});
    EXPECT_EQ(commit(handle), HOX_RC_OK) << "the transaction is not hurt by refused calls";

    ASSERT_EQ(api_.hoxBeginQuery(handle, HOX_QUERY_BACKUP, &asked), HOX_RC_OK);
    refusedExcept("querying", {"GetNextQObj"});
    EXPECT_EQ(operations[6].call(), HOX_RC_MORE_DATA);
    ASSERT_EQ(api_.hoxEndQuery(handle), HOX_RC_OK);

    ASSERT_EQ(api_.hoxBeginGetData(handle, 1, HOX_GET_BACKUP, &list), HOX_RC_OK);
    refusedExcept("getting", {"GetObj", "EndGetData"});
    ASSERT_EQ(api_.hoxGetObj(handle, &found.objId, nullptr), HOX_RC_MORE_DATA);
    refusedExcept("reading", {"GetData", "EndGetObj"});
    EXPECT_EQ(operations[9].call(), HOX_RC_FINISHED);
    EXPECT_EQ(std::string(room, 7), "content");
}

TEST_F(ClientTest, DeadHandlesAreRefusedEverywhereAndStayDead)
{
    const hoxHandle_t ended = logOn();
    ASSERT_EQ(send(ended, "p", "half"), HOX_RC_OK);
    ASSERT_EQ(api_.hoxTerminate(ended), HOX_RC_OK);
    const hoxHandle_t cleaned = logOn();
    EXPECT_NE(cleaned, ended);
    EXPECT_EQ(query(cleaned, "p"), (Codes{HOX_RC_OK, HOX_RC_NO_MATCH}));
    ASSERT_EQ(send(cleaned, "p", "half"), HOX_RC_OK);
    ASSERT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
    hoxHandle_t none = 77;
    EXPECT_EQ(logOn(none, nullptr, nullptr, nullptr), HOX_RC_NOT_SET_UP);
    EXPECT_EQ(none, 77U) << "a failed start leaves the handle as it was";
    ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK);

    std::uint16_t reason = 7;
    for (const hoxHandle_t handle :
         {hoxHandle_t{0}, ended, cleaned, hoxHandle_t{0x7fffffff}, hoxHandle_t{0xffffffff}}) {
        EXPECT_EQ(api_.hoxBeginTxn(handle), HOX_RC_BAD_HANDLE);
        EXPECT_EQ(api_.hoxEndTxn(handle, HOX_VOTE_COMMIT, &reason), HOX_RC_BAD_HANDLE);
        EXPECT_EQ(api_.hoxGetNextQObj(handle, nullptr), HOX_RC_BAD_HANDLE);
        EXPECT_EQ(api_.hoxEndQuery(handle), HOX_RC_BAD_HANDLE);
        EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_BAD_HANDLE);
    }
    const hoxHandle_t fresh = logOn();
    EXPECT_EQ(query(fresh, "p"), (Codes{HOX_RC_OK, HOX_RC_NO_MATCH}));
}

TEST_F(ClientTest, NullAndMalformedArgumentsGetACode)
{
    const hoxHandle_t handle = logOn();
    EXPECT_EQ(api_.hoxSetUp(1, nullptr), HOX_RC_NULL_ARGUMENT);
    hoxInitExIn_t input{};
    hoxHandle_t started = 0;
    EXPECT_EQ(api_.hoxInitEx(nullptr, &input, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxInitEx(&started, nullptr, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxInitEx(&started, &input, nullptr), HOX_RC_BAD_VERSION);
    EXPECT_EQ(logOn(started, std::string(65, 'n').c_str(), nullptr, nullptr),
              HOX_RC_NODE_NAME_TOO_LONG);
    EXPECT_EQ(api_.hoxQuerySessInfo(handle, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxRegisterFS(handle, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxUpdateFS(handle, "/fs", nullptr, 0), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxBindMC(handle, nullptr, 0, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxBeginQuery(handle, HOX_QUERY_BACKUP, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxBeginQuery(handle, 99, nullptr), HOX_RC_BAD_ARGUMENT);
    EXPECT_EQ(api_.hoxBeginGetData(handle, 1, 0, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxRCMsg(handle, 0, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxLogEventEx(handle, nullptr, nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
    EXPECT_EQ(api_.hoxEndTxn(handle, 3, nullptr), HOX_RC_NULL_ARGUMENT);
    std::uint16_t reason = 0;
    EXPECT_EQ(api_.hoxEndTxn(handle, 3, &reason), HOX_RC_BAD_ARGUMENT);
    EXPECT_EQ(endTransaction(handle, HOX_VOTE_COMMIT), HOX_RC_OK) << "it was still open";

    hoxObjName unended = nameOf("p");
    std::memset(unended.llName, 'x', sizeof unended.llName);
    hoxObjName slashless = nameOf("p");
    slashless.llName[0] = 'p';
    const ObjAttr attr = attributes();
    for (const hoxObjName *name : {&unended, &slashless}) {
        ASSERT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
        EXPECT_EQ(api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, name, &attr, nullptr),
                  HOX_RC_BAD_ARGUMENT);
        EXPECT_EQ(endTransaction(handle, HOX_VOTE_COMMIT), HOX_RC_BAD_ARGUMENT);
    }
}

} // namespace

} // namespace keel::test
