// The exported interface of libobk.so, as the database's backup tool drives it.
//
// A channel is one process: sbtinit and sbtinit2 open it, sbtend closes it, and in between one
// backup piece at a time is written (sbtbackup, sbtwrite2 ..., sbtclose2), read (sbtrestore,
// sbtread2 ..., sbtclose2), described (sbtinfo2) or deleted (sbtremove2). Every call returns 0, or
// -1 with the reason kept in the context, where sbterror finds it; sbtinit alone reports through
// its error record.
//
// A piece is durable when every sbtwrite2 and then sbtclose2 (without SBT_CLOSE_ABORT) returned 0.
// Lists are arrays of pairs that end at the code named beside them; a null list is an empty one,
// except where a call says otherwise.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SBT_H
#define KEEL_AGENTS_ORACLE_COMMON_SBT_H

#include <cstdint>

#define SBT_EXPORT __attribute__((visibility("default")))

extern "C" {

/// A code and its value: a pointer, or a number cast to one.
struct sbtPair {
    std::uint64_t code;
    void *value;
};

/// What sbtinit reports: 7011 and the internal code behind it, or twice 0.
struct sbtInitError {
    std::uint32_t code;
    std::uint32_t secondary;
};

/// The error record of the version-1 calls.
struct bserc {
    std::uint32_t oer;
    std::uint32_t
        errnum; // message number or storage-client code ("errno" is a macro of the C library)
};

/// Filled in by veloQueryVersion.
struct veloVersion {
    std::uint16_t version;
    std::uint16_t release;
    std::uint16_t level;
    std::uint16_t subLevel;
    char text[64];
};

SBT_EXPORT int sbtinit(sbtInitError *error, const sbtPair *initIn, sbtPair **initOut);
SBT_EXPORT int sbtinit2(void *ctx, unsigned long flags, const sbtPair *init2In);
SBT_EXPORT int sbtend(void *ctx, unsigned long flags);

SBT_EXPORT int sbtbackup(void *ctx, unsigned long flags, const char *pieceName,
                         const sbtPair *objects, unsigned long blockSize, unsigned long maxSize,
                         unsigned long copyNumber, unsigned long mediaPool);
SBT_EXPORT int sbtwrite2(void *ctx, unsigned long flags, void *buffer);
SBT_EXPORT int sbtclose2(void *ctx, unsigned long flags);
SBT_EXPORT int sbtrestore(void *ctx, unsigned long flags, const char *pieceName,
                          unsigned long blockSize);
SBT_EXPORT int sbtread2(void *ctx, unsigned long flags, void *buffer);

/// pieceNames ends at a null pointer. *info stays the library's, valid until the next sbtinfo2 or
/// sbtend.
SBT_EXPORT int sbtinfo2(void *ctx, unsigned long flags, char **pieceNames, sbtPair **info);
SBT_EXPORT int sbtremove2(void *ctx, unsigned long flags, char **pieceNames);

SBT_EXPORT int sbtcommand(void *ctx, unsigned long flags, void *command);
SBT_EXPORT int sbterror(void *ctx, unsigned long flags, unsigned long *error, void **nativeMsg,
                        void **utf8Msg);

SBT_EXPORT void veloQueryVersion(veloVersion *record);

// ---- version 1 of the interface, for older databases: no context, the state is the process's.
// Every call clears its error record first and reports there (oer 0: no error).

/// What sbtinfo tells of a stored file.
struct sbtFileInfo {
    char name[256];
    std::uint64_t size;         // bytes
    std::uint64_t creationTime; // seconds since the epoch; 0 when it is not known
    std::uint32_t media;        // SBT1_MEDIA_
    char label[64];             // of the medium
    char mgmtClass[31];
};

/// A file handle, or -1. mode: SBT1_READ, or one of the write modes.
SBT_EXPORT int sbtopen(bserc *error, char *fileName, unsigned long mode, unsigned long blockSize);
SBT_EXPORT int sbtwrite(bserc *error, unsigned th, char *buffer);
SBT_EXPORT int sbtread(bserc *error, unsigned th, char *buffer);
/// flags 1 and 2 both commit what was written.
SBT_EXPORT int sbtclose(bserc *error, unsigned th, unsigned long flags);
/// The record stays the library's; it holds until the next sbtinfo of the process. Null on failure.
SBT_EXPORT const sbtFileInfo *sbtinfo(bserc *error, char *fileName);
SBT_EXPORT int sbtremove(bserc *error, char *fileName);
}

