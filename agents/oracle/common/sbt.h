// The exported interface of libobk.so, as the database's backup tool drives it.
//
// A channel is one process: sbtinit and sbtinit2 open it, sbtend closes it, and in between one
// backup piece at a time is written (sbtbackup, sbtwrite2 ..., sbtclose2), read (sbtrestore,
// sbtread2 ..., sbtclose2), described (sbtinfo2) or deleted (sbtremove2). Every call returns 0, or
// -1 with the reason kept in the context, where sbterror finds it; sbtinit alone reports through
// its error record. A null context is -1, except for sbtend. docs/behaviour.md lists every outcome.
//
// A piece is durable when every sbtwrite2 and then sbtclose2 (without SBT_CLOSE_ABORT) returned 0.
// In any other case it is stored whole or not at all. Lists are arrays of pairs that end at the
// code named beside them; a null list is an empty one, except where a call says otherwise.
//
// One thread at a time uses a context; the calls take the library's locks themselves. A thread that
// the host cancels within a call ends after it. A name of a piece has 1 to ORC_MAX_PIECE_NAME
// (orcobj.h) characters; a longer one is not cut but cannot exist.
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

/// The error record of sbtinit: 7011 and the internal code that caused it, or twice 0.
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

/// Initialises the process for one channel. *initOut, which ends at SBTINIT_END, stays the
/// library's and is overwritten by the next sbtinit. After -1 everything is released again; when
/// another channel of the process had not ended, that one is released too, and its later calls
/// fail.
SBT_EXPORT int sbtinit(sbtInitError *error, const sbtPair *initIn, sbtPair **initOut);
/// Moves the channel's context into ctx, the caller's memory of SBTINIT_CTXSIZE bytes, and starts
/// the database trace. After -1 the channel is over.
SBT_EXPORT int sbtinit2(void *ctx, unsigned long flags, const sbtPair *init2In);
/// Ends the channel: aborts an open piece, ends the session, frees what the context owns and, with
/// the last channel, everything process-wide. Always 0. A null ctx ends the channel too, but frees
/// nothing that the context owns.
SBT_EXPORT int sbtend(void *ctx, unsigned long flags);

/// Begins a piece. blockSize is the size of every later block, 1 to 4,294,967,295 bytes; copyNumber
/// 2 to 4 selects a management class of the option file, 0 and 1 the client's, and more is refused;
/// maxSize may become the size estimate, the rest only describes the piece. After -1 nothing is
/// stored; call sbtclose2 (or sbtend), unless the call was refused because a piece is open already:
/// that one continues unharmed. 7503: the piece exists, or the look for it failed.
SBT_EXPORT int sbtbackup(void *ctx, unsigned long flags, const char *pieceName,
                         const sbtPair *objects, unsigned long blockSize, unsigned long maxSize,
                         unsigned long copyNumber, unsigned long mediaPool);
/// Takes one block; buffer is the caller's again on return. After -1 the piece is lost: every later
/// sbtwrite2 fails, and sbtclose2 stores nothing.
SBT_EXPORT int sbtwrite2(void *ctx, unsigned long flags, void *buffer);
/// Ends the open piece and the session, whatever it returns; the channel can begin another piece. 0
/// after a backup means that the piece is stored and durable, unless SBT_CLOSE_ABORT was given or
/// an sbtwrite2 failed: then 0 means that nothing is stored. -1 may also mean that the piece is
/// stored and only the record of its filespace could not be updated. Without an open piece 0, with
/// message 2614 and code 7501 when the channel was idle already.
SBT_EXPORT int sbtclose2(void *ctx, unsigned long flags);
/// Begins to read a piece. After -1 call sbtclose2 (or sbtend), unless the call was refused because
/// a piece is open already. 7502: there is no such piece, or the look for it failed.
SBT_EXPORT int sbtrestore(void *ctx, unsigned long flags, const char *pieceName,
                          unsigned long blockSize);
/// Writes the next block to buffer (the block size of sbtrestore). The last block may be shorter;
/// its length is not reported. -1 with 7504 after the last block, as often as asked. After -1
/// nothing in the buffer counts.
SBT_EXPORT int sbtread2(void *ctx, unsigned long flags, void *buffer);

