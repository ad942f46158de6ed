// Files of lines with a keyword and a value, and comments that begin with an asterisk: the option
// files of the agent and of the storage client.
#ifndef KEEL_TOOLS_KEEL_OPTION_LINES_H
#define KEEL_TOOLS_KEEL_OPTION_LINES_H

#include <istream>
#include <string>
#include <utility>
#include <vector>

namespace keel
{

/// The lines in their order, however long, keywords in upper case, values without quotation marks
/// and without blanks at their ends. A keyword may come several times, and its last line counts; a
/// value may be empty, and so may the keyword of a line of commas.
using OptionLines = std::vector<std::pair<std::string, std::string>>;
[[nodiscard]] OptionLines optionLinesIn(std::istream &input);
/// Returns no lines for a file that cannot be read or is larger than the agent reads, 16 MiB, and
/// for what is no file. It never waits.
[[nodiscard]] OptionLines readOptionLines(const std::string &file);

} // namespace keel

#endif
