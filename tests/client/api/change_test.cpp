// What becomes of objects once they are stored: attributes, filespace, groups, names; and several
// of them in one transaction.
#include "tests/client/api/client_fixture.h"

#include <cctype>
#include <cstring>
#include <functional>
#include <set>

namespace keel::test
{

namespace
{

class ChangeTest : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        handle_ = logOn();
        for (const char *piece : {"a", "b", "c"})
            ASSERT_EQ(backUp(handle_, piece, std::string("content of ") + piece), HOX_RC_OK);
    }

    int update(hoxHandle_t handle, const std::string &piece, const char *owner, const char *info,
               const char *className, std::uint32_t mask)
    {
        const hoxObjName name = nameOf(piece);
        ObjAttr attr{};
        attr.stVersion = HOX_OBJATTR_VERSION;
        std::strcpy(attr.owner, owner);
        attr.objInfo = info;
        attr.objInfoLength = static_cast<std::uint16_t>(std::strlen(info));
        attr.mcNameP = className;
        return api_.hoxUpdateObj(handle, HOX_SEND_BACKUP, &name, &attr, mask);
    }

    /// "owner info class", or nothing when the piece is not there.
    std::string described(hoxHandle_t handle, const std::string &piece)
    {
        const qryRespBackupData found = recordOf(handle, piece);
        return found.objId.lo == 0
                   ? std::string()
                   : std::string(found.owner) + " " + found.objInfo + " " + found.mcName;
    }

    hox64_t idOf(const std::string &piece) { return recordOf(handle_, piece).objId; }

    int group(hoxHandle_t handle, std::uint8_t action, hox64_t leader,
              const std::vector<hox64_t> &members = {})
    {
        hoxGroupIn_t input{};
        input.stVersion = HOX_GROUP_VERSION;
        input.action = action;
        input.leaderObjId = leader;
        input.memberObjId = members.data();
        input.memberCount = static_cast<std::uint32_t>(members.size());
        return api_.hoxGroupHandler(handle, &input, nullptr);
    }

    int openGroup(hoxHandle_t handle, const std::string &leader)
    {
        const hoxObjName name = nameOf(leader);
        hoxGroupIn_t input{};
        input.stVersion = HOX_GROUP_VERSION;
        input.action = HOX_GROUP_OPEN;
        input.isLeader = 1;
        input.tag = "nightly";
        input.objName = &name;
        hoxGroupOut_t output{};
        const int code = api_.hoxGroupHandler(handle, &input, &output);
        if (code == HOX_RC_OK) {
            EXPECT_EQ(output.leaderObjId.lo, idOf(leader).lo);
        }
        return code;
    }

    /// The low-level names of a group, joined.
    std::string members(hox64_t leader)
    {
        const qryGroupData asked{HOX_QRY_GROUP_VERSION, leader};
        std::string names;
        ask<qryRespBackupData>(handle_, HOX_QUERY_GROUP, &asked,
                               [&](const auto &answer) { names += answer.objName.llName; });
        return names;
    }

    /// What `work` answers while a byte of that file is another one.
    template <class Work> auto whileDamaged(const std::filesystem::path &path, const Work &work)
    {
        flipByte(path, 70);
        auto answer = work();
        flipByte(path, 70);
        return answer;
    }

    int rename(const std::string &from, const char *high, const std::string &low)
    {
        const hoxObjName name = nameOf(from);
        return api_.hoxRenameObj(handle_, HOX_SEND_BACKUP, &name, high, low.c_str());
    }

    /// The pieces of "abcd" that show to that session, and their content is right.
    std::string shown(hoxHandle_t handle)
    {
        std::string names;
        for (const char *piece : {"a", "b", "c", "d"}) {
            const auto stream = restore(handle, piece);
            names += stream ? piece : "";
            EXPECT_TRUE(!stream || *stream == std::string("content of ") + piece) << piece;
        }
        return names;
    }

    /// What was removed goes for good, and its packs with it.
    void purge()
    {
        const ProgramResult purged = arca({"reclaim", "--grace", "0", "--max-freed", "100"});
        EXPECT_EQ(purged.status, 0) << purged.err;
    }

