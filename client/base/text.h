// Small helpers for texts that people and file names carry.
#ifndef KEEL_CLIENT_BASE_TEXT_H
#define KEEL_CLIENT_BASE_TEXT_H

#include "client/base/bytes.h"

#include <optional>
#include <string>
#include <string_view>

namespace arca
{

/// Lower-case hexadecimal digits, two a byte.
std::string toHex(ByteView bytes);
std::string toHex(std::uint64_t value);
std::optional<Bytes> fromHex(std::string_view digits);

/// A text from outside, fit for one line of a message: control characters become '?', and what
/// goes beyond `limit` bytes is cut and marked with "...".
std::string printable(std::string_view text, std::size_t limit = 256);

/// ASCII only, whatever the locale of the host.
char upperAscii(char c);
bool equalIgnoringCase(std::string_view a, std::string_view b);
std::string_view trimmed(std::string_view text);

/// "*" in the pattern stands for any run of bytes, "?" for one, everything else for itself.
bool matchesPattern(std::string_view text, std::string_view pattern);

} // namespace arca

#endif
