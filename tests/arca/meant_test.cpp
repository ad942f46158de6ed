// The program works on what it was pointed at and asked for, and on nothing else: the right
// repository, the right pieces, the right file.
#include "tests/arca/arca_fixture.h"
#include "tests/support/terminal.h"

#include <sys/stat.h>

#include <filesystem>
#include <map>

namespace keel::test
{

namespace
{

namespace fs = std::filesystem;

/// Every file below a directory, with what is in it.
std::map<std::string, std::string> contentOf(const fs::path &directory)
{
    std::map<std::string, std::string> content;
    for (const auto &entry : fs::recursive_directory_iterator(directory))
        content[entry.path().string()] = entry.is_regular_file() ? readFile(entry.path()) : "";
    return content;
}

class MeantTest : public ArcaTest
{
protected:
    /// Every verb that arca has, as its manual pages name them, with operands that let it work.
    std::vector<Words> verbs() const
    {
        const std::map<std::string, const char *> operands = {
            {"access grant", "other --filespace /fs"},
            {"access revoke", "1"},
            {"class bind", "GOLD * --yes"},
            {"class change", "STANDARD --days 5"},
            {"class define", "gold"},
            {"class delete", "gold"},
            {"expire", "--yes"},
            {"grace", "1d"},
            {"key check", "--stdin"},
            {"key export", "--stdin"},
            {"key import", "/dev/null --stdin"},
            {"log", "--prune 1 --yes"},
            {"node add", "another --stdin"},
            {"node passwd", "testnode --recovery --stdin"},
            {"node remove", "testnode --yes"},
            {"rm", "* --yes"},
            {"show", "p"},
            {"undelete", "*"}};
        EXPECT_EQ(run({arcaProgram(), "--generate", "share"}).status, 0);
        std::vector<Words> found;
        for (const auto &page : fs::directory_iterator("share/man/man1")) {
            std::string name = page.path().stem().string();
            if (name == "arca" || readFile(page.path()).find("optfile") == std::string::npos)
                continue; // the program itself, and verbs that only hold others
            name.erase(0, std::string("arca-").size());
            std::ranges::replace(name, '-', ' ');
            const auto more = operands.find(name);
            found.push_back(wordsOf(more == operands.end() ? name : name + " " + more->second));
        }
        std::ranges::sort(found, {}, [](const Words &words) { // the node goes last
            return std::pair(words.size() > 1 && words[1] == "remove", words);
        });
        EXPECT_GT(found.size(), 20U);
        return found;
    }

    /// The question that a verb asks is answered with yes, after `meanwhile`.
    std::string answered(const Words &words, const std::function<void()> &meanwhile)
    {
        Terminal asks(commandLine(words));
        asks.answer("[y/N] ", "");
        meanwhile();
        asks.answer("", "y\n");
        EXPECT_EQ(asks.finish(), 0) << asks.shown;
        return asks.shown;
    }

