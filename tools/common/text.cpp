// See text.h.
#include "tools/common/text.h"

#include "common/string/stwide.h"

#include <array>
#include <cmath>
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
        return fmt::format("{:.0f} bytes", bytes);
    return fmt::format("{:.{}f} {}", bytes, bytes < 10 ? 2 : bytes < 100 ? 1 : 0, units[unit]);
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
    while (!text.empty()) {
        const std::string_view before = text;
        const char32_t character = stNextUtf8(text);
        const std::string_view bytes = before.substr(0, before.size() - text.size());
        // A terminal obeys U+0080 to U+009F as well, and as single bytes, too.
        const bool isByte = character == 0xfffd && bytes.size() == 1;
        const char32_t code = isByte ? static_cast<unsigned char>(bytes.front()) : character;
        const bool isShown = code >= 0x20 && (code < 0x7f || code > 0x9f);
        if (character == '\n')
            result += "\\n";
        else if (character == '\t')
            result += "\\t";
        else if (isShown)
            result += bytes;
        else
            for (const char byte : bytes)
                result += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
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

} // namespace tools
