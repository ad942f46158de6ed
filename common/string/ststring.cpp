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
