// sbtcommand: options for the storage client, in force from the next session on.
#include <algorithm>
#include <cstring>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "common/string/ststring.h"

namespace
{

constexpr std::size_t kMostAppended = 512;

} // namespace

int sbtcommand(void *context, unsigned long /*flags*/, void *command)
{
    EntryScope scope("sbtcommand()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    const auto *text = static_cast<const char *>(command);
    ORC_TRACE(2, " %s: command = '%s'\n", scope.name(), text == nullptr ? "(null)" : text);
    if (text != nullptr && text[0] != '\0') {
        // Not parsed here; what does not fit is left out.
        stAppend(ctx->sessionOptions, std::string_view(text, stLength(text, kMostAppended)));
        ctx->sessionOptions[ORC_SESSION_OPTIONS_SIZE - 1] = '\0';
    }
    return 0;
}
