// Dates, times and numbers as the administrator wants to see them.
#include "common/cu/cutime.h"

#include "common/string/ststring.h"

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
    struct tm local {
    };
    if (localtime_r(&when, &local) == nullptr)
        return false;
    *out = local;
    return true;
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
