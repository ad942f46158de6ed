// Calls that no session should make: out of order, through dead handles, with arguments that are no
// good. Each gets a code, and nothing changes.
#include "tests/client/api/client_fixture.h"

#include <cstring>
#include <sys/mman.h>

namespace keel::test
{

namespace
{

using MisuseTest = ClientTest;

using Codes = std::vector<int>;

TEST_F(MisuseTest, CallsOutOfOrderAreRefusedAndChangeNothing)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "p", "content"), HOX_RC_OK);
    const qryRespBackupData found = recordOf(handle, "p");

    char room[sizeof(qryRespBackupData)] = "";
    const hoxObjName name = nameOf("q");
    const ObjAttr attr = attributes();
    const qryBackupData asked{HOX_QRY_BACKUP_VERSION, &name, nullptr, HOX_STATE_ACTIVE};
    hoxDelInfo info{};
    info.backID = {HOX_DELBACK_VERSION, found.objId};
    DataBlk block{};
    const auto fresh = [&] {
        block = {HOX_DATABLK_VERSION, sizeof room, 0, room};
        return &block;
    };
    struct Operation {
        const char *name;
        std::function<int()> call;
    };
    const Operation operations[] = {
        {"BeginTxn", [&] { return api_.hoxBeginTxn(handle); }},
        {"SendObj",
         [&] { return api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr); }},
        {"SendData", [&] { return api_.hoxSendData(handle, fresh()); }},
        {"EndSendObj", [&] { return api_.hoxEndSendObj(handle); }},
        {"DeleteObj", [&] { return api_.hoxDeleteObj(handle, HOX_DELETE_BACKUP_ID, &info); }},
        {"BeginQuery", [&] { return api_.hoxBeginQuery(handle, HOX_QUERY_BACKUP, &asked); }},
        {"GetNextQObj", [&] { return api_.hoxGetNextQObj(handle, fresh()); }},
        {"BeginGetData", [&] { return beginGet(handle, found.objId); }},
        {"GetObj", [&] { return api_.hoxGetObj(handle, &found.objId, nullptr); }},
        {"GetData", [&] { return api_.hoxGetData(handle, fresh()); }},
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

    ASSERT_EQ(beginGet(handle, found.objId), HOX_RC_OK);
    refusedExcept("getting", {"GetObj", "EndGetData"});
    ASSERT_EQ(api_.hoxGetObj(handle, &found.objId, nullptr), HOX_RC_MORE_DATA);
    refusedExcept("reading", {"GetData", "EndGetObj"});
    EXPECT_EQ(operations[9].call(), HOX_RC_FINISHED);
    EXPECT_EQ(std::string(room, 7), "content");
}

TEST_F(MisuseTest, DeadHandlesAreRefusedEverywhereAndStayDead)
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

TEST_F(MisuseTest, NullAndMalformedArgumentsGetACode)
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

/// The beginning of a record of the caller's, of a version that nobody knows, the last in its page:
/// whatever is written beyond it meets no memory.
class RecordAtTheEnd
{
public:
    template <class Record> Record *record()
    {
        constexpr std::uint16_t version = 99;
        std::memset(at_, '#', kBytes);
        std::memcpy(at_, &version, sizeof version);
        before_.assign(at_, kBytes);
        return reinterpret_cast<Record *>(at_);
    }
    bool isUnchanged() const { return before_ == std::string_view(at_, kBytes); }

private:
    static constexpr std::size_t kBytes = 8, kPage = 4096;
    char *const at_ = [] {
        void *const pages =
            mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        char *const second = static_cast<char *>(pages) + kPage;
        EXPECT_EQ(mprotect(second, kPage, PROT_NONE), 0);
        return second - kBytes;
    }();
    std::string before_;
};

