// Dates, times and numbers as the administrator wants to see them.
#include "common/cu/cutime.h"

#include "common/string/ststring.h"
#include "common/thrd/psprocess.h"

#include <array>
#include <atomic>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>

namespace
{
constexpr std::array<const char *, 6> dateForms = {nullptr,    "%m/%d/%Y", "%d-%m-%Y",
                                                   "%Y-%m-%d", "%d.%m.%Y", "%Y.%m.%d"};
constexpr std::array<const char *, 5> timeForms = {nullptr, "%H:%M:%S", "%H.%M.%S", "%H,%M,%S",
                                                   nullptr};
constexpr unsigned timeWithHalves = 4;
constexpr std::array<const char *, 7> separators = {nullptr, ",", ".", " ", "'", "", ","};
constexpr unsigned numberInIndianGroups = 6;

constinit std::atomic<unsigned> dateFormat{1};
constinit std::atomic<unsigned> timeFormat{1};
constinit std::atomic<unsigned> numberFormat{1};

// At the load: by the first call the process may be a child already.
const int loader = psProcessSelf();

// What that process has seen: for its children.
constinit std::atomic<std::time_t> offset{0}, daylightOffset{0}; // seconds east of UTC
constinit std::atomic<std::time_t> seenAt{0};
constinit std::atomic<bool> daylightSeen{false};

bool mayAsk() noexcept
{
    return psProcessSelf() == loader;
}

// Days from 1970 to the beginning of a month, 0 for January.
std::time_t daysBefore(std::time_t year, int month) noexcept
{
    constexpr std::array<int, 12> before = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    constexpr std::time_t eras = 10'000; // of 400 years, so that nothing below is negative
    const std::time_t past = year - 1 + eras * 400;
    return past * 365 + past / 4 - past / 100 + past / 400 - 719162 - eras * 146097 +
           before[static_cast<std::size_t>(month)] + (leap && month > 1 ? 1 : 0);
}

// The time of a date in UTC; its month is taken as it would be on a calendar.
std::time_t timeOfUtc(const struct tm &date) noexcept
{
    const int month = ((date.tm_mon % 12) + 12) % 12;
    return (daysBefore(date.tm_year + 1900 + (date.tm_mon - month) / 12, month) + date.tm_mday -
            1) *
               86400 +
           date.tm_hour * 3600 + date.tm_min * 60 + date.tm_sec;
}

template <class Forms> unsigned inRange(const Forms &forms, unsigned format) noexcept
{
    return format < forms.size() ? format : 1;
}

// True for the C locale, which expresses no local custom and would print a two-digit year.
bool localeSaysNothing(int category) noexcept
{
    const char *name = std::setlocale(category, nullptr);
    return name == nullptr || std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0;
}

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
std::size_t formatTm(char *out, std::size_t size, const struct tm &when, const char *form)
{
    std::array<char, 128> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), form, &when);
    stCopy(out, size, {text.data(), length});
    return size == 0 ? 0 : stLength(out, size);
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// Writes the digits from the right, a separator after three and then after every three or two.
std::size_t group(char *out, std::size_t size, std::uint64_t magnitude, bool negative,
                  const char *separator, unsigned laterGroup)
{
    std::array<char, 96> text{};
    std::size_t at = text.size();
    auto put = [&](const char *piece, std::size_t length) {
        if (length <= at) {
            at -= length;
            std::memcpy(text.data() + at, piece, length);
        }
    };
    std::uint64_t rest = magnitude;
    unsigned inGroup = 0;
    unsigned groupSize = 3;
    do {
        if (inGroup == groupSize) {
            put(separator, std::strlen(separator));
            inGroup = 0;
            groupSize = laterGroup;
        }
        const char digit = static_cast<char>('0' + rest % 10);
        put(&digit, 1);
        ++inGroup;
        rest /= 10;
    } while (rest != 0);
    if (negative)
        put("-", 1);
    stCopy(out, size, {text.data() + at, text.size() - at});
    return size == 0 ? 0 : stLength(out, size);
}

std::size_t formatNumber(char *out, std::size_t size, std::uint64_t magnitude, bool negative,
                         unsigned format)
{
    const unsigned known = inRange(separators, format);
    const char *separator = separators[known];
    if (separator == nullptr)
        separator = nl_langinfo(THOUSEP);
    return group(out, size, magnitude, negative, separator, known == numberInIndianGroups ? 2 : 3);
}
} // namespace

