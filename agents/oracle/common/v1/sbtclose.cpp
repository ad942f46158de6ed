// sbtclose: ends the file that sbtopen opened, and commits what was written to it.
#include "agents/oracle/common/v1/sbt1.h"
#include "agents/oracle/unx/psfilespace.h"

namespace
{

constexpr unsigned long kFirstFlag = 1;
constexpr unsigned long kLastFlag = 2;

// The filespace is updated also when the file failed; the file's code is the result.
std::uint16_t closeWritten(Sbt1Call &call, unsigned th)
{
    const std::uint16_t rc = closeSend(th);
    psUpdateFS(th, call.index(), call.ctx());
    return rc;
}

} // namespace

int sbtclose(bserc *error, unsigned th, unsigned long flags)
{
    Sbt1Call call("sbtclose()", error);
    if (!call.reportable()) {
        return -1;
    }
    if (flags != kFirstFlag && flags != kLastFlag) {
        SCOPE_EXIT(call.scope(), " %s: Exit - Invalid Flag\n\n", call.name());
        call.fail(SBT1_CLOSE_FLAGS, 2509, OrcMessage(2509, static_cast<unsigned long long>(flags)));
        call.cleanUp();
        return -1;
    }
    if (!call.hasEntry()) {
        return call.failNoEntry(SBT1_CLOSE_NO_ENTRY);
    }
    const int handle = static_cast<int>(th);
    const std::int16_t state = call.state();
    const bool reading = state == ORC_STATE_RESTORE || state == ORC_STATE_RESTORE_END;
    if (state != ORC_STATE_BACKUP && !reading) {
        SCOPE_EXIT(call.scope(), " %s: Exit - Invalid state. hoxHandle = %d, state = %d\n\n",
                   call.name(), handle, state);
        call.fail(SBT1_CLOSE_STATE, 0, OrcMessage(2614, call.name(), static_cast<int>(state)));
        call.cleanUp();
        return -1;
    }
    const std::uint16_t rc = reading ? closeGet(th) : closeWritten(call, th);
    if (rc != ORC_RC_OK) {
        SCOPE_EXIT(call.scope(), " %s: Exit - hoxHandle = %d, rc = %d\n\n", call.name(), handle,
                   static_cast<std::int16_t>(rc));
        call.failApi(SBT1_CLOSE_FAILED, rc, static_cast<std::int16_t>(rc));
        call.cleanUp();
        return -1;
    }
    call.setState(ORC_STATE_IDLE);
    if (reading) {
        ORC_TRACE(2, " %s: Calling veloCleanUp()\n", call.name());
        call.cleanUp();
    }
    return 0;
}
