// Access for another node: what was granted it finds and restores, and that is all it can do.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace keel::test
{

namespace
{

class AccessTest : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        registerNode("guest");
        mine_ = logOn();
        for (const char *piece : {"p", "q"})
            ASSERT_EQ(backUp(mine_, piece, std::string("content of ") + piece), HOX_RC_OK);
    }

    int grant(const std::string &piece, const char *node = "guest", const char *owner = nullptr)
    {
        const hoxObjName name = nameOf(piece);
        return api_.hoxSetAccess(mine_, HOX_ACCESS_READ, &name, node, owner);
    }

    /// A session of `guest` for testnode's objects.
    int logOnAsGuest(hoxHandle_t &handle, const char *asNode, const char *options = nullptr,
                     const char *owner = nullptr, const char *node = "guest")
    {
        hoxInitExIn_t input{};
        input.stVersion = HOX_INITEX_IN_VERSION;
        input.nodeName = node;
        input.asNodeName = asNode;
        input.options = options;
        input.ownerName = owner;
        return api_.hoxInitEx(&handle, &input, nullptr);
    }

    std::vector<qryRespAccessData> rules()
    {
        std::vector<qryRespAccessData> found(10);
        std::uint16_t count = 10;
        EXPECT_EQ(api_.hoxQueryAccess(mine_, found.data(), &count), HOX_RC_OK);
        found.resize(count);
        return found;
    }

    hoxHandle_t mine_ = 0;
};

const std::vector<int> kNothing{HOX_RC_OK, HOX_RC_NO_MATCH};

