// The process's identity, its initial state, and the installed paths.
#include "agents/oracle/unx/early/psvelo.h"

#include <unistd.h>

#include "agents/common/callpin.h"
#include "agents/oracle/common/veloprocess.h"
#include "common/string/ststring.h"
#include "keel_paths.h"

namespace
{

constexpr const char *kVeloDir = KEEL_CLIENT_ROOT "/oracle/bin64";

} // namespace

int psveloInit()
{
    callPinCheckProcess();
    psMutexGuard lock(initMutex);
    oracleThrdCtr = 0;
    bHoxSetUp = false;
    bNlsSetUp = false;
    sqlplusHangs = false;
    return 0;
}

std::uint32_t psveloGetID()
{
    return static_cast<std::uint32_t>(getpid());
}

int psveloGetHoxiDir(char *buffer)
{
    stCopy(buffer, ORC_OPTION_SIZE, KEEL_CLIENT_ROOT "/api/bin64");
    return 0;
}

int psveloGetVeloDir(char *buffer)
{
    stCopy(buffer, ORC_OPTION_SIZE, kVeloDir);
    return 0;
}

int psveloGetHoxiConfig(char * /*buffer*/)
{
    return 0;
}

int psveloGetDefaultOptfile(char *buffer)
{
    stCopy(buffer, ORC_OPTION_PATH_SIZE, kVeloDir);
    stAppend(buffer, ORC_OPTION_PATH_SIZE, "/velo.opt");
    return 0;
}

void psgetMsgFileName(const char * /*directory*/, char *buffer)
{
    stCopy(buffer, ORC_OPTION_SIZE, "velo.cat");
}
