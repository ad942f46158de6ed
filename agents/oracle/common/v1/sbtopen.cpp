// sbtopen: opens one file for writing or reading; the handle of the storage session is the file
// handle.
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/v1/sbt1.h"

namespace
{

constexpr unsigned long kBlockUnit = 512;

int refuse(Sbt1Call &call, std::uint32_t oer, std::uint32_t errnum, const OrcMessage &message)
{
    SCOPE_EXIT(call.scope(), " %s: Exit - oer = %d, errno = %d\n\n", call.name(),
               static_cast<int>(oer), static_cast<int>(errnum));
    return call.fail(oer, errnum, message);
}

// -1 with the reason in the error record, 0 when the arguments may be used.
int checkArguments(Sbt1Call &call, const char *fileName, unsigned long mode,
                   unsigned long blockSize)
{
    int rc = 0;
    if (mode != SBT1_READ && mode != SBT1_WRITE && mode != SBT1_WRITE_NEW) {
        rc = refuse(call, SBT1_OPEN_MODE, 2500,
                    OrcMessage(2500, static_cast<unsigned long long>(mode)));
    } else if (!sbt1FileNameFits(fileName)) {
        // The channel stays: the caller may try again with another name.
        return refuse(call, SBT1_FILE_NAME, 2501, OrcMessage(2501, call.name()));
    } else if (blockSize % kBlockUnit != 0 || blockSize == 0 || blockSize > UINT32_MAX) {
        rc = refuse(call, SBT1_OPEN_BLOCK_SIZE, 2502,
                    OrcMessage(2502, static_cast<unsigned long long>(blockSize)));
    }
    if (rc != 0) {
        call.cleanUp();
    }
    return rc;
}

} // namespace

int sbtopen(bserc *error, char *fileName, unsigned long mode, unsigned long blockSize)
{
    Sbt1Call call("sbtopen()", error);
    if (!call.reportable()) {
        return -1;
    }
    if (!call.hasEntry()) {
        return call.failNoEntry(SBT1_NO_ENTRY);
    }
    call.exportNode();
    if (checkArguments(call, fileName, mode, blockSize) != 0) {
        return -1;
    }
    const char *step = "ohoxSess()";
    std::uint16_t rc = ohoxSess(call);
    if (rc == ORC_RC_OK) {
        const bool writing = mode != SBT1_READ;
        call.openFile(blockSize, writing ? ORC_STATE_BACKUP : ORC_STATE_RESTORE);
        step = writing ? "prepareSend()" : "prepareGet()";
        rc = writing ? prepareSend(call, fileName) : prepareGet(call, fileName);
    }
    if (rc != ORC_RC_OK) {
        const bool absent = rc == HOX_RC_NO_MATCH;
        const std::uint32_t oer = absent ? SBT1_OPEN_NOT_FOUND : SBT1_FAILED;
        const std::uint32_t errnum = absent ? 0 : rc;
        SCOPE_EXIT(call.scope(),
                   " %s: Exit  %s failed. - hoxHandle = %d, rc = %d, oer = %d, errno = %d\n\n",
                   call.name(), step, call.handle(), static_cast<std::int16_t>(rc),
                   static_cast<int>(oer), static_cast<int>(errnum));
        call.failStep(oer, errnum);
        call.cleanUp();
        return -1;
    }
    return call.handle();
}