TEST_F(AccessTest, AGuestRestoresWhatWasGrantedAndNothingElse)
{
    const hox64_t p = recordOf(mine_, "p").objId, q = recordOf(mine_, "q").objId;
    for (const auto &[piece, node, owner] :
         {std::tuple("p", "guest", ""), std::tuple("q", "third", ""),
          std::tuple("q", "guest", "anna")})
        ASSERT_EQ(grant(piece, node, owner), HOX_RC_OK);
    hoxHandle_t guest = 0;
    ASSERT_EQ(logOnAsGuest(guest, "testnode"), HOX_RC_OK) << text(HOX_RC_ACCESS_DENIED);
    EXPECT_EQ(restore(guest, "p"), "content of p");
    EXPECT_EQ(query(guest, "q"), kNothing);
    EXPECT_EQ(query(guest, "never"), kNothing);
    EXPECT_EQ(beginGet(guest, q), HOX_RC_OBJECT_UNKNOWN);
    const std::string hidden = text(HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(beginGet(guest, {1, 1}), HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(text(HOX_RC_OBJECT_UNKNOWN), hidden) << "what is hidden looks as if it were not";

    EXPECT_EQ(api_.hoxBeginTxn(guest), HOX_RC_ACCESS_DENIED);
    EXPECT_EQ(remove(guest, "p"), HOX_RC_ACCESS_DENIED);
    EXPECT_EQ(registerFilespace(guest, "/new"), HOX_RC_ACCESS_DENIED);
    hoxFSUpd update{};
    update.stVersion = HOX_FSUPD_VERSION;
    EXPECT_EQ(api_.hoxUpdateFS(guest, "/fs", &update, HOX_FSUPD_OCCUPANCY), HOX_RC_ACCESS_DENIED);
    const hoxObjName name = nameOf("q");
    std::uint16_t count = 0;
    EXPECT_EQ(api_.hoxSetAccess(guest, HOX_ACCESS_READ, &name, "guest", nullptr),
              HOX_RC_ACCESS_DENIED);
    EXPECT_EQ(api_.hoxQueryAccess(guest, nullptr, &count), HOX_RC_ACCESS_DENIED);
    EXPECT_EQ(api_.hoxDeleteAccess(guest, rules().front().ruleNumber), HOX_RC_ACCESS_DENIED);

    // Taken back in the middle of a restore.
    ASSERT_EQ(beginGet(guest, p), HOX_RC_OK);
    for (const auto &rule : rules())
        EXPECT_EQ(api_.hoxDeleteAccess(mine_, rule.ruleNumber), HOX_RC_OK);
    EXPECT_EQ(api_.hoxGetObj(guest, &p, nullptr), HOX_RC_OBJECT_UNKNOWN);
    EXPECT_EQ(api_.hoxEndGetData(guest), HOX_RC_OK);
    EXPECT_EQ(query(guest, "p"), kNothing);
    EXPECT_EQ(restore(mine_, "p"), "content of p");
}

TEST_F(AccessTest, WhatIsTakenBackEndsWithTheNextCall)
{
    const std::string stream = randomBytes(4'000'000, 3);
    ASSERT_EQ(backUp(mine_, "long", stream), HOX_RC_OK);
    for (const char *piece : {"long", "p", "q"})
        ASSERT_EQ(grant(piece), HOX_RC_OK);
    hoxHandle_t guest = 0;
    ASSERT_EQ(logOnAsGuest(guest, "testnode"), HOX_RC_OK);
    const auto takeBack = [&](const std::string &piece) {
        for (const auto &rule : rules())
            if (piece == rule.objName.llName + 1) {
                EXPECT_EQ(api_.hoxDeleteAccess(mine_, rule.ruleNumber), HOX_RC_OK);
            }
    };
    // In the middle of a read.
    const hox64_t id = recordOf(mine_, "long").objId;
    std::string buffer(65536, '\0');
    DataBlk data = blockOf(buffer);
    ASSERT_EQ(beginGet(guest, id), HOX_RC_OK);
    ASSERT_EQ(api_.hoxGetObj(guest, &id, &data), HOX_RC_MORE_DATA);
    takeBack("long");
    EXPECT_EQ(api_.hoxGetData(guest, &data), HOX_RC_ACCESS_DENIED);
    EXPECT_EQ(data.numBytes, 0U);
    EXPECT_EQ(api_.hoxEndGetObj(guest), HOX_RC_OK);
    EXPECT_EQ(api_.hoxEndGetData(guest), HOX_RC_OK);

    // In the middle of a listing, and of a query that has found it.
    qryRespBackupData answer{};
    DataBlk record{HOX_DATABLK_VERSION, sizeof answer, 0, reinterpret_cast<char *>(&answer)};
    const qryObjectsData all = everything();
    ASSERT_EQ(api_.hoxBeginQuery(guest, HOX_QUERY_OBJECTS, &all), HOX_RC_OK);
    ASSERT_EQ(api_.hoxGetNextQObj(guest, &record), HOX_RC_MORE_DATA);
    const std::string other = std::string(answer.objName.llName) == "/p" ? "q" : "p";
    takeBack(other);
    EXPECT_EQ(api_.hoxGetNextQObj(guest, &record), HOX_RC_FINISHED);
    EXPECT_EQ(api_.hoxEndQuery(guest), HOX_RC_OK);
    const std::string left = other == "p" ? "q" : "p";
    const hoxObjName name = nameOf(left);
    const qryBackupData asked{HOX_QRY_BACKUP_VERSION, &name, nullptr, HOX_STATE_ACTIVE};
    ASSERT_EQ(api_.hoxBeginQuery(guest, HOX_QUERY_BACKUP, &asked), HOX_RC_OK);
    takeBack(left);
    EXPECT_EQ(api_.hoxGetNextQObj(guest, &record), HOX_RC_NO_MATCH);
    EXPECT_EQ(api_.hoxEndQuery(guest), HOX_RC_OK);
}

TEST_F(AccessTest, RulesGoWithTheFilespace)
{
    ASSERT_EQ(grant("p"), HOX_RC_OK);
    ASSERT_EQ(grant("*"), HOX_RC_OK);
    hoxHandle_t guest = 0;
    ASSERT_EQ(logOnAsGuest(guest, "testnode"), HOX_RC_OK);
    ASSERT_EQ(api_.hoxDeleteFS(mine_, "/fs", HOX_REPOSITORY_ALL), HOX_RC_OK);
    EXPECT_TRUE(rules().empty());
    EXPECT_TRUE(stored("grants").empty());
    mine_ = logOn(); // registers it again
    ASSERT_EQ(backUp(mine_, "p", "another"), HOX_RC_OK);
    EXPECT_EQ(query(guest, "p"), kNothing);
}

TEST_F(AccessTest, DamageIsToldOnlyOfWhatWasGranted)
{
    const auto damage = [&](const std::string &piece) {
        // The blob of the piece: the one that goes with it.
        const auto before = stored("pieces");
        EXPECT_EQ(remove(mine_, piece), HOX_RC_OK);
        const auto after = stored("pieces");
        EXPECT_EQ(backUp(mine_, piece, "content of " + piece), HOX_RC_OK);
        for (const auto &path : before)
            if (std::find(after.begin(), after.end(), path) == after.end())
                flipByte(path, 70);
    };
    ASSERT_EQ(grant("p"), HOX_RC_OK);
    hoxHandle_t guest = 0;
    ASSERT_EQ(logOnAsGuest(guest, "testnode"), HOX_RC_OK);
    qryObjectsData all = everything();
    all.hlName = "*";
    const auto end = [&] {
        return ask<qryRespBackupData>(guest, HOX_QUERY_OBJECTS, &all, [](auto &) {});
    };
    const hox64_t hidden = recordOf(mine_, "q").objId;
    EXPECT_EQ(end(), HOX_RC_FINISHED);
    damage("q");
    EXPECT_EQ(end(), HOX_RC_FINISHED) << "it was not granted";
    EXPECT_EQ(beginGet(guest, hidden), HOX_RC_OBJECT_UNKNOWN);
    damage("p");
    EXPECT_EQ(end(), HOX_RC_REPOSITORY_DAMAGED);
    const std::string said = text(HOX_RC_REPOSITORY_DAMAGED);
    EXPECT_NE(said.find("/p"), std::string::npos) << said;
    EXPECT_EQ(said.find("pieces/"), std::string::npos) << said;
}

TEST_F(AccessTest, EventsOfANodeAreReadByThatNode)
{
    const auto told = event(HOX_LOG_SERVER, HOX_SEVERITY_ERROR, "names piece df_secret");
    ASSERT_EQ(api_.hoxLogEventEx(mine_, &told, nullptr), HOX_RC_OK);
    for (const auto &file : stored("log"))
        EXPECT_EQ(readFile(file).find("secret"), std::string::npos);
    hoxHandle_t guest = 0;
    ASSERT_EQ(logOnAsGuest(guest, nullptr), HOX_RC_OK);
    const auto shown = [&](hoxHandle_t handle, const char *node) {
        qryLogData asked{};
        asked.stVersion = HOX_QRY_LOG_VERSION;
        asked.nodeName = node;
        std::string texts;
        ask<qryRespLogData>(handle, HOX_QUERY_LOG, &asked, [&](const auto &answer) {
            texts += (answer.sealed != 0 ? "sealed" : "") + std::string(answer.message);
        });
        return texts;
    };
    EXPECT_EQ(shown(mine_, nullptr), told.message);
    EXPECT_EQ(shown(guest, nullptr), "");
    EXPECT_EQ(shown(guest, "testnode"), "sealed");
    EXPECT_EQ(shown(guest, HOX_ALL_NODES), "sealed");
    // With another severity it is no event of the node.
    const auto file = stored("log").front();
    std::string line = readFile(file);
    line[line.find("\tE\t") + 1] = 'W';
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    writeFile(file, line);
    EXPECT_EQ(shown(mine_, nullptr), "");
}

TEST_F(AccessTest, ASessionForAnotherNodeNeedsARuleThatAdmitsIt)
{
    struct Attempt {
        const char *asNode, *options, *owner;
        int code;
    };
    const auto expect = [&](const std::vector<Attempt> &attempts) {
        for (const Attempt &a : attempts) {
            hoxHandle_t handle = 0;
            EXPECT_EQ(logOnAsGuest(handle, a.asNode, a.options, a.owner), a.code)
                << &a - attempts.data();
        }
    };
    expect({{"testnode", nullptr, nullptr, HOX_RC_ACCESS_DENIED},
            {nullptr, "-asnode=testnode", nullptr, HOX_RC_ACCESS_DENIED},
            {"nobody", nullptr, nullptr, HOX_RC_ACCESS_DENIED},
            {"guest", nullptr, nullptr, HOX_RC_OK}});
    ASSERT_EQ(grant("p", "third"), HOX_RC_OK);
    expect({{"testnode", nullptr, nullptr, HOX_RC_ACCESS_DENIED}});
    ASSERT_EQ(grant("p", "guest", "anna"), HOX_RC_OK);
    expect({{"testnode", nullptr, nullptr, HOX_RC_ACCESS_DENIED},
            {"testnode", nullptr, "berta", HOX_RC_ACCESS_DENIED},
            {nullptr, "-asnode=testnode", "anna", HOX_RC_OK}});
}

TEST_F(AccessTest, AGuestIsNotToldHowManyObjectsThereAre)
{
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(backUp(mine_, "own" + std::to_string(i), "x"), HOX_RC_OK);
    ASSERT_EQ(grant("p"), HOX_RC_OK);
    hoxHandle_t guest = 0;
    ASSERT_EQ(logOnAsGuest(guest, "testnode"), HOX_RC_OK);
    for (const auto &[session, mayKnow] : {std::pair{mine_, true}, std::pair{guest, false}}) {
        std::uint64_t most = 0;
        qryObjectsData asked = everything();
        asked.progressContext = &most;
        asked.progress = [](void *context, std::uint64_t done,
                            std::uint64_t planned) -> std::int16_t {
            std::uint64_t &known = *static_cast<std::uint64_t *>(context);
            known = std::max({known, done, planned});
            return 0;
        };
        std::size_t objects = 0;
        ask<qryRespBackupData>(session, HOX_QUERY_OBJECTS, &asked, [&](auto &) { ++objects; });
        EXPECT_EQ(most != 0, mayKnow);
        EXPECT_EQ(objects == 1, !mayKnow);
    }
}

TEST_F(AccessTest, RulesAreShownAndTakenBackOneByOne)
{
    EXPECT_TRUE(rules().empty());
    ASSERT_EQ(grant("p"), HOX_RC_OK);
    ASSERT_EQ(grant("p"), HOX_RC_OK);
    EXPECT_EQ(rules().size(), 1U) << "one rule, or taking it back would leave the other";
    ASSERT_EQ(grant("*", "guest", "anna"), HOX_RC_OK);
    std::uint16_t count = 1;
    qryRespAccessData one{};
    EXPECT_EQ(api_.hoxQueryAccess(mine_, &one, &count), HOX_RC_MORE_DATA);
    EXPECT_EQ(count, 2U);

    hoxHandle_t anna = 0;
    ASSERT_EQ(logOnAsGuest(anna, "testnode", nullptr, "anna"), HOX_RC_OK);
    EXPECT_EQ(restore(anna, "q"), "content of q") << "every name of the filespace";
    for (const auto &rule : rules()) {
        EXPECT_STREQ(rule.nodeName, "guest");
        EXPECT_STREQ(rule.objName.fsName, "/fs");
        const bool all = std::strcmp(rule.objName.llName, "/*") == 0;
        EXPECT_STREQ(rule.ownerName, all ? "anna" : "");
        if (all) {
            EXPECT_EQ(api_.hoxDeleteAccess(mine_, rule.ruleNumber), HOX_RC_OK);
            EXPECT_EQ(api_.hoxDeleteAccess(mine_, rule.ruleNumber), HOX_RC_OBJECT_UNKNOWN);
        }
    }
    EXPECT_EQ(query(anna, "q"), kNothing);
    EXPECT_EQ(restore(anna, "p"), "content of p");

    EXPECT_EQ(grant("p", ""), HOX_RC_BAD_ARGUMENT);
    EXPECT_EQ(grant("p", "testnode"), HOX_RC_BAD_ARGUMENT);
    EXPECT_EQ(grant("p", nullptr), HOX_RC_NULL_ARGUMENT);
    EXPECT_EQ(grant("p", std::string(65, 'n').c_str()), HOX_RC_NODE_NAME_TOO_LONG);
    EXPECT_EQ(api_.hoxQueryAccess(mine_, nullptr, nullptr), HOX_RC_NULL_ARGUMENT);

    // A rule that was damaged opens nothing, and who made it is told.
    flipByte(stored("access").front(), -40);
    EXPECT_EQ(query(anna, "p"), kNothing);
    EXPECT_EQ(api_.hoxQueryAccess(mine_, &one, &count), HOX_RC_REPOSITORY_DAMAGED);
    EXPECT_EQ(count, 0U);
}

TEST_F(AccessTest, AGrantOpensForTheNodeItWasMadeFor)
{
    // Nodes are registered, lost and registered again; testnode starts sessions and grants.
    const auto registered = [&] { registerNode("late"); };
    const auto lost = [&] {
        for (const auto &file : stored("nodes"))
            if (readFile(file).find("late") != std::string::npos)
                std::filesystem::remove_all(file.parent_path());
    };
    const auto granted = [&] { ASSERT_EQ(grant("p", "late"), HOX_RC_OK); };
    const auto started = [&] { ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK); };
    const auto restarted = [&] {
        ASSERT_EQ(api_.hoxTerminate(mine_), HOX_RC_OK);
        mine_ = logOn();
    };
    const struct {
        std::function<void()> happens;
        std::string refusal; ///< empty: the guest reads
        std::size_t grants;
    } steps[] = {
        {granted, "not registered", 0},
        {started, "not registered", 0},
        {registered, "before that was registered; it takes effect when node testnode logs on", 0},
        {started, "", 1},
        {granted, "", 1},
        {lost, "not registered", 1},
        {registered, "had another key; it must grant it again", 1},
        {restarted, "had another key", 1},
        {granted, "", 1},
        {granted, "", 1},
        {[&] { ASSERT_EQ(api_.hoxDeleteAccess(mine_, rules().front().ruleNumber), HOX_RC_OK); },
         "grants no access", 0},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(&step - steps);
        step.happens();
        hoxHandle_t late = 0;
        const int code = logOnAsGuest(late, "testnode", nullptr, nullptr, "late");
        EXPECT_EQ(code == HOX_RC_OK, step.refusal.empty()) << text(code);
        if (code == HOX_RC_OK) {
            EXPECT_EQ(restore(late, "p"), "content of p");
        } else {
            EXPECT_NE(text(code).find(step.refusal), std::string::npos) << text(code);
        }
        EXPECT_EQ(stored("grants").size(), step.grants);
        EXPECT_LE(rules().size(), 1U);
    }
}

} // namespace

} // namespace keel::test
