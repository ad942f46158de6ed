// A text that is used as its own format string, safely.
//
// Some trace and log lines pass a finished text where a format belongs. The result must be that of
// a formatter without arguments: "%%" gives one percent sign, any other conversion gives nothing,
// and a percent sign that begins no conversion is text. No argument list is ever read or written
// through.
#ifndef KEEL_COMMON_UT_UTNOARGS_H
#define KEEL_COMMON_UT_UTNOARGS_H

#include <cstddef>
#include <string>
#include <string_view>

/// Returns the formatted text. Throws std::bad_alloc.
std::string utFormatNoArgs(std::string_view text);

/// As above into a buffer of size bytes: cut silently to fit and terminated. Returns the length
/// written; 0, and writes nothing, for a null buffer or a size of 0.
std::size_t utFormatNoArgs(char *out, std::size_t size, std::string_view text) noexcept;

#endif
