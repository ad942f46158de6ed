// What the library shows to the process that loads it, and that it goes without a trace.
#include "tests/client/client_fixture.h"

#include <algorithm>
#include <dlfcn.h>
#include <sstream>

namespace keel::test
{

namespace
{

TEST(ClientLibraryTest, ExportsItsOperationsAndNothingElse)
{
    // Listed again, on purpose: a name that goes missing keeps the agent from loading the client.
    const std::string operations =
        "hoxBeginGetData hoxBeginQuery hoxBeginTxn hoxBindMC hoxChangePW hoxCleanUp "
        "hoxCreateDesKeyEx hoxDecryptEx hoxDeleteAccess hoxDeleteFS hoxDeleteObj hoxEncryptEx "
        "hoxEndGetData hoxEndGetDataEx hoxEndGetObj hoxEndQuery hoxEndSendObj hoxEndSendObjEx "
        "hoxEndTxn hoxEndTxnEx hoxGetData hoxGetNextQObj hoxGetObj hoxGroupHandler hoxInit "
        "hoxInitEx hoxLogEventEx hoxQueryAccess hoxQueryApiVersion hoxQueryApiVersionEx "
        "hoxQueryCliOptions hoxQuerySessInfo hoxQuerySessOptions hoxRCMsg hoxRCMsgEx "
        "hoxRegisterFS hoxRenameObj hoxSendData hoxSendObj hoxSetAccess hoxSetUp hoxTerminate "
        "hoxUpdateFS hoxUpdateObj";
    const ProgramResult listed =
        run({"nm", "-D", "--defined-only", "--format=posix", clientLibrary()});
    ASSERT_EQ(listed.status, 0) << listed.err;
    std::vector<std::string> names;
    std::istringstream lines(listed.out);
    for (std::string line; std::getline(lines, line);)
        names.push_back(line.substr(0, line.find(' ')));
    std::sort(names.begin(), names.end());
    std::string found;
    for (const std::string &name : names)
        found += (found.empty() ? "" : " ") + name;
    EXPECT_EQ(found, operations);
}

TEST(ClientLibraryTest, LoadsAndGoesAgainAndAgainWithoutLeavingDescriptors)
{
    const auto descriptors = [] {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto &entry :
             std::filesystem::directory_iterator("/proc/self/fd"))
            ++count;
        return count;
    };
    Installation installation;
    const std::size_t before = descriptors();
    for (int i = 0; i < 50; ++i) {
        const ClientLibrary api;
        envSetUp env{};
        env.stVersion = HOX_ENVSETUP_VERSION;
        installation.clientOptions().string().copy(env.hoxiConfig, HOX_MAX_PATH);
        ASSERT_EQ(api.hoxSetUp(1, &env), HOX_RC_OK);
        hoxInitExIn_t input{};
        input.stVersion = HOX_INITEX_IN_VERSION;
        hoxHandle_t handle = 0;
        ASSERT_EQ(api.hoxInitEx(&handle, &input, nullptr), HOX_RC_OK);
    }
    EXPECT_EQ(descriptors(), before);
}

} // namespace

} // namespace keel::test
