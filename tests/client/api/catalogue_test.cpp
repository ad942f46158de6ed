// Listing all objects of a node: what the filters admit, in which order, and whatever becomes of
// the catalogue behind it, always what is there.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

namespace keel::test
{

namespace
{

namespace fs = std::filesystem;

class CatalogueTest : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        handle_ = logOn();
        for (const char *piece : {"df_1", "df_2", "ctl_1", "log*1"})
            ASSERT_EQ(backUp(handle_, piece, std::string(std::strlen(piece) * 100, 'x')), 0);
        ASSERT_EQ(deactivate("df_2"), HOX_RC_OK);
        ASSERT_EQ(backUp(handle_, "df_2", "again"), HOX_RC_OK);
    }

    int deactivate(const std::string &piece)
    {
        return changeById(handle_, HOX_DEACTIVATE_BACKUP_ID, recordOf(handle_, piece).objId);
    }

    struct Listed {
        std::vector<std::string> names; ///< inactive ones in parentheses
        int ended;                      ///< the last code
        std::vector<std::string> records = {};
        bool operator==(const Listed &other) const
        {
            return names == other.names && ended == other.ended;
        }
    };
    Listed list(hoxHandle_t handle, const qryObjectsData &asked = everything())
    {
        Listed listed{};
        qryRespBackupData before{};
        listed.ended =
            ask<qryRespBackupData>(handle, HOX_QUERY_OBJECTS, &asked, [&](const auto &answer) {
                const std::string name = answer.objName.llName + 1;
                const bool active = answer.objState == HOX_STATE_ACTIVE;
                listed.names.push_back(active ? name : "(" + name + ")");
                listed.records.emplace_back(reinterpret_cast<const char *>(&answer), sizeof answer);
                EXPECT_EQ(answer.inactDate.year == 0, active);
                EXPECT_TRUE(asked.order != HOX_ORDER_INSERTED ||
                            before.insTime.lo <= answer.insTime.lo);
                before = answer;
            });
        return listed;
    }
    /// Sorted, as objects of one second come in the order of their identifiers.
    Listed listSorted(hoxHandle_t handle, const qryObjectsData &asked = everything())
    {
        Listed listed = list(handle, asked);
        std::sort(listed.names.begin(), listed.names.end());
        return listed;
    }

    fs::path file() const
    {
        const std::vector<fs::path> files = cached("objects-");
        return files.empty() ? fs::path() : files.front();
    }

    const Listed all_{{"(df_2)", "ctl_1", "df_1", "df_2", "log*1"}, HOX_RC_FINISHED};
    hoxHandle_t handle_ = 0;
};

TEST_F(CatalogueTest, AnswersWhatTheFiltersAdmit)
{
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    struct Case {
        const char *what;
        std::function<void(qryObjectsData &)> ask;
        std::vector<std::string> names;
        int ended = HOX_RC_FINISHED;
    };
    const Case cases[] = {
        {"everything", [](auto &) {}, all_.names},
        {"active",
         [](auto &q) { q.objState = HOX_STATE_ACTIVE; },
         {"ctl_1", "df_1", "df_2", "log*1"}},
        {"inactive", [](auto &q) { q.objState = HOX_STATE_INACTIVE; }, {"(df_2)"}},
        {"a run", [](auto &q) { q.llName = "/df*"; }, {"(df_2)", "df_1", "df_2"}},
        {"one byte", [](auto &q) { q.llName = "/*_?"; }, {"(df_2)", "ctl_1", "df_1", "df_2"}},
        {"one byte where the rest is named",
         [](auto &q) {
             q.fsName = "/fs";
             q.hlName = "/";
             q.llName = "/df_?";
         },
         {"(df_2)", "df_1", "df_2"}},
        {"case matters", [](auto &q) { q.llName = "/DF*"; }, {}, HOX_RC_NO_MATCH},
        {"filespace",
         [](auto &q) {
             q.fsName = "/f?";
             q.hlName = "*";
         },
         all_.names},
        {"another filespace", [](auto &q) { q.fsName = "/g"; }, {}, HOX_RC_NO_MATCH},
        {"owner",
         [](auto &q) {
             q.owner = "oracle";
             q.mcName = "standard";
         },
         all_.names},
        {"another owner", [](auto &q) { q.owner = "oracl"; }, {}, HOX_RC_NO_MATCH},
        {"another class", [](auto &q) { q.mcName = "GOLD"; }, {}, HOX_RC_NO_MATCH},
        {"large", [](auto &q) { q.minSize.lo = 500; }, {"ctl_1", "log*1"}},
        {"small", [](auto &q) { q.maxSize.lo = 499; }, {"(df_2)", "df_1", "df_2"}},
        {"from", [&](auto &q) { q.insertedFrom = now + 9; }, {}, HOX_RC_NO_MATCH},
        {"before", [&](auto &q) { q.insertedBefore = now - 90; }, {}, HOX_RC_NO_MATCH},
        {"between",
         [&](auto &q) {
             q.insertedFrom = now - 90;
             q.insertedBefore = now + 9;
         },
         all_.names},
        {"inactive since", [&](auto &q) { q.inactiveBefore = now + 9; }, {"(df_2)"}},
        {"by name", [](auto &q) { q.order = HOX_ORDER_NAME; }, all_.names},
        {"unknown order", [](auto &q) { q.order = 2; }, {}, HOX_RC_BAD_ARGUMENT},
        {"unknown state", [](auto &q) { q.objState = 3; }, {}, HOX_RC_BAD_ARGUMENT},
        {"the first version", [](auto &q) { q.stVersion = 1; }, all_.names},
        {"unknown version", [](auto &q) { q.stVersion = 3; }, {}, HOX_RC_BAD_VERSION},
    };
    for (const Case &one : cases) {
        qryObjectsData asked = everything();
        one.ask(asked);
        EXPECT_EQ(listSorted(handle_, asked), (Listed{one.names, one.ended})) << one.what;
    }
    // To the letter, and by patterns that only the same names match: the same answers.
    for (const Case &one : cases) {
        for (const char *name : {"/df_1", "/df_2", "/ctl_1", "/none"}) {
            qryObjectsData exact = everything();
            one.ask(exact);
            exact.hlName = "/";
            exact.llName = name;
            qryObjectsData pattern = exact;
            pattern.hlName = "*";
            const Listed found = list(handle_, exact), expected = list(handle_, pattern);
            EXPECT_EQ(found, expected) << one.what << name;
            EXPECT_EQ(found.records, expected.records) << one.what << name;
        }
    }
    qryObjectsData byName = everything();
    byName.order = HOX_ORDER_NAME;
    const Listed first = list(handle_, byName);
    const auto placeOf = [&](const char *name) {
        return std::find(first.names.begin(), first.names.end(), name) - first.names.begin();
    };
    EXPECT_EQ(std::abs(placeOf("(df_2)") - placeOf("df_2")), 1)
        << "objects of one name stand together";
    EXPECT_EQ(list(handle_, byName), first) << "the order is stable";
}

