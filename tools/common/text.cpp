// See text.h.
#include "tools/common/text.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>

#include <fmt/format.h>

namespace tools
{

std::string byteText(double bytes)
{
    constexpr std::array units = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB"};
    std::size_t unit = 0;
    while (bytes >= 1000 && unit + 1 < units.size()) {
        bytes /= 1024;
        ++unit;
    }
    if (unit == 0)
        return counted(static_cast<std::uint64_t>(bytes + 0.5), "byte");
    return fmt::format("{:.{}f} {}", bytes, bytes < 10 ? 2 : bytes < 100 ? 1 : 0, units[unit]);
}

std::string counted(std::uint64_t number, std::string_view one, std::string_view several)
{
    if (number == 1)
        return fmt::format("1 {}", one);
    return several.empty() ? fmt::format("{} {}s", number, one)
                           : fmt::format("{} {}", number, several);
}

std::string durationText(double seconds)
{
    const auto whole = static_cast<std::int64_t>(std::min(std::max(seconds, 0.0), 1e9) + 0.5);
    if (whole >= 3600)
        return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
    return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

std::string printable(std::string_view text)
{
    std::string result;
    int following = 0; // bytes of the character that began
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (following > 0 && (byte & 0xc0U) == 0x80) {
            --following;
            result += text[i];
            continue;
        }
        // A terminal obeys U+0080 to U+009F as well, and as single bytes, too.
        const unsigned next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        const bool control = byte < 0x20 || (byte >= 0x7f && byte < 0xa0) ||
                             (byte == 0xc2 && next >= 0x80 && next < 0xa0);
        following = control || byte < 0xc2 ? 0 : byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
        if (byte == '\n')
            result += "\\n";
        else if (byte == '\t')
            result += "\\t";
        else if (control)
            result += fmt::format("\\x{:02x}", byte);
        else
            result += text[i];
    }
    return result;
}

std::string lowered(std::string text)
{
    for (char &character : text)
        character =
            character >= 'A' && character <= 'Z' ? static_cast<char>(character | 0x20) : character;
    return text;
}

namespace
{

std::string timeText(const char *format, const std::tm &time)
{
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &time)};
}

} // namespace

std::string localTimeText(std::int64_t seconds)
{
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts = {};
    return ::localtime_r(&time, &parts) ? timeText("%Y-%m-%d %H:%M:%S", parts) : "?";
}

std::string utcTimeText(std::int64_t seconds)
{
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts = {};
    return ::gmtime_r(&time, &parts) ? timeText("%Y-%m-%dT%H:%M:%SZ", parts) : "?";
}

std::string outcomeLine(std::string_view program, std::string_view work, std::string_view outcome)
{
    return fmt::format("{} {} {}: {}", utcTimeText(std::time(nullptr)), program, printable(work),
                       printable(outcome));
}

std::string logFailureText(int error)
{
    if (error != EEXIST)
        return std::strerror(error);
    return "it, or a file beside it that would be an older part of it, is no log of keel or arca; "
           "name another file";
}

bool isOutcomeLine(std::string_view beginning)
{
    constexpr std::string_view kTime = "0000-00-00T00:00:00Z ";
    if (beginning.size() < kTime.size())
        return false;
    for (std::size_t i = 0; i < kTime.size(); ++i) {
        const bool digit = beginning[i] >= '0' && beginning[i] <= '9';
        if (kTime[i] == '0' ? !digit : beginning[i] != kTime[i])
            return false;
    }
    const std::string_view work = beginning.substr(kTime.size());
    return work.starts_with("keel ") || work.starts_with("arca ");
}

} // namespace tools
