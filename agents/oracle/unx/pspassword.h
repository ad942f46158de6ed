// The password file.
//
// Any thread may call, except where a lock is named; a context is used by one thread. Texts are cut
// silently to their buffers and terminated. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_UNX_PSPASSWORD_H
#define KEEL_AGENTS_ORACLE_UNX_PSPASSWORD_H

#include <cstdint>

#include "agents/oracle/common/orcobj.h"

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
/// it fails. A file that is damaged, or of another key, gives a wrong or empty password and 0.
std::uint16_t psveloReadPswdFromFile(const char *path, char *password, std::uint32_t *key);
/// Writes a password file beside path, reads it back with a key that is derived again for ctx, and
/// only then renames it over path (or over the file behind a link of root's or of the effective
/// user's). The file and its name survive the loss of power when it returns 0. Else it returns a
/// code of psveloUpdatePswd, with the old file as it was, or with the new one when only the name
/// could not be synced. May throw std::bad_alloc.
std::uint16_t psveloWritePswdToFile(const char *directory, const char *path, const char *password,
                                    std::uint32_t *key, orcObj_t *ctx);
extern "C" {
/// Writes the password file of the context's node, with mode 0644. Returns 0, or with the password
/// file as it was 104: no storage client is loaded; 167: the directory cannot be made; 2519: what
/// was written cannot be read back; 2520: more than 64 characters; 2521: the directory cannot be
/// used; 2522: no memory; 2539: a null argument (logged); 65535: the file cannot be written, or
/// is there and may not survive the loss of power. A directory that was made stays. Another program
/// gets ctx from sbtinit2.
SBT_EXPORT std::uint16_t psveloUpdatePswd(char *password, orcObj_t *ctx);
}

#endif
