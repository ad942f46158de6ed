// A program's verbs and options as plain data, for what is generated from them: the completion of
// shells and the pages of the manual. So neither can tell anything but what --help tells.
#ifndef KEEL_TOOLS_COMMON_OUTLINE_H
#define KEEL_TOOLS_COMMON_OUTLINE_H

#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace tools
{

struct OutlineOption {
    std::vector<std::string> names; ///< "-i", "--input"; empty for an operand
    std::string operand;            ///< the name of an operand
    std::string value;              ///< "FILE", "yes|no"; empty for a flag
    std::string help;
    bool required = false;
    bool repeated = false;

    /// What may be given, when it is one of a few words.
    [[nodiscard]] std::vector<std::string> words() const;
    [[nodiscard]] bool takesFile() const { return value == "FILE" || operand == "FILE"; }
};

struct OutlineVerb {
    std::vector<std::string> path; ///< the program, the verb, and so on
    std::string help;
    std::vector<std::string> examples;
    std::string notes; ///< what else the help says, a line for each of its lines
    std::vector<OutlineOption> options;
    std::vector<OutlineVerb> verbs;

    [[nodiscard]] std::string name(const char *between) const;
    /// This one and all below.
    [[nodiscard]] std::vector<const OutlineVerb *> all() const;
};

[[nodiscard]] OutlineOption outlineOf(const CLI::Option &option);
/// Hidden options are left out.
[[nodiscard]] OutlineVerb outlineOf(const CLI::App &program);

/// When the command line is "--generate DIRECTORY", writes there, as below a prefix's share, the
/// completions (bash, zsh, fish) and the manual (man/man1) of the program. True when it was; then
/// `status` is the exit status, and what failed has been said.
bool generateWhenAsked(const CLI::App &program, const std::string &version, int argc, char **argv,
                       int &status);

} // namespace tools

#endif
