// What is known of the terminal that the program prints to.
#ifndef KEEL_TOOLS_COMMON_TERMINAL_H
#define KEEL_TOOLS_COMMON_TERMINAL_H

#include <cstddef>
#include <string_view>

namespace tools
{

[[nodiscard]] bool isTerminal(int descriptor);

/// Columns of the terminal, 80 when it does not tell or there is none. COLUMNS goes first.
[[nodiscard]] std::size_t terminalWidth(int descriptor);

/// Whether what is printed may hold more than ASCII: the locale of the environment is a UTF-8 one.
[[nodiscard]] bool speaksUtf8();

/// Columns that the text takes. Text of which parts are no UTF-8 counts a column for each of their
/// bytes.
[[nodiscard]] std::size_t displayWidth(std::string_view text);

} // namespace tools

#endif
