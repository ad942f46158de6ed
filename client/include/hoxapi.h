/* clang-format off */
/*
 * hoxapi.h - the published C interface of the storage client, libApiHX64.so.
 *
 * An application stores named objects (streams of bytes) of a node in a repository, and finds,
 * reads, describes and deletes them by name. The library is opened at run time and its 44
 * operations are looked up by name; every one has C linkage. This header may be included from C and
 * from C++.
 *
 * CALLING ORDER
 *   hoxSetUp                                  once a process (again after hoxCleanUp)
 *     hoxInitEx / hoxInit                     opens a session: a handle
 *       hoxRegisterFS                         makes a filespace known
 *       hoxBeginTxn                           one transaction at a time in a session
 *         hoxSendObj, hoxSendData *, hoxEndSendObj / hoxEndSendObjEx
 *         hoxDeleteObj                        (a deletion of the log: outside of one)
 *       hoxEndTxn                             the commit: before it nothing shows, after it all is
 *                                             durable
 *       hoxBeginQuery, hoxGetNextQObj *, hoxEndQuery
 *       hoxBeginGetData, hoxGetObj, hoxGetData *, hoxEndGetObj, hoxEndGetData
 *     hoxTerminate                            ends the session, aborting what is open
 *   hoxCleanUp                                ends every session that is left, joins every thread
 *
 *   A call out of this order returns HOX_RC_BAD_CALL_SEQUENCE and changes nothing; a handle that is
 *   zero, or whose session ended, returns HOX_RC_BAD_HANDLE and changes nothing. hoxRCMsg,
 *   hoxRCMsgEx, hoxQueryApiVersion, hoxQueryApiVersionEx and the block cipher work at any time,
 *   before hoxSetUp too; the first two with handle 0 as well.
 *
 * RETURN CODES
 *   Every operation returns a HOX_RC_ value, 0 for success, unless its comment says otherwise.
 *   hoxRCMsg gives the text of any code. HOX_RC_CHECK_REASON says that the reason output holds the
 *   code of the cause. Besides the errors that a comment names, every operation may return
 *   HOX_RC_NULL_ARGUMENT, HOX_RC_BAD_VERSION, HOX_RC_BAD_ARGUMENT, HOX_RC_NO_MEMORY and
 *   HOX_RC_INTERNAL, and one that reads or writes the repository HOX_RC_REPOSITORY_IO, _FULL,
 *   _READ_ONLY and _DAMAGED and HOX_RC_ACCESS_DENIED (the operating system refuses). In a session
 *   for another node's objects, what would change objects, filespaces, groups, classes or access
 *   rules returns HOX_RC_ACCESS_DENIED. A failure is only returned, unless its comment says that
 *   the local log has it.
 *
 * THREADS
 *   One session is used by one thread at a time; different sessions may be used by different
 *   threads at the same time. Calls of several threads on one session run one after the other.
 *   hoxSetUp and hoxCleanUp must not run beside any other operation.
 *   In a forked child the handles of its parent return HOX_RC_BAD_HANDLE and do nothing; what they
 *   stand for, its files, locks and threads, stays the parent's. The child may start sessions.
 *
 * OWNERSHIP
 *   The caller owns every buffer and record. The library keeps no pointer that it was given beyond
 *   the call (hoxSetUp and hoxInitEx copy what they need), but for the progress function of a
 *   query and its context, used until hoxEndQuery. It hands out no memory of its own.
 *
 * RECORDS
 *   Each record begins with stVersion, filled in by the caller with the version named beside the
 *   record; a version that the library does not know is HOX_RC_BAD_VERSION, and nothing is written
 *   to the record. In a record that the library fills in, 0 means the version named beside the
 *   record, which the library then sets. Fields that the caller does not use are 0. Texts are
 *   NUL-terminated. A 64-bit quantity is two 32-bit halves (hox64_t), high half first. A hoxDate is
 *   local time; seconds count from 1970, UTC.
 */
/* clang-format on */
#ifndef HOXAPI_H
#define HOXAPI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- interface level ---- */

#define HOX_API_VERSION 7
#define HOX_API_RELEASE 1
#define HOX_API_LEVEL 3
#define HOX_API_SUBLEVEL 0

/* ---- sizes: characters without the terminator ---- */

#define HOX_MAX_FS_NAME 1024
#define HOX_MAX_HL_NAME 1024
#define HOX_MAX_LL_NAME 256
#define HOX_MAX_PATH 1024
#define HOX_MAX_NODE_NAME 64
#define HOX_MAX_OWNER_NAME 64
#define HOX_MAX_PASSWORD 64
#define HOX_MAX_MC_NAME 30
#define HOX_MAX_DOMAIN_NAME 30
#define HOX_MAX_POOL_NAME 30
#define HOX_MAX_FS_TYPE 32
#define HOX_MAX_FS_INFO 500
#define HOX_MAX_OBJ_INFO 255
#define HOX_MAX_DESCRIPTION 255
#define HOX_MAX_RC_MESSAGE 1024
#define HOX_MAX_OPTIONS 1024

/* ---- return codes ---- */

#define HOX_RC_RETRY_SESSION (-50) /* the repository is busy: start the session again */
#define HOX_RC_OK 0
#define HOX_RC_NO_MATCH 2            /* the query matches nothing */
#define HOX_RC_NODE_NAME_TOO_LONG 23 /* a node name of more than 64 characters */
#define HOX_RC_NO_MEMORY 102
#define HOX_RC_INVALID_BLOCK_ID 110 /* the process has no entry in the application's table */
#define HOX_RC_FINISHED 121         /* the last data, or the end of the query */
#define HOX_RC_FS_UNKNOWN 124       /* the filespace was never registered */
#define HOX_RC_AUTH_FAILURE 137     /* node unknown to the repository, or wrong password */
#define HOX_RC_WILL_ABORT 157       /* the transaction cannot be committed any more */
#define HOX_RC_NO_PASS_FILE 168     /* the client should keep the password, and has none */
#define HOX_RC_NULL_ARGUMENT 2001
#define HOX_RC_BAD_HANDLE 2002
#define HOX_RC_BAD_CALL_SEQUENCE 2003
#define HOX_RC_BAD_VERSION 2004       /* stVersion of a record */
#define HOX_RC_BAD_ARGUMENT 2005      /* a value outside its range, a text without terminator */
#define HOX_RC_NOT_SUPPORTED 2006     /* this level of the client does not offer the operation */
#define HOX_RC_NOT_SET_UP 2007        /* hoxSetUp has not been called */
#define HOX_RC_INTERNAL 2008          /* a fault of the client itself; nothing was stored */
#define HOX_RC_NO_CONTEXT 2014        /* no entry for this process */
#define HOX_RC_NO_MC_NAME 2025        /* a management class is named by an empty text */
#define HOX_RC_BAD_OPTION_FILE 2030   /* the client option file is missing, unreadable or wrong */
#define HOX_RC_BAD_OPTION_STRING 2031 /* the option string of a session is wrong */
#define HOX_RC_LOG_UNAVAILABLE 2041   /* events cannot be taken now */
#define HOX_RC_FS_REGISTERED 2062     /* the filespace was registered before; as good as success */
#define HOX_RC_MC_UNKNOWN 2064        /* the management class is not defined */
#define HOX_RC_NO_REPOSITORY 2101     /* there is no repository at that place */
#define HOX_RC_REPOSITORY_IO 2102     /* reading or writing the repository failed */
#define HOX_RC_REPOSITORY_FULL 2103   /* no space left */
#define HOX_RC_REPOSITORY_READ_ONLY 2104
#define HOX_RC_REPOSITORY_DAMAGED 2105 /* stored bytes are not what was written */
#define HOX_RC_REPOSITORY_FORMAT 2106  /* the repository was made by a newer release */
#define HOX_RC_ACCESS_DENIED 2107 /* the operating system, or the owner of the object, refuses */
#define HOX_RC_OBJECT_EXISTS                                                                       \
    2110 /* an active object of that name is there; as a reason: committed first */
