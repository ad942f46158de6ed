// A program's verbs and options as plain data, for what is generated from them: the completion of
// shells and the pages of the manual. So both say what --help says.
#ifndef KEEL_TOOLS_COMMON_COMMAND_OUTLINE_H
#define KEEL_TOOLS_COMMON_COMMAND_OUTLINE_H

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
    bool repeated = false; ///< may be given more than once

    /// Returns the words of `value` when it is one of a few ("yes|no"), else none.
    [[nodiscard]] std::vector<std::string> words() const;
    [[nodiscard]] bool takesFile() const { return value == "FILE" || operand == "FILE"; }
};

struct OutlineVerb {
    std::vector<std::string> path; ///< the program, the verb, the verb's verb
    std::string help;
    std::vector<std::string> examples;
    std::string notes; ///< the rest of the footer, a line for each of its lines
    std::vector<OutlineOption> options;
    std::vector<OutlineVerb> verbs;

    /// Returns the path as one text, with `between` between two parts.
    [[nodiscard]] std::string name(const char *between) const;
    /// Returns this one and all below it, valid as long as this one is not changed.
    [[nodiscard]] std::vector<const OutlineVerb *> all() const;
};

[[nodiscard]] OutlineOption outlineOf(const CLI::Option &option);
/// Hidden options are left out.
[[nodiscard]] OutlineVerb outlineOf(const CLI::App &program);

} // namespace tools

#endif
