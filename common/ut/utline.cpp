// The line reader beneath every keyword file.
#include "common/ut/utline.h"

#include "common/string/ststring.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace
{
void dropLineEnd(char *line) noexcept
{
    const std::size_t length = std::strlen(line);
    if (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r'))
        line[length - 1] = '\0';
}

bool isBlankOrComment(const char *line) noexcept
{
    while (stIsSpaceAscii(*line))
        ++line;
    return *line == '\0' || *line == '*';
}
} // namespace

char *utGetNextLine(char *buffer, long size, FILE *file, int *lineCount, int, int)
{
    if (buffer == nullptr || size < 2 || file == nullptr)
        return nullptr;
    // fgets takes a whole line whatever NULs are in it; only the text in the buffer ends there.
    const int room = static_cast<int>(std::min(size, static_cast<long>(INT_MAX)));
    while (std::fgets(buffer, room, file) != nullptr) {
        if (lineCount != nullptr && *lineCount < INT_MAX)
            ++*lineCount;
        dropLineEnd(buffer);
        if (!isBlankOrComment(buffer))
            return buffer;
    }
    return nullptr;
}
