// sbterror: the code and the text of the last failure.
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"

int sbterror(void *context, unsigned long /*flags*/, unsigned long *error, void **nativeMsg,
             void **utf8Msg)
{
    // The blank before the line end is in the database trace only; scripts match it.
    EntryScope scope("sbterror()", "Enter \n");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    if (error != nullptr) {
        *error = static_cast<unsigned long>(ctx->sbtErrCode);
    }
    if (nativeMsg != nullptr) {
        *nativeMsg = ctx->errText;
    }
    if (utf8Msg != nullptr) {
        *utf8Msg = nullptr;
    }
    ORC_TRACE_BOTH(2, RMANTR_DETAIL,
                   " %s:  Error Code = %d, Native Message = '%s', Unicode Message = '%s'\n",
                   scope.name(), static_cast<int>(ctx->sbtErrCode), ctx->errText, "(null)");
    return 0;
}