TEST_F(CatalogueTest, NobodyWaitsForItWhoNamesAPiece)
{
    qryObjectsData asked = everything();
    asked.hlName = "/";
    asked.llName = "/df_2";
    for (const char *filespace : {"/fs", "", "/f*"}) {
        asked.fsName = filespace;
        EXPECT_EQ(listSorted(handle_, asked), (Listed{{"(df_2)", "df_2"}, HOX_RC_FINISHED}));
        EXPECT_EQ(file(), fs::path()) << filespace;
    }
    flipByte(stored("inactive").front(), 70);
    EXPECT_EQ(list(handle_, asked), (Listed{{"df_2"}, HOX_RC_REPOSITORY_DAMAGED}));
    asked.llName = "/df_1";
    EXPECT_EQ(list(handle_, asked), (Listed{{"df_1"}, HOX_RC_FINISHED}));
    EXPECT_EQ(api_.hoxDeleteFS(handle_, "/fs", HOX_REPOSITORY_ALL), HOX_RC_OK);
    EXPECT_EQ(list(handle_, asked), (Listed{{}, HOX_RC_NO_MATCH}));
}

TEST_F(CatalogueTest, TellsHowFarItIsAndStopsWhenAsked)
{
    struct Told {
        std::uint64_t stopAt, done = 0, planned = 0;
    };
    qryObjectsData asked = everything();
    asked.progress = [](void *context, std::uint64_t done, std::uint64_t planned) -> std::int16_t {
        Told &told = *static_cast<Told *>(context);
        EXPECT_LE(told.done, done);
        EXPECT_LE(done, planned);
        told = {told.stopAt, done, planned};
        return done >= told.stopAt ? 1 : 0;
    };
    // Before anything is in the catalogue, and when all of it is.
    for (const std::uint64_t stopAt : {0, 3, 5, 99, 0, 5, 99}) {
        Told told{stopAt};
        asked.progressContext = &told;
        const Listed listed = listSorted(handle_, asked);
        EXPECT_EQ(listed, stopAt == 99 ? all_ : (Listed{{}, HOX_RC_ABORTED})) << stopAt;
        // It may be told in larger steps than one, as objects happen to lie together.
        EXPECT_GE(told.done, stopAt == 99 ? 5 : stopAt);
        EXPECT_TRUE(stopAt != 99 || told.planned == 5) << told.planned;
    }
}

