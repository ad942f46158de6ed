// Applying the option file.
#include "agents/oracle/common/session/velooptions.h"

#include <cstring>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/optionfile.h"
#include "agents/oracle/common/diagnostics/orcmessage.h"
#include "agents/oracle/unx/early/pserrorlog.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "common/string/ststring.h"
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

// Reports to the early error log, which needs no option.
void reportEarly(const OrcMessage &message)
{
    if (!message.empty()) {
        psNonNlsErrorMsg(message.text());
    }
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

std::uint16_t veloParseOptionFile(orcObj_t *ctx, std::FILE *stream, const char *path, int encoding,
                                  int flags)
{
    TraceScope scope("veloParseOptionFile()");
    char line[ORC_OPTION_LINE_SIZE];
    int lineCount = 0;
    while (utGetNextLine(line, ORC_OPTION_LINE_SIZE, stream, &lineCount, encoding, flags) !=
           nullptr) {
        if (!storeLine(ctx, line, path)) {
            SCOPE_EXIT(scope, " %s: Exit - bad line %d in '%s'\n\n", scope.name(), lineCount, path);
            return ORC_RC_OPTION_FILE;
        }
    }
    return ORC_RC_OK;
}

void veloCheckFS(orcObj_t *ctx)
{
    TraceScope scope("veloCheckFS()");
    auto &name = ctx->options[OPT_VELO_FS];
    if (name[0] == '/') {
        return;
    }
    if (name[0] == '\\') {
        name[0] = '/';
        return;
    }
    char canonical[ORC_OPTION_SIZE] = "/";
    stAppend(canonical, name);
    stCopy(name, canonical);
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
    if (rc != ORC_RC_OK) {
        reportEarly(OrcMessage(2615, file.path));
    } else {
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
