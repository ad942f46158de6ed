// The built storage client, loaded as an application loads it, over a repository of its own.
#ifndef KEEL_TESTS_CLIENT_API_CLIENT_FIXTURE_H
#define KEEL_TESTS_CLIENT_API_CLIENT_FIXTURE_H

#include "client/include/hoxapi.h"
#include "tests/support/installation.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace keel::test
{

/// The operations that the tests call, by their names in the library.
struct ClientLibrary {
    ClientLibrary();
    ~ClientLibrary();
    ClientLibrary(const ClientLibrary &) = delete;
    ClientLibrary &operator=(const ClientLibrary &) = delete;

    void *handle; ///< of dlopen

#define KEEL_OPERATION(name) decltype(&::name) name = find<decltype(&::name)>(#name)
    KEEL_OPERATION(hoxSetUp);
    KEEL_OPERATION(hoxCleanUp);
    KEEL_OPERATION(hoxQueryCliOptions);
    KEEL_OPERATION(hoxQueryApiVersionEx);
    KEEL_OPERATION(hoxInit);
    KEEL_OPERATION(hoxInitEx);
    KEEL_OPERATION(hoxTerminate);
    KEEL_OPERATION(hoxQuerySessInfo);
    KEEL_OPERATION(hoxChangePW);
    KEEL_OPERATION(hoxRegisterFS);
    KEEL_OPERATION(hoxUpdateFS);
    KEEL_OPERATION(hoxDeleteFS);
    KEEL_OPERATION(hoxBindMC);
    KEEL_OPERATION(hoxBeginTxn);
    KEEL_OPERATION(hoxEndTxn);
    KEEL_OPERATION(hoxEndTxnEx);
    KEEL_OPERATION(hoxSendObj);
    KEEL_OPERATION(hoxSendData);
    KEEL_OPERATION(hoxEndSendObj);
    KEEL_OPERATION(hoxEndSendObjEx);
    KEEL_OPERATION(hoxBeginQuery);
    KEEL_OPERATION(hoxGetNextQObj);
    KEEL_OPERATION(hoxEndQuery);
    KEEL_OPERATION(hoxBeginGetData);
    KEEL_OPERATION(hoxGetObj);
    KEEL_OPERATION(hoxGetData);
    KEEL_OPERATION(hoxEndGetObj);
    KEEL_OPERATION(hoxEndGetData);
    KEEL_OPERATION(hoxEndGetDataEx);
    KEEL_OPERATION(hoxDeleteObj);
    KEEL_OPERATION(hoxRenameObj);
    KEEL_OPERATION(hoxUpdateObj);
    KEEL_OPERATION(hoxGroupHandler);
    KEEL_OPERATION(hoxSetAccess);
    KEEL_OPERATION(hoxQueryAccess);
    KEEL_OPERATION(hoxDeleteAccess);
    KEEL_OPERATION(hoxLogEventEx);
    KEEL_OPERATION(hoxRCMsg);
    KEEL_OPERATION(hoxRCMsgEx);
    KEEL_OPERATION(hoxCreateDesKeyEx);
    KEEL_OPERATION(hoxEncryptEx);
    KEEL_OPERATION(hoxDecryptEx);
#undef KEEL_OPERATION

private:
    template <class Function> Function find(const char *name)
    {
        return reinterpret_cast<Function>(lookUp(name));
    }
    void *lookUp(const char *name);
};

class ClientTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// hoxSetUp with this option file; its code.
    int setUp(const std::filesystem::path &optionFile);
    /// A session with defaults, its filespace "/fs" registered. Fails the test when it is refused.
    hoxHandle_t logOn();
    /// hoxInitEx; its code.
    int logOn(hoxHandle_t &handle, const char *node, const char *password, const char *options);

    static hoxObjName nameOf(const std::string &piece);
    static ObjAttr attributes();
    static DataBlk blockOf(std::string &bytes);
    static hoxLogEventExIn_t event(std::uint32_t log, std::uint32_t severity, const char *message);
    int registerFilespace(hoxHandle_t handle, const char *name);

    /// arca with the option file of the installation, or another one.
    std::vector<std::string> commandLine(const std::vector<std::string> &words,
                                         const std::filesystem::path &optionFile = {}) const;
    ProgramResult arca(const std::vector<std::string> &words, const std::string &input = {},
                       const std::filesystem::path &optionFile = {}) const;
    /// The line of an option file that names the repository.
    std::string repositoryLine() const;
    /// Registers another node, whose password is kept beside that of ours.
    void registerNode(const std::string &node) const;

    /// Begins a transaction and an object and sends `stream`; the first code that is not 0.
    int send(hoxHandle_t handle, const std::string &piece, const std::string &stream);
    /// The end of object and transaction; 0, or the reason, or the code.
    int commit(hoxHandle_t handle);
    int endTransaction(hoxHandle_t handle, std::uint8_t vote);
    int backUp(hoxHandle_t handle, const std::string &piece, const std::string &stream);

    /// The codes of a whole query; `found` receives the last answer.
    std::vector<int> query(hoxHandle_t handle, const std::string &piece,
                           qryRespBackupData *found = nullptr, const char *owner = nullptr,
                           std::uint8_t state = HOX_STATE_ACTIVE);
    /// What the last answer says of an active piece; all zeros when it is not there.
    qryRespBackupData recordOf(hoxHandle_t handle, const std::string &piece);
    /// All objects in any state.
    static qryObjectsData everything();
    /// Each answer to a query goes to `each`; the code that ended it.
    template <class Answer, class Each>
    int ask(hoxHandle_t handle, std::uint8_t type, const void *asked, const Each &each)
    {
        int code = api_.hoxBeginQuery(handle, type, asked);
        if (code != HOX_RC_OK)
            return code;
        Answer answer{};
        DataBlk data{HOX_DATABLK_VERSION, sizeof answer, 0, reinterpret_cast<char *>(&answer)};
        while ((code = api_.hoxGetNextQObj(handle, &data)) == HOX_RC_MORE_DATA)
            each(answer);
        EXPECT_EQ(api_.hoxEndQuery(handle), HOX_RC_OK);
        return code;
    }
    int beginGet(hoxHandle_t handle, hox64_t id);
    /// The stream, read in blocks of `block` bytes; nothing when it is not there. `codes` receives
    /// what each read answered.
    std::optional<std::string> restore(hoxHandle_t handle, const std::string &piece,
                                       std::size_t block = 1000, std::vector<int> *codes = nullptr);
    int remove(hoxHandle_t handle, const std::string &piece);
    /// A transaction that deletes or deactivates by an identifier: HOX_DEACTIVATE_BACKUP_ID.
    int changeById(hoxHandle_t handle, std::uint8_t type, hox64_t id);

    std::string text(int code);
    /// Files under a directory of the repository, such as "pieces" or "tmp".
    std::vector<std::filesystem::path> stored(const std::string &directory) const;
    /// The files of the host's caches whose names begin so and end in ".sqlite".
    std::vector<std::filesystem::path> cached(const std::string &beginning) const;

    Installation installation_;
    ClientLibrary api_;
};

} // namespace keel::test

#endif
