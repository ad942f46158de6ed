// The path of the error log, the writing of its lines, and the texts of failures.
#include "agents/oracle/common/diagnostics/errorlog.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/optionfile.h"
#include "agents/oracle/common/veloclock.h"
#include "agents/oracle/unx/early/pserrorlog.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "common/nls/nls.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"

namespace
{

constexpr const char *kLogName = "veloerror.log";

// Looks HOXI_LOG up in the option file. Called for every line, from any thread and at any time.
bool logDirectoryFromOptions(char *path)
{
    OptionFile file;
    if (veloOpenOptionFile(file) != ORC_RC_OK) {
        return false;
    }
    char value[ORC_OPTION_SIZE] = "";
    if (veloGetOption(file.stream(), "HOXI_LOG", value, file.encoding, file.flags) != 0) {
        return false;
    }
    return stCopy(path, ORC_PATH_SIZE, value);
}

// A copy of a text without its line end. In a fixed buffer: lack of memory is reported through it
// too.
class LogLine
{
public:
    explicit LogLine(const char *text)
    {
        stCopy(line_, text);
        const std::size_t length = stLength(line_, sizeof line_);
        if (length != 0 && line_[length - 1] == '\n') {
            line_[length - 1] = '\0';
        }
    }
    [[nodiscard]] const char *text() const { return line_; }

private:
    char line_[stLogLineLimit + 100];
};

} // namespace

std::uint16_t getErrorLog(char *path)
{
    path[0] = '\0';
    if (!logDirectoryFromOptions(path)) {
        if (const int rc = psveloGetVeloDir(path); rc != 0) {
            return static_cast<std::uint16_t>(rc);
        }
    }
    const std::size_t length = stLength(path, ORC_PATH_SIZE);
    const bool usable = length != 0 && psFileWritableDir(path) != 0 &&
                        (path[length - 1] == '/' || stAppend(path, ORC_PATH_SIZE, "/")) &&
                        stAppend(path, ORC_PATH_SIZE, kLogName);
    if (!usable) {
        stCopy(path, ORC_PATH_SIZE, kLogName);
    }
    return ORC_RC_OK;
}

void veloErrorMsg(const char *text)
{
    char path[ORC_PATH_SIZE];
    if (getErrorLog(path) != ORC_RC_OK) {
        return;
    }
    char when[64];
    veloGetCurTime(when, sizeof when);
    char head[128];
    std::snprintf(head, sizeof head, "%s TID<%d> ==> ", when, static_cast<int>(getpid()));
    try {
        // A piece's name may hold anything; a line end in it must not look like a line of the log.
        psWriteError(path, (head + stLogLine(text)).c_str());
    } catch (const std::exception &) {
        // No memory for the line: it is lost, like one whose file does not open.
    }
}

void veloErrorRoutine(const char *text)
{
    veloErrorMsg(LogLine(text).text());
}

void veloFirstErrorRoutine(const char *text)
{
    psNonNlsErrorMsg(LogLine(text).text());
}

/// Copies this library's text for rc, where the storage client has none. found: the client's
/// answer.
static void copyOwnText(std::int16_t found, std::int16_t rc, char *text)
{
    const OrcMessage own(found == DHOX_NOT_LOADED ? agentRcMessage(rc) : 3);
    const OrcMessage any(3);
    stCopy(text, ORC_ERRTEXT_SIZE,
           !own.empty()   ? own.text()
           : !any.empty() ? any.text()
                          : "RBQ0003S An internal processing error has occurred"); // no memory
}

void veloGetApiMsg(std::uint32_t hoxHandle, char /*unused*/, std::int16_t rc, char *text)
{
    hoxRCMsgExIn_t input{};
    input.stVersion = HOX_RCMSGEX_VERSION;
    input.handle = hoxHandle;
    input.rc = rc;
    input.withIdentifier = 1;
    hoxRCMsgExOut_t output{};
    output.stVersion = HOX_RCMSGEX_VERSION;
    const std::int16_t found = hoxApi().dhoxRCMsgEx(HoxApiStatusObjP, hoxHandle, &input, &output);
    output.message[HOX_MAX_RC_MESSAGE] = '\0';
    if (found == HOX_RC_OK && output.message[0] != '\0') {
        stCopy(text, ORC_ERRTEXT_SIZE, output.message);
    } else {
        copyOwnText(found, rc, text);
    }
    KEEL_TRACE(TR_EXTRC_DETAIL, " %s: hoxHandle = %d, rc = %d, '%s'\n", "veloGetApiMsg()",
               static_cast<int>(hoxHandle), rc, text);
}