#define HOX_RC_OBJECT_UNKNOWN 2111 /* no object of that identifier */
#define HOX_RC_ABORTED 2112        /* reason: the application voted abort, or ended the session */
#define HOX_RC_STEP_FAILED                                                                         \
    2113 /* reason: an earlier step of the transaction failed or is missing */
#define HOX_RC_MORE_DATA 2200
#define HOX_RC_CHECK_REASON 2302 /* the reason output says why */

/* ---- basic types ---- */

typedef uint32_t hoxHandle_t; /* a session: 1 to 2^31 - 1; 0 is no session */

typedef struct hox64 {
    uint32_t hi;
    uint32_t lo;
} hox64_t;

typedef struct hoxDate {
    uint16_t year; /* 0: no date */
    uint8_t month; /* 1 to 12 */
    uint8_t day;
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    uint8_t reserved;
} hoxDate;

/* The name of an object. fsName begins with "/", hlName and llName too. Names match to the byte. */
typedef struct hoxObjName {
    char fsName[HOX_MAX_FS_NAME + 1];
    char hlName[HOX_MAX_HL_NAME + 1];
    char llName[HOX_MAX_LL_NAME + 1];
    uint8_t objType; /* HOX_OBJ_FILE */
} hoxObjName;

#define HOX_OBJ_FILE 1

/* A buffer of the caller's. bufferLen: its size in bytes; numBytes: how many of them the library
 * took or filled; after a failure do not rely on it, unless the operation says more. */
#define HOX_DATABLK_VERSION 3
typedef struct DataBlk {
    uint16_t stVersion;
    uint32_t bufferLen;
    uint32_t numBytes;
    char *bufferPtr;
} DataBlk;

/* ---- set-up ---- */

typedef struct hoxApiVersion {
    uint16_t version;
    uint16_t release;
    uint16_t level;
} hoxApiVersion;

#define HOX_API_VERSION_EX_VERSION 2
typedef struct hoxApiVersionEx {
    uint16_t stVersion; /* 2 */
    uint16_t version;
    uint16_t release;
    uint16_t level;
    uint16_t subLevel;
} hoxApiVersionEx;

/* Where the client finds its files. */
#define HOX_ENVSETUP_VERSION 4
typedef struct envSetUp {
    uint16_t stVersion;
    char hoxiDir[HOX_MAX_PATH + 1];    /* directory of the client; empty: the installed one */
    char hoxiConfig[HOX_MAX_PATH + 1]; /* option file; empty: hoxiDir "/arca.opt" */
    char hoxiLog[HOX_MAX_PATH + 1];    /* directory of the local log; empty: hoxiDir */
    char **argv;                       /* null, or one element: the application's name; not read */
    char logName[HOX_MAX_PATH + 1];    /* file of the local log in it; empty: veloerror.log */
    int32_t inclExclCaseSensitive;     /* 0: no; not read */
} envSetUp;

#define HOX_PASSWORDACCESS_PROMPT 0   /* the application supplies the password */
#define HOX_PASSWORDACCESS_GENERATE 1 /* the client keeps it; any value but 0 means this */

/* The options in force: of the option file (hoxQueryCliOptions), or of a session
 * (hoxQuerySessOptions). */
typedef struct optStruct {
    char hoxiDir[HOX_MAX_PATH + 1];
    char hoxiConfig[HOX_MAX_PATH + 1];
    char serverName[HOX_MAX_PATH + 1];    /* a name for the repository */
    int16_t commMethod;                   /* 1: a directory of this host */
    char serverAddress[HOX_MAX_PATH + 1]; /* its address, as the option REPOSITORY has it */
    char nodeName[HOX_MAX_NODE_NAME + 1];
    uint8_t compression;    /* always 0 */
    uint8_t compressAlways; /* always 0 */
    uint8_t passwordAccess; /* HOX_PASSWORDACCESS_ */
} optStruct;

/*
 * Reads the option file and makes the process ready for sessions. A set-up over an earlier one
 * first ends every session of the earlier one. multithread: 1 when sessions will be used by several
 * threads; the client allows that with either value. Starts no thread. HOX_RC_NULL_ARGUMENT and
 * HOX_RC_BAD_VERSION change nothing; after any other failure nothing is set up, and the earlier
 * set-up has ended: HOX_RC_BAD_OPTION_FILE (hoxRCMsg names file and line), HOX_RC_BAD_ARGUMENT (a
 * text without terminator), HOX_RC_NO_MEMORY.
 */
int16_t hoxSetUp(int multithread, const envSetUp *env);

/*
 * Ends every session, aborting what is open, joins every thread and forgets the set-up. Harmless
 * without a set-up. Returns 0. Events that could not be published are lost, and the local log says
 * so.
 */
int16_t hoxCleanUp(int multithread);

/* The level of the client, without its sub-level. No handle, no return code; a null record is
 * ignored. */
void hoxQueryApiVersion(hoxApiVersion *version);

/* The level of the client, whole. No handle, no return code; a null record is ignored, and a record
 * of another version is left as it is. */
void hoxQueryApiVersionEx(hoxApiVersionEx *version);

/* Fills in the options of the option file. On failure the record is unchanged. HOX_RC_NOT_SET_UP
 * before hoxSetUp; HOX_RC_BAD_OPTION_FILE when there is no NODENAME and the host has no name. */
int16_t hoxQueryCliOptions(optStruct *options);

/* ---- sessions ---- */

#define HOX_CLIENT_DATABASE_AGENT 3 /* clientClass: an agent inside a database process */

#define HOX_INITEX_IN_VERSION 5
typedef struct hoxInitExIn_t {
    uint16_t stVersion;
    const hoxApiVersionEx *apiVersion; /* the level the application was written for; not read */
    const char *nodeName;              /* null or empty: the option NODENAME, else the host name */
    const char *asNodeName; /* null, or the node whose objects are meant (access must be granted) */
    const char *ownerName;  /* null or empty: no owner */
    const char *password;   /* with HOX_PASSWORDACCESS_PROMPT; not read otherwise */
    const char *newPassword;     /* null or empty, or the password from now on */
    const char *userName;        /* not read */
    const char *userPassword;    /* not read */
    const char *applicationType; /* not read */
    const char *configFile;      /* null or empty: the option file of hoxSetUp */
    const char *options; /* "-option=value" each, blank-separated; they override the option file */
    int (*passwordCallback)(char *password,
                            uint32_t size); /* null, or asked when password is null or empty */
    uint16_t clientClass;                   /* HOX_CLIENT_; not read */
} hoxInitExIn_t;

