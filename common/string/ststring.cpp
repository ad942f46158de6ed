// Narrow strings in fixed buffers.
#include "common/string/ststring.h"

#include <algorithm>
#include <cstring>

bool stCopy(char *dst, std::size_t size, std::string_view src) noexcept
{
    if (size == 0)
        return src.empty();
    const std::size_t length = std::min(src.size(), size - 1);
    if (length > 0)
        std::memmove(dst, src.data(), length);
    dst[length] = '\0';
    return length == src.size();
}

bool stAppend(char *dst, std::size_t size, std::string_view src) noexcept
{
    const std::size_t used = stLength(dst, size);
    if (used < size)
        return stCopy(dst + used, size - used, src);
    if (size > 0)
        dst[size - 1] = '\0';
    return src.empty();
}

std::size_t stLength(const char *text, std::size_t max) noexcept
{
    const void *end = max == 0 ? nullptr : std::memchr(text, '\0', max);
    return end == nullptr ? max : static_cast<std::size_t>(static_cast<const char *>(end) - text);
}

void stUpperAscii(char *text) noexcept
{
    for (; *text != '\0'; ++text)
        *text = stToUpperAscii(*text);
}

void stTrimRight(char *text) noexcept
{
    std::size_t length = std::strlen(text);
    while (length > 0 && stIsSpaceAscii(text[length - 1]))
        --length;
    text[length] = '\0';
}

bool stEqualNoCase(std::string_view a, std::string_view b) noexcept
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return stToUpperAscii(x) == stToUpperAscii(y); });
}

namespace
{
std::string escaped(char c)
{
    switch (c) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        break;
    }
    static const char digits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    return {'\\', 'x', digits[byte >> 4], digits[byte & 0xF]};
}
} // namespace

std::string stOneLine(std::string_view text, std::size_t limit)
{
    std::string line;
    for (std::size_t at = 0; at < text.size() && line.size() <= limit; ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte < 0x20 || byte == 0x7F)
            line += escaped(text[at]);
        else
            line += text[at];
    }
    if (line.size() <= limit)
        return line;
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0U) == 0x80)
        --end;
    return line.substr(0, end) + "...";
}

std::string stLogLine(std::string_view text)
{
    const bool ended = text.ends_with('\n');
    text.remove_suffix(ended ? 1 : 0);
    return stOneLine(text, stLogLineLimit) + (ended ? "\n\n" : "\n");
}