TEST_F(MisuseTest, ARecordOfAnUnknownVersionIsNotWritten)
{
    const hoxHandle_t idle = logOn(), querying = logOn(), reading = logOn(), sending = logOn();
    ASSERT_EQ(backUp(idle, "p", "content"), HOX_RC_OK);
    const qryRespBackupData found = recordOf(idle, "p");
    const hoxObjName name = nameOf("p");
    ASSERT_EQ(api_.hoxSetAccess(idle, HOX_ACCESS_READ, &name, "guest", nullptr), HOX_RC_OK);
    const qryBackupData asked{HOX_QRY_BACKUP_VERSION, &name, nullptr, HOX_STATE_ACTIVE};
    ASSERT_EQ(api_.hoxBeginQuery(querying, HOX_QUERY_BACKUP, &asked), HOX_RC_OK);
    ASSERT_EQ(beginGet(reading, found.objId), HOX_RC_OK);
    ASSERT_EQ(api_.hoxGetObj(reading, &found.objId, nullptr), HOX_RC_MORE_DATA);
    ASSERT_EQ(send(sending, "q", "more"), HOX_RC_OK);

    hoxInitExIn_t start{};
    start.stVersion = HOX_INITEX_IN_VERSION;
    hoxHandle_t started = 77;
    const hoxEndTxnExIn_t vote{HOX_ENDTXNEX_VERSION, HOX_VOTE_COMMIT};
    const hoxEndSendObjExIn_t endOfObject{HOX_ENDSENDEX_VERSION};
    const hoxEndGetDataExIn_t endOfRead{HOX_ENDGETEX_VERSION};
    hoxGroupIn_t group{};
    group.stVersion = HOX_GROUP_VERSION;
    group.action = HOX_GROUP_OPEN;
    group.isLeader = 1;
    group.tag = "tag";
    group.objName = &name;
    const hoxRCMsgExIn_t code{HOX_RCMSGEX_VERSION, 0, 2, 1};
    const hoxLogEventExIn_t told = event(HOX_LOG_SERVER, HOX_SEVERITY_INFO, "an event");
    std::uint16_t rules = 1;

    RecordAtTheEnd at;
    DataBlk answer{HOX_DATABLK_VERSION, sizeof(qryRespBackupData), 0, nullptr};
    const auto queryVersion = [&] {
        api_.hoxQueryApiVersionEx(at.record<hoxApiVersionEx>());
        return HOX_RC_BAD_VERSION; // which it cannot return
    };
    const auto intoAnswer = [&] {
        answer.bufferPtr = at.record<char>();
        return api_.hoxGetNextQObj(querying, &answer);
    };
    const std::pair<const char *, std::function<int()>> table[] = {
        {"QueryApiVersionEx", queryVersion},
        {"InitEx", [&] { return api_.hoxInitEx(&started, &start, at.record<hoxInitExOut_t>()); }},
        {"QuerySessInfo", [&] { return api_.hoxQuerySessInfo(idle, at.record<ApiSessInfo>()); }},
        {"BindMC", [&] { return api_.hoxBindMC(idle, &name, 0, at.record<mcBindKey>()); }},
        {"EndTxnEx",
         [&] { return api_.hoxEndTxnEx(sending, &vote, at.record<hoxEndTxnExOut_t>()); }},
        {"EndSendObjEx",
         [&] {
             return api_.hoxEndSendObjEx(sending, &endOfObject, at.record<hoxEndSendObjExOut_t>());
         }},
        {"GetNextQObj, of the block",
         [&] { return api_.hoxGetNextQObj(querying, at.record<DataBlk>()); }},
        {"GetNextQObj, of the answer", intoAnswer},
        {"GetData", [&] { return api_.hoxGetData(reading, at.record<DataBlk>()); }},
        {"EndGetDataEx",
         [&] {
             return api_.hoxEndGetDataEx(reading, &endOfRead, at.record<hoxEndGetDataExOut_t>());
         }},
        {"GroupHandler",
         [&] { return api_.hoxGroupHandler(idle, &group, at.record<hoxGroupOut_t>()); }},
        {"QueryAccess",
         [&] { return api_.hoxQueryAccess(idle, at.record<qryRespAccessData>(), &rules); }},
        {"RCMsgEx", [&] { return api_.hoxRCMsgEx(0, &code, at.record<hoxRCMsgExOut_t>()); }},
        {"LogEventEx",
         [&] { return api_.hoxLogEventEx(0, &told, at.record<hoxLogEventExOut_t>()); }},
    };
    for (const auto &[operation, call] : table) {
        EXPECT_EQ(call(), HOX_RC_BAD_VERSION) << operation;
        EXPECT_TRUE(at.isUnchanged()) << operation;
    }
    EXPECT_EQ(started, 77U);
    EXPECT_EQ(readFile(installation_.errorLog()).find("an event"), std::string::npos);
    EXPECT_EQ(commit(sending), HOX_RC_OK) << "nothing was ended, and no step was missing";
    EXPECT_EQ(restore(idle, "q"), "more");
}

} // namespace

} // namespace keel::test
