// Reading the option file.
#include "agents/oracle/common/session/velooptions.h"

#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/orcmessage.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/ut/utline.h"

const char *const optLookup[OPT_COUNT] = {
    "HOXI_DIR",          "HOXI_LOG",          "HOXI_ORC_DIR",      "HOXI_ORC_CONFIG",
    "VELO_AVG_SIZE",     "VELO_FS",           "VELO_NODE",         "VELO_OWNER",
    "VELO_PSWDPATH",     "VELO_TRACE_MAX",    "VELO_TRACE_FILE",   "VELO_TRACE_FLAGS",
    "VELO_MGMT_CLASS_2", "VELO_MGMT_CLASS_3", "VELO_MGMT_CLASS_4", "VELO_NUM_BUFFERS",
    "VELO_DATE_FMT",     "VELO_TIME_FMT",     "VELO_NUM_FMT",      "VELO_LANGUAGE",
    "VELO_TEST_FLAGS",
};

namespace
{

constexpr long kLineSize = 513;

// The number of OptionFileSilence objects of this thread.
thread_local int silenced = 0;

// Reports to the early error log, which needs no option.
void reportEarly(const OrcMessage &message)
{
    if (!message.empty() && silenced == 0) {
        psNonNlsErrorMsg(message.text());
    }
}

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

int optionNumber(const char *keyword)
{
    for (int i = 0; i < OPT_COUNT; ++i) {
        if (std::strcmp(keyword, optLookup[i]) == 0) {
            return i;
        }
    }
    return -1;
}

// Stores one line. False when it is bad, which is then reported.
bool storeLine(orcObj_t *ctx, char *line, const char *path)
{
    const OptionLine parts = veloSplitOptionLine(line);
    const char *keyword = parts.keyword == nullptr ? "" : parts.keyword;
    const int number = optionNumber(keyword);
    if (number < 0) {
        reportEarly(OrcMessage(2603, keyword, path));
        return false;
    }
    char *value = parts.rest;
    if (value != nullptr && number != OPT_VELO_TEST_FLAGS) {
        value = veloCleanOptionValue(value);
    }
    if (value == nullptr || value[0] == '\0') {
        reportEarly(OrcMessage(2616, keyword, path));
        return false;
    }
    stCopy(ctx->options[number],
           value); // never cut: a line without its keyword is shorter than a slot
    return true;
}

} // namespace

OptionFileSilence::OptionFileSilence()
{
    ++silenced;
}

OptionFileSilence::~OptionFileSilence()
{
    --silenced;
}

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
        reportEarly(OrcMessage(2615, file.path));
        return ORC_RC_OPTION_FILE;
    }
    file.adopt(stream);
    if (!isOfOptionSize(stream)) {
        reportEarly(OrcMessage(2615, file.path));
        return ORC_RC_OPTION_FILE;
    }
    return ORC_RC_OK;
}

std::uint16_t veloParseOptionFile(orcObj_t *ctx, std::FILE *stream, const char *path, int encoding,
                                  int flags)
{
    TraceScope scope("veloParseOptionFile()");
    char line[kLineSize];
    int lineCount = 0;
    while (utGetNextLine(line, kLineSize, stream, &lineCount, encoding, flags) != nullptr) {
        if (!storeLine(ctx, line, path)) {
            SCOPE_EXIT(scope, " %s: Exit - bad line %d in '%s'\n\n", scope.name(), lineCount, path);
            return ORC_RC_OPTION_FILE;
        }
    }
    return ORC_RC_OK;
}

std::uint16_t veloGetOption(std::FILE *stream, const char *keyword, char *value, int encoding,
                            int flags)
{
    constexpr std::uint16_t notFound = 0xFFFF;
    std::rewind(stream);
    char line[kLineSize];
    int lineCount = 0;
    while (utGetNextLine(line, kLineSize, stream, &lineCount, encoding, flags) != nullptr) {
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

std::uint16_t veloSetOptions(orcObj_t *ctx)
{
    TraceScope scope("veloSetOptions()");
    std::memset(ctx, 0, sizeof *ctx);
    auto &options = ctx->options;
    stCopy(options[OPT_VELO_AVG_SIZE], "50");
    stCopy(options[OPT_VELO_NUM_BUFFERS], "1");
    stCopy(options[OPT_VELO_FS], "/lumoorc");
    if (const int rc = psveloGetHoxiDir(options[OPT_HOXI_DIR]); rc != 0) {
        return static_cast<std::uint16_t>(rc);
    }
    if (const int rc = psveloGetVeloDir(options[OPT_HOXI_ORC_DIR]); rc != 0) {
        return static_cast<std::uint16_t>(rc);
    }
    stCopy(options[OPT_HOXI_LOG], options[OPT_HOXI_ORC_DIR]);
    options[OPT_VELO_PSWDPATH][0] = '\0';

    OptionFile file;
    std::uint16_t rc = veloOpenOptionFile(file);
    if (rc == ORC_RC_OK) {
        rc = veloParseOptionFile(ctx, file.stream(), file.path, file.encoding, file.flags);
        file.close();
    }
    if (rc != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - option file '%s'. rc = %d\n\n", scope.name(), file.path, rc);
        return rc;
    }
    veloCheckFS(ctx);
    if (options[OPT_HOXI_ORC_CONFIG][0] == '\0') {
        if (const int code = psveloGetHoxiConfig(options[OPT_HOXI_ORC_CONFIG]); code != 0) {
            return static_cast<std::uint16_t>(code);
        }
    }
    if (options[OPT_VELO_NODE][0] == '\0' && options[OPT_VELO_OWNER][0] == '\0') {
        ctx->bUsePwGenerate = 1;
    }
    return ORC_RC_OK;
}
