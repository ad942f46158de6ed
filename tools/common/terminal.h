// What is known of the terminal that the program prints to. Any thread, unless another changes the
// environment.
#ifndef KEEL_TOOLS_COMMON_TERMINAL_H
#define KEEL_TOOLS_COMMON_TERMINAL_H

#include <cstddef>
#include <string_view>

namespace tools
{

[[nodiscard]] bool isTerminal(int descriptor);

/// Returns COLUMNS of the environment, else the width of the terminal; 80 when neither is known, or
/// it is below 20 or above 1,000.
[[nodiscard]] std::size_t terminalWidth(int descriptor);

/// Returns true when the locale of the environment (the first of LC_ALL, LC_CTYPE, LANG that is not
/// empty) is a UTF-8 one, so that output may hold more than ASCII.
[[nodiscard]] bool speaksUtf8();

/// Returns the columns that the text takes on a terminal. A byte that is not part of a UTF-8
/// character counts as one.
[[nodiscard]] std::size_t displayWidth(std::string_view text);

} // namespace tools

#endif