#define HOX_INITEX_OUT_VERSION 1
typedef struct hoxInitExOut_t {
    uint16_t stVersion;
    int16_t userNameAuthorities;
    int16_t infoCode; /* 0, or a code to show although the session started */
    char serverName[HOX_MAX_PATH + 1];
    uint16_t serverVersion;
    uint16_t serverRelease;
    uint16_t serverModification;
    uint16_t serverLevel;
} hoxInitExOut_t;

/*
 * Opens a session for a node with the repository. *handle receives it; on failure no session is
 * open, and *handle and output are unchanged. output may be null.
 *
 * passwordCallback runs on the caller's thread, before this returns: it writes a NUL-terminated
 * password into the `size` bytes at `password` and returns 0; anything else is
 * HOX_RC_AUTH_FAILURE. newPassword is taken as by hoxChangePW; when that fails, no session starts.
 *
 * Side effects, none of which fails the call: it removes what dead sessions left, settles
 * interrupted changes of the node, gives effect to access rules whose reader was registered since,
 * and reports once in the local log why no cache directory can be used.
 *
 * Errors: HOX_RC_NOT_SET_UP, HOX_RC_NO_REPOSITORY, HOX_RC_REPOSITORY_FORMAT, HOX_RC_AUTH_FAILURE,
 * HOX_RC_NO_PASS_FILE, HOX_RC_NODE_NAME_TOO_LONG, HOX_RC_BAD_OPTION_FILE,
 * HOX_RC_BAD_OPTION_STRING, HOX_RC_RETRY_SESSION, HOX_RC_ACCESS_DENIED (no rule of asNodeName
 * admits the node).
 */
int16_t hoxInitEx(hoxHandle_t *handle, const hoxInitExIn_t *input, hoxInitExOut_t *output);

/* The first form of hoxInitEx, as version-1 applications use it: the same, without asNodeName, a
 * new password and a callback. Neither *version nor applicationType is read; version must not be
 * null. */
int16_t hoxInit(hoxHandle_t *handle, const hoxApiVersion *version, const char *nodeName,
                const char *ownerName, const char *password, const char *applicationType,
                const char *configFile, const char *options);

#define HOX_SESSINFO_VERSION 4
typedef struct ApiSessInfo {
    uint16_t stVersion;
    char serverHost[HOX_MAX_PATH + 1];
    uint16_t serverPort; /* 0: no network */
    hoxDate serverDate;  /* now */
    char serverType[HOX_MAX_FS_TYPE + 1];
    uint16_t serverVersion;
    uint16_t serverRelease;
    uint16_t serverLevel;
    uint16_t serverSubLevel;
    char nodeName[HOX_MAX_NODE_NAME + 1];
    char ownerName[HOX_MAX_OWNER_NAME + 1];
    char configFile[HOX_MAX_PATH + 1];
    uint8_t compression; /* always 0 */
    uint8_t passwordAccess;
    uint8_t backupDelete; /* 1: the session may delete objects */
    uint16_t maxObjPerTxn;
    char domainName[HOX_MAX_DOMAIN_NAME + 1];
    char policySetName[HOX_MAX_DOMAIN_NAME + 1];
} ApiSessInfo;

/* Describes the session: the server it was opened with, the node whose objects are meant, and what
 * the session may do. On failure the record is unchanged. HOX_RC_BAD_VERSION,
 * HOX_RC_NULL_ARGUMENT. */
int16_t hoxQuerySessInfo(hoxHandle_t handle, ApiSessInfo *info);

/* Fills in the options in force for the session: those of the option file, as the option string of
 * hoxInitEx overrides them. On failure the record is unchanged. HOX_RC_NULL_ARGUMENT. */
int16_t hoxQuerySessOptions(hoxHandle_t handle, optStruct *options);

/*
 * Changes the password of the session's node, durably; the session goes on. A password has 1 to
 * HOX_MAX_PASSWORD characters. HOX_RC_AUTH_FAILURE when oldPassword is wrong. With
 * HOX_PASSWORDACCESS_GENERATE the client makes the new password and keeps it; neither argument is
 * read, and a newPassword of hoxInitEx asks for the same. Wherever such a change is interrupted,
 * the node can log on afterwards. HOX_RC_ACCESS_DENIED, HOX_RC_REPOSITORY_IO and the like when the
 * kept password cannot be written, HOX_RC_RETRY_SESSION when another process is changing kept
 * passwords for a minute; then nothing is changed.
 */
int16_t hoxChangePW(hoxHandle_t handle, const char *oldPassword, const char *newPassword);

/* Ends the session: aborts an open transaction, ends a query or a read, drops a group that was not
 * closed. Waits for a call that another thread is making on it. The handle returns
 * HOX_RC_BAD_HANDLE afterwards. The only error is HOX_RC_BAD_HANDLE: events that could not be
 * published are lost, and the local log says so. */
int16_t hoxTerminate(hoxHandle_t handle);

/* ---- filespaces ---- */

typedef struct hoxFSAttr {
    uint16_t infoLength; /* characters of info */
    char info[HOX_MAX_FS_INFO];
} hoxFSAttr;

#define HOX_REGFS_VERSION 1
typedef struct regFSData {
    uint16_t stVersion;
    const char *fsName;
    const char *fsType;
    hox64_t occupancy; /* bytes */
    hox64_t capacity;  /* bytes */
    hoxFSAttr fsAttr;
} regFSData;

#define HOX_FSUPD_VERSION 2
typedef struct hoxFSUpd {
    uint16_t stVersion;
    const char *fsType;
    hox64_t occupancy; /* bytes */
    hox64_t capacity;  /* bytes */
    hoxFSAttr fsAttr;
    uint64_t protectedSize; /* MiB: the size of the database that the filespace protects */
} hoxFSUpd;

/* Which fields hoxUpdateFS takes over. */
#define HOX_FSUPD_TYPE 0x000001U
#define HOX_FSUPD_ATTR 0x000002U
#define HOX_FSUPD_OCCUPANCY 0x000010U
#define HOX_FSUPD_CAPACITY 0x000020U
#define HOX_FSUPD_PROTECTED_SIZE 0x200000U

/* Makes a filespace known to the repository, durably. HOX_RC_FS_REGISTERED when it is known
 * already; then nothing is changed. */
int16_t hoxRegisterFS(hoxHandle_t handle, const regFSData *data);

/* Takes over the fields named by mask, durably; what other sessions change at the same time is
 * kept. A mask of 0 changes nothing. HOX_RC_FS_UNKNOWN when the filespace was not registered. */
int16_t hoxUpdateFS(hoxHandle_t handle, const char *fsName, const hoxFSUpd *update, uint32_t mask);

#define HOX_REPOSITORY_ALL 0
#define HOX_REPOSITORY_BACKUP 1 /* all there is: means the same */

