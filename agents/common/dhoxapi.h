// DHoxApi: the binding of the storage client. Every call into the client goes through a method
// named after the operation, which traces it, times it and returns the client's code unchanged.
//
// The table of operations is class-wide, so it is shared by every instance of the process. It is
// filled and cleared under the initialisation lock and does not change while a channel is active;
// reading it needs no lock. A method called while nothing is loaded returns kNotLoaded and touches
// nothing.
#ifndef KEEL_AGENTS_COMMON_DHOXAPI_H
#define KEEL_AGENTS_COMMON_DHOXAPI_H

#include "agents/common/dbaseapi.h"
#include "agents/common/dhoxoperations.h"
#include "client/include/hoxapi.h"

/// The status object of the storage client; nothing but the accumulated times.
class DHoxApiStatus : public DBaseApiStatus
{
};

/// An answer of a backup query in the library's own form.
struct dhoxBackupObject_t {
    hoxObjName objName;
    std::uint64_t objId;
    std::uint64_t sizeEstimate;
    std::uint64_t size; // bytes
    std::uint32_t copyGroup;
    std::uint32_t restoreOrder;
    std::uint8_t mediaClass;
    std::uint8_t objState;
    char mcName[HOX_MAX_MC_NAME + 1];
    char owner[HOX_MAX_OWNER_NAME + 1];
    char objInfo[HOX_MAX_OBJ_INFO + 1];
    hoxDate insDate;
    hoxDate expDate;
};

class DHoxApi : public DBaseApi
{
public:
    static constexpr std::int16_t kNotLoaded = 104;
    static constexpr std::int16_t kConversionFailed = 102;
    static constexpr std::uint32_t kCompiledLevel = 71300;
    static constexpr int kLevelTooLow = 107;

    DHoxApi();
    explicit DHoxApi(const char *apiName);

    int Init(DBaseApiStatus *status, int *rc) override;
    int Term(DBaseApiStatus *status) override;

    static void ClearPointers();
    static bool IsLoaded();

    // ---- set-up and sessions
    std::int16_t dhoxSetUp(DBaseApiStatus *, int multithread, const envSetUp *);
    std::int16_t dhoxCleanUp(DBaseApiStatus *, int multithread);
    void dhoxQueryApiVersion(DBaseApiStatus *, hoxApiVersion *);
    void dhoxQueryApiVersionEx(DBaseApiStatus *, hoxApiVersionEx *);
    std::int16_t dhoxQueryCliOptions(DBaseApiStatus *, optStruct *);
    std::int16_t dhoxInitEx(DBaseApiStatus *, hoxHandle_t *, const hoxInitExIn_t *,
                            hoxInitExOut_t *);
    std::int16_t dhoxInit(DBaseApiStatus *, hoxHandle_t *, const hoxApiVersion *,
                          const char *nodeName, const char *ownerName, const char *password,
                          const char *applicationType, const char *configFile, const char *options);
    std::int16_t dhoxQuerySessInfo(DBaseApiStatus *, hoxHandle_t, ApiSessInfo *);
    std::int16_t dhoxQuerySessOptions(DBaseApiStatus *, hoxHandle_t, optStruct *);
    std::int16_t dhoxChangePW(DBaseApiStatus *, hoxHandle_t, const char *oldPassword,
                              const char *newPassword);
    std::int16_t dhoxTerminate(DBaseApiStatus *, hoxHandle_t);

    // ---- filespaces
    std::int16_t dhoxRegisterFS(DBaseApiStatus *, hoxHandle_t, const regFSData *);
    std::int16_t dhoxUpdateFS(DBaseApiStatus *, hoxHandle_t, const char *fsName, const hoxFSUpd *,
                              std::uint32_t mask);
    std::int16_t dhoxDeleteFS(DBaseApiStatus *, hoxHandle_t, const char *fsName,
                              std::uint8_t repositoryType);

    // ---- transactions and sending
    std::int16_t dhoxBeginTxn(DBaseApiStatus *, hoxHandle_t);
    std::int16_t dhoxEndTxn(DBaseApiStatus *, hoxHandle_t, std::uint8_t vote,
                            std::uint16_t *reason);
    std::int16_t dhoxEndTxnEx(DBaseApiStatus *, hoxHandle_t, const hoxEndTxnExIn_t *,
                              hoxEndTxnExOut_t *);
    std::int16_t dhoxBindMC(DBaseApiStatus *, hoxHandle_t, const hoxObjName *,
                            std::uint8_t sendType, mcBindKey *);
    std::int16_t dhoxSendObj(DBaseApiStatus *, hoxHandle_t, std::uint8_t sendType, void *sendBuffer,
                             const hoxObjName *, const ObjAttr *, DataBlk *);
    std::int16_t dhoxSendData(DBaseApiStatus *, hoxHandle_t, DataBlk *);
    std::int16_t dhoxEndSendObj(DBaseApiStatus *, hoxHandle_t);
    std::int16_t dhoxEndSendObjEx(DBaseApiStatus *, hoxHandle_t, const hoxEndSendObjExIn_t *,
                                  hoxEndSendObjExOut_t *);

