// Small helpers for texts: see the header.
#include "client/base/text.h"

#include <algorithm>

namespace arca
{

std::string toHex(ByteView bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const std::byte byte : bytes) {
        hex += kDigits[std::to_integer<unsigned>(byte) >> 4];
        hex += kDigits[std::to_integer<unsigned>(byte) & 15];
    }
    return hex;
}

std::string toHex(std::uint64_t value)
{
    Bytes bytes(8);
    for (unsigned i = 0; i < 8; ++i)
        bytes[i] = static_cast<std::byte>(value >> (56 - 8 * i));
    return toHex(bytes);
}

static int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::optional<Bytes> fromHex(std::string_view digits)
{
    if (digits.size() % 2 != 0)
        return std::nullopt;
    Bytes bytes;
    bytes.reserve(digits.size() / 2);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const int high = digitValue(digits[i]);
        const int low = digitValue(digits[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<std::byte>(high * 16 + low));
    }
    return bytes;
}

/// Bytes of the character of UTF-8 that the text begins with; 0: no character does.
static std::size_t characterBytes(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t bytes = lead < 0x80                   ? 1
                              : lead >= 0xc2 && lead < 0xe0 ? 2
                              : (lead & 0xf0U) == 0xe0      ? 3
                              : lead >= 0xf0 && lead < 0xf5 ? 4
                                                            : 0;
    const std::string_view rest = text.substr(std::min(text.size(), std::size_t{1}), bytes - 1);
    const bool whole = bytes != 0 && text.size() >= bytes &&
                       std::ranges::all_of(rest, [](char c) { return (c & 0xc0) == 0x80; });
    return whole ? bytes : 0;
}

std::string printable(std::string_view text, std::size_t limit)
{
    const bool cut = text.size() > limit;
    std::string_view left = text.substr(0, limit);
    std::string clean;
    while (!left.empty()) {
        const std::size_t bytes = characterBytes(left);
        const std::string_view character = left.substr(0, std::max(bytes, std::size_t{1}));
        // A terminal obeys U+0080 to U+009F as well, and as single bytes, too.
        const auto byte = static_cast<unsigned char>(character[0]);
        const bool control = (bytes == 0 && byte < 0xa0) ||
                             (bytes == 1 && (byte < 0x20 || byte == 0x7f)) ||
                             (bytes == 2 && character < "\xc2\xa0");
        clean += control ? std::string_view("?") : character;
        left.remove_prefix(character.size());
    }
    return cut ? clean + "..." : clean;
}

char upperAscii(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return upperAscii(x) == upperAscii(y); });
}

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view kBlank = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

bool matchesPattern(std::string_view text, std::string_view pattern)
{
    std::size_t at = 0, in = 0;
    // The place of the last asterisk, and the end of the run that it stands for.
    std::size_t star = std::string_view::npos, run = 0;
    while (at < text.size()) {
        if (in < pattern.size() && pattern[in] == '*') {
            star = in++;
            run = at;
        } else if (in < pattern.size() && (pattern[in] == '?' || pattern[in] == text[at])) {
            ++in;
            ++at;
        } else if (star != std::string_view::npos) {
            in = star + 1;
            at = ++run;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', in) == std::string_view::npos;
}

} // namespace arca
