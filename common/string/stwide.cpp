// UTF-8 and wide strings in fixed buffers.
#include "common/string/stwide.h"

#include <array>
#include <cstdint>
#include <cstring>

static_assert(sizeof(wchar_t) == 4, "a wide character holds any character here");

namespace
{
constexpr char32_t replacement = 0xFFFD;

bool isCharacter(char32_t c) noexcept
{
    return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

unsigned char byteAt(std::string_view text, std::size_t at) noexcept
{
    return static_cast<unsigned char>(text[at]);
}

std::size_t encode(char32_t c, std::array<char, 4> &out) noexcept
{
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    const std::size_t length = c < 0x800 ? 2 : (c < 0x10000 ? 3 : 4);
    for (std::size_t i = length - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (c & 0x3F));
        c >>= 6;
    }
    const unsigned lead = (0xF00U >> length) & 0xFFU;
    out[0] = static_cast<char>(lead | c);
    return length;
}
} // namespace

char32_t stNextUtf8(std::string_view &text) noexcept
{
    const unsigned char lead = byteAt(text, 0);
    std::size_t length = 1;
    char32_t c = lead;
    char32_t least = 0;
    if (lead >= 0xF0 && lead < 0xF8) {
        length = 4;
        c = lead & 0x07U;
        least = 0x10000;
    } else if (lead >= 0xE0 && lead < 0xF0) {
        length = 3;
        c = lead & 0x0FU;
        least = 0x800;
    } else if (lead >= 0xC0 && lead < 0xE0) {
        length = 2;
        c = lead & 0x1FU;
        least = 0x80;
    } else if (lead >= 0x80) {
        c = 0xFFFFFFFF;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= text.size() || (byteAt(text, i) & 0xC0U) != 0x80) {
            text.remove_prefix(1);
            return replacement;
        }
        c = c << 6 | (byteAt(text, i) & 0x3FU);
    }
    const bool good = c >= least && isCharacter(c);
    text.remove_prefix(good ? length : 1);
    return good ? c : replacement;
}

std::size_t stWideFromUtf8(wchar_t *dst, std::size_t size, std::string_view src) noexcept
{
    if (size == 0)
        return 0;
    std::size_t length = 0;
    while (length < size - 1 && !src.empty())
        dst[length++] = static_cast<wchar_t>(stNextUtf8(src));
    dst[length] = L'\0';
    return length;
}

std::size_t stUtf8FromWide(char *dst, std::size_t size, std::wstring_view src) noexcept
{
    if (size == 0)
        return 0;
    std::size_t length = 0;
    for (const wchar_t wide : src) {
        const auto c = static_cast<char32_t>(wide);
        std::array<char, 4> bytes{};
        const std::size_t count = encode(isCharacter(c) ? c : replacement, bytes);
        if (count > size - 1 - length)
            break;
        std::memcpy(dst + length, bytes.data(), count);
        length += count;
    }
    dst[length] = '\0';
    return length;
}
