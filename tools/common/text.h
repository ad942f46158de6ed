// Numbers and names as people read them.
#ifndef KEEL_TOOLS_COMMON_TEXT_H
#define KEEL_TOOLS_COMMON_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace tools
{

/// "1.25 GiB", "812 bytes".
[[nodiscard]] std::string byteText(double bytes);

/// "0:07", "1:02:33".
[[nodiscard]] std::string durationText(double seconds);

/// One line whatever the text holds: control characters become "\n", "\x1b" and the like.
[[nodiscard]] std::string printable(std::string_view text);

/// With the ASCII letters small.
[[nodiscard]] std::string lowered(std::string text);

/// Local time, "2026-03-07 14:05:09".
[[nodiscard]] std::string localTimeText(std::int64_t seconds);

/// "2026-03-07T13:05:09Z", for machines.
[[nodiscard]] std::string utcTimeText(std::int64_t seconds);

/// A line of a program's log, without newline: "2026-03-07T13:05:09Z keel backup p: done".
[[nodiscard]] std::string outcomeLine(std::string_view program, std::string_view work,
                                      std::string_view outcome);

} // namespace tools

#endif