    // ---- queries
    std::int16_t dhoxBeginQuery(DBaseApiStatus *, hoxHandle_t, std::uint8_t queryType,
                                const void *queryData);
    /// With own not null, a successful answer (2200, 121 or 0) to a backup query is also converted
    /// into it; an answer that cannot be converted makes the result kConversionFailed.
    std::int16_t dhoxGetNextQObj(DBaseApiStatus *, hoxHandle_t, DataBlk *, dhoxBackupObject_t *own);
    std::int16_t dhoxEndQuery(DBaseApiStatus *, hoxHandle_t);

    // ---- reading
    std::int16_t dhoxBeginGetData(DBaseApiStatus *, hoxHandle_t, std::uint8_t mountWait,
                                  std::uint8_t getType, const hoxGetList *);
    std::int16_t dhoxGetObj(DBaseApiStatus *, hoxHandle_t, const hox64_t *objId, DataBlk *);
    std::int16_t dhoxGetData(DBaseApiStatus *, hoxHandle_t, DataBlk *);
    std::int16_t dhoxEndGetObj(DBaseApiStatus *, hoxHandle_t);
    std::int16_t dhoxEndGetData(DBaseApiStatus *, hoxHandle_t);
    std::int16_t dhoxEndGetDataEx(DBaseApiStatus *, hoxHandle_t, const hoxEndGetDataExIn_t *,
                                  hoxEndGetDataExOut_t *);

    // ---- deleting and changing
    std::int16_t dhoxDeleteObj(DBaseApiStatus *, hoxHandle_t, std::uint8_t delType,
                               const hoxDelInfo *);
    std::int16_t dhoxRenameObj(DBaseApiStatus *, hoxHandle_t, std::uint8_t sendType,
                               const hoxObjName *, const char *newHlName, const char *newLlName);
    std::int16_t dhoxUpdateObj(DBaseApiStatus *, hoxHandle_t, std::uint8_t sendType,
                               const hoxObjName *, const ObjAttr *, std::uint32_t mask);
    std::int16_t dhoxGroupHandler(DBaseApiStatus *, hoxHandle_t, const hoxGroupIn_t *,
                                  hoxGroupOut_t *);

    // ---- access
    std::int16_t dhoxSetAccess(DBaseApiStatus *, hoxHandle_t, std::uint8_t accessType,
                               const hoxObjName *, const char *nodeName, const char *ownerName);
    std::int16_t dhoxQueryAccess(DBaseApiStatus *, hoxHandle_t, qryRespAccessData *,
                                 std::uint16_t *count);
    std::int16_t dhoxDeleteAccess(DBaseApiStatus *, hoxHandle_t, std::uint32_t ruleNumber);

    // ---- messages, events, cipher
    std::int16_t dhoxRCMsg(DBaseApiStatus *, hoxHandle_t, std::int16_t rc, char *message);
    std::int16_t dhoxRCMsgEx(DBaseApiStatus *, hoxHandle_t, const hoxRCMsgExIn_t *,
                             hoxRCMsgExOut_t *);
    std::int16_t dhoxLogEventEx(DBaseApiStatus *, hoxHandle_t, const hoxLogEventExIn_t *,
                                hoxLogEventExOut_t *);
    /// Its operation is never looked up: always kNotLoaded.
    std::int16_t dhoxLogMessage(DBaseApiStatus *, hoxHandle_t, const char *message);
    void dhoxCreateDesKeyEx(DBaseApiStatus *, std::uint32_t *key, const char *nodeName);
    void dhoxEncryptEx(DBaseApiStatus *, const std::uint32_t *key, const unsigned char *input,
                       unsigned char *output);
    void dhoxDecryptEx(DBaseApiStatus *, const std::uint32_t *key, const unsigned char *input,
                       unsigned char *output);

    // ---- texts of the client's codes; for object maintenance
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

protected:
#define DHOX_POINTER(operation) static decltype(&::operation) m_fn##operation##P;
    DHOX_OPERATIONS(DHOX_POINTER)
#undef DHOX_POINTER
    static std::int16_t (*m_fnhoxLogMessageP)(hoxHandle_t, const char *);

private:
    template <class Result, class... Formal, class... Actual>
    Result timed(DBaseApiStatus *status, const char *name, Result (*operation)(Formal...),
                 Actual... arguments);
    void writeLumoServerLog(DBaseApiStatus *, hoxHandle_t, const char *text);

    bool setUpDone_ = false;
};

/// Converts an answer of the client; false when it is of another version or not terminated where it
/// must be.
bool CopyApiQryRespBackupData(const qryRespBackupData &from, dhoxBackupObject_t &to);

/// The process's binding and its status, null while nothing is initialised. Owned by the
/// initialisation.
extern DHoxApi *gHoxApiObjP;
extern DHoxApiStatus *HoxApiStatusObjP;

/// The binding to call through: gHoxApiObjP, else one that has nothing loaded.
DHoxApi &hoxApi();

#endif
