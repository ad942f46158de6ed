// sbtwrite: one block of the file that sbtopen opened for writing.
#include "agents/oracle/common/v1/sbt1.h"
#include "common/string/ststring.h"

int sbtwrite(bserc *error, unsigned th, char *buffer)
{
    Sbt1Call call("sbtwrite()", error);
    if (!call.reportable()) {
        return -1;
    }
    if (!call.hasEntry()) {
        call.failNoEntry(SBT1_WRITE_NO_ENTRY);
        call.cleanUp();
        return -1;
    }
    const int handle = static_cast<int>(th);
    const std::int16_t state = call.state();
    if (state != ORC_STATE_BACKUP) {
        SCOPE_EXIT(call.scope(), " %s: Exit - hoxHandle = %d, state = %d\n\n", call.name(), handle,
                   state);
        return call.fail(SBT1_WRITE_STATE, 2508, OrcMessage(2508));
    }
    if (buffer == nullptr) {
        SCOPE_EXIT(call.scope(), " %s: Exit - NULL Oracle data buffer\n", call.name());
        return call.fail(SBT1_WRITE_FAILED, 2539, OrcMessage(2539, call.name(), "buf"));
    }
    const std::uint32_t blockSize = call.blockSize();
    DataBlk block{};
    block.stVersion = HOX_DATABLK_VERSION;
    block.bufferLen = blockSize;
    block.bufferPtr = buffer;
    const std::int16_t rc = hoxApi().dhoxSendData(HoxApiStatusObjP, th, &block);
    if (rc != HOX_RC_OK) {
        SCOPE_EXIT(call.scope(), " %s: HOXSENDDATA() failed. hoxHandle = %d, rc = %d\n\n",
                   call.name(), handle, rc);
        return call.failApi(SBT1_WRITE_FAILED, static_cast<std::uint16_t>(rc), rc);
    }
    // The count for the filespace has always been that of the bytes before the first NUL of the
    // block.
    call.countBytes(stLength(buffer, blockSize));
    return 0;
}
