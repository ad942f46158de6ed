// UTF-8 and wide strings in fixed buffers, independent of the host's locale.
#ifndef KEEL_COMMON_STRING_STWIDE_H
#define KEEL_COMMON_STRING_STWIDE_H

#include <cstddef>
#include <string_view>

/// Both write at most size - 1 characters and a terminator, never half a character, and return the
/// number written. Bytes that are no UTF-8, and wide characters that are no character, become
/// U+FFFD.
std::size_t stWideFromUtf8(wchar_t *dst, std::size_t size, std::string_view src) noexcept;
std::size_t stUtf8FromWide(char *dst, std::size_t size, std::wstring_view src) noexcept;

/// Takes the first character off text and returns it; U+FFFD for one byte that begins none.
char32_t stNextUtf8(std::string_view &text) noexcept;

#endif
