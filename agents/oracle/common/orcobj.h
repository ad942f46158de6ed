// The records of a channel: the context that the database keeps for us, and the entry of the
// process's table.
//
// orcObj_t is copied byte for byte, into the table entry and from there into the database's memory.
// It has no destructor: sbtend at the latest frees the members marked as owned, and only those of
// the database's copy, the one that every call is given. One thread uses a context at a time.
#ifndef KEEL_AGENTS_ORACLE_COMMON_ORCOBJ_H
#define KEEL_AGENTS_ORACLE_COMMON_ORCOBJ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <type_traits>

#include "agents/oracle/common/sbt.h"
#include "client/include/hoxapi.h"

// The codes of this library; those of the storage client pass through as they are.
constexpr std::uint16_t ORC_RC_OK = 0;
constexpr std::uint16_t ORC_RC_NOT_FOUND = 7;         // no such piece
constexpr std::uint16_t ORC_RC_FOUND = 8;             // the piece is there
constexpr std::uint16_t ORC_RC_COPY_NUMBER = 11;      // above 4
constexpr std::uint16_t ORC_RC_NO_DIRECTORY = 167;    // of the password file
constexpr std::uint16_t ORC_RC_TRACE_OPEN = 406;      // the trace's name is missing or too long
constexpr std::uint16_t ORC_RC_TRACE_FILE = 426;      // the trace file cannot be opened
constexpr std::uint16_t ORC_RC_NO_ENTRY = 2014;       // of this process in the context table
constexpr std::uint16_t ORC_RC_CLIENT_TOO_OLD = 2507; // the storage client, or it is not loaded
constexpr std::uint16_t ORC_RC_PSWD_DIRECTORY = 2521; // of the password file: it cannot be used
constexpr std::uint16_t ORC_RC_NO_MEMORY = 2522;
constexpr std::uint16_t ORC_RC_OPTION_FILE = 2534; // it cannot be read, or a line is wrong
constexpr std::uint16_t ORC_RC_NULL_CONTEXT = 2539;
constexpr std::uint16_t ORC_RC_NO_INSTALL_PATH = 2601;
constexpr std::uint16_t ORC_RC_EXISTS_ALREADY = 65535; // the context table; also plain -1

// States of a context.
constexpr std::int16_t ORC_STATE_INITIALISED = 1;
constexpr std::int16_t ORC_STATE_BACKUP = 2;
constexpr std::int16_t ORC_STATE_RESTORE = 3;
constexpr std::int16_t ORC_STATE_RESTORE_END = 4;
constexpr std::int16_t ORC_STATE_QUERY = 5;
constexpr std::int16_t ORC_STATE_IDLE = 6;
constexpr std::int16_t ORC_STATE_REMOVE = 7;

// Options, in the order of the keyword table.
enum orcOption {
    OPT_HOXI_DIR,
    OPT_HOXI_LOG,
    OPT_HOXI_ORC_DIR,
    OPT_HOXI_ORC_CONFIG,
    OPT_VELO_AVG_SIZE,
    OPT_VELO_FS,
    OPT_VELO_NODE,
    OPT_VELO_OWNER,
    OPT_VELO_PSWDPATH,
    OPT_VELO_TRACE_MAX,
    OPT_VELO_TRACE_FILE,
    OPT_VELO_TRACE_FLAGS,
    OPT_VELO_MGMT_CLASS_2,
    OPT_VELO_MGMT_CLASS_3,
    OPT_VELO_MGMT_CLASS_4,
    OPT_VELO_NUM_BUFFERS,
    OPT_VELO_DATE_FMT,
    OPT_VELO_TIME_FMT,
    OPT_VELO_NUM_FMT,
    OPT_VELO_LANGUAGE,
    OPT_VELO_TEST_FLAGS,
    OPT_COUNT
};
constexpr std::size_t ORC_OPTION_SIZE = 512;
constexpr std::size_t ORC_OPTION_PATH_SIZE = 1025;

