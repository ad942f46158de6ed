// The manual and the completions that the programs write: what the tools that read them say.
#include "tests/support/files.h"
#include "tests/support/installation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace keel::test
{

namespace
{

struct Row {
    const char *program, *verb, *option; ///< that must be in every one of the files
    const char *fish;                    ///< when it offers one of the verbs
};

/// What bash offers for the words, the last of which is not yet typed whole.
std::string offered(const std::filesystem::path &completion, const std::string &words)
{
    return run({"bash", "-c",
                "source '" + completion.string() + "'; COMP_WORDS=(" + words +
                    "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _keel; echo ${COMPREPLY[*]}"})
        .out;
}

using Words = std::vector<std::string>;

/// Returns the words that a line of the manual sets in bold.
Words bold(std::string line)
{
    for (auto at = line.find("\\-"); at != std::string::npos; at = line.find("\\-"))
        line.erase(at, 1);
    Words found;
    for (auto at = line.find("\\fB"); at != std::string::npos; at = line.find("\\fB", at)) {
        const auto end = line.find("\\fR", at += 3);
        found.push_back(line.substr(at, end - at));
    }
    return found;
}

/// A variable that a script never set must not swallow the option behind it, nor turn a flag round.
/// The first word of `verb` is the program's file. Neither repository nor option file is there.
void expectNoDoubtfulWords(const Words &verb, const std::string &option, bool isFlag)
{
    std::vector<Words> wrong = {{option + "="}, {option, "--json"}};
    if (isFlag)
        wrong[1] = {option + "=-1"};
    else if (option.size() == 2)
        wrong.push_back({option + "=x"});
    for (const Words &words : wrong) {
        Words line = verb;
        line.insert(line.end(), words.begin(), words.end());
        line.emplace_back("--dry-run");
        const ProgramResult result = run(line);
        const char *why = isFlag                        ? ": it takes no value"
                          : words.size() == 2           ? ": its value is missing"
                          : words.front().back() == 'x' ? ": its value is given without a ="
                                                        : ": nothing is behind";
        EXPECT_EQ(result.status, 2) << testing::PrintToString(line) << result.out;
        EXPECT_NE(result.err.find(": " + option + why), std::string::npos) << result.err;
        EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
    }
}

/// The library's word for the end of a verb is no operand that is dropped: the verb could mean
/// everything without it.
void expectNoEndOfVerb(Words verb)
{
    verb.emplace_back("++");
    const ProgramResult result = run(verb);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(verb);
    EXPECT_NE(result.err.find("only behind --"), std::string::npos) << result.err;
}

} // namespace

TEST(Generated, NoOptionOfAnyVerbTakesAWordThatWasNotMeant)
{
    std::size_t options = 0;
    for (const auto &program : {keelProgram(), arcaProgram()}) {
        const TempDir share;
        ASSERT_EQ(run({program, "--generate", share.path()}).status, 0);
        for (const auto &page : std::filesystem::directory_iterator(share / "man/man1")) {
            Words verb = {program};
            std::istringstream lines(readFile(page.path()));
            for (std::string line, before; std::getline(lines, line); before = line) {
                if (before == ".SH SYNOPSIS") {
                    std::istringstream words(bold(line).front());
                    std::string word;
                    for (words >> word; words >> word;)
                        verb.push_back(word);
                }
                if (line == ".SH DESCRIPTION")
                    expectNoEndOfVerb(verb);
                if (!line.starts_with("\\fB\\-"))
                    continue;
                for (const std::string &option : bold(line)) {
                    expectNoDoubtfulWords(verb, option, line.find("\\fI") == std::string::npos);
                    ++options;
                }
            }
        }
    }
    EXPECT_GT(options, 300U);
    for (const auto &[line, why] : {std::pair{Words{"remove", "[a,b]", "-y"}, "square brackets"},
                                    {Words{"remove", "-y", "--", "x", "[a]"}, "square brackets"},
                                    {Words{"remove", "a", "-y0"}, "-0: there is no such option"}}) {
        Words words = {keelProgram()};
        words.insert(words.end(), line.begin(), line.end());
        const ProgramResult result = run(words);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(line);
        EXPECT_NE(result.err.find(why), std::string::npos) << result.err;
    }
}

TEST(Generated, ManualAndCompletionsSayWhatHelpSaysAndAreSound)
{
    const Row rows[] = {
        {"keel", "doctor", "duplicate-from", "-n '__fish_use_subcommand' -a doctor "},
        {"arca", "class-define", "dry-run",
         "from class; and not __fish_seen_subcommand_from define list change delete bind' -a "
         "define "}};
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
        EXPECT_NE(readFile(share / completions[2].second).find(row.fish), std::string::npos);
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
