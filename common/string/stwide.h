// UTF-8 and wide strings in fixed buffers, independent of the host's locale.
#ifndef KEEL_COMMON_STRING_STWIDE_H
#define KEEL_COMMON_STRING_STWIDE_H

#include <cstddef>
#include <string_view>

/// Both write as many whole characters as fit into size - 1 elements of dst (wide characters;
/// bytes), terminate them, and return the number of elements written without the terminator; the
/// rest is cut silently. A size of 0 writes nothing. Bytes that are no UTF-8, and wide characters
/// that are no character, become U+FFFD.
std::size_t stWideFromUtf8(wchar_t *dst, std::size_t size, std::string_view src) noexcept;
std::size_t stUtf8FromWide(char *dst, std::size_t size, std::wstring_view src) noexcept;

/// Takes the first character off text, which must not be empty, and returns it. Where no valid
/// character begins it takes one byte and returns U+FFFD.
char32_t stNextUtf8(std::string_view &text) noexcept;

#endif
