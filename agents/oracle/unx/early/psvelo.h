// The Unix unit of the library: what depends on the host. Porting to another platform means
// replacing the files of this folder.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_EARLY_PSVELO_H
#define KEEL_AGENTS_ORACLE_UNX_EARLY_PSVELO_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

// ---- process (psvelo.cpp)

/// Resets the process-wide counter and flags, and the note that sqlplus hangs; in a forked child
/// also forgets what the parent made. Takes initMutex itself. Always 0.
int psveloInit();
/// Returns the key of this process in the context table: its process identifier.
std::uint32_t psveloGetID();

// ---- installed paths (psvelo.cpp), compiled in. Buffers hold ORC_OPTION_SIZE characters unless
// said otherwise. Each returns 0; on a platform that looks the path up it may return a code.

/// The directory of the storage client.
int psveloGetHoxiDir(char *buffer);
/// The installation directory of this library.
int psveloGetVeloDir(char *buffer);
/// Leaves the buffer as it is: there is no default on this platform.
int psveloGetHoxiConfig(char *buffer);
/// The default option file; the buffer holds ORC_OPTION_PATH_SIZE characters.
int psveloGetDefaultOptfile(char *buffer);
/// "velo.cat" for every directory.
void psgetMsgFileName(const char *directory, char *buffer);

// ---- node and owner (psnode.cpp). Buffers hold HOX_MAX_NODE_NAME + 1 characters.

/// Writes the host name, or an empty text when the system does not give one. Returns 0.
int psveloGetNodeName(char *buffer);
/// Writes the login name of the real user; an empty text for root and for a user without a name.
/// Returns 0.
int psveloGetOwnerName(char *buffer);
/// Stores the node name in this process's entry of the context table; takes orcMutex itself.
/// Returns 0, or -1 when there is no entry.
int psveloPutNodeName(const char *nodeName);
/// Writes HOXO_NODE of the environment, or the host name when that is not set. Returns 0, or 23
/// (logged) with an empty text when HOXO_NODE is longer than 64 characters.
int psfillNodeName(char *buffer);

// ---- naming (psnaming.cpp)

/// Fills the context's object name for a piece: filespace, "/", "/" + piece. The caller has bounded
/// the name.
void psveloFillObjName(orcObj_t *ctx, const char *pieceName);
/// As above into a record, with the filespace name unchanged. Returns 0.
int psfillObjName(const char *pieceName, const char *fsName, hoxObjName *name);
/// Returns true for a text that may be the name of a piece: not null, not empty, at most
/// ORC_MAX_PIECE_NAME characters.
bool psveloPieceNameFits(const char *pieceName);

// ---- filespace (psfilespace.cpp)

/// Both fill in the information text of the filespace; they differ in their traces only.
void psveloInitFSAttrib(hoxFSAttr *attributes);
void psinitFSAttrib(hoxFSAttr *attributes);
/// Updates the filespace's occupancy and protected size after a piece was stored. Returns the
/// storage client's code; a failure is reported.
std::uint16_t psveloUpdateFS(orcObj_t *ctx);
/// As above for a file of the version-1 interface: the size is that of the table entry, and a
/// failure is written to both event logs instead of being reported. Takes orcMutex itself.
std::uint16_t psUpdateFS(std::uint32_t hoxHandle, std::int16_t tableIndex, const orcObj_t *ctx);

// ---- error logs that need no message system (pserrorlog.cpp)

/// Appends text, a whole line, to a file with psAppendLocked, which says when a line is lost. A
/// null or empty fileName does nothing.
void psWriteError(const char *fileName, const char *text);
/// Appends a time-stamped line to the early error log: veloerror.log of the installation directory,
/// or of the current one when no file can be created there. "%%" in text becomes "%", other
/// conversions vanish; control characters are escaped, more than 4,000 bytes cut. Takes no lock:
/// one write on an append-only descriptor. A line that cannot be written is lost.
void psNonNlsErrorMsg(const char *text);

// ---- password file (pspassword.cpp)

constexpr std::uint16_t ORC_RC_NO_PASS_FILE = 168;
constexpr std::uint16_t ORC_RC_PSWD_UNREADABLE = 2519; // the new file does not read back
constexpr std::uint16_t ORC_RC_PSWD_TOO_LONG = 2520;

/// Writes the directory and the path of the context's password file (ORC_OPTION_PATH_SIZE
/// characters each).
void psveloGetFileName(char *directory, char *path, orcObj_t *ctx);
/// Derives the key (8 bytes) of the context's node. The caller wipes it.
void psveloSetKey(std::uint32_t *key, orcObj_t *ctx);
/// Reads the password of the context's node into password (HOX_MAX_PASSWORD + 1 characters), which
/// the caller wipes. Returns 0, or 168 with message 2519 reported and password empty.
std::uint16_t psveloReadPswd(char *password, orcObj_t *ctx);
/// Sets the mode of a regular file to 0644 and reads its password: at most 64 characters of the
/// first 36 records. Returns 0, or 168 with password empty when there is no regular file or reading
/// it fails.
std::uint16_t psveloReadPswdFromFile(const char *path, char *password, std::uint32_t *key);
/// Writes a password file beside path, reads it back with a key that is derived again for ctx, and
/// only then renames it over path (or over the file behind a link of root's or of the effective
/// user's). Returns 0, or a code of psveloUpdatePswd with the old file as it was. May throw
/// std::bad_alloc.
std::uint16_t psveloWritePswdToFile(const char *directory, const char *path, const char *password,
                                    std::uint32_t *key, orcObj_t *ctx);
extern "C" {
/// Writes the password file of the context's node, with mode 0644. Returns 0, or with the password
/// file as it was 104: no storage client is loaded; 167: the directory cannot be made; 2519: what
/// was written cannot be read back; 2520: more than 64 characters; 2521: the directory cannot be
/// used; 2522: no memory; 2539: a null argument (logged); 65535: the file cannot be written. A
/// directory that was made stays. Another program gets ctx from sbtinit2.
SBT_EXPORT std::uint16_t psveloUpdatePswd(char *password, orcObj_t *ctx);
}

// ---- proxy-copy library (psproxy.cpp)

using sbtEntryPoint = void (*)();

/// Loads the proxy-copy library and fills the ten proxy-copy entries of table. Returns 0 with
/// *loaded 1 and description filled in (descriptionSize characters); the library stays loaded.
/// Returns -1 with *loaded 0, an empty description, and entries of which some may be set to
/// addresses that are no longer valid: the caller clears them.
int psLoadPCFunctions(sbtEntryPoint *table, int *loaded, char *description,
                      std::size_t descriptionSize);

#endif
