// Driving the storage client: see the header.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <stdexcept>

namespace keel::test
{

ClientLibrary::ClientLibrary() : handle(dlopen(clientLibrary().c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (handle == nullptr)
        throw std::runtime_error(dlerror());
}

ClientLibrary::~ClientLibrary()
{
    hoxCleanUp(1);
    dlclose(handle);
}

void *ClientLibrary::lookUp(const char *name)
{
    void *found = handle == nullptr ? nullptr : dlsym(handle, name);
    if (found == nullptr)
        throw std::runtime_error(std::string("no operation ") + name);
    return found;
}

void ClientTest::SetUp()
{
    ASSERT_EQ(setUp(installation_.clientOptions()), HOX_RC_OK) << text(HOX_RC_BAD_OPTION_FILE);
}

void ClientTest::TearDown()
{
    EXPECT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
    EXPECT_TRUE(stored("tmp").empty()) << "a clean-up leaves nothing half-done behind";
}

int ClientTest::setUp(const std::filesystem::path &optionFile)
{
    envSetUp env{};
    env.stVersion = HOX_ENVSETUP_VERSION;
    optionFile.string().copy(env.hoxiConfig, HOX_MAX_PATH);
    installation_.directory().string().copy(env.hoxiLog, HOX_MAX_PATH);
    std::strcpy(env.logName, "veloerror.log");
    return api_.hoxSetUp(1, &env);
}

int ClientTest::logOn(hoxHandle_t &handle, const char *node, const char *password,
                      const char *options)
{
    hoxInitExIn_t input{};
    input.stVersion = HOX_INITEX_IN_VERSION;
    input.nodeName = node;
    input.password = password;
    input.options = options;
    return api_.hoxInitEx(&handle, &input, nullptr);
}

hoxHandle_t ClientTest::logOn()
{
    hoxHandle_t handle = 0;
    const int code = logOn(handle, nullptr, nullptr, " ");
    EXPECT_EQ(code, HOX_RC_OK) << text(code);
    regFSData filespace{};
    filespace.stVersion = HOX_REGFS_VERSION;
    filespace.fsName = "/fs";
    filespace.fsType = "ORACLE";
    const int registered = api_.hoxRegisterFS(handle, &filespace);
    EXPECT_TRUE(registered == HOX_RC_OK || registered == HOX_RC_FS_REGISTERED) << registered;
    return handle;
}

hoxObjName ClientTest::nameOf(const std::string &piece)
{
    hoxObjName name{};
    std::strcpy(name.fsName, "/fs");
    std::strcpy(name.hlName, "/");
    name.llName[0] = '/';
    piece.copy(name.llName + 1, HOX_MAX_LL_NAME - 1);
    name.objType = HOX_OBJ_FILE;
    return name;
}

ObjAttr ClientTest::attributes()
{
    ObjAttr attributes{};
    attributes.stVersion = HOX_OBJATTR_VERSION;
    std::strcpy(attributes.owner, "oracle");
    attributes.objInfo = "stStream";
    attributes.objInfoLength = 8;
    return attributes;
}

int ClientTest::send(hoxHandle_t handle, const std::string &piece, const std::string &stream)
{
    if (const int code = api_.hoxBeginTxn(handle); code != HOX_RC_OK)
        return code;
    const hoxObjName name = nameOf(piece);
    const ObjAttr attr = attributes();
    if (const int code = api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr);
        code != HOX_RC_OK)
        return code;
    constexpr std::size_t kBlock = 64 * 1024;
    for (std::size_t at = 0; at < stream.size(); at += kBlock) {
        std::string block = stream.substr(at, kBlock);
        DataBlk data{HOX_DATABLK_VERSION, static_cast<std::uint32_t>(block.size()), 0,
                     block.data()};
        if (const int code = api_.hoxSendData(handle, &data); code != HOX_RC_OK)
            return code;
        EXPECT_EQ(data.numBytes, block.size());
    }
    return HOX_RC_OK;
}

int ClientTest::endTransaction(hoxHandle_t handle, std::uint8_t vote)
{
    std::uint16_t reason = 4711;
    const int code = api_.hoxEndTxn(handle, vote, &reason);
    EXPECT_NE(reason, 4711) << "the reason is written on every return";
    EXPECT_EQ(code == HOX_RC_CHECK_REASON, reason != 0);
    return code == HOX_RC_CHECK_REASON ? reason : code;
}

int ClientTest::commit(hoxHandle_t handle)
{
    const int ended = api_.hoxEndSendObj(handle);
    const int code = endTransaction(handle, HOX_VOTE_COMMIT);
    return code != HOX_RC_OK ? code : ended;
}

int ClientTest::backUp(hoxHandle_t handle, const std::string &piece, const std::string &stream)
{
    const int sent = send(handle, piece, stream);
    const int committed = commit(handle);
    return sent != HOX_RC_OK ? sent : committed;
}

std::vector<int> ClientTest::query(hoxHandle_t handle, const std::string &piece,
                                   qryRespBackupData *found, const char *owner, std::uint8_t state)
{
    const hoxObjName name = nameOf(piece);
    const qryBackupData asked{HOX_QRY_BACKUP_VERSION, &name, owner, state};
    std::vector<int> codes{api_.hoxBeginQuery(handle, HOX_QUERY_BACKUP, &asked)};
    if (codes.front() != HOX_RC_OK)
        return codes;
    qryRespBackupData answer{};
    DataBlk data{HOX_DATABLK_VERSION, sizeof answer, 0, reinterpret_cast<char *>(&answer)};
    do {
        codes.push_back(api_.hoxGetNextQObj(handle, &data));
        if (codes.back() == HOX_RC_MORE_DATA && found != nullptr)
            *found = answer;
    } while (codes.back() == HOX_RC_MORE_DATA);
    EXPECT_EQ(api_.hoxEndQuery(handle), HOX_RC_OK);
    EXPECT_EQ(api_.hoxEndQuery(handle), HOX_RC_OK) << "a second end is harmless";
    return codes;
}

std::optional<std::string> ClientTest::restore(hoxHandle_t handle, const std::string &piece,
                                               std::size_t block, std::vector<int> *codes)
{
    qryRespBackupData found{};
    if (query(handle, piece, &found).back() != HOX_RC_FINISHED)
        return std::nullopt;
    const hoxGetList list{HOX_GETLIST_VERSION, 1, &found.objId};
    std::vector<int> seen{api_.hoxBeginGetData(handle, 1, HOX_GET_BACKUP, &list),
                          api_.hoxGetObj(handle, &found.objId, nullptr)};
    std::string stream;
    std::string buffer(block, '\0');
    while (seen.back() == HOX_RC_MORE_DATA) {
        DataBlk data{HOX_DATABLK_VERSION, static_cast<std::uint32_t>(block), 0, buffer.data()};
        seen.push_back(api_.hoxGetData(handle, &data));
        stream.append(buffer, 0, data.numBytes);
    }
    (void)api_.hoxEndGetObj(handle);
    (void)api_.hoxEndGetData(handle);
    if (codes != nullptr)
        *codes = std::vector<int>(seen.begin() + 2, seen.end());
    if (seen.back() != HOX_RC_FINISHED)
        return std::nullopt;
    return stream;
}

int ClientTest::remove(hoxHandle_t handle, const std::string &piece)
{
    const hoxObjName name = nameOf(piece);
    hoxDelInfo info{};
    info.backName = {HOX_DELBACK_VERSION, &name};
    if (const int code = api_.hoxBeginTxn(handle); code != HOX_RC_OK)
        return code;
    const int deleted = api_.hoxDeleteObj(handle, HOX_DELETE_BACKUP_NAME, &info);
    const int ended = endTransaction(handle, HOX_VOTE_COMMIT);
    return deleted != HOX_RC_OK ? deleted : ended;
}

std::string ClientTest::text(int code)
{
    char message[HOX_MAX_RC_MESSAGE + 1] = "";
    EXPECT_EQ(api_.hoxRCMsg(0, static_cast<std::int16_t>(code), message), HOX_RC_OK);
    return message;
}

std::vector<std::filesystem::path> ClientTest::stored(const std::string &directory) const
{
    std::vector<std::filesystem::path> files;
    std::error_code none;
    const auto root = installation_.repository() / directory;
    for (std::filesystem::recursive_directory_iterator at(root, none), end; at != end; ++at)
        if (at->is_regular_file())
            files.push_back(at->path());
    return files;
}

std::vector<std::filesystem::path> ClientTest::cached(const std::string &beginning) const
{
    std::vector<std::filesystem::path> files;
    std::error_code none;
    for (std::filesystem::recursive_directory_iterator at(installation_.caches(), none), end;
         at != end; at.increment(none))
        if (at->path().extension() == ".sqlite" &&
            at->path().filename().string().starts_with(beginning))
            files.push_back(at->path());
    return files;
}

} // namespace keel::test
