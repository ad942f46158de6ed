// A file of lines of a keyword and a value, with comments that begin with an asterisk: what the
// option files of the agent and of the storage client are made of.
#ifndef KEEL_TOOLS_KEEL_OPTION_LINES_H
#define KEEL_TOOLS_KEEL_OPTION_LINES_H

#include <istream>
#include <string>
#include <utility>
#include <vector>

namespace keel
{

/// Keywords in upper case; the last line of each counts. A value may be empty.
using OptionLines = std::vector<std::pair<std::string, std::string>>;
[[nodiscard]] OptionLines optionLinesIn(std::istream &input);
/// A file that cannot be read is one without lines.
[[nodiscard]] OptionLines readOptionLines(const std::string &file);

} // namespace keel

#endif
