// Dates, times and numbers as the administrator wants to see them.
//
//   date    0 as the host's locale says, ISO 2026-11-21 where it says nothing
//           1 11/21/2026   2 21-11-2026   3 2026-11-21   4 21.11.2026   5 2026.11.21
//   time    0 as the host's locale says, else 23:05:09
//           1 23:05:09     2 23.05.09     3 23,05,09     4 11:05:09 PM
//   number  0 as the host's locale says, else 1234567
//           1 1,234,567    2 1.234.567    3 1 234 567    4 1'234'567    5 1234567
//           6 12,34,567
//
// A format outside its range is taken as 1. The format calls may be made from any thread. Each cuts
// its text silently to size - 1 bytes, terminates it, and returns the length written; a size of 0
// writes nothing and returns 0.
#ifndef KEEL_COMMON_CU_CUTIME_H
#define KEEL_COMMON_CU_CUTIME_H

#include <cstddef>
#include <cstdint>
#include <ctime>

// The C library converts times under a lock that a forked child finds held for ever when another
// thread of its parent was inside, and both libraries are called in such children. So nothing but
// these three converts a time, and only the process that loaded the library asks the C library.

/// Converts when to the host's local time, thread-safely. Returns false, with *out cleared, for a
/// time that has no calendar date. In a forked child the distance from UTC is the one that the
/// parent saw last, or 0.
bool cuLocalTime(std::time_t when, struct tm *out) noexcept;
/// Converts when to UTC, without any lock. Returns false as cuLocalTime does.
bool cuUtcTime(std::time_t when, struct tm *out) noexcept;
/// Returns the time of a local date, which tm_isdst may say to be daylight-saving time, as mktime
/// does, or -1. In a forked child with the distance from UTC that the parent saw last, of such a
/// date if there was one.
std::time_t cuTimeOf(const struct tm &local) noexcept;

/// Sets the process-wide formats, which are 1, 1 and 1 until then. Each of the three is atomic; a
/// thread that formats meanwhile may see the old or the new one.
void cuSetFormats(unsigned date, unsigned time, unsigned number) noexcept;

std::size_t cuFormatDate(char *out, std::size_t size, const struct tm &when, unsigned format);
std::size_t cuFormatTime(char *out, std::size_t size, const struct tm &when, unsigned format);
std::size_t cuFormatNumber(char *out, std::size_t size, std::int64_t value, unsigned format);
std::size_t cuFormatCount(char *out, std::size_t size, std::uint64_t value, unsigned format);

/// The number format of texts that programs read: 1234567, whatever the host's locale.
constexpr unsigned cuPlainNumbers = 5;
/// Returns the process-wide number format, as it was given to cuSetFormats.
unsigned cuNumberFormat() noexcept;

/// As above, with the process-wide formats.
std::size_t cuFormatDate(char *out, std::size_t size, const struct tm &when);
std::size_t cuFormatTime(char *out, std::size_t size, const struct tm &when);
std::size_t cuFormatNumber(char *out, std::size_t size, std::int64_t value);

#endif
