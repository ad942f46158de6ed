// sbtinfo: describes one stored file.
#include <cstdio>

#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/v1/sbt1.h"
#include "agents/oracle/common/v2/sbtinfo2.h"
#include "common/string/ststring.h"

namespace
{

// The answer outlives the channel, which ends with the call.
sbtFileInfo answer;

void describe(const char *fileName, const dhoxBackupObject_t &object)
{
    answer = sbtFileInfo{};
    stCopy(answer.name, fileName);
    answer.size = object.size;
    answer.creationTime = veloSecondsOf(object.insDate);
    answer.media = object.mediaClass == HOX_MEDIA_FIXED ? SBT1_MEDIA_DISK : SBT1_MEDIA_REMOVABLE;
    std::snprintf(answer.label, sizeof answer.label, "%d", static_cast<int>(object.restoreOrder));
    stCopy(answer.mgmtClass, object.mcName);
}

// Fills the answer in. False when there is none, with the reason in the error record.
bool find(Sbt1Call &call, const char *fileName)
{
    if (!sbt1FileNameFits(fileName)) {
        SCOPE_EXIT(call.scope(), " %s: Exit - oer = %d, errno = %d\n\n", call.name(),
                   static_cast<int>(SBT1_FILE_NAME), 2501);
        call.fail(SBT1_FILE_NAME, 2501, OrcMessage(2501, call.name()));
        return false;
    }
    dhoxBackupObject_t object{};
    std::uint16_t rc = ohoxSess(call);
    if (rc == ORC_RC_OK && (rc = queryObj(call, fileName, &object)) == ORC_RC_OK) {
        queryMC(call, fileName, object.mcName);
        describe(fileName, object);
        return true;
    }
    if (rc == HOX_RC_NO_MATCH) {
        veloReportApiFailure(call.ctx(), HOX_RC_NO_MATCH);
    }
    SCOPE_EXIT(call.scope(), " %s: Exit - oer = %d, errno = %d\n\n", call.name(),
               static_cast<int>(SBT1_FAILED), rc);
    call.failStep(SBT1_FAILED, rc);
    return false;
}

} // namespace

const sbtFileInfo *sbtinfo(bserc *error, char *fileName)
{
    Sbt1Call call("sbtinfo()", error);
    if (!call.reportable()) {
        return nullptr;
    }
    if (!call.hasEntry()) {
        call.failNoEntry(SBT1_NO_ENTRY);
        return nullptr;
    }
    call.exportNode();
    const bool found = find(call, fileName);
    call.scope().leave();
    ORC_TRACE(2, " %s: Calling veloCleanUp(). Last trace for %s\n", call.name(), call.name());
    call.cleanUp();
    return found ? &answer : nullptr;
}
