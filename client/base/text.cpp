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

std::string printable(std::string_view text, std::size_t limit)
{
    const bool cut = text.size() > limit;
    std::string clean(text.substr(0, limit));
    for (char &c : clean)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '?';
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
