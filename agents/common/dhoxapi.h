// DHoxApi: the binding of the storage client. Its operations are those of DHoxCalls; around them it
// offers the client's environment, logons, object groups and the texts of the client's codes for
// programs that look after objects without a channel.
//
// Calls that take a session may be made from any thread, one at a time for a session. What a
// binding keeps (names, options) and the environment are changed under the initialisation lock, or
// while no other thread uses the binding. A status may be null everywhere. Codes are the storage
// client's, and DHOX_NOT_LOADED while nothing is loaded.
#ifndef KEEL_AGENTS_COMMON_DHOXAPI_H
#define KEEL_AGENTS_COMMON_DHOXAPI_H

#include <atomic>

#include "agents/common/dhoxcalls.h"

/// The status object of the storage client; nothing but the accumulated times.
class DHoxApiStatus : public DBaseApiStatus
{
};

/// An answer of a backup query in this library's form: numbers whole, texts terminated.
struct dhoxBackupObject_t {
    hoxObjName objName;
    std::uint64_t objId;
    std::uint64_t sizeEstimate; // bytes, as its sender expected
    std::uint64_t size;         // bytes
    std::uint64_t storedSize;   // bytes that it added to the repository
    std::int64_t insTime;       // insDate and inactDate as seconds since 1970, UTC; 0: none
    std::int64_t inactTime;
    std::uint32_t copyGroup;
    std::uint32_t restoreOrder;
    std::uint8_t mediaClass; // HOX_MEDIA_
    std::uint8_t objState;   // HOX_STATE_
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

/// The names of a logon. Null or empty: the client's default.
struct DHoxLogonNames {
    const char *node = nullptr;
    const char *asNode = nullptr; // the node whose objects are meant
    const char *owner = nullptr;
};

class DHoxApi : public DBaseApi, public DHoxCalls
{
public:
    static constexpr std::int16_t kConversionFailed = 102;
    static constexpr std::uint32_t kCompiledLevel = 71300;
    static constexpr int kLevelTooLow = 107;
    static constexpr int kMostSessionStarts = 5;

    /// Called by the client when a logon gives no password: writes it to password (size bytes) and
    /// returns 0.
    using PasswordCallback = int (*)(char *password, std::uint32_t size);

    explicit DHoxApi(const char *apiName = "ARCA");
    /// The names and the call-back serve the logons that give none. Names are copied, and cut
    /// silently at HOX_MAX_NODE_NAME and HOX_MAX_OWNER_NAME characters.
    DHoxApi(const char *apiName, const char *nodeName, const char *ownerName,
            PasswordCallback callback);

    /// Clears the process's table of operations: every later call answers DHOX_NOT_LOADED.
    static void ClearPointers();
    /// Returns true when the table is filled and the calling thread is not shut out.
    static bool IsLoaded();

    /// Starts a session by start(attempt, code of the last attempt), and repeats that at once while
    /// the client answers HOX_RC_RETRY_SESSION, kMostSessionStarts times at most. Returns the last
    /// code.
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
    /// Returns true while the client is set up, through any binding of this process. False in a
    /// forked child, which must not clean up what its parent set up. The caller holds the
    /// initialisation lock.
    static bool IsSetUp();
    /// Calls the operation and notes the result for IsSetUp. A set-up that fails ends the one
    /// before it, unless the client refused the arguments.
    std::int16_t dhoxSetUp(DBaseApiStatus *, int multithread, const envSetUp *);
    /// Calls the operation; afterwards the client counts as not set up, whatever it returned.
    std::int16_t dhoxCleanUp(DBaseApiStatus *, int multithread);
    /// Fetches the next answer of a query. When own is not null, the query is one of objects: an
    /// answer that carries an object (HOX_RC_MORE_DATA, or HOX_RC_OK with data) is also converted
    /// into *own; one that cannot be converted gives kConversionFailed and leaves *own as it was.
    std::int16_t dhoxGetNextQObj(DBaseApiStatus *, hoxHandle_t, DataBlk *, dhoxBackupObject_t *own);

    // ---- the client's environment (dhoxenv.cpp)
    /// Sets the client up for its installed directories. Returns 0 also when it is set up already;
    /// *rc (rc may be null) receives the result as well.
    int Init(DBaseApiStatus *, int *rc) override;
    /// Cleans the client up and returns its code; 0 when it is not set up.
    int Term(DBaseApiStatus *) override;

