// The agent trace as the option file asks for it.
#include "agents/oracle/common/diagnostics/velotrace.h"

#include <cstdio>
#include <cstdlib>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"

KEELCTrace *keelTrcClass = nullptr;

void veloInitTrace(orcObj_t *ctx)
{
    const auto &options = ctx->options;
    if (options[OPT_VELO_TEST_FLAGS][0] != '\0') {
        keelTrcClass->trTestEnable(options[OPT_VELO_TEST_FLAGS]);
    }
    const char *file = options[OPT_VELO_TRACE_FILE];
    if (file[0] == '\0') {
        return;
    }
    if (options[OPT_VELO_TRACE_MAX][0] != '\0') {
        const unsigned long most = std::strtoul(options[OPT_VELO_TRACE_MAX], nullptr, 10);
        trSetMaxTraceSize(most > UINT32_MAX ? UINT32_MAX : static_cast<unsigned>(most));
    }
    const std::uint32_t rc = keelTrcClass->trBegin(file, 0);
    if (rc == ORC_RC_TRACE_OPEN || rc == ORC_RC_TRACE_FILE) {
        veloReportMessage(nullptr, OrcMessage(201, file));
    } else if (rc != 0) {
        veloReportMessage(nullptr, OrcMessage(3));
    } else if (options[OPT_VELO_TRACE_FLAGS][0] != '\0') {
        keelTrcClass->trEnable(options[OPT_VELO_TRACE_FLAGS], 1);
    }
}

void veloTraceHeaderInfo(const orcObj_t *ctx)
{
    TraceScope scope("veloTraceHeaderInfo()");
    if (!trActive()) {
        return;
    }
    // Written whatever classes are on: without the header the rest cannot be interpreted.
    KEELCTraceStatement header;
    header.initStatement(__FILE__, __LINE__);
    header.write("\n===========================================================\n"
                 "Tracing started for:\n"
                 "-----------------------------------------------------------\n"
                 "       Application Client :   %s\n                 Platform :   %s\n",
                 "KEEL Oracle SUN", "64bit");
    // The labels end in FORMAT where the keywords end in FMT, and the test flags stand beside the
    // trace flags: sites compare these blocks.
    const auto &o = ctx->options;
    KEELCTraceStatement settings;
    settings.initStatement(__FILE__, __LINE__);
    settings.write(
        "\n HOXI_DIR           : %s\n HOXI_LOG           : %s\n HOXI_ORC_DIR       : %s\n"
        " HOXI_ORC_CONFIG    : %s\n VELO_AVG_SIZE      : %s\n VELO_FS            : %s\n"
        " VELO_NODE          : %s\n VELO_OWNER         : %s\n VELO_PSWDPATH      : %s\n"
        " VELO_TRACE_MAX     : %s\n VELO_TRACE_FILE    : %s\n VELO_TRACE_FLAGS   : %s\n"
        " VELO_TEST_FLAGS    : %s\n VELO_MGMT_CLASS_2  : %s\n VELO_MGMT_CLASS_3  : %s\n"
        " VELO_MGMT_CLASS_4  : %s\n VELO_NUM_BUFFERS   : %s\n VELO_DATE_FORMAT   : %s\n"
        " VELO_TIME_FORMAT   : %s\n VELO_NUM_FORMAT    : %s\n VELO_LANGUAGE      : %s\n\n",
        o[OPT_HOXI_DIR], o[OPT_HOXI_LOG], o[OPT_HOXI_ORC_DIR], o[OPT_HOXI_ORC_CONFIG],
        o[OPT_VELO_AVG_SIZE], o[OPT_VELO_FS], o[OPT_VELO_NODE], o[OPT_VELO_OWNER],
        o[OPT_VELO_PSWDPATH], o[OPT_VELO_TRACE_MAX], o[OPT_VELO_TRACE_FILE],
        o[OPT_VELO_TRACE_FLAGS], o[OPT_VELO_TEST_FLAGS], o[OPT_VELO_MGMT_CLASS_2],
        o[OPT_VELO_MGMT_CLASS_3], o[OPT_VELO_MGMT_CLASS_4], o[OPT_VELO_NUM_BUFFERS],
        o[OPT_VELO_DATE_FMT], o[OPT_VELO_TIME_FMT], o[OPT_VELO_NUM_FMT], o[OPT_VELO_LANGUAGE]);
}

void veloTraceBuffer(const void *data, std::size_t size)
{
    constexpr std::size_t lineBytes = 32;
    constexpr std::size_t statementLines = 32; // fewer characters than one statement takes
    const auto *byte = static_cast<const unsigned char *>(data);
    const char *head = "\n Buffer:\n";
    for (std::size_t at = 0; trTest(TR_ORCBUFF) && at < size;) {
        char text[statementLines * (lineBytes * 2 + lineBytes / 4 + 24)];
        std::size_t used = 0;
        for (std::size_t line = 0; line < statementLines && at < size; ++line) {
            used += static_cast<std::size_t>(std::snprintf(text + used, 24, " %08zx", at));
            for (std::size_t i = 0; i < lineBytes && at < size; ++i, ++at) {
                used += static_cast<std::size_t>(
                    std::snprintf(text + used, 4, i % 4 == 0 ? " %02X" : "%02X", byte[at]));
            }
            text[used++] = '\n';
        }
        KEEL_TRACE(TR_ORCBUFF, "%s%.*s", head, static_cast<int>(used), text);
        head = "";
    }
}

bool veloTestNumber(const char *flag, long *number)
{
    const char *value = "";
    if (!trTestFlag(flag, &value)) {
        return false;
    }
    *number = std::strtol(value, nullptr, 10);
    return true;
}