/*
 * Deletes a filespace and every object in it, durably and in one step: none of them is found or
 * read afterwards, and an object that another session is sending into it is refused when it commits
 * (HOX_RC_FS_UNKNOWN as the reason). What another session is reading it may read to the end. Its
 * access rules are removed, too. The filespace may be registered again, and is empty then. Not in a
 * transaction, a query or a read. HOX_RC_FS_UNKNOWN when it was not registered. After another
 * failure the access rules may be removed already, and the call may be made again.
 */
int16_t hoxDeleteFS(hoxHandle_t handle, const char *fsName, uint8_t repositoryType);

/* ---- transactions ---- */

#define HOX_VOTE_COMMIT 1
#define HOX_VOTE_ABORT 2

#define HOX_ENDTXNEX_VERSION 1
typedef struct hoxEndTxnExIn_t {
    uint16_t stVersion;
    uint8_t vote;
} hoxEndTxnExIn_t;

typedef struct hoxEndTxnExOut_t {
    uint16_t stVersion;
    uint16_t reason;
    hox64_t groupLeaderObjId; /* always 0 */
} hoxEndTxnExOut_t;

/* Begins a transaction; the session has at most one. Nothing is stored or deleted by it until
 * hoxEndTxn commits. */
int16_t hoxBeginTxn(hoxHandle_t handle);

/*
 * Ends the transaction. After a commit that returned 0 every object sent is durable and visible,
 * and every deletion done: it survives the loss of power. Once any step of the transaction failed
 * or is missing (an object that was not ended), a commit publishes nothing and returns
 * HOX_RC_CHECK_REASON. An abort, in the middle of an object too, publishes nothing and returns
 * HOX_RC_CHECK_REASON with HOX_RC_ABORTED. *reason is written on every return; HOX_RC_CHECK_REASON
 * never comes with reason 0, and the text of the reason is that of the cause. After 0 and
 * HOX_RC_CHECK_REASON the transaction has ended; HOX_RC_BAD_ARGUMENT (the vote is unknown) and
 * HOX_RC_NULL_ARGUMENT leave it open. A transaction, of up to 4,096 objects and deletions, is one
 * atomic step: every session sees, and every crash leaves, all of it or nothing.
 */
int16_t hoxEndTxn(hoxHandle_t handle, uint8_t vote, uint16_t *reason);

/* As hoxEndTxn, with the vote and the reason in records. HOX_RC_BAD_VERSION and
 * HOX_RC_NULL_ARGUMENT leave the transaction open. */
int16_t hoxEndTxnEx(hoxHandle_t handle, const hoxEndTxnExIn_t *input, hoxEndTxnExOut_t *output);

/* ---- sending ---- */

#define HOX_SEND_BACKUP_BIND                                                                       \
    0 /* as an argument of hoxBindMC; means a backup, as HOX_SEND_BACKUP does */
#define HOX_SEND_BACKUP 2

#define HOX_MCBIND_VERSION 1
typedef struct mcBindKey {
    uint16_t stVersion;
    char mcName[HOX_MAX_MC_NAME + 1]; /* answer: the class the object is bound to */
    uint8_t backupCopyGroup;          /* answer: 1 when the class takes backup objects */
    uint8_t archiveCopyGroup;
    char backupDestination[HOX_MAX_POOL_NAME + 1];
} mcBindKey;

#define HOX_OBJATTR_VERSION 3
#define HOX_OBJATTR_VERSION_ID 4 /* as version 3, and objId is there; for hoxUpdateObj */
typedef struct ObjAttr {
    uint16_t stVersion;
    char owner[HOX_MAX_OWNER_NAME + 1];
    hox64_t sizeEstimate; /* bytes; a hint, the object may be larger or smaller */
    uint8_t objCompressed;
    uint16_t objInfoLength; /* at most HOX_MAX_OBJ_INFO */
    const char *objInfo;    /* kept with the object, padded with NUL to HOX_MAX_OBJ_INFO */
    const char *mcNameP;    /* null, or the class in place of the bound one */
    hox64_t objId;          /* version 4, with HOX_UPDOBJ_ONLY_ID: the object that is meant */
} ObjAttr;

#define HOX_ENDSENDEX_VERSION 1
typedef struct hoxEndSendObjExIn_t {
    uint16_t stVersion;
} hoxEndSendObjExIn_t;

#define HOX_ENCRYPT_DES_56BIT 4
#define HOX_ENCRYPT_AES_128BIT 8
#define HOX_ENCRYPT_AES_256BIT 16

/* Ratios are reductions in units of 1/10,000: 2,500 means that a quarter was saved. */
typedef struct hoxEndSendObjExOut_t {
    uint16_t stVersion;
    hox64_t totalBytesSent;    /* what the application sent */
    uint8_t objCompressed;     /* 1: compressed on the way */
    hox64_t totalCompressSize; /* bytes after compression */
    uint32_t compressRatio;
    uint8_t objDeduplicated; /* 1: duplicates were looked for */
    hox64_t totalDedupSize;  /* bytes that had to be stored after duplicates were found */
    uint32_t dedupRatio;
    uint8_t encryptionType;   /* HOX_ENCRYPT_ bits */
    hox64_t totalDirectBytes; /* bytes that went to the storage directly, past any server process */
} hoxEndSendObjExOut_t;

/*
 * Fills in which management class an object of that name gets when it names none: the default one.
 * Changes nothing, and is allowed inside and outside a transaction. On failure the record is
 * unchanged.
 */
int16_t hoxBindMC(hoxHandle_t handle, const hoxObjName *name, uint8_t sendType, mcBindKey *binding);

/*
 * Begins an object. sendBuffer is reserved (null); data may be null or the first block. After any
 * error but HOX_RC_BAD_CALL_SEQUENCE the transaction publishes nothing. HOX_RC_OBJECT_EXISTS when
 * an active object of that name is there, unless the transaction has deleted it or made it inactive
 * before: then the new object takes its place in the one step of the commit. In a repository that
 * an earlier release made (before layout 4) the name must be free. Whether it is free is decided at
 * the commit (reason HOX_RC_OBJECT_EXISTS). Other errors: HOX_RC_FS_UNKNOWN, HOX_RC_MC_UNKNOWN.
 */
int16_t hoxSendObj(hoxHandle_t handle, uint8_t sendType, void *sendBuffer, const hoxObjName *name,
                   const ObjAttr *attributes, DataBlk *data);

/*
 * Takes data->bufferLen bytes of the object, all or none, and sets data->numBytes. The bytes are
 * copied: the buffer may be used again on return. They are durable only after hoxEndTxn; the
 * failure of an earlier block may be returned by a later call. HOX_RC_WILL_ABORT (an earlier step
 * failed), HOX_RC_REPOSITORY_FULL, HOX_RC_REPOSITORY_IO; after any of them the transaction
 * publishes nothing.
 */
int16_t hoxSendData(hoxHandle_t handle, DataBlk *data);

/* Ends the object: all of it is taken, and shows once hoxEndTxn has committed. The errors of
 * hoxSendData; the object is ended then, too, and the transaction publishes nothing. */
int16_t hoxEndSendObj(hoxHandle_t handle);

/* As hoxEndSendObj, and reports in output what became of the bytes. HOX_RC_BAD_VERSION and
 * HOX_RC_NULL_ARGUMENT leave the object open; output is written on success only. */