    void again(const std::string &piece)
    {
        ASSERT_EQ(arca({"rm", piece, "--yes"}).status, 0);
        store(logOn(), piece, "under another identifier");
    }
};

TEST_F(MeantTest, TheCommandLineBeatsTheEnvironmentForEveryVerb)
{
    store(logOn(), "p", "stays");
    ASSERT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
    const fs::path named = installation_.directory() / "named";
    writeFile("named.opt", "REPOSITORY file://" + named.string() + "\nNODENAME testnode\n");
    ASSERT_EQ(run({arcaProgram(), "init", "--optfile", "named.opt"}).status, 0);
    const fs::path others = installation_.clientOptions();
    const auto before = contentOf(installation_.repository());
    const std::string keys = readFile(others.string() + ".keys");
    const auto told = [&](Words words, const fs::path &environment) {
        ProgramOptions options;
        options.environment["ARCA_OPTFILE"] = environment;
        options.input = "a long passphrase\n";
        words.insert(words.begin(), arcaProgram());
        words.emplace_back("--json");
        const ProgramResult result = run(words, options);
        EXPECT_NE(result.status, 2) << "give it the operands that it needs: " << result.err;
        auto object = nlohmann::json::parse(result.out, nullptr, false);
        return object.is_object() ? object.value("repository", result.err) : result.err;
    };
    for (const Words &verb : verbs()) {
        SCOPED_TRACE(testing::PrintToString(verb));
        Words both = verb;
        both.insert(both.end(), {"--optfile", "named.opt"});
        // These refuse the key that they read before they come to a repository.
        const std::string name = verb[0] + " " + (verb.size() > 1 ? verb[1] : "");
        const bool comes = name != "key check" && name != "key import" && name != "node passwd";
        const std::string expected = comes ? named.string() : told(both, "named.opt");
        EXPECT_EQ(told(both, others), expected);
        EXPECT_EQ(contentOf(installation_.repository()), before);
        EXPECT_EQ(readFile(others.string() + ".keys"), keys);
        EXPECT_EQ(told(verb, "named.opt"), expected) << "the environment alone";
    }
    EXPECT_EQ(contentOf(installation_.repository()), before);
}

TEST_F(MeantTest, WhatSelectsNothingOrIsImpossibleNeverMeansEverything)
{
    const hoxHandle_t handle = logOn();
    store(handle, "p", "stays");
    store(handle, "q", "stays, too");
    ASSERT_EQ(arca({"class", "define", "gold"}).status, 0);
    const std::string id = arcaJson({"show", "p"})["versions"][0]["id"];
    const Words rm = {"rm", "*", "--yes"}, byId = {"rm", "--id", id, "--yes"};
    const Words cases[] = {
        {"--older", "1970-01-01"}, {"--older", "1969-12-31"}, {"--older", "0d"},
        {"--newer", "999999w"},    {"--older", ""},           {"--newer", "2026-02-31"},
        {"--newer", ""},           {"--smaller", "0"},        {"--larger", "0"},
        {"--larger", "0.1"},       {"--smaller", ""},         {"--owner", ""},
        {"--class", ""},           {"--filespace", ""},       {"--newer", "2026-01-01T00:00:60Z"},
    };
    const auto refused = [&](Words words, const Words &more, int status) {
        words.insert(words.end(), more.begin(), more.end());
        const ProgramResult result = arca(words);
        EXPECT_EQ(result.status, status) << testing::PrintToString(words) << result.err;
        EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
        EXPECT_EQ(listed({}), "p q") << testing::PrintToString(words);
    };
    for (const Words &wrong : cases) {
        refused(rm, wrong, 2);
        refused(byId, wrong, 2);
    }
    for (const Words &filter :
         {Words{"--older", "1h"}, {"--larger", "1M"}, {"--inactive"}, {"--owner", "nobody"}})
        refused(byId, filter, 1); // filters narrow what identifiers name
    refused({"rm", "/fs//p", "--yes"}, {"--filespace", "/other"}, 2);
    const auto others = linesOf(
        "rm '' --yes; rm //p --yes; rm --id '' --yes; expire '' --yes; class bind gold '' --yes; "
        "class bind '' * --yes; class change gold --days ''; access grant other ''; "
        "access grant '' p; access grant other p* --filespace /fs; "
        "access grant other p --filespace /f?; access grant other /fs//p --filespace /fs; "
        "access grant other /fs//p*; access grant other /fs//; log --prune 0 --yes; "
        "log --prune 30 --yes --node other; log --prune 30 --yes --before 90d; "
        "log --since 1970-01-01");
    for (const Words &wrong : others)
        refused(wrong, {}, 2);
    EXPECT_EQ(arcaJson({"access", "list"})["rules"].size(), 0U);
    ASSERT_EQ(arca({"access", "grant", "other", "/fs//p"}).status, 0);
    const auto rule = arcaJson({"access", "list"})["rules"][0];
    EXPECT_EQ(rule["filespace"], "/fs");
    EXPECT_EQ(rule["piece"], "p");
    EXPECT_EQ(listed({"--class", "gold"}), "");

    EXPECT_EQ(arcaJson({"rm", "--id", id, "--newer", "1h", "--yes"})["deleted"], 1);
    EXPECT_EQ(listed({}), "q");
    EXPECT_EQ(arca({"class", "change", "gold", "--description", ""}).status, 0);
}

TEST_F(MeantTest, WhatIsDoneIsWhatWasShown)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(arca({"class", "define", "gold"}).status, 0);
    const auto fresh = [&] {
        (void)arca({"rm", "*", "--all", "--yes"});
        store(handle, "df_1", "one");
        store(handle, "df_2", "two");
    };
    const auto meanwhile = [&] {
        store(handle, "df_3", "three"); // came after it was counted
        again("df_2");                  // the one that was counted went
    };
    fresh();
    std::string said = answered({"rm", "df_*"}, meanwhile);
    EXPECT_EQ(listed({}), "df_2 df_3");
    EXPECT_NE(said.find("1 of the 2 pieces"), std::string::npos) << said;
    EXPECT_NE(said.find("1 piece, 3 bytes deleted"), std::string::npos) << said;
    fresh();
    said = answered({"rm", "df_*", "--deactivate"}, meanwhile);
    EXPECT_EQ(listed({}), "df_2 df_3");
    EXPECT_EQ(listed({"--inactive"}), "df_1");
    fresh();
    said = answered({"class", "bind", "gold", "df_*"}, meanwhile);
    EXPECT_EQ(listed({"--class", "gold"}), "df_1");
    EXPECT_NE(said.find("2 pieces are bound"), std::string::npos) << said;
    EXPECT_NE(said.find("1 piece is not there any more"), std::string::npos) << said;