constexpr std::size_t ORC_ERRTEXT_SIZE = 1025;
constexpr std::size_t ORC_SESSION_OPTIONS_SIZE = 514;
constexpr std::size_t ORC_MAX_PIECE_NAME = HOX_MAX_LL_NAME - 1; // "/" is put in front of it
constexpr std::size_t ORC_CTX_SIZE = 1048576;

struct orcObj_t {
    std::uint32_t hoxHandle;   // 0: no session
    std::uint32_t copyNumber;  // 2 to 4 select a management class of the option file
    std::uint32_t mediaPool;   // traced only
    std::uint32_t buffersSent; // or received
    std::int32_t infoCount;    // names that bkupInfoTypeP has room for
    std::int16_t state;        // ORC_STATE_
    std::int16_t resumedPiece; // positive: the piece continues work of an earlier session
    std::uint32_t prevError;   // 1: a transfer failed or it was aborted: nothing more may be sent
    std::uint32_t blockSize;   // bytes, of the open piece
    std::int64_t maxSize;      // as sbtbackup was given it; 0: not announced
    std::int32_t cliType;      // as nlinit takes it
    char nodeName[HOX_MAX_NODE_NAME + 1];
    std::uint64_t bytesTransferred;
    hoxObjName hoxName;
    char objInfo[HOX_MAX_OBJ_INFO];
    std::time_t startTime;   // of the piece
    char objName[1026];      // the database names, in double quotes
    sbtPair *bkupInfoTypeP;  // owned, with the values of its pairs
    std::FILE *testDataFile; // owned
    std::uint64_t dbSize;    // bytes
    // The transfer buffer of a test flag, null without it: bytes in all, bytes held, 1 while the
    // close sends the rest, 1 while it holds nothing unsent.
    std::uint32_t veloBuffSize;
    std::uint32_t veloBuffFill;
    std::uint32_t veloBuffFlush;
    std::uint32_t veloBuffEmpty;
    char *veloBuffP; // owned
    // Code and text of the last failure, for sbterror. No success clears the code; sbtwrite2,
    // sbtrestore and the end of a file clear the text.
    std::uint64_t sbtErrCode;
    char errText[ORC_ERRTEXT_SIZE];
    std::int32_t bUsePwGenerate; // 1: the storage client keeps the node's password

    char options[OPT_COUNT][ORC_OPTION_SIZE];
    char sessionOptions[ORC_SESSION_OPTIONS_SIZE];
    std::uint16_t maxObjPerTxn;
    hox64_t objId; // of the piece that the last query found
    hoxEndSendObjExOut_t sendTotals;
};

static_assert(std::is_trivially_copyable_v<orcObj_t>, "contexts are copied byte for byte");
static_assert(sizeof(orcObj_t) <= ORC_CTX_SIZE, "the database reserves no more");

constexpr std::size_t ORC_SCRATCH_SIZE = 63;

struct orcBlock_t {
    std::uint32_t orcHandle; // version-1 interface
    std::uint16_t orcState;  // version-1 interface
    std::uint64_t blockSize; // version-1 interface, bytes
    std::uint32_t ctxState;  // ORC_STATE_ of the version-1 interface
    std::uint32_t BlockID;   // process identifier; 0: the entry is free
    std::uint64_t bytesDone; // version-1 interface: of each block those before its first NUL
    char *strP;              // ORC_SCRATCH_SIZE bytes, owned, kept when the entry is freed
    std::uint64_t cleared;   // always 0; keeps the layout
    char fileName[96]; // the entry's name area: the node, or the file of the version-1 interface
    orcObj_t *orcCtxP; // owned
};

static_assert(sizeof(orcBlock_t) == 152, "one entry of the table");
static_assert(offsetof(orcBlock_t, strP) == 32 && offsetof(orcBlock_t, orcCtxP) == 144,
              "the layout of an entry is fixed");

#endif
