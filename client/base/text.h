// Small helpers for texts that people and file names carry. Texts are bytes: no call depends on the
// locale of the host. Any thread may call these.
#ifndef KEEL_CLIENT_BASE_TEXT_H
#define KEEL_CLIENT_BASE_TEXT_H

#include "client/base/bytes.h"

#include <optional>
#include <string>
#include <string_view>

namespace arca
{

/// Returns lower-case hexadecimal digits, two a byte; a number has 16, the highest first.
std::string toHex(ByteView bytes);
std::string toHex(std::uint64_t value);
/// Takes digits in any case, none too. Nothing when one is no digit, or their number is odd.
std::optional<Bytes> fromHex(std::string_view digits);

/// Returns a text from outside in a form that fits one line of a message: control characters
/// become '?'; more than `limit` bytes are cut, perhaps within a character, and marked "...".
std::string printable(std::string_view text, std::size_t limit = 256);

// These know ASCII letters and blanks only.
char upperAscii(char c);
bool equalIgnoringCase(std::string_view a, std::string_view b);
/// Returns the part of `text` without blanks, tabs and line ends around it.
std::string_view trimmed(std::string_view text);

/// Returns true when the pattern covers the whole text: "*" stands for any run of bytes, also an
/// empty one, "?" for one byte, everything else for itself. An empty pattern covers the empty text
/// only.
bool matchesPattern(std::string_view text, std::string_view pattern);

} // namespace arca

#endif