    // Expiry, of versions that one day more has made too old.
    (void)arca({"rm", "*", "--all", "--yes"});
    ASSERT_EQ(arca({"class", "change", "STANDARD", "--days", "0"}).status, 0);
    const auto version = [&](const char *piece) {
        store(handle, piece, "goes");
        ASSERT_EQ(arca({"rm", piece, "--deactivate", "--yes"}).status, 0);
        store(handle, piece, "stays");
    };
    version("a");
    version("b");
    said = answered({"expire"}, [&] {
        version("c");
        ASSERT_EQ(arca({"rm", "b", "--inactive", "--yes"}).status, 0);
    });
    EXPECT_EQ(listed({"--inactive"}), "c");
    EXPECT_EQ(listed({}), "a b c");
    EXPECT_NE(said.find("1 of those is not there any more"), std::string::npos) << said;
}

TEST_F(MeantTest, ADryRunByIdentifierIsWhatTheRunDoes)
{
    const hoxHandle_t handle = logOn();
    const auto idOf = [&](const char *piece) -> std::string {
        return arcaJson({"show", piece})["versions"][0]["id"];
    };
    store(handle, "old", "goes");
    store(handle, "p", "brought back");
    ASSERT_EQ(arca({"rm", "old", "--deactivate", "--yes"}).status, 0);
    const std::string old = idOf("old"), former = idOf("p");
    ASSERT_EQ(arca({"rm", "p", "--yes"}).status, 0);
    ASSERT_EQ(arca({"undelete", "p"}).status, 0);
    const struct {
        Words words;
        const char *field;
        int count, status;
    } cases[] = {
        {{"--id", old, "--deactivate"}, "deactivated", 0, 1},
        {{"--id", former, "--deactivate"}, "deactivated", 1, 0},
        {{"--id", former, "--id", old}, "deleted", 2, 0},
        {{"--id", former}, "deleted", 0, 1},
    };
    for (const auto &c : cases)
        for (const char *way : {"--dry-run", "--yes"}) {
            Words words = c.words;
            words.insert(words.begin(), "rm");
            words.emplace_back(way);
            const auto told = arcaJson(words, c.status);
            EXPECT_EQ(told[c.field], c.count) << testing::PrintToString(words);
            EXPECT_EQ(told["size"].is_null(), c.count != 0 && words.back() == "--yes")
                << "it is unknown: " << told;
        }
    EXPECT_EQ(arca({"rm", "p", "--inactive", "--deactivate", "--dry-run"}).status, 2);
}

TEST_F(MeantTest, ABindingHoldsForOneIdentifier)
{
    const hoxHandle_t handle = logOn();
    store(handle, "p", "one");
    const hoxObjName name = nameOf("p");
    ObjAttr attr{};
    attr.mcNameP = "STANDARD";
    attr.stVersion = HOX_OBJATTR_VERSION_ID;
    const auto id =
        std::stoull(arcaJson({"show", "p"})["versions"][0]["id"].get<std::string>(), nullptr, 16);
    attr.objId = {static_cast<std::uint32_t>(id >> 32), static_cast<std::uint32_t>(id)};
    const std::uint32_t mask = HOX_UPDOBJ_MC | HOX_UPDOBJ_ONLY_ID;
    const auto update = [&](std::uint32_t fields) {
        return api_.hoxUpdateObj(handle, HOX_SEND_BACKUP, &name, &attr, fields);
    };
    EXPECT_EQ(update(mask), HOX_RC_OK);
    EXPECT_EQ(update(HOX_UPDOBJ_ONLY_ID), HOX_RC_BAD_ARGUMENT) << "it changes nothing";
    again("p");
    EXPECT_EQ(update(mask), HOX_RC_OBJECT_UNKNOWN);
    attr.stVersion = HOX_OBJATTR_VERSION;
    EXPECT_EQ(update(mask), HOX_RC_BAD_VERSION) << "a record of then has no identifier";
}

TEST_F(MeantTest, OutputsNeverGoThroughALinkOrReplaceADevice)
{
    ASSERT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
    writeFile("victim", "mine");
    fs::create_symlink("victim", "link");
    fs::create_symlink("/dev/full", "device"); // the link, not the device, is what a test may lose
    ASSERT_EQ(::mkfifo("pipe", 0600), 0);
    for (const Words &verb : {Words{"metrics", "--output"}, {"key", "export", "--stdin", "-o"}}) {
        Words words = verb;
        words.emplace_back("link");
        const ProgramResult refused = arca(words, "a long passphrase\n");
        EXPECT_EQ(refused.status, 1);
        EXPECT_NE(refused.err.find("link is a symbolic link"), std::string::npos) << refused.err;
        EXPECT_EQ(readFile("victim"), "mine");
        words.back() = "device";
        EXPECT_EQ(arca(words, "a long passphrase\n").status, 1) << "it is full";
        EXPECT_TRUE(fs::is_symlink("device"));
        words.back() = "pipe";
        Program reader({"cat", "pipe"});
        EXPECT_EQ(arca(words, "a long passphrase\n").status, 0);
        EXPECT_GT(reader.wait().out.size(), 100U);
        EXPECT_TRUE(fs::is_fifo("pipe"));
    }
    EXPECT_NE(arca({"metrics", "--output", "/dev/stdout"}).out.find("arca_pieces"),
              std::string::npos);
    EXPECT_EQ(arca({"metrics", "--output", "victim"}).status, 0) << "a file is replaced";
    EXPECT_EQ(fs::status("victim").permissions(), fs::perms{0644});
    EXPECT_EQ(arca({"key", "export", "--stdin", "-o", "fresh"}, "a long passphrase\n").status, 0);
    EXPECT_EQ(fs::status("fresh").permissions(), fs::perms{0600});
    EXPECT_EQ(arca({"key", "export", "--stdin", "-o", "fresh"}, "a long passphrase\n").status, 1);
}

TEST_F(MeantTest, KeptPasswordsStayBehindTheirLink)
{
    const fs::path keys = installation_.clientOptions().string() + ".keys";
    fs::create_directory("safe");
    fs::rename(keys, "safe/keys");
    fs::create_symlink("safe/keys", keys);
    const std::string before = readFile("safe/keys");
    EXPECT_EQ(arca({"node", "add", "another"}).status, 0);
    EXPECT_TRUE(fs::is_symlink(keys));
    EXPECT_NE(readFile("safe/keys"), before);
    EXPECT_NE(readFile("safe/keys").find(" another\n"), std::string::npos);
    EXPECT_EQ(fs::status("safe/keys").permissions(), fs::perms{0600});
    EXPECT_EQ(arca({"ls"}).status, 0);
}

} // namespace

} // namespace keel::test
