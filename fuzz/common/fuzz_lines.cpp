// The line reader: whatever a keyword file holds, lines end, fit their buffer and say something.
#include "common/ut/utline.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return 0;
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
