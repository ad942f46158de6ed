// What the library shows to the process that loads it, and that it goes without a trace.
#include "tests/client/api/client_fixture.h"

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

} // namespace

} // namespace keel::test
