// See the header.
#include "agents/oracle/common/diagnostics/optionfile.h"

#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "agents/oracle/unx/early/psvelo.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/ut/utline.h"

namespace
{

bool isSeparator(char c)
{
    return c == ' ' || c == ',' || c == '\n' || c == '\t';
}

// Copies VELO_OPTFILE without one pair of quotes around it; false when it is not set, empty or
// over-long.
bool pathFromEnvironment(char *path)
{
    const char *value = std::getenv("VELO_OPTFILE");
    if (value == nullptr || value[0] == '\0' || !stCopy(path, ORC_OPTION_PATH_SIZE, value)) {
        return false;
    }
    const std::size_t length = std::strlen(path);
    const char quote = path[0];
    if (length > 1 && (quote == '"' || quote == '\'') && path[length - 1] == quote) {
        std::memmove(path, path + 1, length - 2);
        path[length - 2] = '\0';
    }
    return true;
}

} // namespace

OptionLine veloSplitOptionLine(char *line)
{
    OptionLine parts;
    while (*line != '\0' && isSeparator(*line)) {
        ++line;
    }
    if (*line == '\0') {
        return parts;
    }
    parts.keyword = line;
    while (*line != '\0' && !isSeparator(*line)) {
        ++line;
    }
    if (*line != '\0') {
        *line++ = '\0';
        // The rest is one token up to the newline, separators included: an empty one is none.
        parts.rest = *line == '\0' ? nullptr : line;
    }
    stUpperAscii(parts.keyword);
    return parts;
}

char *veloCleanOptionValue(char *value)
{
    while (stIsSpaceAscii(*value)) {
        ++value;
    }
    char *to = value;
    for (const char *from = value; *from != '\0'; ++from) {
        if (*from != '"') {
            *to++ = *from;
        }
    }
    *to = '\0';
    stTrimRight(value);
    return value;
}

/// A bound on the file, because a huge sparse one would hold the host for long, and one of /proc,
/// which calls itself empty, for ever: so what can be read counts, and not the size alone.
static bool isOfOptionSize(std::FILE *stream)
{
    constexpr std::size_t mostBytes = std::size_t{16} << 20;
    struct stat status {
    };
    if (fstat(fileno(stream), &status) != 0 || status.st_size > static_cast<off_t>(mostBytes)) {
        return false;
    }
    char part[4096];
    std::size_t total = 0;
    for (std::size_t count = 0;
         total <= mostBytes && (count = std::fread(part, 1, sizeof part, stream)) != 0;) {
        total += count;
    }
    std::rewind(stream);
    return total <= mostBytes;
}

std::uint16_t veloOpenOptionFile(OptionFile &file)
{
    if (!pathFromEnvironment(file.path)) {
        psveloGetDefaultOptfile(file.path);
    }
    std::FILE *stream = psFileOpen(file.path, "r", &file.encoding, &file.flags);
    if (stream == nullptr) {
        return ORC_RC_OPTION_FILE;
    }
    file.adopt(stream);
    if (!isOfOptionSize(stream)) {
        return ORC_RC_OPTION_FILE;
    }
    return ORC_RC_OK;
}

std::uint16_t veloGetOption(std::FILE *stream, const char *keyword, char *value, int encoding,
                            int flags)
{
    constexpr std::uint16_t notFound = 0xFFFF;
    std::rewind(stream);
    char line[ORC_OPTION_LINE_SIZE];
    int lineCount = 0;
    while (utGetNextLine(line, ORC_OPTION_LINE_SIZE, stream, &lineCount, encoding, flags) !=
           nullptr) {
        const OptionLine parts = veloSplitOptionLine(line);
        if (parts.keyword == nullptr || std::strcmp(parts.keyword, keyword) != 0) {
            continue;
        }
        if (parts.rest == nullptr) {
            return notFound;
        }
        stCopy(value, ORC_OPTION_SIZE, veloCleanOptionValue(parts.rest));
        return ORC_RC_OK;
    }
    return notFound;
}
