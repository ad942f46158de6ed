// See terminal.h.
#include "tools/common/terminal.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace tools
{

namespace
{

constexpr std::size_t kUsualWidth = 80;
constexpr std::size_t kLeastWidth = 20;

struct Character {
    std::uint32_t code;
    std::size_t bytes;
};

/// Returns the first character; a byte that begins none counts as one.
Character firstOf(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t bytes = lead < 0xc2 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (bytes == 1 || lead > 0xf4 || text.size() < bytes)
        return {lead, 1};
    auto code = static_cast<std::uint32_t>(lead & (0x7f >> bytes));
    for (std::size_t i = 1; i < bytes; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0) != 0x80)
            return {lead, 1};
        code = code << 6 | (next & 0x3fU);
    }
    return {code, bytes};
}

bool within(std::uint32_t code, std::uint32_t from, std::uint32_t to)
{
    return code >= from && code <= to;
}

/// Returns the columns of a character, for those that names are made of: East Asian ones take two,
/// combining marks none. Not wcwidth(3): the program's locale is "C".
std::size_t columnsOf(std::uint32_t code)
{
    if (within(code, 0x300, 0x36f) || within(code, 0x200b, 0x200f))
        return 0;
    const bool wide = within(code, 0x1100, 0x115f) || within(code, 0x2e80, 0xa4cf) ||
                      within(code, 0xac00, 0xd7a3) || within(code, 0xf900, 0xfaff) ||
                      within(code, 0xfe30, 0xfe6f) || within(code, 0xff00, 0xff60) ||
                      within(code, 0x1f300, 0x1faff) || within(code, 0x20000, 0x3fffd);
    return wide ? 2 : 1;
}

} // namespace

bool isTerminal(int descriptor)
{
    return ::isatty(descriptor) == 1;
}

std::size_t terminalWidth(int descriptor)
{
    std::size_t width = 0;
    if (const char *told = std::getenv("COLUMNS"))
        width = std::strtoul(told, nullptr, 10);
#ifdef TIOCGWINSZ
    struct winsize size = {};
    if (width == 0 && ::ioctl(descriptor, TIOCGWINSZ, &size) == 0)
        width = size.ws_col;
#endif
    return width < kLeastWidth || width > 1000 ? kUsualWidth : width;
}

bool speaksUtf8()
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = std::getenv(name);
        if (!value || !*value)
            continue;
        const std::string locale(value);
        for (const char *form : {"UTF-8", "utf-8", "UTF8", "utf8"}) {
            if (locale.find(form) != std::string::npos)
                return true;
        }
        return false;
    }
    return false;
}

std::size_t displayWidth(std::string_view text)
{
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character character = firstOf(text);
        columns += columnsOf(character.code);
        text.remove_prefix(character.bytes);
    }
    return columns;
}

} // namespace tools
