// Times and sizes: see the header.
#include "tools/arca/moment.h"

#include "client/base/text.h"
#include "tools/arca/command.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>
#include <optional>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

constexpr std::int64_t kMinute = 60, kHour = 3600, kDay = 86400;

std::optional<std::int64_t> timeAgo(const std::string &text)
{
    const std::map<char, std::int64_t> units = {
        {'s', 1}, {'m', kMinute}, {'h', kHour}, {'d', kDay}, {'w', 7 * kDay}};
    const auto unit = text.empty() ? units.end() : units.find(text.back());
    const std::string digits = text.substr(0, text.empty() ? 0 : text.size() - 1);
    if (unit == units.end() || digits.empty() || digits.size() > 6 ||
        digits.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    // "0d" would select everything older than now, and a time before 1970 everything newer.
    const std::int64_t ago = std::stol(digits) * unit->second;
    const std::int64_t moment = std::time(nullptr) - ago;
    return ago > 0 && moment > 0 ? std::optional(moment) : std::nullopt;
}

std::optional<std::int64_t> timeGiven(const std::string &text)
{
    for (const char *form : {"%Y-%m-%d", "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%SZ"}) {
        std::tm utc{};
        const char *end = strptime(text.c_str(), form, &utc);
        if (end == nullptr || *end != '\0')
            continue;
        const std::tm meant = utc;
        const std::int64_t moment = timegm(&utc); // makes 3 March of 31 February
        if (moment > 0 && meant.tm_mday == utc.tm_mday && meant.tm_sec == utc.tm_sec)
            return moment;
    }
    return std::nullopt;
}

} // namespace

std::int64_t momentFrom(const std::string &text, const std::string &option)
{
    auto moment = timeAgo(text);
    if (!moment)
        moment = timeGiven(text);
    if (!moment)
        throw UsageError(option +
                         " takes a time ago (90m, 12h, 7d) or a UTC time after 1970-01-01 such as "
                         "2026-11-21 or 2026-11-21T08:31, not '" +
                         printable(text, 40) + "'");
    return *moment;
}

std::uint64_t sizeFrom(const std::string &text, const std::string &option)
{
    constexpr std::string_view kUnits = "KMGT";
    const UsageError wrong(option +
                           " takes a size of 1 byte or more, such as 4096, 500k, 10M or "
                           "1.5G, not '" +
                           printable(text, 40) + "'");
    std::size_t end = text.find_first_not_of("0123456789.");
    end = std::min(end, text.size());
    const std::string digits = text.substr(0, end);
    if (digits.empty() || digits.size() > 15 || digits.front() == '.' ||
        std::ranges::count(digits, '.') > 1 || text.size() - end > 1)
        throw wrong;
    double bytes = std::stod(digits);
    if (end < text.size()) {
        const auto unit = kUnits.find(upperAscii(text[end]));
        if (unit == std::string_view::npos)
            throw wrong;
        bytes *= std::pow(1024.0, static_cast<double>(unit + 1));
    }
    if (bytes < 1 || bytes >= 9e18)
        throw wrong;
    return static_cast<std::uint64_t>(bytes);
}

std::string ageText(std::int64_t seconds)
{
    const std::int64_t age = std::max<std::int64_t>(seconds, 0);
    if (age < kMinute)
        return fmt::format("{} s", age);
    if (age < 2 * kHour)
        return fmt::format("{} min", age / kMinute);
    if (age < 2 * kDay)
        return fmt::format("{} h", age / kHour);
    return fmt::format("{} d", age / kDay);
}

} // namespace arca::tool
