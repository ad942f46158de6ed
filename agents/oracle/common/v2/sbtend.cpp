// sbtend: the last call of a channel; and the version of the library.
#include <string_view>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/session/backup.h"
#include "agents/oracle/common/session/veloinit.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/common/v2/sbtinfo2.h"
#include "common/string/ststring.h"
#include "common/ut/utmem.h"

int sbtend(void *context, unsigned long /*flags*/)
{
    EntryScope scope("sbtend()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx != nullptr) {
        if (ctx->state != ORC_STATE_IDLE) {
            veloEndSession(ctx);
            ctx->state = ORC_STATE_IDLE;
        }
        veloFreeInfo(ctx, scope.name(), InfoFreed::AtTheEnd);
        veloCloseTestData(ctx);
        utFree(ctx->veloBuffP);
        ctx->veloBuffP = nullptr;
        ctx->hoxHandle = 0;
    }
    veloCleanUp(ctx);
    return 0;
}

void veloQueryVersion(veloVersion *record)
{
    if (record == nullptr) {
        return;
    }
    record->version = 7;
    record->release = 1;
    record->level = 3;
    record->subLevel = 0;
    stCopy(record->text, "64bit KEEL Oracle SUN");
}
