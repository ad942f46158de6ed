// Narrow strings in fixed buffers: every call is bounded and leaves a terminated text.
//
// Letters and white space are the ASCII classes, whatever the host's locale.
#ifndef KEEL_COMMON_STRING_STSTRING_H
#define KEEL_COMMON_STRING_STSTRING_H

#include <cstddef>
#include <string>
#include <string_view>

/// Both cut src to the size bytes of dst and terminate it (unless size is 0); what lies behind the
/// terminator stays as it was, a secret too. They return false when something was cut, which may
/// split a character of UTF-8. src may lie within dst. stAppend takes a dst without a terminator as
/// full and terminates it.
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

/// Returns the length of a text that may lack its terminator; at most max.
std::size_t stLength(const char *text, std::size_t max) noexcept;

constexpr bool stIsSpaceAscii(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr char stToUpperAscii(char c) noexcept
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// Both change a terminated text in place: upper-case its letters; cut the white space at its end.
void stUpperAscii(char *text) noexcept;
void stTrimRight(char *text) noexcept;

/// Returns a text from outside as one line of a log, without a line end: control characters are
/// shown escaped ("\n", "\r", "\t", others as "\x1b"), and a result of more than limit bytes is cut
/// to limit, never inside a character of UTF-8, and marked with "..." behind. Throws
/// std::bad_alloc.
std::string stOneLine(std::string_view text, std::size_t limit);

/// The limit in bytes for lines of veloerror.log, for both libraries that write it.
constexpr std::size_t stLogLineLimit = 4000;

/// Returns stOneLine at that limit with a line end behind. One line end at the end of text is kept
/// as it is, so that such a text ends in two. Throws std::bad_alloc.
std::string stLogLine(std::string_view text);

/// Returns true for texts that are equal without regard to the case of ASCII letters.
bool stEqualNoCase(std::string_view a, std::string_view b) noexcept;

#endif
