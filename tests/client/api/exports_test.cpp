// What the library shows to the process that loads it, and that it goes without a trace.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <dlfcn.h>
#include <pthread.h>
#include <sstream>
#include <thread>

namespace keel::test
{

namespace
{

// Listed again, on purpose: a name that goes missing keeps the agent from loading the client.
const std::string kOperations =
    "hoxBeginGetData hoxBeginQuery hoxBeginTxn hoxBindMC hoxChangePW hoxCleanUp "
    "hoxCreateDesKeyEx hoxDecryptEx hoxDeleteAccess hoxDeleteFS hoxDeleteObj hoxEncryptEx "
    "hoxEndGetData hoxEndGetDataEx hoxEndGetObj hoxEndQuery hoxEndSendObj hoxEndSendObjEx "
    "hoxEndTxn hoxEndTxnEx hoxGetData hoxGetNextQObj hoxGetObj hoxGroupHandler hoxInit "
    "hoxInitEx hoxLogEventEx hoxQueryAccess hoxQueryApiVersion hoxQueryApiVersionEx "
    "hoxQueryCliOptions hoxQuerySessInfo hoxQuerySessOptions hoxRCMsg hoxRCMsgEx "
    "hoxRegisterFS hoxRenameObj hoxSendData hoxSendObj hoxSetAccess hoxSetUp hoxTerminate "
    "hoxUpdateFS hoxUpdateObj";

TEST(ClientLibraryTest, ExportsItsOperationsAndNothingElse)
{
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
    EXPECT_EQ(found, kOperations);
}

// What each does with good arguments under a cancellation is tested elsewhere.
TEST(ClientLibraryTest, NoOperationEndsAThreadThatIsCancelled)
{
    const ClientLibrary api;
    bool cameBack = false;
    std::thread([&] {
        std::istringstream names(kOperations);
        pthread_cancel(pthread_self());
        for (std::string name; names >> name;) {
            using Nulls = int(void *, void *, void *, void *, void *, long, long);
            reinterpret_cast<Nulls *>(dlsym(api.handle, name.c_str()))(nullptr, nullptr, nullptr,
                                                                       nullptr, nullptr, 0, 0);
        }
        cameBack = true;
    }).join();
    EXPECT_TRUE(cameBack);
}

} // namespace

} // namespace keel::test
