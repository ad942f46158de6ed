// The line reader beneath every keyword file.
#include "common/ut/utline.h"

#include "common/string/ststring.h"

#include <climits>
#include <cstring>

namespace
{
// fgets is no help with binary input: it does not say how much it read when there are NULs.
bool readPiece(char *buffer, long size, FILE *file) noexcept
{
    long length = 0;
    while (length < size - 1) {
        const int c = getc(file);
        if (c == EOF)
            break;
        buffer[length++] = static_cast<char>(c);
        if (c == '\n')
            break;
    }
    buffer[length] = '\0';
    return length > 0;
}

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
    while (readPiece(buffer, size, file)) {
        if (lineCount != nullptr && *lineCount < INT_MAX)
            ++*lineCount;
        dropLineEnd(buffer);
        if (!isBlankOrComment(buffer))
            return buffer;
    }
    return nullptr;
}
