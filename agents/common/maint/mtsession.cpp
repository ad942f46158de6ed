// Sessions for looking after objects: see the header.
#include "agents/common/maint/mtsession.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "agents/common/unx/pslumo.h"
#include "agents/common/unx/sun/dhoxapidl.h"
#include "common/string/ststring.h"

namespace
{

/// Never destroyed: other static objects may call the client until the process ends. Made at the
/// start: a static that the first call makes would hang a child that is forked meanwhile.
alignas(DHoxApiDL) std::byte room[sizeof(DHoxApiDL)];
DHoxApiDL &binding = *new (room) DHoxApiDL;

int fillEnvironment(envSetUp &env, const std::string &optionFile)
{
    env.stVersion = HOX_ENVSETUP_VERSION;
    if (const long code = psGetLUMOAPIDir(env.hoxiDir); code != 0) {
        return static_cast<int>(code);
    }
    if (const long code = psGetLUMOAPILog(env.hoxiLog); code != 0) {
        return static_cast<int>(code);
    }
    stCopy(env.logName, "veloerror.log");
    // A path that was cut could name another file.
    return stCopy(env.hoxiConfig, optionFile) ? 0 : HOX_RC_BAD_OPTION_FILE;
}

} // namespace

mtCall mtApi()
{
    return mtCall(binding);
}

DBaseApiStatus *mtStatus()
{
    static constinit DHoxApiStatus status;
    return &status;
}

int mtSetUp(const std::string &optionFile)
{
    if (const int rc = binding.Setup(); rc != 0) {
        return rc;
    }
    envSetUp env{};
    if (const int rc = fillEnvironment(env, optionFile); rc != 0) {
        return rc;
    }
    char program[] = "arca";
    char *argv[] = {program, nullptr};
    env.argv = argv;
    return mtApi()->dhoxSetUp(mtStatus(), 1, &env);
}

void mtCleanUp()
{
    if (DHoxApi::IsSetUp()) {
        mtApi()->dhoxCleanUp(mtStatus(), 1);
    }
}

int mtSession::start(const mtLogon_t &logon)
{
    end();
    const DHoxLogonNames names{logon.node.c_str(), logon.asNode.c_str(), logon.owner.c_str()};
    if (const int rc = mtApi()->Logon(mtStatus(), &handle_, names, logon.password.c_str());
        rc != 0) {
        return rc;
    }
    info_ = ApiSessInfo{};
    info_.stVersion = HOX_SESSINFO_VERSION;
    const int rc = mtApi()->dhoxQuerySessInfo(mtStatus(), handle_, &info_);
    if (rc != 0) {
        end();
    }
    return rc;
}

void mtSession::end()
{
    mtApi()->Logoff(mtStatus(), &handle_);
}

std::size_t mtSession::mostPerTransaction() const
{
    return std::max<std::size_t>(info_.maxObjPerTxn, 1);
}

std::string mtText(int rc)
{
    if (rc == DHOX_NOT_LOADED) {
        return std::string("the storage client ") + DHoxApiDL::kLibrary +
               " cannot be loaded, or is another release than this program";
    }
    const hoxRCMsgExIn_t input{HOX_RCMSGEX_VERSION, 0, static_cast<std::int16_t>(rc), 0};
    hoxRCMsgExOut_t answer{};
    if (mtApi()->dhoxRCMsgEx(mtStatus(), 0, &input, &answer) != HOX_RC_OK ||
        answer.message[0] == '\0') {
        return "the storage client answered " + std::to_string(rc);
    }
    return answer.message;
}
