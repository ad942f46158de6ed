// DHoxApi: the binding of the storage client. Its operations are those of DHoxCalls; around them it
// offers the client's environment, logons, object groups and the texts of the client's codes for
// programs that look after objects without a channel.
#ifndef KEEL_AGENTS_COMMON_DHOXAPI_H
#define KEEL_AGENTS_COMMON_DHOXAPI_H

#include <atomic>

#include "agents/common/dhoxcalls.h"

/// The status object of the storage client; nothing but the accumulated times.
class DHoxApiStatus : public DBaseApiStatus
{
};

/// An answer of a backup query in the library's own form.
struct dhoxBackupObject_t {
    hoxObjName objName;
    std::uint64_t objId;
    std::uint64_t sizeEstimate;
    std::uint64_t size;       // bytes
    std::uint64_t storedSize; // bytes that it added to the repository
    std::int64_t insTime;     // insDate and inactDate as seconds since 1970, UTC; 0: none
    std::int64_t inactTime;
    std::uint32_t copyGroup;
    std::uint32_t restoreOrder;
    std::uint8_t mediaClass;
    std::uint8_t objState;
    char mcName[HOX_MAX_MC_NAME + 1];
    char owner[HOX_MAX_OWNER_NAME + 1];
    char objInfo[HOX_MAX_OBJ_INFO + 1];
    hoxDate insDate;
    hoxDate expDate;
    hoxDate inactDate; // year 0: it is active
    std::uint8_t objCompressed;
    std::uint8_t objDeduplicated;
    std::uint8_t encryptionType; // HOX_ENCRYPT_ bits
};

/// Who logs on. Null or empty: the client's own choice.
struct DHoxLogonNames {
    const char *node = nullptr;
    const char *asNode = nullptr; // whose objects are meant
    const char *owner = nullptr;
};

class DHoxApi : public DBaseApi, public DHoxCalls
{
public:
    static constexpr std::int16_t kConversionFailed = 102;
    static constexpr std::uint32_t kCompiledLevel = 71300;
    static constexpr int kLevelTooLow = 107;
    static constexpr int kMostSessionStarts = 5;

    /// Asked for the password when a logon gives none; 0 when it is in password (size bytes).
    using PasswordCallback = int (*)(char *password, std::uint32_t size);

    explicit DHoxApi(const char *apiName = "ARCA");
    /// The names and the call-back serve the logons that give none of their own; names are cut to
    /// the length the client takes.
    DHoxApi(const char *apiName, const char *nodeName, const char *ownerName,
            PasswordCallback callback);

    static void ClearPointers();
    static bool IsLoaded();

    /// Starts a session by start(attempt, code of the last attempt), again while the client is
    /// busy, kMostSessionStarts times at most.
    template <class Start> static std::int16_t StartSession(Start start)
    {
        std::int16_t rc = HOX_RC_OK;
        int attempt = 0;
        do {
            rc = start(attempt, rc);
        } while (rc == HOX_RC_RETRY_SESSION && ++attempt < kMostSessionStarts);
        return rc;
    }

    // ---- operations that do more than call
    /// True while the client is set up, through any binding of this process; a set-up that fails
    /// ends the one before it. A forked child is another process: what its parent set up is not its
    /// own to clean up. Asked under the initialisation lock.
    static bool IsSetUp();
    std::int16_t dhoxSetUp(DBaseApiStatus *, int multithread, const envSetUp *);
    std::int16_t dhoxCleanUp(DBaseApiStatus *, int multithread);
    /// With own not null an object that came (2200, or 0 with data) is also converted into it; one
    /// that cannot be converted makes the result kConversionFailed.
    std::int16_t dhoxGetNextQObj(DBaseApiStatus *, hoxHandle_t, DataBlk *, dhoxBackupObject_t *own);

    // ---- the client's environment (dhoxenv.cpp)
    /// Sets the client up for its installed directories, once a process; *rc (may be null) is the
    /// result as well.
    int Init(DBaseApiStatus *, int *rc) override;
    /// Undoes Init; nothing when the client is not set up.
    int Term(DBaseApiStatus *) override;

