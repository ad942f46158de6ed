// Numbers and names as people read them. Any thread.
#ifndef KEEL_TOOLS_COMMON_TEXT_H
#define KEEL_TOOLS_COMMON_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace tools
{

/// Returns "1.25 GiB", "812 bytes": three digits, in powers of 1,024.
[[nodiscard]] std::string byteText(double bytes);

/// Returns "1 piece", "2 pieces"; `several` is for nouns that do not just take an s.
[[nodiscard]] std::string counted(std::uint64_t number, std::string_view one,
                                  std::string_view several = {});

/// Returns "0:07", "1:02:33": minutes and hours, rounded to seconds; less than 0 as 0.
[[nodiscard]] std::string durationText(double seconds);

/// Returns the text as one line: control characters (those of ASCII, and U+0080 to U+009F, also as
/// single bytes) become "\n", "\t", "\x1b" and the like. Nothing is cut; backslashes stay.
[[nodiscard]] std::string printable(std::string_view text);

/// Returns the text with its ASCII letters in lower case.
[[nodiscard]] std::string lowered(std::string text);

/// Returns the local time of `seconds` since 1970, "2026-03-07 14:05:09"; "?" when it has none.
[[nodiscard]] std::string localTimeText(std::int64_t seconds);

/// Returns the UTC time of `seconds` since 1970, "2026-03-07T13:05:09Z", for machines.
[[nodiscard]] std::string utcTimeText(std::int64_t seconds);

/// Returns a line of a program's log, without newline, with the present time: "2026-03-07T13:05:09Z
/// keel backup p: done". `work` and `outcome` are made printable().
[[nodiscard]] std::string outcomeLine(std::string_view program, std::string_view work,
                                      std::string_view outcome);
/// Returns why the log could not be written, for a code of mtWrapAppend().
[[nodiscard]] std::string logFailureText(int error);
/// Returns true for text that begins as such a line of either program does.
[[nodiscard]] bool isOutcomeLine(std::string_view beginning);

} // namespace tools

#endif
