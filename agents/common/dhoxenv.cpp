// The client's environment for programs that use the binding without a channel.
#include <cstdio>

#include "agents/common/dhoxapi.h"
#include "agents/common/unx/pslumo.h"
#include "common/string/ststring.h"
#include "common/ut/trace.h"

int DHoxApi::Init(DBaseApiStatus *status, int *rc)
{
    static const char *const name = "DHoxApi::Init()";
    const auto finish = [rc](long code) {
        if (rc != nullptr) {
            *rc = static_cast<int>(code);
        }
        return static_cast<int>(code);
    };
    if (IsSetUp()) {
        KEEL_TRACE(TR_API, "hoxSetUp already done\n");
        return finish(0);
    }
    envSetUp env{};
    env.stVersion = HOX_ENVSETUP_VERSION;
    if (const long code = psGetLUMOAPIDir(env.hoxiDir); code != 0) {
        KEEL_TRACE(TR_API, "leaving %s with psGetLUMOAPIDir() rc=%ld\n", name, code);
        return finish(code);
    }
    if (const long code = psGetLUMOAPILog(env.hoxiLog); code != 0) {
        KEEL_TRACE(TR_API, "leaving %s with psGetLUMOAPILog() rc=%ld\n", name, code);
        return finish(code);
    }
    psGetLUMOAPIConfig(env.hoxiConfig);
    stCopy(env.logName, sizeof env.logName, "veloerror.log");
    char program[] = "keel";
    char *argv[] = {program, nullptr};
    env.argv = argv;
    KEEL_TRACE(TR_API,
               "HoxEnvSetUp values:\n   hoxiDir    : %s\n   hoxiLog    : %s\n   hoxiConfig : %s\n"
               "   argv[0]    : %s\n",
               env.hoxiDir, env.hoxiLog, env.hoxiConfig, env.argv[0]);
    return finish(dhoxSetUp(status, 1, &env));
}

int DHoxApi::Term(DBaseApiStatus *status)
{
    if (!IsSetUp()) {
        KEEL_TRACE(TR_API, "hoxSetup not done, hoxCleanUp will not be done\n");
        return 0;
    }
    return dhoxCleanUp(status, 1);
}
