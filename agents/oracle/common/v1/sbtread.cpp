// sbtread: one block of the file that sbtopen opened for reading.
#include "agents/oracle/common/v1/sbt1.h"

namespace
{

int endOfFile(Sbt1Call &call, int handle)
{
    SCOPE_EXIT_END_OF_FILE(call.scope(), " %s: Exit - End of File, hoxHandle = %d\n\n", call.name(),
                           handle);
    return call.fail(SBT1_READ_END, 2505, OrcMessage(2505));
}

} // namespace

int sbtread(bserc *error, unsigned th, char *buffer)
{
    Sbt1Call call("sbtread()", error);
    if (!call.reportable()) {
        return -1;
    }
    if (!call.hasEntry()) {
        return call.failNoEntry(SBT1_NO_ENTRY);
    }
    const int handle = static_cast<int>(th);
    const std::int16_t state = call.state();
    if (state == ORC_STATE_RESTORE_END) {
        return endOfFile(call, handle);
    }
    if (state != ORC_STATE_RESTORE) {
        SCOPE_EXIT(call.scope(), " %s: Exit - hoxHandle = %d\n\n", call.name(), handle);
        return call.fail(SBT1_READ_STATE, 2506, OrcMessage(2506));
    }
    if (buffer == nullptr) {
        SCOPE_EXIT(call.scope(), " %s: Exit - NULL Oracle data buffer\n", call.name());
        return call.fail(SBT1_READ_FAILED, 2539, OrcMessage(2539, call.name(), "buf"));
    }
    DataBlk block{};
    block.stVersion = HOX_DATABLK_VERSION;
    block.bufferLen = call.blockSize();
    block.bufferPtr = buffer;
    std::int16_t rc = hoxApi().dhoxGetData(HoxApiStatusObjP, th, &block);
    if (rc == HOX_RC_MORE_DATA && block.numBytes != block.bufferLen) {
        rc = HOX_RC_INTERNAL; // only the last block may be short: the rest of this one is no data
    }
    if (rc == HOX_RC_FINISHED) {
        call.setState(ORC_STATE_RESTORE_END);
        if (block.numBytes == 0) {
            return endOfFile(call, handle);
        }
    } else if (rc != HOX_RC_MORE_DATA) {
        SCOPE_EXIT(call.scope(), " %s: Exit - HOXGETDATA() failed. hoxHandle = %d, rc = %d\n\n",
                   call.name(), handle, rc);
        return call.failApi(SBT1_READ_FAILED, static_cast<std::uint16_t>(rc), rc);
    }
    return 0;
}