int16_t hoxEndSendObjEx(hoxHandle_t handle, const hoxEndSendObjExIn_t *input,
                        hoxEndSendObjExOut_t *output);

/* ---- queries ---- */

#define HOX_QUERY_BACKUP 1     /* qryBackupData, answered by qryRespBackupData */
#define HOX_QUERY_MGMT_CLASS 4 /* qryMCData, answered by qryRespMCData */
#define HOX_QUERY_GROUP 5      /* qryGroupData, answered by qryRespBackupData: the leader first */
#define HOX_QUERY_OBJECTS 6    /* qryObjectsData, answered by qryRespBackupData: any number */
#define HOX_QUERY_LOG 7        /* qryLogData, answered by qryRespLogData */

/* An object is active until it is made inactive (HOX_DEACTIVATE_BACKUP_ID). There is at most one
 * active object of a name, and any number of inactive ones. */
#define HOX_STATE_ACTIVE 1
#define HOX_STATE_INACTIVE 2
#define HOX_STATE_ANY 255

#define HOX_QRY_BACKUP_VERSION 2
typedef struct qryBackupData {
    uint16_t stVersion;
    const hoxObjName *objName; /* matched literally: "*" and "?" are text */
    const char *owner;         /* null or empty: any owner */
    uint8_t objState;          /* order: the active one, then inactive ones, newest first */
} qryBackupData;

/* By the time of insertion, then by the identifier; or name by name, in an order of the client's
 * own that never changes, objects of one name in the order of insertion. */
#define HOX_ORDER_INSERTED 0
#define HOX_ORDER_NAME 1

/*
 * Which objects are wanted; what is null, empty or 0 asks for nothing. In the patterns "*" stands
 * for any run of bytes, also an empty one, also with "/" in it, and "?" for one byte; everything
 * else, letters too, must match to the byte. Times are seconds since 1970, UTC.
 *
 * A client may have to look at every object of the node before the first answer. hoxBeginQuery then
 * calls `progress` now and then with the number of objects looked at (`done`) and about the number
 * to look at (`planned`), at last with both the same; hoxGetNextQObj, which may have to pass over
 * many, counts again from 0. In a session for another node's objects both are always 0: how many
 * that node has is not the session's to know. When `progress` returns anything but 0, that call
 * ends with HOX_RC_ABORTED. It is called until hoxEndQuery, perhaps on a thread of the client while
 * the caller's thread waits; it must call no operation and throw nothing.
 */
#define HOX_QRY_OBJECTS_VERSION 2 /* version 1 ends at maxSize */
typedef struct qryObjectsData {
    uint16_t stVersion;
    const char *fsName; /* patterns */
    const char *hlName;
    const char *llName;
    const char *owner;      /* exactly this owner */
    const char *mcName;     /* the management class, in any case */
    uint8_t objState;       /* HOX_STATE_ */
    uint8_t order;          /* HOX_ORDER_ */
    int64_t insertedFrom;   /* this moment or later */
    int64_t insertedBefore; /* before this moment */
    int64_t inactiveBefore; /* made inactive before this moment; matches no active object */
    hox64_t minSize;        /* bytes of the object, at least */
    hox64_t maxSize;        /* at most */
    int16_t (*progress)(void *context, uint64_t done, uint64_t planned); /* may be null */
    void *progressContext;
} qryObjectsData;

/* Which events of the activity log are wanted. Times are seconds since 1970, UTC. */
#define HOX_ALL_NODES "*"
#define HOX_QRY_LOG_VERSION 1
typedef struct qryLogData {
    uint16_t stVersion;
    int64_t since;        /* this moment or later */
    int64_t before;       /* before this moment; 0: no limit */
    uint32_t severity;    /* HOX_SEVERITY_, this one or worse */
    const char *nodeName; /* null or empty: of the session's own; HOX_ALL_NODES: of every node */
} qryLogData;

#define HOX_MEDIA_FIXED 16 /* mediaClass: disk */

/* restoreOrder: objects read in ascending order are read fastest. Always all 0 here: any order. */
typedef struct hoxRestoreOrder {
    uint32_t word[4];
} hoxRestoreOrder;

#define HOX_QRY_RESP_BACKUP_VERSION 2
typedef struct qryRespBackupData {
    uint16_t stVersion;
    hoxObjName objName;
    uint32_t copyGroup;
    char mcName[HOX_MAX_MC_NAME + 1];
    uint8_t mediaClass;
    char owner[HOX_MAX_OWNER_NAME + 1];
    uint8_t objState;
    hoxDate insDate;
    hoxDate expDate; /* of an inactive object, by the days its class keeps it; year 0: none */
    hox64_t objId;
    hox64_t sizeEstimate;
    hox64_t size;           /* bytes of the object */
    uint16_t objInfoLength; /* always HOX_MAX_OBJ_INFO */
    char objInfo[HOX_MAX_OBJ_INFO];
    uint8_t objCompressed;   /* 1: compressed on the way */
    uint8_t objDeduplicated; /* 1: duplicates were looked for */
    uint8_t encryptionType;  /* HOX_ENCRYPT_ bits */
    hoxRestoreOrder restoreOrder;
    hox64_t storedSize; /* bytes that it added to the repository */
    hoxDate inactDate;  /* when it was made inactive; year 0: it is active */
    hox64_t insTime;    /* insDate and inactDate as seconds since 1970, UTC; 0: none */
    hox64_t inactTime;
    uint8_t reserved[300];
} qryRespBackupData;

#define HOX_QRY_GROUP_VERSION 1
typedef struct qryGroupData {
    uint16_t stVersion;
    hox64_t leaderObjId;
} qryGroupData;

#define HOX_QRY_MC_VERSION 1
typedef struct qryMCData {
    uint16_t stVersion;
    const char *mcName; /* null or empty: every class */
    uint8_t detail;     /* 0: the name alone; 1: every field; 2: every field, deleted classes too */
} qryMCData;

#define HOX_QRY_RESP_MC_VERSION 1
typedef struct qryRespMCData {
    uint16_t stVersion;
    char mcName[HOX_MAX_MC_NAME + 1];
    char description[HOX_MAX_DESCRIPTION + 1];
    char stgPool[HOX_MAX_POOL_NAME + 1];
    uint8_t isDefault;
    uint8_t backupCopyGroup;
    uint16_t versionsKept; /* 65535: no limit */
    uint16_t daysKept;     /* 65535: for ever */
    uint8_t isDeleted;     /* 1: nothing new can be bound to it */
    uint8_t reserved[141];
} qryRespMCData;

#define HOX_MAX_LOG_TEXT 2048

#define HOX_QRY_RESP_LOG_VERSION 1
typedef struct qryRespLogData {
    uint16_t stVersion;
    uint16_t sealed;     /* 1: the text is sealed for another node, and message is empty */
    uint32_t severity;   /* HOX_SEVERITY_ */
    hox64_t time;        /* seconds since 1970, UTC */
    hoxDate date;        /* the same, local time */
    uint32_t unreadable; /* lines that are no events, and files that cannot be read, so far */
    char nodeName[HOX_MAX_NODE_NAME + 1];
    char application[HOX_MAX_DESCRIPTION + 1]; /* name, platform and version */
    char messageId[HOX_MAX_NODE_NAME + 1];
    char message[HOX_MAX_LOG_TEXT + 1];
} qryRespLogData;

