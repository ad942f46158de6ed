// The wrappers: one line an operation, all of them the same story (trace, time, call, trace).
#include "agents/common/dhoxapi.h"

#include <cstring>
#include <type_traits>

#include "agents/common/unx/sun/dhoxapidl.h"
#include "common/cu/cu64.h"
#include "common/string/ststring.h"
#include "common/ut/trace.h"

DHoxApi *gHoxApiObjP = nullptr;
DHoxApiStatus *HoxApiStatusObjP = nullptr;

#define DHOX_POINTER(operation) decltype(&::operation) DHoxApi::m_fn##operation##P = nullptr;
DHOX_OPERATIONS(DHOX_POINTER)
#undef DHOX_POINTER
std::int16_t (*DHoxApi::m_fnhoxLogMessageP)(hoxHandle_t, const char *) = nullptr;

DHoxApi &hoxApi()
{
    static DHoxApiDL nothingLoaded;
    return gHoxApiObjP != nullptr ? *gHoxApiObjP : nothingLoaded;
}

DHoxApi::DHoxApi() : DBaseApi("ARCA") {}

DHoxApi::DHoxApi(const char *apiName) : DBaseApi(apiName) {}

void DHoxApi::ClearPointers()
{
#define DHOX_CLEAR(operation) m_fn##operation##P = nullptr;
    DHOX_OPERATIONS(DHOX_CLEAR)
#undef DHOX_CLEAR
    m_fnhoxLogMessageP = nullptr;
}

bool DHoxApi::IsLoaded()
{
    return m_fnhoxSetUpP != nullptr;
}

template <class Result, class... Formal, class... Actual>
Result DHoxApi::timed(DBaseApiStatus *status, const char *name, Result (*operation)(Formal...),
                      Actual... arguments)
{
    KEEL_TRACE(TR_API, "Enter %s\n", name);
    if constexpr (std::is_void_v<Result>) {
        StartApiCall(status);
        if (operation != nullptr) {
            operation(arguments...);
        }
        EndApiCall(status);
        KEEL_TRACE(TR_API, "Exit %s\n", name);
    } else {
        Result rc = kNotLoaded;
        StartApiCall(status);
        if (operation != nullptr) {
            rc = operation(arguments...);
        }
        EndApiCall(status);
        KEEL_TRACE(TR_API, "Exit %s, rc = %d\n", name, static_cast<int>(rc));
        return rc;
    }
}

