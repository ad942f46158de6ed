// Narrow strings in fixed buffers: every call is bounded and leaves a terminated text.
//
// Letters and white space are the ASCII classes, whatever the host's locale.
#ifndef KEEL_COMMON_STRING_STSTRING_H
#define KEEL_COMMON_STRING_STSTRING_H

#include <cstddef>
#include <string>
#include <string_view>

/// False when src had to be cut to fit; dst is terminated all the same (unless size is 0).
bool stCopy(char *dst, std::size_t size, std::string_view src) noexcept;
bool stAppend(char *dst, std::size_t size, std::string_view src) noexcept;

template <std::size_t N> bool stCopy(char (&dst)[N], std::string_view src) noexcept
{
    return stCopy(dst, N, src);
}

template <std::size_t N> bool stAppend(char (&dst)[N], std::string_view src) noexcept
{
    return stAppend(dst, N, src);
}

/// The length of a text that may lack its terminator; at most max.
std::size_t stLength(const char *text, std::size_t max) noexcept;

constexpr bool stIsSpaceAscii(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr char stToUpperAscii(char c) noexcept
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// In place.
void stUpperAscii(char *text) noexcept;
void stTrimRight(char *text) noexcept;

/// A text from outside as one line of a log: control characters are shown escaped ("\n", "\r",
/// "\t", others as "\x1b"), and a line of more than limit bytes is cut, never inside a character of
/// UTF-8, and marked with "...". Throws std::bad_alloc.
std::string stOneLine(std::string_view text, std::size_t limit);

/// What the lines of veloerror.log are cut to, whichever library writes them.
constexpr std::size_t stLogLineLimit = 4000;

/// The same with its line end, at that limit. A line end at the end of the text is kept as it is.
std::string stLogLine(std::string_view text);

/// Equal without regard to the case of ASCII letters.
bool stEqualNoCase(std::string_view a, std::string_view b) noexcept;

#endif
