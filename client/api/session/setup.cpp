// Set-up and clean-up of the process, and what can be asked without a session.
#include "client/api/session/client.h"
#include "client/api/session/query_options.h"
#include "client/api/session/records.h"

using namespace arca;
using namespace arca::api;

namespace
{

Answer<SetUp> setUpFrom(const envSetUp &env)
{
    SetUp setUp;
    ARCA_TRY(setUp.directory, fieldText(env.hoxiDir, "hoxiDir"));
    ARCA_TRY(setUp.optionFile, fieldText(env.hoxiConfig, "hoxiConfig"));
    ARCA_TRY(std::string logDirectory, fieldText(env.hoxiLog, "hoxiLog"));
    ARCA_TRY(std::string logName, fieldText(env.logName, "logName"));
    if (setUp.directory.empty())
        setUp.directory = installedDirectory();
    if (setUp.optionFile.empty())
        setUp.optionFile = setUp.directory + "/arca.opt";
    if (logDirectory.empty())
        logDirectory = setUp.directory;
    if (logName.empty())
        logName = "veloerror.log";
    setUp.localLog = logDirectory + "/" + logName;
    ARCA_TRY(setUp.options, config::readOptionFile(setUp.optionFile));
    return setUp;
}

} // namespace

std::int16_t hoxSetUp(int, const envSetUp *env)
{
    return atBoundary([&]() -> Code {
        ARCA_CHECK(expectVersion(env, env == nullptr ? std::uint16_t{0} : env->stVersion,
                                 HOX_ENVSETUP_VERSION, "the set-up record"));
        Client::instance().cleanUp();
        ARCA_TRY(SetUp setUp, setUpFrom(*env));
        Client::instance().setUp(std::move(setUp));
        return success();
    });
}

std::int16_t hoxCleanUp(int)
{
    return atBoundary([&]() -> Code {
        Client::instance().cleanUp();
        return success();
    });
}

void hoxQueryApiVersion(hoxApiVersion *version)
{
    if (version != nullptr)
        *version = {HOX_API_VERSION, HOX_API_RELEASE, HOX_API_LEVEL};
}

void hoxQueryApiVersionEx(hoxApiVersionEx *version)
{
    if (version != nullptr && mayFill(*version, HOX_API_VERSION_EX_VERSION))
        *version = {HOX_API_VERSION_EX_VERSION, HOX_API_VERSION, HOX_API_RELEASE, HOX_API_LEVEL,
                    HOX_API_SUBLEVEL};
}

std::int16_t hoxQueryCliOptions(optStruct *options)
{
    return atBoundary([&]() -> Code {
        if (options == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the option record is null");
        ARCA_TRY(const SetUp setUp, Client::instance().currentSetUp());
        ARCA_TRY(const std::string node, config::nodeNameFor(setUp.options));
        fillOptions(*options, setUp.directory, setUp.options, node);
        return success();
    });
}
