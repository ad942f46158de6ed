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
    std::string value;              ///< "FILE", "yes|no"; empty for a flag and for an operand
    std::string help;               ///< with " (default: X)" behind it where there is a default
    bool required = false;
    bool repeated = false; ///< may be given more than once

    /// Returns the words of `value` when it is one of a few ("yes|no"), else none; a part that is
    /// not all lower-case letters ("SIZE|off") stands for a value and is left out.
    [[nodiscard]] std::vector<std::string> words() const;
    [[nodiscard]] bool takesFile() const { return value == "FILE" || operand == "FILE"; }
};

struct OutlineVerb {
    std::vector<std::string> path; ///< the program, the verb, the verb's verb
    std::string help;
    std::vector<std::string> examples; ///< lines of the footer that begin "Example: ", without that
    std::string notes;                 ///< its other lines but the empty ones, each with a line end
    std::vector<OutlineOption> options;
    std::vector<OutlineVerb> verbs;

    /// Returns the path as one text, with `between` between two parts.
    [[nodiscard]] std::string name(const char *between) const;
    /// Returns this one and then all below it, each before those below it. The pointers are valid
    /// until this one is changed, moved or destroyed; a copy has verbs of its own.
    [[nodiscard]] std::vector<const OutlineVerb *> all() const;
};

/// Returns the outline of an option, a hidden one too.
[[nodiscard]] OutlineOption outlineOf(const CLI::Option &option);
/// Returns the outline of a program. Hidden options are left out; every verb is in it.
[[nodiscard]] OutlineVerb outlineOf(const CLI::App &program);

} // namespace tools

#endif