// Modes of sbtopen.
constexpr unsigned long SBT1_READ = 1;
constexpr unsigned long SBT1_WRITE = 2;
constexpr unsigned long SBT1_WRITE_NEW = 6;

// Media of sbtFileInfo.
constexpr std::uint32_t SBT1_MEDIA_REMOVABLE = 1;
constexpr std::uint32_t SBT1_MEDIA_DISK = 2;

// SBT error codes, as sbterror and sbtinit report them.
constexpr std::uint32_t SBT_INIT_FAILED = 7011;
constexpr std::uint32_t SBT_FAILED = 7501;
constexpr std::uint32_t SBT_NOT_FOUND = 7502;
constexpr std::uint32_t SBT_EXISTS = 7503;
constexpr std::uint32_t SBT_END_OF_FILE = 7504;

// Items of sbtinit's in-list, and of its out-list.
constexpr std::uint64_t SBTINIT_END = 1;
constexpr std::uint64_t SBTINIT_TRACEFILE = 2;
constexpr std::uint64_t SBTINIT_MAXSIZE = 3;
constexpr std::uint64_t SBTINIT_APIVSN = 4;
constexpr std::uint64_t SBTINIT_DESC = 5;
constexpr std::uint64_t SBTINIT_FUNCTIONS = 6;
constexpr std::uint64_t SBTINIT_CTXSIZE = 7;
constexpr std::uint64_t SBTINIT_MMSVSN = 8;
constexpr std::uint64_t SBTINIT_PROXY = 9;
constexpr std::uint64_t SBTINIT_MAXPROXYFILES = 10;

// Items of sbtinit2's in-list.
constexpr std::uint64_t SBTINIT2_TRACELEVEL = 1;
constexpr std::uint64_t SBTINIT2_CLIENTAPI = 2;
constexpr std::uint64_t SBTINIT2_NOTIFY = 3;
constexpr std::uint64_t SBTINIT2_END = 9999;

// Items of sbtbackup's object list.
constexpr std::uint64_t SBTOBJECT_DBNAME = 2;
constexpr std::uint64_t SBTOBJECT_DBID = 3;
constexpr std::uint64_t SBTOBJECT_FILETYPE = 5;
constexpr std::uint64_t SBTOBJECT_END = 32;
constexpr std::uint64_t SBT_FILETYPE_DATAFILE = 1;
constexpr std::uint64_t SBT_FILETYPE_ARCHLOG = 2;
constexpr std::uint64_t SBT_FILETYPE_OTHER = 3;

// Flags of sbtclose2.
constexpr unsigned long SBT_CLOSE_ABORT = 1;

// Items of the array that sbtinfo2 answers with; times are pointers to 64-bit seconds since the
// epoch.
constexpr std::uint64_t SBTBFINFO_NAME = 1;
constexpr std::uint64_t SBTBFINFO_METHOD = 2;
constexpr std::uint64_t SBTBFINFO_CRETIME = 3;
constexpr std::uint64_t SBTBFINFO_EXPTIME = 4;
constexpr std::uint64_t SBTBFINFO_LABEL = 5;
constexpr std::uint64_t SBTBFINFO_SHARE = 6;
constexpr std::uint64_t SBTBFINFO_ORDER = 7;
constexpr std::uint64_t SBTBFINFO_NOTFOUND = 8;
constexpr std::uint64_t SBTBFINFO_COMMENT = 9;
constexpr std::uint64_t SBTBFINFO_END = 9999;

// Positions in the table of entry points that sbtinit hands out (SBTINIT_FUNCTIONS).
enum sbtFunctionIndex {
    SBT_FN_BACKUP,
    SBT_FN_CLOSE2,
    SBT_FN_COMMAND,
    SBT_FN_END,
    SBT_FN_ERROR,
    SBT_FN_INFO2,
    SBT_FN_INIT2,
    SBT_FN_READ2,
    SBT_FN_REMOVE2,
    SBT_FN_RESTORE,
    SBT_FN_WRITE2,
    SBT_FN_PROXY_FIRST, // ten proxy-copy entries, null without a proxy-copy library
    SBT_FN_COUNT = 21
};

#endif
