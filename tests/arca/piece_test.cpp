// Pieces as an administrator looks after them: found by what is asked for, removed as it was shown,
// and whatever is not meant stays.
#include "tests/arca/arca_fixture.h"
#include "tests/support/terminal.h"

namespace keel::test
{

namespace
{

using PieceTest = ArcaTest;

TEST_F(PieceTest, LsFindsWhatItIsAskedFor)
{
    ASSERT_EQ(arca({"class", "define", "gold", "--days", "9"}).status, 0);
    const hoxHandle_t handle = logOn();
    store(handle, "df_1", "small");
    store(handle, "df_2", std::string(5000, 'x'), "gold");
    store(handle, "l?g*", "odd");
    store(handle, "old", "was here");
    ASSERT_EQ(arca({"rm", "old", "--deactivate", "--yes"}).status, 0);
    store(handle, "old", "is here");

    const struct {
        Words options;
        std::string found;
    } cases[] = {
        {{}, "df_1 df_2 l?g* old"},
        {{"df_*"}, "df_1 df_2"},
        {{"df_?"}, "df_1 df_2"},
        {{"/fs//df_1"}, "df_1"},
        {{"--filespace", "fs"}, "df_1 df_2 l?g* old"},
        {{"--filespace", "/other"}, ""},
        {{"--class", "Gold"}, "df_2"},
        {{"--larger", "1k"}, "df_2"},
        {{"--smaller", "4"}, "l?g*"},
        {{"--larger", "05001"}, ""}, // decimal
        {{"--older", "1h"}, ""},
        {{"--newer", "1h"}, "df_1 df_2 l?g* old"},
        {{"--newer", "2999-01-01"}, ""},
        {{"--owner", "oracle"}, "df_1 df_2 l?g* old"},
        {{"--owner", "nobody"}, ""},
        {{"--inactive"}, "old"},
        {{"--all", "o*"}, "old old"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(listed(c.options), c.found) << testing::PrintToString(c.options);

    for (const Words &form :
         {Words{"ls", "--long", "--sort", "name"}, Words{"ls", "--tree", "--all"},
          Words{"ls", "--sort", "size"}, Words{"ls", "--sort", "name"}}) {
        const ProgramResult shown = arca(form);
        EXPECT_EQ(shown.status, 0) << shown.err;
        EXPECT_LT(shown.out.find("df_2"), shown.out.find("l?g*")) << shown.out;
    }
    EXPECT_EQ(arca({"ls", "none*"}).status, 1);
    EXPECT_EQ(arca({"ls", "--inactive", "--all"}).status, 2);

    for (const Words &verb : {Words{"ls"}, Words{"show", "old"}, Words{"stats"}}) {
        Words timed = verb;
        timed.emplace_back("--timing");
        EXPECT_GT(arcaJson(timed)["timing"]["client calls"]["calls"], 0) << verb[0];
        EXPECT_NE(arca(timed).err.find("client calls"), std::string::npos) << verb[0];
        EXPECT_FALSE(arcaJson(verb).contains("timing")) << verb[0];
    }

    const auto shown = arcaJson({"show", "old"});
    ASSERT_EQ(shown["versions"].size(), 2U) << "both versions";
    EXPECT_NE(shown["versions"][0]["active"], shown["versions"][1]["active"]);
    EXPECT_EQ(arcaJson({"show", "df_2"})["versions"][0]["class"], "GOLD");
    EXPECT_EQ(arcaJson({"show", "l?g*"})["versions"].size(), 1U) << "a name, not a pattern";
    EXPECT_EQ(arca({"show", "df_*"}).status, 1);
}

TEST_F(PieceTest, RmDoesWhatItSaidAndNothingElse)
{
    const hoxHandle_t handle = logOn();
    for (const char *piece : {"df_1", "df_2", "log_1"})
        store(handle, piece, piece);
    const struct {
        Words words;
        int status;
        std::string active, inactive;
    } steps[] = {
        {{"df_*"}, 2, "df_1 df_2 log_1", ""}, // nobody to ask
        {{}, 2, "df_1 df_2 log_1", ""},
        {{"df_*", "--dry-run"}, 0, "df_1 df_2 log_1", ""},
        {{"none*", "--yes"}, 1, "df_1 df_2 log_1", ""},
        {{"df_1", "--deactivate", "--dry-run"}, 0, "df_1 df_2 log_1", ""},
        {{"df_1", "--deactivate", "--yes"}, 0, "df_2 log_1", "df_1"},
        {{"df_1", "--deactivate", "--yes"}, 1, "df_2 log_1", "df_1"},
        {{"*", "--older", "1h", "--yes"}, 1, "df_2 log_1", "df_1"},
        {{"--id", "ffffffff00000001", "--yes"}, 1, "df_2 log_1", "df_1"},
        {{"--id", "no", "--yes"}, 2, "df_2 log_1", "df_1"},
        {{"log_1", "--inactive", "--yes"}, 1, "df_2 log_1", "df_1"},
        {{"df_*", "--yes"}, 0, "log_1", "df_1"},
        {{"*", "--inactive", "--yes"}, 0, "log_1", ""},
        {{"*", "--yes"}, 0, "", ""},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(testing::PrintToString(step.words));
        Words words{"rm"};
        words.insert(words.end(), step.words.begin(), step.words.end());
        const ProgramResult result = arca(words);
        EXPECT_EQ(result.status, step.status) << result.err;
        EXPECT_EQ(std::ranges::count(result.err, '\n'), step.status != 0 ? 1 : 0) << result.err;
        EXPECT_EQ(listed({}), step.active);
        EXPECT_EQ(listed({"--inactive"}), step.inactive);
    }
    // By identifiers, of which some are gone by now: the others still go, each is told.
    Words byId{"rm", "--yes"};
    for (const char *piece : {"a", "b", "c"}) {
        store(handle, piece, piece);
        byId.insert(byId.end(), {"--id", arcaJson({"show", piece})["versions"][0]["id"]});
    }
    ASSERT_EQ(arca({"rm", "b", "--yes"}).status, 0);
    const auto removed = arcaJson(byId);
    EXPECT_EQ(removed["deleted"], 2);
    EXPECT_EQ(removed["missing"], 1);
    EXPECT_EQ(listed({}), "");
    EXPECT_NE(arca({"log"}).out.find("arca rm: 2 pieces deleted"), std::string::npos);
}

TEST_F(PieceTest, ADamagedPieceHoldsUpNoOther)
{
    ASSERT_EQ(arca({"class", "define", "gold"}).status, 0);
    ASSERT_EQ(arca({"class", "change", "STANDARD", "--days", "0"}).status, 0);
    const hoxHandle_t handle = logOn();
    for (const char *piece : {"df_1", "df_3", "df_1", "df_3"}) {
        (void)arca({"rm", piece, "--deactivate", "--yes"});
        store(handle, piece, piece);
    }
    const auto others = stored("pieces");
    store(handle, "df_2", "df_2");
    const auto idOf = [&](const char *piece) {
        return arcaJson({"ls", piece})["objects"][0]["id"].get<std::string>();
    };
    const std::string first = idOf("df_1"), second = idOf("df_2");
    const auto all = stored("pieces");
    const auto damaged = std::ranges::find_if(
        all, [&](const auto &file) { return std::ranges::count(others, file) == 0; });
    ASSERT_NE(damaged, all.end());
    const auto flip = [&] {
        std::string bytes = readFile(*damaged);
        for (char &byte : bytes)
            byte ^= 1;
        writeFile(*damaged, bytes);
    };
    flip();
    const struct {
        Words words;
        const char *told;
        int status = 1;
        bool cached = false; ///< the catalogue knows the piece from before it was damaged
    } steps[] = {
        {{"class", "bind", "gold", "df_*", "--dry-run"}, "Would bind 2 pieces to gold"},
        {{"class", "bind", "gold", "df_*"}, "Bound 2 pieces to gold"},
        {{"expire", "--dry-run"}, "Would expire  2 of 2 inactive versions"},
        {{"expire"}, "Expired  2 of 2 inactive versions"},
        {{"rm", "df_*", "--dry-run"}, "Would be: 2 pieces, "},
        {{"verify"}, "Hurt piece  /fs//df_2 (pieces/", 1, true},
        {{"rm", "--id", first, "--id", second}, "1 piece deleted"},
        {{"rm", "df_*"}, "1 piece, 4 bytes deleted"},
        {{"rm", "df_2", "--deactivate"}, "df_2 is damaged, and a damaged piece cannot"},
        {{"rm", "df_2"}, "/fs//df_2 is set aside as quarantine/", 0},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(testing::PrintToString(step.words));
        if (step.cached) {
            flip();
            ASSERT_EQ(listed({}), "df_1 df_2 df_3");
            flip();
        }
        Terminal asks(commandLine(step.words));
        if (step.words.back() != "--dry-run" && step.words.back() != "verify")
            asks.answer("[y/N] ", "y\n");
        EXPECT_EQ(asks.finish(), step.status);
        EXPECT_NE(asks.shown.find(step.told), std::string::npos) << asks.shown;
    }
    EXPECT_EQ(listed({"--all"}), "") << "the others went";
}

TEST_F(PieceTest, BindAndAccessSayWhatHolds)
{
    ASSERT_EQ(arca({"class", "define", "gold"}).status, 0);
    const hoxHandle_t handle = logOn();
    for (const char *piece : {"df_1", "df_2", "log_1"})
        store(handle, piece, piece);
    EXPECT_EQ(arcaJson({"class", "bind", "gold", "df_*", "--dry-run"})["bound"], 2);
    EXPECT_EQ(listed({"--class", "gold"}), "");
    EXPECT_EQ(arca({"class", "bind", "gold", "df_*"}).status, 2) << "nobody to ask";
    EXPECT_EQ(arcaJson({"class", "bind", "gold", "df_*", "--yes"})["bound"], 2);
    EXPECT_EQ(listed({"--class", "gold"}), "df_1 df_2");
    EXPECT_EQ(arcaJson({"class", "bind", "gold", "df_*"})["bound"], 0) << "nothing twice";
    for (const Words &nothing : {Words{"class", "bind", "none", "df_*"},
                                 Words{"class", "bind", "gold", "none*"}, Words{"expire", "none*"}})
        EXPECT_EQ(arca(nothing).status, 1) << testing::PrintToString(nothing);

    EXPECT_EQ(arca({"access", "grant", "other", "--filespace", "/none"}).status, 1);
    ASSERT_EQ(arca({"access", "grant", "other", "df_1", "--filespace", "/fs"}).status, 0);
    EXPECT_EQ(arcaJson({"show", "df_1"})["versions"][0]["readers"], Words{"other"});
    EXPECT_EQ(arcaJson({"show", "df_2"})["versions"][0]["readers"], Words{});
    const ProgramResult all = arca({"access", "grant", "other", "*", "--filespace", "/fs"});
    EXPECT_NE(all.out.find("every piece of filespace /fs, stored already or from now on"),
              std::string::npos)
        << all.out;
    const auto guest = [&](const Words &words) { return arca(words, "", "guest.opt"); };
    writeFile("guest.opt", repositoryLine() + "NODENAME other\n");
    ASSERT_EQ(guest({"node", "add", "other"}).status, 0);
    ASSERT_EQ(api_.hoxTerminate(logOn()), HOX_RC_OK); // gives the key that the rules lack
    writeFile("guest.opt", readFile("guest.opt") + "ASNODE testnode\n");
    ASSERT_EQ(guest({"ls"}).status, 0);
    // A dry run refuses a guest what the real run would.
    for (Words words :
         {Words{"rm", "df_*"}, Words{"rm", "--id", "5"}, Words{"rm", "df_*", "--deactivate"},
          Words{"class", "bind", "gold", "*"}, Words{"expire"}}) {
        words.emplace_back("--dry-run");
        const std::string dry = guest(words).err;
        words.back() = "--yes";
        const ProgramResult real = guest(words);
        EXPECT_EQ(real.status, 1);
        EXPECT_NE(real.err.find("may only find and read"), std::string::npos) << real.err;
        EXPECT_EQ(dry, real.err);
    }
    EXPECT_NE(guest({"show", "df_1"}).out.find("known to the node that stored it"),
              std::string::npos);
    const auto rules = arcaJson({"access", "list"})["rules"];
    ASSERT_EQ(rules.size(), 2U);
    std::string number;
    for (const auto &rule : rules) {
        number = std::to_string(rule["rule"].get<std::uint32_t>());
        EXPECT_EQ(arca({"access", "revoke", number, number}).status, 0);
    }
    EXPECT_EQ(arca({"access", "revoke", number}).status, 1);
    EXPECT_EQ(arcaJson({"access", "list"})["rules"].size(), 0U);
}

} // namespace

} // namespace keel::test
