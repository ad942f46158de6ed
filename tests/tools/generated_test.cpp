// The manual and the completions that the programs write: what the tools that read them say.
#include "tests/support/files.h"
#include "tests/support/installation.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace keel::test
{

namespace
{

struct Row {
    const char *program, *verb, *option; ///< that must be in every one of the files
};

/// What bash offers for the words, the last of which is not yet typed whole.
std::string offered(const std::filesystem::path &completion, const std::string &words)
{
    return run({"bash", "-c",
                "source '" + completion.string() + "'; COMP_WORDS=(" + words +
                    "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _keel; echo ${COMPREPLY[*]}"})
        .out;
}

} // namespace

TEST(Generated, ManualAndCompletionsSayWhatHelpSaysAndAreSound)
{
    const Row rows[] = {{"keel", "doctor", "duplicate-from"}, {"arca", "class-define", "dry-run"}};
    for (const Row &row : rows) {
        const TempDir share;
        const std::string program = row.program;
        const auto path = program == "keel" ? keelProgram() : arcaProgram();
        ASSERT_EQ(run({path, "--generate", share.path()}).status, 0);
        for (const auto &entry : std::filesystem::directory_iterator(share / "man/man1")) {
            const ProgramResult page = run({"groff", "-man", "-ww", "-z", entry.path()});
            EXPECT_EQ(page.status, 0);
            EXPECT_EQ(page.err, "") << entry.path();
            EXPECT_NE(readFile(entry.path()).find(".SH EXAMPLES"), std::string::npos)
                << entry.path();
        }
        EXPECT_TRUE(
            std::filesystem::exists(share / ("man/man1/" + program + "-" + row.verb + ".1")));
        const std::pair<std::string, std::string> completions[] = {
            {"bash", "bash-completion/completions/" + program},
            {"zsh", "zsh/vendor-completions/_" + program},
            {"fish", "fish/vendor_completions.d/" + program + ".fish"}};
        for (const auto &[shell, file] : completions) {
            EXPECT_NE(readFile(share / file).find(row.option), std::string::npos) << file;
            if (run({"sh", "-c", "command -v " + shell}).status == 0) {
                const ProgramResult checked = run({shell, "-n", share / file});
                EXPECT_EQ(checked.status, 0) << checked.err;
            }
        }
    }
}

TEST(Generated, BashOffersVerbsOptionsAndWords)
{
    const TempDir share;
    ASSERT_EQ(run({keelProgram(), "--generate", share.path()}).status, 0);
    const auto completion = share / "bash-completion/completions/keel";
    const std::pair<const char *, const char *> rows[] = {
        {"keel do", "doctor\n"},
        {"keel --sbt1 rest", "restore\n"},
        {"keel rman --dup", "--duplicate-from\n"},
        {"keel backup p --type ar", "archivelog\n"},
        {"keel backup p --copy ''", "\n"},
        {"keel backup p --input /etc/host", "/etc/host"},
    };
    for (const auto &[words, expected] : rows)
        EXPECT_TRUE(offered(completion, words).starts_with(expected)) << offered(completion, words);
}

} // namespace keel::test