/*
 * Begins a query; one at a time in a session. queryData is the record of its type. On failure no
 * query is open. A query of the management classes answers the default one first; class names match
 * in any case. A class that the administrator deleted is not answered, unless detail is 2, and
 * nothing new is bound to it (HOX_RC_MC_UNKNOWN), but the objects that were keep it.
 *
 * HOX_QUERY_BACKUP: HOX_RC_FS_UNKNOWN only when the filespace was never registered by the node.
 * Damage of the active object is returned by hoxGetNextQObj, after the other answers.
 *
 * HOX_QUERY_OBJECTS answers the objects of the node that are there when it begins, one after the
 * other in bounded memory, however many there are. What other sessions store, delete, rename or
 * make inactive meanwhile may be answered as it was or as it is. An object whose record is damaged
 * is passed over: the others are answered, the local log names it, and the query ends with
 * HOX_RC_REPOSITORY_DAMAGED in place of HOX_RC_FINISHED or HOX_RC_NO_MATCH. In a session for
 * another node's objects it answers those that are granted when they are answered, and reports
 * damage only where a rule names the damaged object or covers several.
 *
 * HOX_QUERY_LOG answers the events of the session's node, of the node that is named, or of all
 * (HOX_ALL_NODES), in the order of the days on which they were published, those of one day in the
 * order of time. The texts of another node's events are sealed and not shown, unless an earlier
 * release wrote them. In a session for another node's objects it is refused with
 * HOX_RC_ACCESS_DENIED.
 */
int16_t hoxBeginQuery(hoxHandle_t handle, uint8_t queryType, const void *queryData);

/*
 * Fills data->bufferPtr with the next answer record and data->numBytes. HOX_RC_MORE_DATA with every
 * object, the last too; then HOX_RC_FINISHED with none; HOX_RC_NO_MATCH at once when nothing
 * matches; never 0. A query of objects or of the log reads on while it answers, and may fail then:
 * HOX_RC_REPOSITORY_IO, HOX_RC_REPOSITORY_DAMAGED. The query stays open until hoxEndQuery, whatever
 * is returned. stVersion of the answer record in the buffer is read as in any record.
 * HOX_RC_BAD_ARGUMENT (the buffer is smaller than the record) and HOX_RC_BAD_VERSION lose no
 * answer; after another error answers may be missing. At the end of a query of the log the record
 * is filled with nothing but stVersion and `unreadable`, so that they are told without an event,
 * too; data->numBytes is 0 then.
 */
int16_t hoxGetNextQObj(hoxHandle_t handle, DataBlk *data);

/* Ends the query. A second call, or one without a query, changes nothing and returns 0. */
int16_t hoxEndQuery(hoxHandle_t handle);

/* ---- reading ---- */

#define HOX_GET_BACKUP 0

#define HOX_GETLIST_VERSION 2
typedef struct hoxGetList {
    uint16_t stVersion;
    uint32_t numObjId;
    const hox64_t *objId;
} hoxGetList;

#define HOX_ENDGETEX_VERSION 1
typedef struct hoxEndGetDataExIn_t {
    uint16_t stVersion;
} hoxEndGetDataExIn_t;

typedef struct hoxEndGetDataExOut_t {
    uint16_t stVersion;
    uint16_t reason;
    hox64_t totalBytesReceived;
} hoxEndGetDataExOut_t;

/* Begins a read of the objects of the list, which is copied: 1 to 4,096 identifiers. mustBeActive:
 * 1 refuses an object that is inactive, 0 reads it as well. HOX_RC_OBJECT_UNKNOWN when an
 * identifier of the list is not there, or not as mustBeActive asks, or is another node's object
 * that was not granted. On failure no read is open. */
int16_t hoxBeginGetData(hoxHandle_t handle, uint8_t mustBeActive, uint8_t getType,
                        const hoxGetList *list);

/* Begins one object of the list, in any order and as often as wanted; data is null or the first
 * block, filled as by hoxGetData. HOX_RC_MORE_DATA when hoxGetData is to be called, never 0.
 * HOX_RC_OBJECT_UNKNOWN, also for an identifier that is not of the list. When only the first block
 * could not be read, the object has begun: hoxEndGetObj ends it.
 */
int16_t hoxGetObj(hoxHandle_t handle, const hox64_t *objId, DataBlk *data);

/*
 * Fills the block. HOX_RC_MORE_DATA with a full block while more follows, HOX_RC_FINISHED with the
 * last data; an object of exactly n blocks ends with HOX_RC_FINISHED and a full block, an empty one
 * with HOX_RC_FINISHED and 0 bytes. No byte that is not what was stored is ever reported as
 * success: HOX_RC_REPOSITORY_DAMAGED. HOX_RC_ACCESS_DENIED when the object is another node's and
 * the rule that granted it was taken back meanwhile. When reading fails numBytes is 0, whatever the
 * buffer holds; the object stays begun until hoxEndGetObj.
 */
int16_t hoxGetData(hoxHandle_t handle, DataBlk *data);

/* Ends the object that hoxGetObj began, read to its end or not; the next one of the list may begin.
 */
int16_t hoxEndGetObj(hoxHandle_t handle);

/* Ends the read. While an object is begun it returns HOX_RC_BAD_CALL_SEQUENCE: end that first. */
int16_t hoxEndGetData(hoxHandle_t handle);

/* As hoxEndGetData, and reports in output how many bytes the read delivered, of all its objects;
 * the reason is always 0. output is written on success only. */
int16_t hoxEndGetDataEx(hoxHandle_t handle, const hoxEndGetDataExIn_t *input,
                        hoxEndGetDataExOut_t *output);

/* ---- deleting and changing ---- */

#define HOX_DELETE_BACKUP_NAME 1   /* delBackName: the active object of that name */
#define HOX_DELETE_BACKUP_ID 2     /* delBackID: active or inactive */
#define HOX_DEACTIVATE_BACKUP_ID 3 /* delBackID: an active object, which becomes inactive */
#define HOX_DELETE_LOG 4           /* delLog */

#define HOX_DELBACK_VERSION 1
typedef struct delBackID {
    uint16_t stVersion;
    hox64_t objId;
} delBackID;

typedef struct delBackName {
    uint16_t stVersion;
    const hoxObjName *objName;
} delBackName;

typedef struct delLog {
    uint16_t stVersion;
    int64_t before; /* seconds since 1970, UTC */
} delLog;

typedef union hoxDelInfo {
    delBackID backID;
    delBackName backName;
    delLog log;
} hoxDelInfo;

