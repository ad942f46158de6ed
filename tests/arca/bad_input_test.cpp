// Whatever is wrong with what arca is pointed at: one line that says so, the right exit status, and
// nothing is changed.
#include "tests/arca/arca_fixture.h"
#include "tests/support/terminal.h"

#include <csignal>

#include <filesystem>
#include <unistd.h>

namespace keel::test
{

namespace
{

using BadInputTest = ArcaTest;

namespace fs = std::filesystem;

const std::vector<Words> kVerbs = linesOf(
    "ls; show p; rm p --yes; expire --yes; access list; class list; class define x; log; "
    "log --prune 1 --yes; metrics; stats; verify; reclaim; repair; ls --removed; undelete p; "
    "grace 1d; key export --stdin; node list; node remove testnode --yes; unlock");

TEST_F(BadInputTest, WhatIsWrongIsSaidInOneLine)
{
    store(logOn(), "p", "stays");
    ASSERT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
    const fs::path root = installation_.repository();
    const std::string marker = readFile(root / "format");
    const fs::path options = installation_.clientOptions();
    const std::string optionText = readFile(options);
    std::string newer = marker;
    newer[8] = '\x7f'; // the version; a checksum that fits is what the repository tests have
    const auto content = [&] {
        return stored("pieces").size() + stored("nodes").size() + stored("classes").size();
    };
    const std::size_t before = content();
    const auto given = [&](uid_t user) {
        const bool may = ::geteuid() == 0;
        EXPECT_EQ(may ? ::chown((root / "format").c_str(), user, static_cast<gid_t>(-1)) : 0, 0);
    };
    const struct {
        const char *situation;
        std::function<void()> spoil, mend;
        std::size_t verbs; ///< how many of them, from the front, cannot do without
    } cases[] = {
        {"no option file", [&] { fs::rename(options, options.string() + ".x"); },
         [&] { fs::rename(options.string() + ".x", options); }, kVerbs.size()},
        {"a wrong option file", [&] { writeFile(options, optionText + "NONSENSE 1\n"); },
         [&] { writeFile(options, optionText); }, kVerbs.size()},
        {"no repository", [&] { fs::rename(root, root.string() + ".x"); },
         [&] { fs::rename(root.string() + ".x", root); }, kVerbs.size()},
        {"another user's repository", // where only root can make it one
         [&] { given(12345); }, [&] { given(::geteuid()); }, ::geteuid() == 0 ? kVerbs.size() : 0},
        {"another layout", [&] { writeFile(root / "format", newer); },
         [&] { writeFile(root / "format", marker); }, kVerbs.size()},
        {"what was never granted", [&] { writeFile(options, optionText + "ASNODE other\n"); },
         [&] { writeFile(options, optionText); }, 9},
        {"a node that nobody knows", [&] { writeFile(options, optionText + "NODENAME none\n"); },
         [&] { writeFile(options, optionText); }, 14},
        {"no password", [&] { fs::rename(options.string() + ".keys", options.string() + ".x"); },
         [&] { fs::rename(options.string() + ".x", options.string() + ".keys"); }, 14},
    };
    for (const auto &c : cases) {
        c.spoil();
        for (std::size_t i = 0; i < c.verbs; ++i) {
            SCOPED_TRACE(c.situation + testing::PrintToString(kVerbs[i]));
            const ProgramResult result = arca(kVerbs[i], "a long passphrase\n");
            EXPECT_EQ(result.status, 1);
            EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
            EXPECT_EQ(result.out, "");
            EXPECT_GT(result.err.size(), 30U) << result.err;
        }
        if (c.verbs == 0)
            continue;
        const auto told = arcaJson({"ls", "--log", "jobs.log"}, 1);
        const std::string reason = told["error"];
        EXPECT_NE(readFile("jobs.log").find("Z arca ls: " + reason + "\n"), std::string::npos);
        EXPECT_FALSE(told["ok"]);
        EXPECT_TRUE(told["error"].is_string());
        c.mend();
    }
    EXPECT_EQ(content(), before);
    EXPECT_EQ(listed({}), "p");
    EXPECT_EQ(arca({"stats", "--log", "jobs.log"}).status, 0);
    EXPECT_TRUE(readFile("jobs.log").ends_with("Z arca stats: done\n"));
}

/// What is wrong by itself is status 2 whatever the repository holds: there is none here.
TEST_F(BadInputTest, AWrongCommandLineIsStatus2)
{
    fs::rename(installation_.repository(), "elsewhere");
    const auto wrong =
        linesOf("ls --older yesterday; ls --larger 0x10; log --prune 0x10 --yes; ls //p; "
                "ls /fs//p --filespace /fs; rm; rm --id x --yes; rm --blob b --deactivate; "
                "expire //p --yes; undelete --id x; grace soon; verify --max-duration soon; "
                "verify --percent 0; reclaim --max-freed 101; log --severity bad; nonsense; "
                "ls --nonsense; node add " +
                std::string(65, 'n'));
    for (const Words &words : wrong) {
        const ProgramResult result = arca(words);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(words);
        EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
    }
    EXPECT_FALSE(arcaJson({"grace", "soon"}, 2)["ok"]);
    // These ask the storage client first.
    fs::rename("elsewhere", installation_.repository());
    const auto later =
        linesOf("log --since yesterday; show //p; reclaim --grace soon; class define x --days -1; "
                "class change STANDARD; access grant other df_*; access grant *; "
                "access grant other --owner o?; access grant other --filespace " +
                std::string(1100, 'f'));
    for (const Words &words : later)
        EXPECT_EQ(arca(words).status, 2) << testing::PrintToString(words);
}

TEST_F(BadInputTest, OutputThatGoesNowhereIsAFailure)
{
    const hoxHandle_t handle = logOn();
    for (int i = 0; i < 200; ++i)
        store(handle, "piece_" + std::to_string(i), "x");
    const std::string ls =
        arcaProgram().string() + " ls --long --optfile " + installation_.clientOptions().string();
    for (const char *where : {" >&-", " >/dev/full", " --json >/dev/full"}) {
        const ProgramResult result = run({"sh", "-c", ls + where});
        EXPECT_EQ(result.status, 1) << where;
        EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
    }
    // Little enough to fail at the end only, when the work is done.
    const std::string show = arcaProgram().string() + " show piece_1 --log jobs.log --optfile " +
                             installation_.clientOptions().string();
    EXPECT_EQ(run({"sh", "-c", show + " >/dev/full"}).status, 1);
    EXPECT_TRUE(
        readFile("jobs.log")
            .ends_with(
                "Z arca show: everything else is done, but standard output could not be written\n"))
        << readFile("jobs.log");
    for (const auto &program : {arcaProgram(), keelProgram()})
        for (const char *asked : {" --help", " --version", " --generate share"}) {
            const std::string words = program.string() + asked;
            const bool prints = asked != std::string_view(" --generate share");
            EXPECT_EQ(run({"sh", "-c", words + " >/dev/full"}).status, prints ? 1 : 0) << words;
            EXPECT_EQ(run({"sh", "-c", words + " >/dev/null"}).status, 0) << words;
        }
    // A terminal that goes away while it is asked, also under nohup.
    for (const std::string words : {"rm piece_1", "log --prune 1", "node remove testnode"}) {
        const std::string asks = " " + arcaProgram().string() + " " + words +
                                 " --log jobs.log --optfile " +
                                 installation_.clientOptions().string();
        for (const bool ignored : {false, true}) {
            Terminal gone({"/bin/sh", "-c", (ignored ? "trap '' HUP; exec" : "exec") + asks});
            gone.hangUp("[y/N] ");
            EXPECT_EQ(gone.finish(), 1) << words;
        }
        EXPECT_TRUE(readFile("jobs.log").ends_with(": nothing was changed: nothing was given\n"));
        Terminal interrupts({"/bin/sh", "-c", "exec" + asks + " --json"});
        interrupts.answer("[y/N] ", "\x03");
        EXPECT_EQ(interrupts.finish(), 1) << words;
        EXPECT_NE(interrupts.shown.find("\"error\": \"nothing was changed: interrupted\""),
                  std::string::npos)
            << interrupts.shown;
    }
    EXPECT_EQ(run({"sh", "-c", ls + " 2>&- | head -n 1 >/dev/null"}).status, 0);
    EXPECT_EQ(arcaJson({"ls"})["count"], 200);
    // More words than fit into a buffer, before the work is done.
    std::string rm = arcaProgram().string() + " rm --yes --optfile " +
                     installation_.clientOptions().string() + " --id " +
                     arcaJson({"show", "piece_9"})["versions"][0]["id"].get<std::string>();
    for (int i = 100; i < 400; ++i)
        rm += " --id " + std::to_string(i);
    const ProgramResult unsaid = run({"sh", "-c", rm + " >/dev/full"});
    EXPECT_EQ(unsaid.status, 1);
    EXPECT_EQ(unsaid.err, "arca rm: everything else is done, but standard output could not be "
                          "written\n");
    EXPECT_EQ(arcaJson({"ls"})["count"], 199);
}

TEST_F(BadInputTest, AFullDiskIsSaidAndSpaceCanBeFreedOnIt)
{
    const hoxHandle_t handle = logOn();
    store(handle, "p", "stays");
    store(handle, "q", "goes");
    // A file system of its own, which nobody but the shell and what it runs can see.
    const fs::path options = installation_.clientOptions();
    writeFile("small.opt", readFile(options) + "REPOSITORY file://" +
                               (installation_.directory() / "small/repository").string() + "\n");
    fs::copy_file(options.string() + ".keys", "small.opt.keys");
    const std::string script = "mkdir small && mount -t tmpfs -o size=64m none small || exit 77\n"
                               "cp -a repository small || exit 1\n"
                               "cat /dev/zero >small/fill 2>/dev/null\n"
                               "arca() { " +
                               arcaProgram().string() +
                               " \"$@\" --optfile small.opt; echo $? >>status; }\n"
                               "arca class define gold\n"
                               "arca access grant other p --filespace /fs\n"
                               "arca metrics --output small/metrics\n"
                               "arca rm q --deactivate --yes >/dev/null\n"
                               "arca ls\n"
                               "arca verify --read-data\n";
    const ProgramResult result = run({"unshare", "-rm", "sh", "-c", script});
    if (result.status == 77 || !fs::exists("status"))
        GTEST_SKIP() << "nothing can be mounted here: " << result.err;
    EXPECT_EQ(readFile("status"), "1\n1\n1\n0\n0\n0\n") << result.err;
    EXPECT_EQ(std::ranges::count(result.err, '\n'), 3) << result.err;
    EXPECT_NE(result.out.find("  p\n1 piece, "), std::string::npos) << result.out;
}

} // namespace

} // namespace keel::test