    // ---- logons (dhoxlogon.cpp). Each returns 0 with *handle set, or the client's code with
    // *handle 0. A client that is busy is tried kMostSessionStarts times.
    /// With the names of the constructor; the call-back, if there is one, is asked for the
    /// password.
    int Logon(DBaseApiStatus *, hoxHandle_t *handle);
    /// With the names of the constructor and this password; for a null one as above.
    int Logon(DBaseApiStatus *, hoxHandle_t *handle, const char *password);
    /// As above, and makes newPassword the node's password; when that fails the session is ended.
    int Logon(DBaseApiStatus *, hoxHandle_t *handle, const char *password, const char *newPassword);
    /// With these names and this password; for a null one the call-back is asked.
    int Logon(DBaseApiStatus *, hoxHandle_t *handle, const DHoxLogonNames &names,
              const char *password);
    /// Ends the session and zeroes *handle whatever the client returns; 0 for a zero handle.
    int Logoff(DBaseApiStatus *, hoxHandle_t *handle);
    /// Sets the options ("-option=value ...", copied) for the logons that follow, in place of
    /// earlier ones; null for none. Returns false, and nothing changes, for more than
    /// HOX_MAX_OPTIONS characters.
    bool SetOptionsOverride(const char *options);

    // ---- groups of objects (dhoxgroup.cpp), outside transactions. Each returns the client's code;
    // hoxapi.h says above hoxGroupHandler what is true after a failure.
    /// Opens a group in the session: *leader receives the identifier of the object `name`, which
    /// leads it. On failure *leader is unchanged.
    int groupOpen(DBaseApiStatus *, hoxHandle_t, const char *tag, const hoxObjName *name,
                  hox64_t *leader);
    /// Add members to the group that is open, and close it. The group exists only from groupClose
    /// on.
    int groupAdd(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader,
                 const hox64_t *members, std::uint32_t count)
    {
        return group(status, handle, {HOX_GROUP_ADD, leader, members, count});
    }
    int groupClose(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader)
    {
        return group(status, handle, {HOX_GROUP_CLOSE, leader});
    }
    /// Take members out of a group that was closed, and add members to one.
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
    /// Deletes the group; its objects stay.
    int groupDelete(DBaseApiStatus *status, hoxHandle_t handle, const hox64_t &leader)
    {
        return group(status, handle, {HOX_GROUP_DELETE, leader});
    }

    // ---- texts of the client's codes, its level (dhoxmessages.cpp)
    /// Copies the text of rc to buffer, cut to size - 1 characters and terminated. *length (length
    /// may be null) receives the length of the uncut text. Returns 0, or the client's code with an
    /// empty buffer and a *length of 0.
    int AgtHoxRCMsg(DBaseApiStatus *, hoxHandle_t, std::int16_t rc, char *buffer, unsigned size,
                    unsigned *length);
    /// As AgtHoxRCMsg, with a text of its own for a code that has none. Also writes the text to the
    /// activity log of the repository; a failure of that is ignored.
    void GetApiError(DBaseApiStatus *, hoxHandle_t, std::int16_t rc, char *buffer, unsigned size,
                     unsigned *length);
    /// Writes the text of rc, and then "error RC returned from WHERE:" with that text, to the
    /// activity log; a failure is ignored.
    void LogApiError(DBaseApiStatus *, hoxHandle_t, std::int16_t rc, const char *where);
    /// Fills *version. Returns 0, or kLevelTooLow when the client is older than kCompiledLevel or
    /// not loaded.
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

    // The process that set the client up, 0: none; guarded by the initialisation lock.
    static inline int setUpProcess_ = 0;

    char nodeName_[HOX_MAX_NODE_NAME + 1];
    char ownerName_[HOX_MAX_OWNER_NAME + 1];
    PasswordCallback callback_;
    char options_[HOX_MAX_OPTIONS + 1];
};

/// Converts an answer of the client. Returns false, with `to` unchanged, when the answer is of
/// another version, a text in it is not terminated, or its object information is too long.
bool CopyApiQryRespBackupData(const qryRespBackupData &from, dhoxBackupObject_t &to);

/// The process's binding and its status, null while nothing is initialised. The initialisation owns
/// both and changes them under its lock; calls reach the binding through hoxApi().
extern DHoxApi *gHoxApiObjP;
extern std::atomic<DHoxApiStatus *> HoxApiStatusObjP;

/// Returns the binding to call through: gHoxApiObjP, or, while that is null and in a call that is
/// shut out, one that answers DHOX_NOT_LOADED to everything. Valid to the end of the exported call.
DHoxApi &hoxApi();

#endif