TEST_F(CatalogueTest, IsNeverBehindWhatIsThere)
{
    ASSERT_EQ(listSorted(handle_), all_);
    const hoxHandle_t other = logOn();
    const hoxObjName name = nameOf("df_1");
    ObjAttr attr = attributes();
    std::strcpy(attr.owner, "other");
    qryObjectsData othersOnly = everything();
    othersOnly.owner = "other";
    const std::pair<std::function<int()>, std::vector<std::string>> steps[] = {
        {[&] { return remove(other, "ctl_1"); }, {"(df_2)", "df_1", "df_2", "log*1"}},
        {[&] { return backUp(other, "ctl_1", "new"); }, all_.names},
        {[&] {
             // The same name, and the same length: another object.
             return remove(other, "ctl_1") != 0 ? 1 : backUp(other, "ctl_1", "wen");
         },
         all_.names},
        {[&] { return api_.hoxRenameObj(other, HOX_SEND_BACKUP, &name, "/", "/moved"); },
         {"(df_2)", "ctl_1", "df_2", "log*1", "moved"}},
        {[&] { return deactivate("moved"); }, {"(df_2)", "(moved)", "ctl_1", "df_2", "log*1"}},
        {[&] {
             const hoxObjName changed = nameOf("df_2");
             return api_.hoxUpdateObj(other, HOX_SEND_BACKUP, &changed, &attr, HOX_UPDOBJ_OWNER);
         },
         {"(df_2)", "(moved)", "ctl_1", "df_2", "log*1"}},
    };
    for (const auto &[step, names] : steps) {
        ASSERT_EQ(step(), HOX_RC_OK);
        EXPECT_EQ(listSorted(handle_).names, names) << &names - &steps[0].second;
        // Each identifier that is told leads to an object.
        qryObjectsData asked = everything();
        asked.llName = "/ctl_1";
        const qryRespBackupData exact = recordOf(handle_, "ctl_1");
        if (exact.objId.lo == 0)
            continue;
        EXPECT_EQ(list(handle_, asked).records.at(0),
                  std::string(reinterpret_cast<const char *>(&exact), sizeof exact))
            << "as the exact query tells it";
    }
    EXPECT_EQ(list(handle_, othersOnly).names, std::vector<std::string>{"df_2"});
    EXPECT_EQ(api_.hoxDeleteFS(other, "/fs", HOX_REPOSITORY_ALL), HOX_RC_OK);
    EXPECT_EQ(list(handle_), (Listed{{}, HOX_RC_NO_MATCH}));
}

TEST_F(CatalogueTest, WhateverBecomesOfItsFileTheAnswerIsRight)
{
    ASSERT_EQ(listSorted(handle_), all_);
    const fs::path path = file();
    ASSERT_FALSE(path.empty());
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(backUp(handle_, "z" + std::to_string(i), "z"), HOX_RC_OK);
    const Listed now = listSorted(handle_);
    ASSERT_EQ(now.names.size(), 45U);
    const std::string good = readFile(path);
    const auto put = [&](const std::string &content) {
        fs::remove(path.string() + "-journal");
        writeFile(path, content);
    };
    const struct {
        const char *what;
        std::function<void()> hurt;
    } cases[] = {
        {"another layout",
         [&] {
             std::string other = good;
             const auto at = other.find("whose2 ");
             ASSERT_NE(at, std::string::npos);
             other[at + 5] = '0';
             put(other);
         }},
        {"another node's",
         [&] {
             std::string other = good;
             other[other.find("whose2 ") + 7] ^= 1;
             put(other);
         }},
        {"no file can be made",
         [&] {
             fs::remove_all(path.parent_path());
             writeFile(path.parent_path(), "a file");
         }},
    };
    const auto expectRight = [&](const std::string &what) {
        // Four at once, in sessions of their own: each finds it hurt, and makes it anew.
        Listed answers[4];
        std::vector<std::thread> threads;
        for (Listed &answer : answers)
            threads.emplace_back([this, &answer, handle = logOn()] {
                answer = listSorted(handle);
                EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
            });
        for (std::thread &thread : threads)
            thread.join();
        for (const Listed &answer : answers)
            ASSERT_EQ(answer, now) << what;
    };
    // A byte here and there in every part of every page.
    for (std::size_t at = 16; at < good.size(); at += 211) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x15);
        put(bad);
        ASSERT_EQ(listSorted(handle_), now) << "byte " << at;
    }
    for (const auto &one : cases) {
        for (int round = 0; round < 3; ++round) {
            one.hurt();
            expectRight(one.what);
        }
    }
}

TEST_F(CatalogueTest, PassesOverWhatIsHurtAndSaysSo)
{
    ASSERT_EQ(listSorted(handle_), all_);
    const fs::path hurt = stored("pieces").front();
    flipByte(hurt, 70);
    const Listed listed = listSorted(handle_);
    EXPECT_EQ(listed.names.size(), all_.names.size() - 1);
    EXPECT_EQ(listed.ended, HOX_RC_REPOSITORY_DAMAGED);
    EXPECT_NE(readFile(installation_.directory() / "veloerror.log").find(hurt.filename()),
              std::string::npos);
}

} // namespace

} // namespace keel::test
