// The Unix unit of the library: what depends on the host. Porting to another platform means
// replacing the files of this folder.
#ifndef KEEL_AGENTS_ORACLE_UNX_PSVELO_H
#define KEEL_AGENTS_ORACLE_UNX_PSVELO_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

// ---- process (psvelo.cpp)

/// Resets the process-wide counter and flags, and what is known of sqlplus; the mutexes exist from
/// the start. Always 0.
int psveloInit();
/// The identity of this process in the context table.
std::uint32_t psveloGetID();

// ---- installed paths (psvelo.cpp). Buffers hold ORC_OPTION_SIZE characters unless said otherwise;
// 0.

int psveloGetHoxiDir(char *buffer);
int psveloGetVeloDir(char *buffer);
/// Leaves the buffer as it is: there is no default on this platform.
int psveloGetHoxiConfig(char *buffer);
/// The default option file; the buffer holds ORC_OPTION_PATH_SIZE characters.
int psveloGetDefaultOptfile(char *buffer);
/// "velo.cat", whatever the directory; the buffer holds ORC_OPTION_SIZE characters.
void psgetMsgFileName(const char *directory, char *buffer);

// ---- node and owner (psnode.cpp). Buffers hold HOX_MAX_NODE_NAME + 1 characters.

/// The host name; empty when it cannot be told.
int psveloGetNodeName(char *buffer);
/// The login name of the real user; empty for root.
int psveloGetOwnerName(char *buffer);
/// Stores the node name in this process's entry of the context table. -1 when there is none.
int psveloPutNodeName(const char *nodeName);
/// HOXO_NODE of the environment, else the host name. 23 when HOXO_NODE is longer than 64
/// characters.
int psfillNodeName(char *buffer);

// ---- naming (psnaming.cpp)

/// Fills the context's object name for a piece: filespace, "/", "/" + piece. The caller has bounded
/// the name.
void psveloFillObjName(orcObj_t *ctx, const char *pieceName);
/// The same into a record, for a filespace as it stands; 0.
int psfillObjName(const char *pieceName, const char *fsName, hoxObjName *name);
/// May this be the name of a piece? Not null, not empty, at most ORC_MAX_PIECE_NAME characters.
bool psveloPieceNameFits(const char *pieceName);

// ---- filespace (psfilespace.cpp)

void psveloInitFSAttrib(hoxFSAttr *attributes);
void psinitFSAttrib(hoxFSAttr *attributes);
/// Updates the filespace after a piece was stored. The storage client's code; a failure is
/// reported.
std::uint16_t psveloUpdateFS(orcObj_t *ctx);
/// The same for a file of the version-1 interface: the size is that of the table entry, and a
/// failure goes to the event logs in place of the error log.
std::uint16_t psUpdateFS(std::uint32_t hoxHandle, std::int16_t tableIndex, const orcObj_t *ctx);

// ---- error logs that need no message system (pserrorlog.cpp)

/// Appends text to a file under a lock that holds between processes and threads. Silent when it
/// cannot.
void psWriteError(const char *fileName, const char *text);
/// Appends a time-stamped line to the fallback error log.
void psNonNlsErrorMsg(const char *text);

// ---- password file (pspassword.cpp)

constexpr std::uint16_t ORC_RC_NO_PASS_FILE = 168;
constexpr std::uint16_t ORC_RC_PSWD_UNREADABLE = 2519; // the new file does not read back
constexpr std::uint16_t ORC_RC_PSWD_TOO_LONG = 2520;

/// directory and path hold ORC_OPTION_PATH_SIZE characters.
void psveloGetFileName(char *directory, char *path, orcObj_t *ctx);
/// key: 8 bytes.
void psveloSetKey(std::uint32_t *key, orcObj_t *ctx);
/// password holds HOX_MAX_PASSWORD + 1 characters. 0, or 168 with message 2519 reported.
std::uint16_t psveloReadPswd(char *password, orcObj_t *ctx);
/// The file operations. Reading takes the first 64 characters of the first 36 records; the mode of
/// a regular file becomes 0644 before it is read. Writing replaces the file as a whole, behind a
/// link of root's or our own, and only when what was written reads back with a key that is derived
/// again for ctx; whatever else it returns, the old file is as it was. May throw std::bad_alloc.
std::uint16_t psveloReadPswdFromFile(const char *path, char *password, std::uint32_t *key);
std::uint16_t psveloWritePswdToFile(const char *directory, const char *path, const char *password,
                                    std::uint32_t *key, orcObj_t *ctx);
extern "C" {
/// Writes the password file of the context's node. 0; 104: no storage client is loaded; 167: the
/// directory cannot be made; 2519: what was written cannot be read back; 2520: more than 64
/// characters; 2521: the directory cannot be used; 2522: no memory; 2539: a null argument; 65535:
/// the file cannot be written. Nothing changes unless it is 0. Another program gets ctx from
/// sbtinit2.
SBT_EXPORT std::uint16_t psveloUpdatePswd(char *password, orcObj_t *ctx);
}

// ---- proxy-copy library (psproxy.cpp)

using sbtEntryPoint = void (*)();

/// Loads the proxy-copy library and fills the ten proxy-copy entries of table. 0 with *loaded 1 and
/// description filled in (descriptionSize characters), or -1 with *loaded 0.
int psLoadPCFunctions(sbtEntryPoint *table, int *loaded, char *description,
                      std::size_t descriptionSize);

#endif
