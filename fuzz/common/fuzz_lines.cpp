// Text: whatever a keyword file holds, lines end, fit their buffer and say something; and whatever
// a log is given, it becomes one line.
#include "common/string/ststring.h"
#include "common/ut/utline.h"
#include "common/ut/utnoargs.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static void asLogLine(std::string_view text)
{
    const std::string formatted = utFormatNoArgs(text);
    char cut[20];
    const std::size_t length = utFormatNoArgs(cut, sizeof cut, text);
    if (formatted.size() > text.size() || formatted.compare(0, length, cut, length) != 0)
        std::abort();
    constexpr std::size_t limit = 40;
    const std::string line = stOneLine(formatted, limit);
    for (const char c : line)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            std::abort();
    if (line.size() > limit + 3)
        std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return 0;
    asLogLine({reinterpret_cast<const char *>(data), size});
    const long bufferSize = 2 + data[0] % 40;
    FILE *file = fmemopen(const_cast<std::uint8_t *>(data) + 1, size - 1, "r");
    if (file == nullptr)
        return 0;
    auto *buffer = static_cast<char *>(std::malloc(static_cast<std::size_t>(bufferSize)));
    int count = 0;
    int lines = 0;
    while (utGetNextLine(buffer, bufferSize, file, &count, 0, 0) != nullptr) {
        if (++lines > count || std::strlen(buffer) >= static_cast<std::size_t>(bufferSize))
            std::abort();
        const char *start = buffer + std::strspn(buffer, " \t\n\v\f\r");
        if (*start == '\0' || *start == '*')
            std::abort();
    }
    std::free(buffer);
    std::fclose(file);
    return 0;
}