/*
 * Deletes an object, or makes it inactive: inside a transaction, done when it commits. No operation
 * finds or reads a deleted object; the administrator can bring it back until the grace time of the
 * repository, where it has one, has passed. An object whose description is damaged is deleted by
 * its name only: from the commit on it no longer shows, its name is free, and what is left of it is
 * kept aside in the repository, as the local log says. HOX_RC_OBJECT_UNKNOWN, for
 * HOX_DEACTIVATE_BACKUP_ID also when the object is inactive already. After any error but
 * HOX_RC_BAD_CALL_SEQUENCE the transaction publishes nothing.
 *
 * An object that is inactive is not found by its name any more, unless a query asks for inactive
 * ones, and a new object may take the name. It is read and deleted by its identifier, which it
 * keeps with its attributes, its date and its groups. It stays until it is deleted: the client
 * never does so by itself. HOX_RC_NOT_SUPPORTED when the repository was made by a release that knew
 * no inactive objects.
 *
 * HOX_DELETE_LOG, outside a transaction, a query or a read: deletes the events that were published
 * on the days (UTC) that were over at the moment `before`. An interrupted deletion is finished by
 * the next one. HOX_RC_ACCESS_DENIED in a session for another node's objects.
 */
int16_t hoxDeleteObj(hoxHandle_t handle, uint8_t delType, const hoxDelInfo *info);

/*
 * Gives an object another high- and low-level name in its filespace, durably and in one step: at
 * every moment it is found under exactly one of the two. It keeps its attributes, its date and its
 * groups. It gets another identifier; the old one still leads to it. Access rules name objects, so
 * one for the old name no longer covers it. The stream is not copied, unless some of it is just
 * being reclaimed. Not in a transaction, a query or a read. HOX_RC_OBJECT_UNKNOWN;
 * HOX_RC_OBJECT_EXISTS when the new name is taken, also by the object itself; after any error the
 * object has its old name.
 */
int16_t hoxRenameObj(hoxHandle_t handle, uint8_t sendType, const hoxObjName *name,
                     const char *newHlName, const char *newLlName);

#define HOX_UPDATE_CLASS 16 /* as the sendType of hoxUpdateObj */

/* What a management class says; objInfo of the attributes points at it. */
#define HOX_MCDEFINITION_VERSION 1
typedef struct mcDefinition {
    uint16_t stVersion;
    uint16_t versionsKept; /* inactive versions of a name; 65535: no limit */
    uint16_t daysKept;     /* since an object was made inactive; 65535: for ever */
    char description[HOX_MAX_DESCRIPTION + 1];
    char stgPool[HOX_MAX_POOL_NAME + 1]; /* 1 to 30 characters */
} mcDefinition;

/* The mask is one of the first three; with HOX_UPDCLASS_CHANGE and any of the others, which name
 * the fields that are taken over. */
#define HOX_UPDCLASS_DEFINE 0x100U
#define HOX_UPDCLASS_CHANGE 0x200U
#define HOX_UPDCLASS_DELETE 0x400U
#define HOX_UPDCLASS_DESCRIPTION 0x1U
#define HOX_UPDCLASS_POOL 0x2U
#define HOX_UPDCLASS_VERSIONS 0x4U
#define HOX_UPDCLASS_DAYS 0x8U

/* Which attributes of an object hoxUpdateObj takes over. */
#define HOX_UPDOBJ_OWNER 0x1U
#define HOX_UPDOBJ_INFO 0x2U
#define HOX_UPDOBJ_MC 0x4U
#define HOX_UPDOBJ_ONLY_ID 0x8U /* with HOX_OBJATTR_VERSION_ID; takes nothing over */

/*
 * Changes attributes of an object: those that mask names, as hoxSendObj takes them; the others may
 * be 0. Durable and visible to every session on return, in one step; what other sessions change at
 * the same time is kept. Queries answer the attributes as they are now. A null or empty mcNameP
 * binds the object to the default class. Not in a transaction, a query or a read.
 * HOX_UPDOBJ_ONLY_ID, beside others, means that name must still lead to the object objId: when the
 * name leads to another one by now, nothing changes and the call returns HOX_RC_OBJECT_UNKNOWN.
 * HOX_RC_OBJECT_UNKNOWN, HOX_RC_FS_UNKNOWN, HOX_RC_MC_UNKNOWN; HOX_RC_BAD_ARGUMENT when mask is 0
 * or has unknown bits.
 *
 * With sendType HOX_UPDATE_CLASS it defines, changes or deletes a management class, of the whole
 * repository: mcNameP is its name (1 to 30 letters, digits, "_", "-" and ".", in any case), objInfo
 * its mcDefinition (not read for HOX_UPDCLASS_DELETE) with its size as objInfoLength; name is not
 * read and may be null. Durable on return; what others change at the same time is kept. A class
 * that is deleted may be defined again. HOX_RC_MC_UNKNOWN; HOX_RC_OBJECT_EXISTS when it is defined
 * already; HOX_RC_BAD_ARGUMENT for what is no name, too long, or the deletion of the default class;
 * HOX_RC_ACCESS_DENIED in a session for another node's objects.
 */
int16_t hoxUpdateObj(hoxHandle_t handle, uint8_t sendType, const hoxObjName *name,
                     const ObjAttr *attributes, uint32_t mask);

#define HOX_GROUP_OPEN 1   /* a new group: isLeader 1, objName the leader, tag */
#define HOX_GROUP_CLOSE 2  /* makes the group that is open */
#define HOX_GROUP_ADD 3    /* the members to the group that is open */
#define HOX_GROUP_ASSIGN 4 /* the members to a group that was closed */
#define HOX_GROUP_REMOVE 5 /* takes the members out of a group that was closed */
#define HOX_GROUP_DELETE 6 /* the group, open or closed; its objects stay */

#define HOX_MAX_GROUP_TAG 64

#define HOX_GROUP_VERSION 1
typedef struct hoxGroupIn_t {
    uint16_t stVersion;
    uint8_t action; /* HOX_GROUP_ */
    uint8_t isLeader;
    const char *tag;
    const hoxObjName *objName;
    hox64_t leaderObjId;
    const hox64_t *memberObjId;
    uint32_t memberCount;
} hoxGroupIn_t;

typedef struct hoxGroupOut_t {
    uint16_t stVersion;
    hox64_t leaderObjId;
} hoxGroupOut_t;

/*
 * Groups of objects: a leader and up to 4,096 members, all stored before. A group ties objects
 * together for a query of type HOX_QUERY_GROUP and for nothing else: each is queried, read and
 * deleted by itself as if it were in none. A member that is deleted drops out, one that is renamed
 * stays; when its leader is deleted the group is, too, but not its members. An object leads at most
 * one group, and may be a member of many.
 *
 * Every action but HOX_GROUP_OPEN names the group by leaderObjId and its members by memberObjId and
 * memberCount. A session has at most one group open; until HOX_GROUP_CLOSE returns 0 no query finds
 * it, and it ends with the session, or with a HOX_GROUP_CLOSE that fails. HOX_GROUP_CLOSE, _ASSIGN,
 * _REMOVE and _DELETE are durable on return, each in one step: all members are taken or none. A
 * member that is there already is not added twice. After any other failure the group is unchanged.
 *
 * output may be null but for HOX_GROUP_OPEN; after a failure do not rely on it. Not in a
 * transaction, a query or a read.
 * HOX_RC_OBJECT_UNKNOWN when an object or the group is not there, or what is to be taken out is no
 * member; HOX_RC_OBJECT_EXISTS when the leader leads a group already.
 */
