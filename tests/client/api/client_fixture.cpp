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
    const int registered = registerFilespace(handle, "/fs");
    EXPECT_TRUE(registered == HOX_RC_OK || registered == HOX_RC_FS_REGISTERED) << registered;
    return handle;
}

int ClientTest::registerFilespace(hoxHandle_t handle, const char *name)
{
    regFSData filespace{};
    filespace.stVersion = HOX_REGFS_VERSION;
    filespace.fsName = name;
    filespace.fsType = "ORACLE";
    return api_.hoxRegisterFS(handle, &filespace);
}

std::vector<std::string> ClientTest::commandLine(const std::vector<std::string> &words,
                                                 const std::filesystem::path &optionFile) const
{
    std::vector<std::string> line{arcaProgram()};
    line.insert(line.end(), words.begin(), words.end());
    line.insert(line.end(),
                {"--optfile", optionFile.empty() ? installation_.clientOptions() : optionFile});
    return line;
}

ProgramResult ClientTest::arca(const std::vector<std::string> &words, const std::string &input,
                               const std::filesystem::path &optionFile) const
{
    ProgramOptions options;
    options.input = input;
    return run(commandLine(words, optionFile), options);
}

std::string ClientTest::repositoryLine() const
{
    return "REPOSITORY file://" + installation_.repository().string() + "\n";
}

void ClientTest::registerNode(const std::string &node) const
{
    const std::string own = readFile(installation_.clientOptions());
    writeFile(installation_.clientOptions(), repositoryLine() + "NODENAME " + node + "\n");
    ASSERT_EQ(arca({"init"}).status, 0);
    writeFile(installation_.clientOptions(), own);
}

hoxLogEventExIn_t ClientTest::event(std::uint32_t log, std::uint32_t severity, const char *message)
{
    hoxLogEventExIn_t event{};
    event.stVersion = HOX_LOGEVENTEX_VERSION;
    event.logType = log;
    event.severity = severity;
    event.message = message;
    return event;
}

DataBlk ClientTest::blockOf(std::string &bytes)
{
    return {HOX_DATABLK_VERSION, static_cast<std::uint32_t>(bytes.size()), 0, bytes.data()};
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
        DataBlk data = blockOf(block);
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

qryRespBackupData ClientTest::recordOf(hoxHandle_t handle, const std::string &piece)
{
    qryRespBackupData found{};
    (void)query(handle, piece, &found);
    return found;
}

qryObjectsData ClientTest::everything()
{
    qryObjectsData asked{};
    asked.stVersion = HOX_QRY_OBJECTS_VERSION;
    asked.objState = HOX_STATE_ANY;
    return asked;
}

int ClientTest::beginGet(hoxHandle_t handle, hox64_t id)
{
    const hoxGetList list{HOX_GETLIST_VERSION, 1, &id};
    return api_.hoxBeginGetData(handle, 1, HOX_GET_BACKUP, &list);
}

std::optional<std::string> ClientTest::restore(hoxHandle_t handle, const std::string &piece,
                                               std::size_t block, std::vector<int> *codes)
{
    qryRespBackupData found{};
    if (query(handle, piece, &found).back() != HOX_RC_FINISHED)
        return std::nullopt;
    std::vector<int> seen{beginGet(handle, found.objId),
                          api_.hoxGetObj(handle, &found.objId, nullptr)};
    std::string stream;
    std::string buffer(block, '\0');
    while (seen.back() == HOX_RC_MORE_DATA) {
        DataBlk data = blockOf(buffer);
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

int ClientTest::changeById(hoxHandle_t handle, std::uint8_t type, hox64_t id)
{
    hoxDelInfo info{};
    info.backID = {HOX_DELBACK_VERSION, id};
    EXPECT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
    const int code = api_.hoxDeleteObj(handle, type, &info);
    const int ended = endTransaction(handle, HOX_VOTE_COMMIT);
    return code != HOX_RC_OK ? code : ended;
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