bool cuLocalTime(std::time_t when, struct tm *out) noexcept
{
    *out = {};
    if (!mayAsk()) {
        const std::time_t distance = offset;
        return cuUtcTime(when + distance, out);
    }
    struct tm local {
    };
    if (localtime_r(&when, &local) == nullptr)
        return false;
    // Not of older times, whose half of the year may be the other one.
    if (when >= seenAt) {
        seenAt = when;
        offset = timeOfUtc(local) - when;
    }
    *out = local;
    return true;
}

bool cuUtcTime(std::time_t when, struct tm *out) noexcept
{
    *out = {};
    constexpr std::time_t day = 86400, years = 1'000'000;
    if (when > years * 365 * day || when < -years * 365 * day)
        return false;
    const std::time_t days = (when >= 0 ? when : when - (day - 1)) / day, rest = when - days * day;
    // Of a calendar whose years begin in March, 400 of them at a time.
    const std::time_t shifted = days + 719468;
    const std::time_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const std::time_t inEra = shifted - era * 146097;
    const std::time_t year = (inEra - inEra / 1460 + inEra / 36524 - inEra / 146096) / 365;
    const std::time_t inYear = inEra - (365 * year + year / 4 - year / 100);
    const std::time_t month = (5 * inYear + 2) / 153; // 0 is March
    out->tm_mday = static_cast<int>(inYear - (153 * month + 2) / 5 + 1);
    out->tm_mon = static_cast<int>(month < 10 ? month + 2 : month - 10);
    out->tm_year = static_cast<int>(year + era * 400 + (month < 10 ? 0 : 1) - 1900);
    out->tm_hour = static_cast<int>(rest / 3600);
    out->tm_min = static_cast<int>(rest / 60 % 60);
    out->tm_sec = static_cast<int>(rest % 60);
    out->tm_wday = static_cast<int>(((days + 4) % 7 + 7) % 7);
    out->tm_yday = static_cast<int>(days - daysBefore(out->tm_year + 1900, 0));
    return true;
}

std::time_t cuTimeOf(const struct tm &local) noexcept
{
    if (!mayAsk())
        return timeOfUtc(local) - (local.tm_isdst > 0 && daylightSeen ? daylightOffset : offset);
    struct tm calendar = local;
    const std::time_t seconds = std::mktime(&calendar);
    if (seconds != -1 && local.tm_isdst > 0) {
        daylightOffset = timeOfUtc(local) - seconds;
        daylightSeen = true;
    }
    return seconds;
}

void cuSetFormats(unsigned date, unsigned time, unsigned number) noexcept
{
    dateFormat = date;
    timeFormat = time;
    numberFormat = number;
}

std::size_t cuFormatDate(char *out, std::size_t size, const struct tm &when, unsigned format)
{
    const char *form = dateForms[inRange(dateForms, format)];
    if (form == nullptr)
        form = localeSaysNothing(LC_TIME) ? dateForms[3] : "%x";
    return formatTm(out, size, when, form);
}

std::size_t cuFormatTime(char *out, std::size_t size, const struct tm &when, unsigned format)
{
    const unsigned known = inRange(timeForms, format);
    if (known == timeWithHalves) { // not %p: it is empty in many locales
        const std::size_t length = formatTm(out, size, when, "%I:%M:%S ");
        stAppend(out, size, when.tm_hour < 12 ? "AM" : "PM");
        return length == 0 ? 0 : stLength(out, size);
    }
    const char *form = timeForms[known];
    if (form == nullptr)
        form = localeSaysNothing(LC_TIME) ? timeForms[1] : "%X";
    return formatTm(out, size, when, form);
}

std::size_t cuFormatNumber(char *out, std::size_t size, std::int64_t value, unsigned format)
{
    const auto bits = static_cast<std::uint64_t>(value);
    return formatNumber(out, size, value < 0 ? 0 - bits : bits, value < 0, format);
}

std::size_t cuFormatCount(char *out, std::size_t size, std::uint64_t value, unsigned format)
{
    return formatNumber(out, size, value, false, format);
}

unsigned cuNumberFormat() noexcept
{
    return numberFormat;
}

std::size_t cuFormatDate(char *out, std::size_t size, const struct tm &when)
{
    return cuFormatDate(out, size, when, dateFormat);
}

std::size_t cuFormatTime(char *out, std::size_t size, const struct tm &when)
{
    return cuFormatTime(out, size, when, timeFormat);
}

std::size_t cuFormatNumber(char *out, std::size_t size, std::int64_t value)
{
    return cuFormatNumber(out, size, value, numberFormat);
}