int16_t hoxGroupHandler(hoxHandle_t handle, const hoxGroupIn_t *input, hoxGroupOut_t *output);

/* ---- access for other nodes ---- */

#define HOX_ACCESS_READ 1

#define HOX_QRY_RESP_ACCESS_VERSION 1
typedef struct qryRespAccessData {
    uint16_t stVersion;
    char nodeName[HOX_MAX_NODE_NAME + 1]; /* the node that may read */
    char ownerName[HOX_MAX_OWNER_NAME + 1];
    hoxObjName objName;
    uint8_t accessType;
    uint32_t ruleNumber;
} qryRespAccessData;

/*
 * Lets another node (ownerName: if it says that it is this owner, which nothing proves; null or
 * empty: any) find and read objects of the session's node: a session with asNodeName may query and
 * restore what a rule names, and nothing else. A hlName or llName of a slash and an asterisk stands
 * for every one. The filespace must be registered, the other node need not be: once it is, the rule
 * takes effect when the node that made it starts its next session. Durable on return; a rule that
 * is there already is not made twice; deleting the filespace removes it. In a session for another
 * node's objects these three answer HOX_RC_ACCESS_DENIED.
 */
int16_t hoxSetAccess(hoxHandle_t handle, uint8_t accessType, const hoxObjName *name,
                     const char *nodeName, const char *ownerName);

/* Fills in the rules that the session's node made, by their numbers. rules points at room for
 * *count records, and may be null when that is 0. *count becomes the number of rules there are;
 * HOX_RC_MORE_DATA when that is more than there was room for, and as many as fit are filled in.
 * HOX_RC_REPOSITORY_DAMAGED when all others are filled in and counted: rules that cannot be read,
 * or that this node did not make, admit nobody. On any other failure neither is changed. */
int16_t hoxQueryAccess(hoxHandle_t handle, qryRespAccessData *rules, uint16_t *count);

/* Takes a rule back, durably. Sessions of the reader look at the rules before each answer, object
 * and block: what they ask for after this returned is refused. HOX_RC_OBJECT_UNKNOWN when there is
 * no rule of that number. */
int16_t hoxDeleteAccess(hoxHandle_t handle, uint32_t ruleNumber);

/* ---- messages and events ---- */

/*
 * The text of a code: an identifier (RBS, four digits, a severity letter), a blank, a sentence in
 * the language and code set of the process's locale, English where that has no catalogue. Writes at
 * most HOX_MAX_RC_MESSAGE bytes, what is longer cut, and a terminator into message. The text says
 * more (a path, a line; always in English) when the code is that of the last failure on this
 * thread. handle is not read. Returns 0; HOX_RC_NULL_ARGUMENT.
 */
int16_t hoxRCMsg(hoxHandle_t handle, int16_t rc, char *message);

#define HOX_RCMSGEX_VERSION 1
typedef struct hoxRCMsgExIn_t {
    uint16_t stVersion;
    hoxHandle_t handle; /* the same as the argument */
    int16_t rc;
    uint8_t withIdentifier; /* 1: the text begins with its identifier; 0: the sentence alone */
} hoxRCMsgExIn_t;

typedef struct hoxRCMsgExOut_t {
    uint16_t stVersion;
    char identifier[9];
    char message[HOX_MAX_RC_MESSAGE + 1]; /* always in English, as a server's log wants it */
} hoxRCMsgExOut_t;

/* The text of a code as hoxRCMsg has it, but always in English, and its identifier by itself, too.
 * Neither handle is read. On failure output is unchanged. Returns 0; HOX_RC_NULL_ARGUMENT,
 * HOX_RC_BAD_VERSION. */
int16_t hoxRCMsgEx(hoxHandle_t handle, const hoxRCMsgExIn_t *input, hoxRCMsgExOut_t *output);

#define HOX_LOG_SERVER 0U /* the activity log of the repository */
#define HOX_LOG_LOCAL 1U  /* the local log, see envSetUp */
#define HOX_LOG_BOTH 2U

#define HOX_SEVERITY_INFO 0U
#define HOX_SEVERITY_WARNING 1U
#define HOX_SEVERITY_ERROR 2U
#define HOX_SEVERITY_SEVERE 3U

#define HOX_EVENT_MESSAGE 0 /* kind: a message */
#define HOX_EVENT_SESSION 4 /* kind: an application begins its work in a session; message empty */
#define HOX_EVENT_SESSION_RESUMED 5 /* kind: it continues work begun in an earlier session */

#define HOX_LOGEVENTEX_VERSION 2
typedef struct hoxLogEventExIn_t {
    uint16_t stVersion;
    uint16_t kind;     /* HOX_EVENT_ */
    uint32_t severity; /* HOX_SEVERITY_ */
    char messageId[9]; /* the application's identifier of the message */
    char appName[33];
    char platform[17];
    char appVersion[17];
    uint32_t logType; /* HOX_LOG_ */
    const char *message;
} hoxLogEventExIn_t;

typedef struct hoxLogEventExOut_t {
    uint16_t stVersion;
} hoxLogEventExOut_t;

/*
 * Writes an event. Allowed in any state of a session; with handle 0 it goes to the local log,
 * whatever logType says. HOX_LOG_BOTH writes the local log and then the activity log, each of them
 * also when the other cannot be written, and returns the first failure. output may be null. A
 * message is cut to HOX_MAX_LOG_TEXT bytes; its control characters are escaped in the local log
 * ("\n") and become '?' in the activity log. In the activity log an event of HOX_SEVERITY_ERROR or
 * worse is durable on return, another one at the latest when the session ends.
 * HOX_RC_LOG_UNAVAILABLE when the log cannot be written now: an event for the activity log is kept
 * (up to 256 KiB) and published with the next; HOX_RC_NOT_SET_UP when no local log is known yet.
 */
int16_t hoxLogEventEx(hoxHandle_t handle, const hoxLogEventExIn_t *input,
                      hoxLogEventExOut_t *output);

/* ---- the block cipher of password files ---- */

#define HOX_DES_BLOCK 8 /* bytes of a key and of a block */

/* Derives the key that belongs to a node on this host, 8 bytes, from its name (null: an empty one)
 * and a secret beside the option file in force, which is made when it is not there. When the secret
 * cannot be used, the key is random, so that it opens nothing, and the local log says so. A null
 * key is ignored. No handle, no return code. */
void hoxCreateDesKeyEx(uint32_t *key, const char *nodeName);

/* Enciphers one block of 8 bytes. input and output may be the same. With a null argument does
 * nothing. No return code. */
void hoxEncryptEx(const uint32_t *key, const unsigned char *input, unsigned char *output);

/* Deciphers what hoxEncryptEx enciphered with the same key. */
void hoxDecryptEx(const uint32_t *key, const unsigned char *input, unsigned char *output);

#ifdef __cplusplus
} /* extern "C" */

static_assert(sizeof(qryRespBackupData) == 3064, "applications hand over exactly this many bytes");
static_assert(sizeof(qryRespMCData) == 468, "applications hand over exactly this many bytes");
#endif

#endif /* HOXAPI_H */