#define DHOX_CALL(operation, ...)                                                                  \
    timed(status, "DHoxApi::d" #operation "()", m_fn##operation##P __VA_OPT__(, ) __VA_ARGS__)

// ---- set-up and sessions

std::int16_t DHoxApi::dhoxSetUp(DBaseApiStatus *status, int multithread, const envSetUp *env)
{
    return DHOX_CALL(hoxSetUp, multithread, env);
}

std::int16_t DHoxApi::dhoxCleanUp(DBaseApiStatus *status, int multithread)
{
    return DHOX_CALL(hoxCleanUp, multithread);
}

void DHoxApi::dhoxQueryApiVersion(DBaseApiStatus *status, hoxApiVersion *version)
{
    DHOX_CALL(hoxQueryApiVersion, version);
}

void DHoxApi::dhoxQueryApiVersionEx(DBaseApiStatus *status, hoxApiVersionEx *version)
{
    DHOX_CALL(hoxQueryApiVersionEx, version);
}

std::int16_t DHoxApi::dhoxQueryCliOptions(DBaseApiStatus *status, optStruct *options)
{
    return DHOX_CALL(hoxQueryCliOptions, options);
}

std::int16_t DHoxApi::dhoxInitEx(DBaseApiStatus *status, hoxHandle_t *handle,
                                 const hoxInitExIn_t *input, hoxInitExOut_t *output)
{
    return DHOX_CALL(hoxInitEx, handle, input, output);
}

std::int16_t DHoxApi::dhoxInit(DBaseApiStatus *status, hoxHandle_t *handle,
                               const hoxApiVersion *version, const char *nodeName,
                               const char *ownerName, const char *password,
                               const char *applicationType, const char *configFile,
                               const char *options)
{
    return DHOX_CALL(hoxInit, handle, version, nodeName, ownerName, password, applicationType,
                     configFile, options);
}

std::int16_t DHoxApi::dhoxQuerySessInfo(DBaseApiStatus *status, hoxHandle_t handle,
                                        ApiSessInfo *info)
{
    return DHOX_CALL(hoxQuerySessInfo, handle, info);
}

std::int16_t DHoxApi::dhoxQuerySessOptions(DBaseApiStatus *status, hoxHandle_t handle,
                                           optStruct *options)
{
    return DHOX_CALL(hoxQuerySessOptions, handle, options);
}

std::int16_t DHoxApi::dhoxChangePW(DBaseApiStatus *status, hoxHandle_t handle,
                                   const char *oldPassword, const char *newPassword)
{
    return DHOX_CALL(hoxChangePW, handle, oldPassword, newPassword);
}

std::int16_t DHoxApi::dhoxTerminate(DBaseApiStatus *status, hoxHandle_t handle)
{
    return DHOX_CALL(hoxTerminate, handle);
}

// ---- filespaces

std::int16_t DHoxApi::dhoxRegisterFS(DBaseApiStatus *status, hoxHandle_t handle,
                                     const regFSData *data)
{
    return DHOX_CALL(hoxRegisterFS, handle, data);
}

std::int16_t DHoxApi::dhoxUpdateFS(DBaseApiStatus *status, hoxHandle_t handle, const char *fsName,
                                   const hoxFSUpd *update, std::uint32_t mask)
{
    return DHOX_CALL(hoxUpdateFS, handle, fsName, update, mask);
}

std::int16_t DHoxApi::dhoxDeleteFS(DBaseApiStatus *status, hoxHandle_t handle, const char *fsName,
                                   std::uint8_t repositoryType)
{
    return DHOX_CALL(hoxDeleteFS, handle, fsName, repositoryType);
}

// ---- transactions and sending

std::int16_t DHoxApi::dhoxBeginTxn(DBaseApiStatus *status, hoxHandle_t handle)
{
    return DHOX_CALL(hoxBeginTxn, handle);
}

std::int16_t DHoxApi::dhoxEndTxn(DBaseApiStatus *status, hoxHandle_t handle, std::uint8_t vote,
                                 std::uint16_t *reason)
{
    return DHOX_CALL(hoxEndTxn, handle, vote, reason);
}

std::int16_t DHoxApi::dhoxEndTxnEx(DBaseApiStatus *status, hoxHandle_t handle,
                                   const hoxEndTxnExIn_t *input, hoxEndTxnExOut_t *output)
{
    return DHOX_CALL(hoxEndTxnEx, handle, input, output);
}

std::int16_t DHoxApi::dhoxBindMC(DBaseApiStatus *status, hoxHandle_t handle, const hoxObjName *name,
                                 std::uint8_t sendType, mcBindKey *binding)
{
    return DHOX_CALL(hoxBindMC, handle, name, sendType, binding);
}

std::int16_t DHoxApi::dhoxSendObj(DBaseApiStatus *status, hoxHandle_t handle, std::uint8_t sendType,
                                  void *sendBuffer, const hoxObjName *name,
                                  const ObjAttr *attributes, DataBlk *data)
{
    return DHOX_CALL(hoxSendObj, handle, sendType, sendBuffer, name, attributes, data);
}

std::int16_t DHoxApi::dhoxSendData(DBaseApiStatus *status, hoxHandle_t handle, DataBlk *data)
{
    return DHOX_CALL(hoxSendData, handle, data);
}

std::int16_t DHoxApi::dhoxEndSendObj(DBaseApiStatus *status, hoxHandle_t handle)
{
    return DHOX_CALL(hoxEndSendObj, handle);
}

std::int16_t DHoxApi::dhoxEndSendObjEx(DBaseApiStatus *status, hoxHandle_t handle,
                                       const hoxEndSendObjExIn_t *input,
                                       hoxEndSendObjExOut_t *output)
{
    return DHOX_CALL(hoxEndSendObjEx, handle, input, output);
}

// ---- queries

std::int16_t DHoxApi::dhoxBeginQuery(DBaseApiStatus *status, hoxHandle_t handle,
                                     std::uint8_t queryType, const void *queryData)
{
    return DHOX_CALL(hoxBeginQuery, handle, queryType, queryData);
}

std::int16_t DHoxApi::dhoxGetNextQObj(DBaseApiStatus *status, hoxHandle_t handle, DataBlk *data,
                                      dhoxBackupObject_t *own)
{
    const std::int16_t rc = DHOX_CALL(hoxGetNextQObj, handle, data);
    const bool carriesObject = rc == HOX_RC_MORE_DATA || (rc == HOX_RC_OK && data->numBytes != 0);
    if (!carriesObject || own == nullptr) {
        return rc;
    }
    if (data->bufferLen != sizeof(qryRespBackupData)) {
        return kConversionFailed;
    }
    qryRespBackupData answer;
    std::memcpy(&answer, data->bufferPtr, sizeof answer);
    return CopyApiQryRespBackupData(answer, *own) ? rc : kConversionFailed;
}

std::int16_t DHoxApi::dhoxEndQuery(DBaseApiStatus *status, hoxHandle_t handle)
{
    return DHOX_CALL(hoxEndQuery, handle);
}

// ---- reading

std::int16_t DHoxApi::dhoxBeginGetData(DBaseApiStatus *status, hoxHandle_t handle,
                                       std::uint8_t mountWait, std::uint8_t getType,
                                       const hoxGetList *list)
{
    return DHOX_CALL(hoxBeginGetData, handle, mountWait, getType, list);
}

std::int16_t DHoxApi::dhoxGetObj(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t *objId,
                                 DataBlk *data)
{
    return DHOX_CALL(hoxGetObj, handle, objId, data);
}

std::int16_t DHoxApi::dhoxGetData(DBaseApiStatus *status, hoxHandle_t handle, DataBlk *data)
{
    return DHOX_CALL(hoxGetData, handle, data);
}

std::int16_t DHoxApi::dhoxEndGetObj(DBaseApiStatus *status, hoxHandle_t handle)
{
    return DHOX_CALL(hoxEndGetObj, handle);
}

std::int16_t DHoxApi::dhoxEndGetData(DBaseApiStatus *status, hoxHandle_t handle)
{
    return DHOX_CALL(hoxEndGetData, handle);
}

std::int16_t DHoxApi::dhoxEndGetDataEx(DBaseApiStatus *status, hoxHandle_t handle,
                                       const hoxEndGetDataExIn_t *input,
                                       hoxEndGetDataExOut_t *output)
{
    return DHOX_CALL(hoxEndGetDataEx, handle, input, output);
}

// ---- deleting and changing

std::int16_t DHoxApi::dhoxDeleteObj(DBaseApiStatus *status, hoxHandle_t handle,
                                    std::uint8_t delType, const hoxDelInfo *info)
{
    return DHOX_CALL(hoxDeleteObj, handle, delType, info);
}

std::int16_t DHoxApi::dhoxRenameObj(DBaseApiStatus *status, hoxHandle_t handle,
                                    std::uint8_t sendType, const hoxObjName *name,
                                    const char *newHlName, const char *newLlName)
{
    return DHOX_CALL(hoxRenameObj, handle, sendType, name, newHlName, newLlName);
}

std::int16_t DHoxApi::dhoxUpdateObj(DBaseApiStatus *status, hoxHandle_t handle,
                                    std::uint8_t sendType, const hoxObjName *name,
                                    const ObjAttr *attributes, std::uint32_t mask)
{
    return DHOX_CALL(hoxUpdateObj, handle, sendType, name, attributes, mask);
}

std::int16_t DHoxApi::dhoxGroupHandler(DBaseApiStatus *status, hoxHandle_t handle,
                                       const hoxGroupIn_t *input, hoxGroupOut_t *output)
{
    return DHOX_CALL(hoxGroupHandler, handle, input, output);
}

// ---- access

std::int16_t DHoxApi::dhoxSetAccess(DBaseApiStatus *status, hoxHandle_t handle,
                                    std::uint8_t accessType, const hoxObjName *name,
                                    const char *nodeName, const char *ownerName)
{
    return DHOX_CALL(hoxSetAccess, handle, accessType, name, nodeName, ownerName);
}

std::int16_t DHoxApi::dhoxQueryAccess(DBaseApiStatus *status, hoxHandle_t handle,
                                      qryRespAccessData *rules, std::uint16_t *count)
{
    return DHOX_CALL(hoxQueryAccess, handle, rules, count);
}

std::int16_t DHoxApi::dhoxDeleteAccess(DBaseApiStatus *status, hoxHandle_t handle,
                                       std::uint32_t ruleNumber)
{
    return DHOX_CALL(hoxDeleteAccess, handle, ruleNumber);
}

// ---- messages, events, cipher

std::int16_t DHoxApi::dhoxRCMsg(DBaseApiStatus *status, hoxHandle_t handle, std::int16_t rc,
                                char *message)
{
    return DHOX_CALL(hoxRCMsg, handle, rc, message);
}

std::int16_t DHoxApi::dhoxRCMsgEx(DBaseApiStatus *status, hoxHandle_t handle,
                                  const hoxRCMsgExIn_t *input, hoxRCMsgExOut_t *output)
{
    return DHOX_CALL(hoxRCMsgEx, handle, input, output);
}

std::int16_t DHoxApi::dhoxLogEventEx(DBaseApiStatus *status, hoxHandle_t handle,
                                     const hoxLogEventExIn_t *input, hoxLogEventExOut_t *output)
{
    return DHOX_CALL(hoxLogEventEx, handle, input, output);
}

std::int16_t DHoxApi::dhoxLogMessage(DBaseApiStatus *status, hoxHandle_t handle,
                                     const char *message)
{
    return DHOX_CALL(hoxLogMessage, handle, message);
}

void DHoxApi::dhoxCreateDesKeyEx(DBaseApiStatus *status, std::uint32_t *key, const char *nodeName)
{
    DHOX_CALL(hoxCreateDesKeyEx, key, nodeName);
}

void DHoxApi::dhoxEncryptEx(DBaseApiStatus *status, const std::uint32_t *key,
                            const unsigned char *input, unsigned char *output)
{
    DHOX_CALL(hoxEncryptEx, key, input, output);
}

void DHoxApi::dhoxDecryptEx(DBaseApiStatus *status, const std::uint32_t *key,
                            const unsigned char *input, unsigned char *output)
{
    DHOX_CALL(hoxDecryptEx, key, input, output);
}

// ---- the query answer in our own form

namespace
{

template <std::size_t N> bool terminated(const char (&text)[N])
{
    return std::memchr(text, '\0', N) != nullptr;
}

std::uint64_t joined(const hox64_t &halves)
{
    return cuMake64(halves.hi, halves.lo);
}

} // namespace

bool CopyApiQryRespBackupData(const qryRespBackupData &from, dhoxBackupObject_t &to)
{
    const hoxObjName &name = from.objName;
    if (from.stVersion != HOX_QRY_RESP_BACKUP_VERSION || !terminated(name.fsName) ||
        !terminated(name.hlName) || !terminated(name.llName) || !terminated(from.mcName) ||
        !terminated(from.owner) || from.objInfoLength > sizeof from.objInfo) {
        return false;
    }
    to = dhoxBackupObject_t{};
    to.objName = name;
    to.objId = joined(from.objId);
    to.sizeEstimate = joined(from.sizeEstimate);
    to.size = joined(from.size);
    to.copyGroup = from.copyGroup;
    to.restoreOrder = from.restoreOrder.word[0];
    to.mediaClass = from.mediaClass;
    to.objState = from.objState;
    to.insDate = from.insDate;
    to.expDate = from.expDate;
    stCopy(to.mcName, sizeof to.mcName, from.mcName);
    stCopy(to.owner, sizeof to.owner, from.owner);
    std::memcpy(to.objInfo, from.objInfo, from.objInfoLength);
    return true;
}
