// What a session can be asked about itself.
#include "client/api/session/client.h"
#include "client/api/session/password_change.h"
#include "client/api/session/query_options.h"
#include "client/api/session/records.h"

#include <ctime>
#include <unistd.h>

using namespace arca;
using namespace arca::api;

namespace
{

constexpr std::uint16_t kMaxObjectsPerTransaction = 4096;
constexpr const char *kPolicyName = "STANDARD";

void fillInfo(ApiSessInfo &info, const Session &session)
{
    info = ApiSessInfo{};
    info.stVersion = HOX_SESSINFO_VERSION;
    char host[256] = "";
    (void)gethostname(host, sizeof host - 1);
    fill(info.serverHost, host);
    info.serverDate = dateOf(std::time(nullptr));
    fill(info.serverType, "ARCA");
    info.serverVersion = HOX_API_VERSION;
    info.serverRelease = HOX_API_RELEASE;
    info.serverLevel = HOX_API_LEVEL;
    info.serverSubLevel = HOX_API_SUBLEVEL;
    fill(info.nodeName, session.space->node());
    fill(info.ownerName, session.owner);
    fill(info.configFile, session.options.file);
    info.passwordAccess = session.options.passwordAccess == config::PasswordAccess::prompt
                              ? HOX_PASSWORDACCESS_PROMPT
                              : HOX_PASSWORDACCESS_GENERATE;
    info.backupDelete = session.isGuest() ? 0 : 1;
    info.maxObjPerTxn = kMaxObjectsPerTransaction;
    fill(info.domainName, kPolicyName);
    fill(info.policySetName, kPolicyName);
}

} // namespace

std::int16_t hoxQuerySessInfo(hoxHandle_t handle, ApiSessInfo *info)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (info == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the session record is null");
        ARCA_CHECK(expectFillable(info, HOX_SESSINFO_VERSION, "the session record"));
        fillInfo(*info, session);
        return success();
    });
}

std::int16_t hoxQuerySessOptions(hoxHandle_t handle, optStruct *options)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (options == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the option record is null");
        ARCA_TRY(const SetUp setUp, Client::instance().currentSetUp());
        fillOptions(*options, setUp.directory, session.options, session.space->node());
        return success();
    });
}

std::int16_t hoxChangePW(hoxHandle_t handle, const char *oldPassword, const char *newPassword)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_CHECK(changePassword(session, oldPassword, newPassword));
        return success();
    });
}