static std::int16_t localText(std::uint32_t hoxHandle, std::int16_t rc, char *text)
{
    static_assert(ORC_ERRTEXT_SIZE > HOX_MAX_RC_MESSAGE, "the client fills so much");
    text[0] = '\0';
    const std::int16_t found = hoxApi().dhoxRCMsg(HoxApiStatusObjP, hoxHandle, rc, text);
    text[found == HOX_RC_OK ? HOX_MAX_RC_MESSAGE : 0] = '\0';
    return found;
}

bool veloGetLocalMsg(std::uint32_t hoxHandle, std::int16_t rc, char *text)
{
    localText(hoxHandle, rc, text);
    return text[0] != '\0';
}

void veloLogApiText(std::uint32_t hoxHandle, std::int16_t rc)
{
    char text[ORC_ERRTEXT_SIZE];
    const std::int16_t found = localText(hoxHandle, rc, text);
    if (text[0] == '\0') {
        copyOwnText(found, rc, text);
    }
    veloErrorMsg(text);
}

void veloReportApiFailure(orcObj_t *ctx, std::int16_t rc)
{
    veloGetApiMsg(ctx->hoxHandle, 1, rc, ctx->errText);
    veloLogApiText(ctx->hoxHandle, rc);
}

void veloReportMessage(orcObj_t *ctx, const OrcMessage &message)
{
    if (ctx != nullptr) {
        stCopy(ctx->errText, message.text());
    }
    if (!message.empty()) {
        veloErrorMsg(message.text());
    }
}

void veloReportNull(const char *function, const char *parameter)
{
    veloReportMessage(nullptr, OrcMessage(2539, function, parameter));
}

void veloReportNoMemory(orcObj_t *ctx)
{
    veloReportMessage(ctx, OrcMessage(2522));
}

void veloReportWrongState(orcObj_t *ctx, const char *function)
{
    ctx->sbtErrCode = SBT_FAILED;
    veloReportMessage(ctx, OrcMessage(2614, function, static_cast<int>(ctx->state)));
}

unsigned veloFormatNumber(const char *option, unsigned highest)
{
    const long number = std::strtol(option, nullptr, 10);
    return number < 0 || number > static_cast<long>(highest) ? 1 : static_cast<unsigned>(number);
}

std::uint16_t callNlinit(const orcObj_t *ctx)
{
    TraceScope scope("callNlinit()");
    const auto &options = ctx->options;
    char repository[1280];
    psNlsGetReposName(repository, options[OPT_VELO_LANGUAGE]);
    nlterm();
    nlsReturnInfo_t info{};
    const int rc = nlinit(repository, 10, options[OPT_HOXI_ORC_DIR], ctx->cliType,
                          veloFormatNumber(options[OPT_VELO_DATE_FMT], 5),
                          veloFormatNumber(options[OPT_VELO_TIME_FMT], 4),
                          veloFormatNumber(options[OPT_VELO_NUM_FMT], 6), &info, "velo.cat");
    if (rc != 0) {
        char line[ORC_PATH_SIZE + 512];
        std::snprintf(
            line, sizeof line,
            "Error: Could not initialize NLS object. Check that the message file, %s, exists "
            "in the Keel for Oracle installation directory. rc = %d\n",
            repository, rc);
        veloErrorMsg(line);
        destroyNlsGlobalObject();
        SCOPE_EXIT(scope, " %s: Exit - nlinit() failed. rc = %d\n\n", scope.name(), rc);
    }
    return static_cast<std::uint16_t>(rc);
}

int agentRcMessage(int agentRc)
{
    static const char *const name = "agentRcMessage()";
    const int msgNum = 4;
    KEEL_TRACE(TR_GENERAL, "Enter %s,\n  agentRc : %d\n", name, agentRc);
    KEEL_TRACE(TR_GENERAL,
               "An internal processing error has been detected.\n"
               "An unknown agent return code (%d) has been detected.\n",
               agentRc);
    KEEL_TRACE(TR_GENERAL, "Exit %s, msgNum = %d\n", name, msgNum);
    return msgNum;
}

void writeToConsole(const char * /*text*/) {}
