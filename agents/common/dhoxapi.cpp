// The binding's state, and the operations that do more than call.
#include "agents/common/dhoxapi.h"

#include <cstddef>
#include <cstring>
#include <new>

#include "agents/common/callpin.h"
#include "common/cu/cu64.h"
#include "common/string/ststring.h"
#include "common/thrd/psprocess.h"

DHoxApi *gHoxApiObjP = nullptr;
std::atomic<DHoxApiStatus *> HoxApiStatusObjP{nullptr};

namespace
{

// The table of operations is class-wide, so this binding must not look at it.
class NothingLoaded : public DHoxApi
{
public:
    NothingLoaded() { usable_ = false; }
    int Setup() override { return DHOX_NOT_LOADED; }
    int Cleanup() override { return 0; }
};

/// Made as the library is loaded, and never destroyed. A static that the first call makes would
/// hang a child that is forked meanwhile.
alignas(NothingLoaded) std::byte room[sizeof(NothingLoaded)];
NothingLoaded &nothingLoaded = *new (room) NothingLoaded;

} // namespace

DHoxApi &hoxApi()
{
    return !callShutOut() && gHoxApiObjP != nullptr ? *gHoxApiObjP : nothingLoaded;
}

DHoxApi::DHoxApi(const char *apiName) : DHoxApi(apiName, "", "", nullptr) {}

DHoxApi::DHoxApi(const char *apiName, const char *nodeName, const char *ownerName,
                 PasswordCallback callback)
    : DBaseApi(apiName), DHoxCalls(static_cast<DBaseApi &>(*this)), nodeName_{}, ownerName_{},
      callback_(callback), options_{}
{
    stCopy(nodeName_, nodeName == nullptr ? "" : nodeName);
    stCopy(ownerName_, ownerName == nullptr ? "" : ownerName);
}

void DHoxApi::ClearPointers()
{
#define DHOX_CLEAR(operation) m_fn##operation##P = nullptr;
    DHOX_OPERATIONS(DHOX_CLEAR)
    DHOX_CLEAR(hoxLogMessage)
#undef DHOX_CLEAR
}

bool DHoxApi::IsLoaded()
{
    return !callShutOut() && m_fnhoxSetUpP != nullptr;
}

bool DHoxApi::IsSetUp()
{
    return setUpProcess_ != 0 && setUpProcess_ == psProcessSelf();
}

std::int16_t DHoxApi::dhoxSetUp(DBaseApiStatus *status, int multithread, const envSetUp *env)
{
    const std::int16_t rc = DHoxCalls::dhoxSetUp(status, multithread, env);
    if (rc == HOX_RC_OK) {
        setUpProcess_ = psProcessSelf();
    } else if (rc != HOX_RC_NULL_ARGUMENT && rc != HOX_RC_BAD_VERSION) {
        setUpProcess_ = 0; // a failed set-up has ended the earlier one
    }
    return rc;
}

std::int16_t DHoxApi::dhoxCleanUp(DBaseApiStatus *status, int multithread)
{
    setUpProcess_ = 0;
    return DHoxCalls::dhoxCleanUp(status, multithread);
}

std::int16_t DHoxApi::dhoxGetNextQObj(DBaseApiStatus *status, hoxHandle_t handle, DataBlk *data,
                                      dhoxBackupObject_t *own)
{
    const std::int16_t rc = DHoxCalls::dhoxGetNextQObj(status, handle, data);
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

// ---- the conversion of a query answer

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
    to.storedSize = joined(from.storedSize);
    to.insTime = static_cast<std::int64_t>(joined(from.insTime));
    to.inactTime = static_cast<std::int64_t>(joined(from.inactTime));
    to.copyGroup = from.copyGroup;
    to.restoreOrder = from.restoreOrder.word[0];
    to.mediaClass = from.mediaClass;
    to.objState = from.objState;
    to.insDate = from.insDate;
    to.expDate = from.expDate;
    to.inactDate = from.inactDate;
    to.objCompressed = from.objCompressed;
    to.objDeduplicated = from.objDeduplicated;
    to.encryptionType = from.encryptionType;
    stCopy(to.mcName, sizeof to.mcName, from.mcName);
    stCopy(to.owner, sizeof to.owner, from.owner);
    std::memcpy(to.objInfo, from.objInfo, from.objInfoLength);
    return true;
}