/// Describes pieces. pieceNames ends at a null pointer. *info ends at SBTBFINFO_END and stays the
/// library's, valid until the next sbtinfo2 or sbtend. A name without a piece gets
/// SBTBFINFO_NOTFOUND and is no failure. After -1 do not read *info.
SBT_EXPORT int sbtinfo2(void *ctx, unsigned long flags, char **pieceNames, sbtPair **info);
/// Deletes pieces, each in a separate transaction; pieceNames ends at a null pointer. Every name is
/// looked up before the first is deleted. A name without a piece is no failure, but sets 7501.
/// After -1 the pieces before the failure may be deleted.
SBT_EXPORT int sbtremove2(void *ctx, unsigned long flags, char **pieceNames);

/// Appends a text to the options of all later sessions of the channel, without a blank between. At
/// most 512 characters of it are taken, and 513 of all texts; the rest is dropped silently. Its
/// content is not checked. A null or empty one is 0.
SBT_EXPORT int sbtcommand(void *ctx, unsigned long flags, void *command);
/// Returns the code and the text of the last failure. No success clears the code; sbtwrite2,
/// sbtrestore and the end of a file clear the text. Any of the places may be null. *nativeMsg
/// points into the context; *utf8Msg is always null.
SBT_EXPORT int sbterror(void *ctx, unsigned long flags, unsigned long *error, void **nativeMsg,
                        void **utf8Msg);

/// Fills record (null: nothing). Needs no channel.
SBT_EXPORT void veloQueryVersion(veloVersion *record);

// ---- version 1 of the interface, for older databases: no context, the state is the process's, and
// one thread at a time may call. Every call clears its error record first and reports there (oer 0:
// no error); a null record is a failure. Where docs/behaviour.md says "released", the channel is
// over after the call.

/// The answer of sbtinfo for a stored file.
struct sbtFileInfo {
    char name[256];             // cut silently
    std::uint64_t size;         // bytes
    std::uint64_t creationTime; // seconds since the epoch; 0 when it is not known
    std::uint32_t media;        // SBT1_MEDIA_
    char label[64];             // of the medium
    char mgmtClass[31];
};

/// Opens a file and returns its handle, or -1. mode: SBT1_READ, or one of the write modes, which
/// refuse a file that exists. blockSize is a multiple of 512.
SBT_EXPORT int sbtopen(bserc *error, char *fileName, unsigned long mode, unsigned long blockSize);
/// Writes one block; 0 or -1. After a failed send sbtclose fails too, and nothing is stored.
SBT_EXPORT int sbtwrite(bserc *error, unsigned th, char *buffer);
/// Reads one block; 0 or -1, with oer 7061 after the last.
SBT_EXPORT int sbtread(bserc *error, unsigned th, char *buffer);
/// Ends the file. flags 1 and 2 both commit what was written: 0 means that it is stored and
/// durable. Any other is -1, ends the channel, and nothing is stored.
SBT_EXPORT int sbtclose(bserc *error, unsigned th, unsigned long flags);
/// Returns a record that stays the library's, valid until the next sbtinfo of the process, or null.
/// The channel is over after the call.
SBT_EXPORT const sbtFileInfo *sbtinfo(bserc *error, char *fileName);
/// Deletes a file, durably; 0, or -1 with nothing deleted, also when there is no such file.
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

// Items of sbtinit's in-list (END, TRACEFILE: a path), and of its out-list: values are pointers to
// 64-bit numbers, but DESC is a text, FUNCTIONS the table of entry points, and PROXY null.
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

// Items of sbtinit2's in-list; values are pointers to 64-bit numbers.
constexpr std::uint64_t SBTINIT2_TRACELEVEL = 1;
constexpr std::uint64_t SBTINIT2_CLIENTAPI = 2;
constexpr std::uint64_t SBTINIT2_NOTIFY = 3;
constexpr std::uint64_t SBTINIT2_END = 9999;

// Items of sbtbackup's object list: a text, a number cast to a pointer, a pointer to 64 bits.
constexpr std::uint64_t SBTOBJECT_DBNAME = 2;
constexpr std::uint64_t SBTOBJECT_DBID = 3;
constexpr std::uint64_t SBTOBJECT_FILETYPE = 5;
constexpr std::uint64_t SBTOBJECT_END = 32;
constexpr std::uint64_t SBT_FILETYPE_DATAFILE = 1;
constexpr std::uint64_t SBT_FILETYPE_ARCHLOG = 2;
constexpr std::uint64_t SBT_FILETYPE_OTHER = 3;

// Flags of sbtclose2.
constexpr unsigned long SBT_CLOSE_ABORT = 1;

// Items of the array that sbtinfo2 answers with. NAME, LABEL and COMMENT are texts, NOTFOUND and
// END null, the others pointers to 64-bit numbers; times are seconds since the epoch.
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