    // ---- logons (dhoxlogon.cpp). 0 with *handle set, or the client's code with *handle 0.
    /// As the constructor said; the call-back, if there is one, is asked for the password.
    int Logon(DBaseApiStatus *, hoxHandle_t *handle);
    int Logon(DBaseApiStatus *, hoxHandle_t *handle, const char *password);
    /// And makes newPassword the node's password; when that fails there is no session.
    int Logon(DBaseApiStatus *, hoxHandle_t *handle, const char *password, const char *newPassword);
    int Logon(DBaseApiStatus *, hoxHandle_t *handle, const DHoxLogonNames &names,
              const char *password);
    /// Ends the session and zeroes *handle; 0 for one that is zero already.
    int Logoff(DBaseApiStatus *, hoxHandle_t *handle);
    /// Options ("-option=value ...") for the logons that follow, in place of earlier ones; null is
    /// none. False, and nothing changes, beyond HOX_MAX_OPTIONS characters.
    bool SetOptionsOverride(const char *options);

    // ---- groups of objects (dhoxgroup.cpp), outside transactions; the client's codes
    /// Begins a group: *leader receives the identifier of the object name, which leads it.
    int groupOpen(DBaseApiStatus *, hoxHandle_t, const char *tag, const hoxObjName *name,
                  hox64_t *leader);
    /// Members for the group that is open, and its end: only then it is there.
    int groupAdd(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader,
                 const hox64_t *members, std::uint32_t count)
    {
        return group(status, handle, {HOX_GROUP_ADD, leader, members, count});
    }
    int groupClose(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader)
    {
        return group(status, handle, {HOX_GROUP_CLOSE, leader});
    }
    /// Members out of a group that was closed, and into one.
    int groupRemove(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader,
                    const hox64_t *members, std::uint32_t count)
    {
        return group(status, handle, {HOX_GROUP_REMOVE, leader, members, count});
    }
    int groupAssign(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader,
                    const hox64_t *members, std::uint32_t count)
    {
        return group(status, handle, {HOX_GROUP_ASSIGN, leader, members, count});
    }
    /// The group goes, its objects stay.
    int groupDelete(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader)
    {
        return group(status, handle, {HOX_GROUP_DELETE, leader});
    }

    // ---- texts of the client's codes, its level (dhoxmessages.cpp)
    /// Copies at most size - 1 characters of the text of rc and terminates; *length (may be null)
    /// is the length of the whole text. On failure buffer is empty, *length 0, and the client's
    /// code comes back.
    int AgtHoxRCMsg(DBaseApiStatus *, hoxHandle_t, std::int16_t rc, char *buffer, unsigned size,
                    unsigned *length);
    /// As AgtHoxRCMsg with a text for codes that have none; also records it in the server's log.
    void GetApiError(DBaseApiStatus *, hoxHandle_t, std::int16_t rc, char *buffer, unsigned size,
                     unsigned *length);
    /// Writes "error RC returned from WHERE:" and the text of rc to the activity log.
    void LogApiError(DBaseApiStatus *, hoxHandle_t, std::int16_t rc, const char *where);
    /// 0, or kLevelTooLow when the client is older than what this library was compiled for.
    int checkCompatibility(DBaseApiStatus *, hoxApiVersionEx *version);

private:
    int logOn(DBaseApiStatus *, hoxHandle_t *handle, const DHoxLogonNames &names,
              const char *password);
    struct GroupRequest {
        std::uint8_t action;
        hox64_t leader;
        const hox64_t *members = nullptr;
        std::uint32_t count = 0;
    };
    int group(DBaseApiStatus *, hoxHandle_t, const GroupRequest &request);
    void writeLumoServerLog(DBaseApiStatus *, hoxHandle_t, const char *text);

    static inline int setUpProcess_ = 0; // 0: nobody; guarded by the initialisation lock

    char nodeName_[HOX_MAX_NODE_NAME + 1];
    char ownerName_[HOX_MAX_OWNER_NAME + 1];
    PasswordCallback callback_;
    char options_[HOX_MAX_OPTIONS + 1];
};

/// Converts an answer of the client; false when it is of another version or not terminated where it
/// must be.
bool CopyApiQryRespBackupData(const qryRespBackupData &from, dhoxBackupObject_t &to);

/// The process's binding and its status, null while nothing is initialised. Owned by the
/// initialisation.
extern DHoxApi *gHoxApiObjP;
extern std::atomic<DHoxApiStatus *> HoxApiStatusObjP;

/// The binding to call through: gHoxApiObjP, else one that answers DHOX_NOT_LOADED to everything;
/// that one, too, in a call that is shut out.
DHoxApi &hoxApi();

#endif