    hoxHandle_t handle_ = 0;
};

TEST_F(ChangeTest, AttributesChangeAsTheMaskSaysAndForEverySession)
{
    ASSERT_EQ(arca({"class", "define", "GOLD"}).status, 0);
    const hoxHandle_t other = logOn();
    const struct {
        const char *owner, *info, *className;
        std::uint32_t mask;
        int code;
        const char *after;
    } steps[] = {
        {"x", "x", "GOLD", HOX_UPDOBJ_OWNER, HOX_RC_OK, "x stStream STANDARD"},
        {"y", "new", "GOLD", HOX_UPDOBJ_INFO, HOX_RC_OK, "x new STANDARD"},
        {"y", "y", "gold", HOX_UPDOBJ_MC, HOX_RC_OK, "x new GOLD"},
        {"y", "y", "LEAD", HOX_UPDOBJ_MC, HOX_RC_MC_UNKNOWN, "x new GOLD"},
        {"y", "y", nullptr, 0, HOX_RC_BAD_ARGUMENT, "x new GOLD"},
        {"y", "y", nullptr, 0x11, HOX_RC_BAD_ARGUMENT, "x new GOLD"},
        {"", "", nullptr, 0x7, HOX_RC_OK, "  STANDARD"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(&step - steps);
        EXPECT_EQ(update(handle_, "a", step.owner, step.info, step.className, step.mask),
                  step.code);
        EXPECT_EQ(described(other, "a"), step.after);
        EXPECT_EQ(described(other, "b"), "oracle stStream STANDARD");
    }
    EXPECT_EQ(update(handle_, "z", "", "", nullptr, 1), HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(restore(handle_, "a"), "content of a");
    ASSERT_EQ(api_.hoxBeginTxn(handle_), HOX_RC_OK);
    EXPECT_EQ(update(handle_, "a", "", "", nullptr, 1), HOX_RC_BAD_CALL_SEQUENCE);
    endTransaction(handle_, HOX_VOTE_ABORT);

    EXPECT_EQ(remove(handle_, "a"), HOX_RC_OK);
    purge();
    EXPECT_TRUE(stored("objects").empty()) << "a purged object takes its records with it";
    EXPECT_EQ(backUp(handle_, "a", "again"), HOX_RC_OK);
    EXPECT_EQ(described(other, "a"), "oracle stStream STANDARD");
}

TEST_F(ChangeTest, AFilespaceGoesWithEverythingInItAndMayComeAnew)
{
    const hox64_t a = idOf("a");
    const hoxHandle_t other = logOn();
    ASSERT_EQ(send(other, "late", "half"), HOX_RC_OK);
    EXPECT_EQ(api_.hoxDeleteFS(handle_, "/fs", 9), HOX_RC_BAD_ARGUMENT);
    EXPECT_EQ(api_.hoxDeleteFS(handle_, "/other", HOX_REPOSITORY_ALL), HOX_RC_FS_UNKNOWN);
    for (const int code : {HOX_RC_OK, HOX_RC_FS_UNKNOWN})
        EXPECT_EQ(api_.hoxDeleteFS(handle_, "/fs", HOX_REPOSITORY_ALL), code);

    const auto expectGone = [&] {
        EXPECT_EQ(beginGet(handle_, a), HOX_RC_OBJECT_UNKNOWN);
        EXPECT_TRUE(stored("pieces").empty());
    };
    expectGone();
    EXPECT_EQ(query(handle_, "a"), std::vector<int>{HOX_RC_FS_UNKNOWN});
    EXPECT_EQ(send(handle_, "a", "x"), HOX_RC_FS_UNKNOWN);
    endTransaction(handle_, HOX_VOTE_ABORT);
    EXPECT_EQ(registerFilespace(handle_, "/fs"), HOX_RC_OK);
    EXPECT_EQ(commit(other), HOX_RC_FS_UNKNOWN) << "it was begun in the filespace that is gone";
    expectGone();
    EXPECT_EQ(query(handle_, "late"), (std::vector<int>{HOX_RC_OK, HOX_RC_NO_MATCH}));
    EXPECT_EQ(registerFilespace(handle_, "/fs"), HOX_RC_FS_REGISTERED);
    EXPECT_EQ(backUp(other, "a", "again"), HOX_RC_OK);
    EXPECT_EQ(restore(handle_, "a"), "again");
}

TEST_F(ChangeTest, GroupsTieObjectsTogetherOnceTheyAreClosed)
{
    const hox64_t a = idOf("a"), b = idOf("b"), c = idOf("c"), none{1, 2};
    const hoxHandle_t other = logOn();
    struct Step {
        const char *what;
        int code;
        const char *members;
    };
    const auto expectSteps = [&](std::initializer_list<std::pair<Step, std::function<int()>>> all) {
        for (const auto &[step, call] : all) {
            EXPECT_EQ(call(), step.code) << step.what;
            EXPECT_EQ(members(a), step.members) << step.what;
        }
    };
    const auto with = [&](std::uint8_t action, std::vector<hox64_t> ids = {}) {
        return [this, a, action, ids] { return group(handle_, action, a, ids); };
    };
    expectSteps({
        {{"add before open", HOX_RC_BAD_CALL_SEQUENCE, ""}, with(HOX_GROUP_ADD, {b})},
        {{"assign before open", HOX_RC_OBJECT_UNKNOWN, ""}, with(HOX_GROUP_ASSIGN, {b})},
        {{"open, no leader", HOX_RC_OBJECT_UNKNOWN, ""}, [&] { return openGroup(handle_, "z"); }},
        {{"open", HOX_RC_OK, ""}, [&] { return openGroup(handle_, "a"); }},
        {{"open twice", HOX_RC_BAD_CALL_SEQUENCE, ""}, [&] { return openGroup(handle_, "b"); }},
        {{"add one unknown", HOX_RC_OBJECT_UNKNOWN, ""}, with(HOX_GROUP_ADD, {b, none})},
        {{"add", HOX_RC_OK, ""}, with(HOX_GROUP_ADD, {b, b})},
        {{"assign while open", HOX_RC_BAD_CALL_SEQUENCE, ""}, with(HOX_GROUP_ASSIGN, {c})},
        {{"another opens", HOX_RC_OK, ""}, [&] { return openGroup(other, "a"); }},
        {{"close", HOX_RC_OK, "/a/b"}, with(HOX_GROUP_CLOSE)},
        {{"the other closes", HOX_RC_OBJECT_EXISTS, "/a/b"},
         [&] { return group(other, HOX_GROUP_CLOSE, a); }},
        {{"open again", HOX_RC_OBJECT_EXISTS, "/a/b"}, [&] { return openGroup(other, "a"); }},
        {{"assign", HOX_RC_OK, "/a/b/c"}, with(HOX_GROUP_ASSIGN, {c, a})},
        {{"remove", HOX_RC_OK, "/a/c"}, with(HOX_GROUP_REMOVE, {b})},
        {{"remove half", HOX_RC_OBJECT_UNKNOWN, "/a/c"}, with(HOX_GROUP_REMOVE, {c, b})},
        {{"a member goes", HOX_RC_OK, "/a"}, [&] { return remove(handle_, "c"); }},
        {{"unknown action", HOX_RC_BAD_ARGUMENT, "/a"}, with(7)},
        {{"no members", HOX_RC_BAD_ARGUMENT, "/a"}, with(HOX_GROUP_ASSIGN)},
        {{"delete", HOX_RC_OK, ""}, with(HOX_GROUP_DELETE)},
        {{"delete twice", HOX_RC_OBJECT_UNKNOWN, ""}, with(HOX_GROUP_DELETE)},
        {{"open anew", HOX_RC_OK, ""}, [&] { return openGroup(handle_, "a"); }},
        {{"close without members", HOX_RC_OK, "/a"}, with(HOX_GROUP_CLOSE)},
        {{"the leader goes", HOX_RC_OK, ""}, [&] { return remove(handle_, "a"); }},
    });
    EXPECT_EQ(restore(handle_, "b"), "content of b") << "a group's end is not its objects'";
    purge();
    EXPECT_TRUE(stored("groups").empty());

    // What is not closed ends with its session.
    EXPECT_EQ(openGroup(other, "b"), HOX_RC_OK);
    EXPECT_EQ(api_.hoxTerminate(other), HOX_RC_OK);
    EXPECT_EQ(members(b), "");
    EXPECT_EQ(openGroup(handle_, "b"), HOX_RC_OK);
}

TEST_F(ChangeTest, ARenamedObjectIsTheSameUnderAnotherName)
{
    ASSERT_EQ(update(handle_, "a", "x", "kept", nullptr, HOX_UPDOBJ_OWNER | HOX_UPDOBJ_INFO), 0);
    const qryRespBackupData before = recordOf(handle_, "a");
    ASSERT_EQ(openGroup(handle_, "b"), HOX_RC_OK);
    ASSERT_EQ(group(handle_, HOX_GROUP_ADD, idOf("b"), {before.objId}), HOX_RC_OK);
    ASSERT_EQ(group(handle_, HOX_GROUP_CLOSE, idOf("b")), HOX_RC_OK);
    const struct {
        const char *from, *high;
        std::string low;
        int code;
    } steps[] = {
        {"a", "/", "/b", HOX_RC_OBJECT_EXISTS},
        {"a", "/", "/a", HOX_RC_OBJECT_EXISTS},
        {"z", "/", "/y", HOX_RC_OBJECT_UNKNOWN},
        {"a", "/", "no slash", HOX_RC_BAD_ARGUMENT},
        {"a", "/", "/" + std::string(HOX_MAX_LL_NAME, 'x'), HOX_RC_BAD_ARGUMENT},
        {"a", nullptr, "/y", HOX_RC_NULL_ARGUMENT},
        {"a", "/", "/y", HOX_RC_OK},
        {"a", "/", "/x", HOX_RC_OBJECT_UNKNOWN},
        {"y", "/", "/z", HOX_RC_OK},
    };
    for (const auto &step : steps)
        EXPECT_EQ(rename(step.from, step.high, step.low), step.code) << step.low;
    EXPECT_EQ(restore(handle_, "z"), "content of a");
    EXPECT_EQ(described(handle_, "z"), "x kept STANDARD");
    EXPECT_EQ(described(handle_, "a") + described(handle_, "y"), "");
    const qryRespBackupData after = recordOf(handle_, "z");
    EXPECT_EQ(std::memcmp(&after.insDate, &before.insDate, sizeof before.insDate), 0);
    const hox64_t b = idOf("b");
    EXPECT_EQ(members(b), "/b/z");
    std::multiset<std::string> left;
    for (const auto &path : stored("pieces"))
        left.insert(whileDamaged(path, [&] { return members(b); }));
    EXPECT_EQ(left, (std::multiset<std::string>{"/b", "/b/z", "/z"})) << "a damaged one of b, c, z";
    EXPECT_EQ(beginGet(handle_, before.objId), HOX_RC_OK);
    EXPECT_EQ(api_.hoxEndGetData(handle_), HOX_RC_OK) << "the old identifier leads to it";

    EXPECT_EQ(backUp(handle_, "a", "content of a"), HOX_RC_OK) << "the old name is free";
    EXPECT_EQ(rename("b", "/", "/a"), HOX_RC_OBJECT_EXISTS);
    EXPECT_EQ(rename("b", "/", "/y"), HOX_RC_OK);
    EXPECT_EQ(members(idOf("y")), "/y/z") << "a leader keeps its group";
    EXPECT_EQ(remove(handle_, "z"), HOX_RC_OK);
    EXPECT_EQ(beginGet(handle_, before.objId), HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(remove(handle_, "y"), HOX_RC_OK);
    purge();
    for (const char *directory : {"objects", "groups", "changes"})
        EXPECT_TRUE(stored(directory).empty()) << directory;
}

TEST_F(ChangeTest, AnInactiveObjectIsKeptWithoutItsName)
{
    const hoxHandle_t other = logOn();
    const auto step = [&](std::uint8_t type, hox64_t id) { return changeById(handle_, type, id); };
    /// How many there are of "a" in that state.
    const auto count = [&](std::uint8_t state, qryRespBackupData *last = nullptr) {
        return query(other, "a", last, nullptr, state).size() - 2;
    };
    const auto read = [&](hox64_t id) {
        std::string room(100, '\0');
        DataBlk data = blockOf(room);
        const hoxGetList list{HOX_GETLIST_VERSION, 1, &id}; // inactive ones, too
        if (api_.hoxBeginGetData(other, 0, HOX_GET_BACKUP, &list) != HOX_RC_OK)
            return std::string();
        EXPECT_EQ(api_.hoxGetObj(other, &id, &data), HOX_RC_FINISHED);
        EXPECT_EQ(api_.hoxEndGetObj(other), HOX_RC_OK);
        EXPECT_EQ(api_.hoxEndGetData(other), HOX_RC_OK);
        return room.substr(0, data.numBytes);
    };
    const hox64_t first = idOf("a");
    EXPECT_EQ(update(handle_, "a", "x", "kept", nullptr, HOX_UPDOBJ_OWNER), HOX_RC_OK);
    EXPECT_EQ(step(HOX_DEACTIVATE_BACKUP_ID, first), HOX_RC_OK);
    EXPECT_EQ(step(HOX_DEACTIVATE_BACKUP_ID, first), HOX_RC_OBJECT_UNKNOWN) << "it is already";
    EXPECT_EQ(count(HOX_STATE_ACTIVE), 0U);
    EXPECT_EQ(remove(handle_, "a"), HOX_RC_OBJECT_UNKNOWN);
    qryRespBackupData found{};
    ASSERT_EQ(count(HOX_STATE_INACTIVE, &found), 1U);
    EXPECT_EQ(found.objId.lo, first.lo);
    EXPECT_EQ(found.objState, HOX_STATE_INACTIVE);
    EXPECT_EQ(beginGet(other, first), HOX_RC_OBJECT_UNKNOWN) << "as an active one";
    EXPECT_STREQ(found.owner, "x") << "its attributes stay";
    EXPECT_NE(found.inactDate.year, 0);
    EXPECT_EQ(found.expDate.year, 0) << "its class keeps it for ever";

    EXPECT_EQ(backUp(handle_, "a", "second"), HOX_RC_OK) << "the name is free";
    const hox64_t second = idOf("a");
    EXPECT_EQ(step(HOX_DEACTIVATE_BACKUP_ID, second), HOX_RC_OK);
    EXPECT_EQ(backUp(handle_, "a", "third"), HOX_RC_OK);
    EXPECT_EQ(count(HOX_STATE_INACTIVE), 2U);
    EXPECT_EQ(count(HOX_STATE_ANY), 3U);

    for (const char *verb : {"reclaim", "verify"})
        EXPECT_EQ(arca({verb}).status, 0);
    EXPECT_EQ(read(first) + read(second), "content of asecond") << "nothing reclaims their blocks";
    EXPECT_EQ(restore(handle_, "a"), "third");
    const auto codes = whileDamaged(stored("inactive").front(), [&] {
        return query(other, "a", nullptr, nullptr, HOX_STATE_ANY);
    });
    EXPECT_EQ(codes, (std::vector<int>{HOX_RC_OK, HOX_RC_MORE_DATA, HOX_RC_MORE_DATA,
                                       HOX_RC_REPOSITORY_DAMAGED}))
        << "the damaged one is told of behind the others";
    EXPECT_EQ(step(HOX_DELETE_BACKUP_ID, first), HOX_RC_OK);
    EXPECT_EQ(read(first), "");
    EXPECT_EQ(count(HOX_STATE_ANY), 2U);
    EXPECT_EQ(api_.hoxDeleteFS(handle_, "/fs", HOX_REPOSITORY_ALL), HOX_RC_OK);
    EXPECT_EQ(read(second), "");
    purge();
    for (const char *directory : {"objects", "pieces", "inactive", "removed", "packs", "changes"})
        EXPECT_TRUE(stored(directory).empty()) << directory;
}

TEST_F(ChangeTest, ATransactionOfSeveralShowsInOneStepOrNotAtAll)
{
    const hoxHandle_t other = logOn();
    const auto object = [&](const std::string &piece) {
        const hoxObjName name = nameOf(piece);
        const ObjAttr attr = attributes();
        std::string stream = "content of " + piece;
        DataBlk data = blockOf(stream);
        EXPECT_EQ(api_.hoxSendObj(handle_, HOX_SEND_BACKUP, nullptr, &name, &attr, &data), 0);
        EXPECT_EQ(api_.hoxEndSendObj(handle_), HOX_RC_OK);
    };
    // By its name, or by its identifier when it is to become inactive: an upper-case letter.
    const auto deletion = [&](char piece) {
        const bool leaves = std::isupper(piece) != 0;
        const std::string lower(1, static_cast<char>(std::tolower(piece)));
        const hoxObjName name = nameOf(lower);
        hoxDelInfo info{};
        if (leaves)
            info.backID = {HOX_DELBACK_VERSION, recordOf(other, lower).objId};
        else
            info.backName = {HOX_DELBACK_VERSION, &name};
        EXPECT_EQ(api_.hoxDeleteObj(
                      handle_, leaves ? HOX_DEACTIVATE_BACKUP_ID : HOX_DELETE_BACKUP_NAME, &info),
                  HOX_RC_OK);
    };
    const struct {
        const char *what, *sent, *deleted;
        std::function<void()> meanwhile; ///< of the other session
        int code;
        const char *after;
    } steps[] = {
        {"two go", "", "ab", [] {}, HOX_RC_OK, "c"},
        {"two come, one goes", "ab", "c", [] {}, HOX_RC_OK, "ab"},
        {"one of three is taken first", "cd", "a",
         [&] { EXPECT_EQ(backUp(other, "d", "content of d"), HOX_RC_OK); }, HOX_RC_OBJECT_EXISTS,
         "abd"},
        {"what is to go is gone", "c", "ab", [&] { EXPECT_EQ(remove(other, "b"), HOX_RC_OK); },
         HOX_RC_OBJECT_UNKNOWN, "ad"},
        {"all at once", "bc", "ad", [] {}, HOX_RC_OK, "bc"},
        {"one replaces what goes", "b", "b", [] {}, HOX_RC_OK, "bc"},
        {"one replaces what leaves", "cd", "C", [] {}, HOX_RC_OK, "bcd"},
        {"one goes before it is replaced", "d", "d",
         [&] { EXPECT_EQ(remove(other, "d"), HOX_RC_OK); }, HOX_RC_OBJECT_UNKNOWN, "bc"},
        {"one comes, one goes, one leaves", "a", "bC", [] {}, HOX_RC_OK, "a"},
        {"what is to leave is gone", "d", "A", [&] { EXPECT_EQ(remove(other, "a"), HOX_RC_OK); },
         HOX_RC_OBJECT_UNKNOWN, ""},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.what);
        ASSERT_EQ(api_.hoxBeginTxn(handle_), HOX_RC_OK);
        for (const char piece : std::string(step.deleted))
            deletion(piece);
        for (const char piece : std::string(step.sent))
            object(std::string(1, piece));
        step.meanwhile();
        EXPECT_EQ(endTransaction(handle_, HOX_VOTE_COMMIT), step.code);
        EXPECT_EQ(shown(other), step.after);
        EXPECT_EQ(stored("pieces").size(), std::strlen(step.after));
        EXPECT_TRUE(stored("changes").empty());
    }
    purge();
    // The record of a piece that came with others stays as long as that piece.
    std::set<std::filesystem::path> recorded;
    for (const auto &path : stored("objects"))
        recorded.insert(path.parent_path().filename());
    EXPECT_EQ(recorded.size(), stored("inactive").size());
}

} // namespace

} // namespace keel::test
