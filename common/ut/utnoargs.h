// A text that is used as its own format string, without the danger of one.
//
// Some trace and log lines pass a finished text where a format belongs. What comes out must be what
// a formatter would make of it when it has no arguments: "%%" is one percent sign, any other
// conversion prints nothing, and a percent sign that begins none is text. Nothing is ever read from
// an argument list or written through one.
#ifndef KEEL_COMMON_UT_UTNOARGS_H
#define KEEL_COMMON_UT_UTNOARGS_H

#include <cstddef>
#include <string>
#include <string_view>

std::string utFormatNoArgs(std::string_view text);

/// The same into a buffer of size bytes: cut to fit and terminated. Returns the length written.
std::size_t utFormatNoArgs(char *out, std::size_t size, std::string_view text) noexcept;

#endif
