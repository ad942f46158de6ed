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
// A format outside its range is taken as 1. Texts are cut to the buffer and terminated; each call
// returns the length written.
#ifndef KEEL_COMMON_CU_CUTIME_H
#define KEEL_COMMON_CU_CUTIME_H

#include <cstddef>
#include <cstdint>
#include <ctime>

/// The local time, by the reentrant form. False leaves *out cleared.
bool cuLocalTime(std::time_t when, struct tm *out) noexcept;

/// Sets the process-wide formats, 1, 1 and 1 until then. Any thread.
void cuSetFormats(unsigned date, unsigned time, unsigned number) noexcept;

std::size_t cuFormatDate(char *out, std::size_t size, const struct tm &when, unsigned format);
std::size_t cuFormatTime(char *out, std::size_t size, const struct tm &when, unsigned format);
std::size_t cuFormatNumber(char *out, std::size_t size, std::int64_t value, unsigned format);
std::size_t cuFormatCount(char *out, std::size_t size, std::uint64_t value, unsigned format);

/// The number format that no host's locale and no setting changes: 1234567.
constexpr unsigned cuPlainNumbers = 5;
/// The process-wide number format.
unsigned cuNumberFormat() noexcept;

/// The same with the process-wide formats.
std::size_t cuFormatDate(char *out, std::size_t size, const struct tm &when);
std::size_t cuFormatTime(char *out, std::size_t size, const struct tm &when);
std::size_t cuFormatNumber(char *out, std::size_t size, std::int64_t value);

#endif
