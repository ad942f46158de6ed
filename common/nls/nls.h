// The message repository: numbered texts in the user's language, with inserts.
//
// The process's one message object reads "velo.cat" through the host's catalogue calls: the English
// catalogue always, a second one when the host's locale asks for another language. Every call here
// takes the repository's lock itself (recursive) and may be made at any time and from any thread,
// also before the object exists and after it was destroyed: then the two built-in texts, numbers 3
// and 2522, serve, and no other number has a text.
//
// The arguments of a message are read by types that were compiled in from the English source, never
// by what a file on the host's disk says, so a damaged or foreign catalogue can spoil a text but
// never the process.
//
// A text is cut at 8,191 bytes.
#ifndef KEEL_COMMON_NLS_NLS_H
#define KEEL_COMMON_NLS_NLS_H

#include "common/nls/nlswords.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

struct nlsReturnInfo_t {
    int rc;
    char path[1281]; // the catalogue last tried; empty while none was
};

class nlsObject_t;

/// A flag of newNlsGlobalObject: the first nlinit serves only until the settings are known. Its
/// warning that the host's language cannot be served is held back until a text is asked for in that
/// language, and dropped by nlterm, because the next nlinit warns again.
constexpr int NLS_PROVISIONAL_START = 1;

/// Creates the process's message object, not started, and destroys an earlier one first. fns is
/// copied and may be null. Returns null when there is no memory; there is no object then. The
/// object belongs to this unit until destroyNlsGlobalObject.
nlsObject_t *newNlsGlobalObject(const nlsOutputFns *fns, int flags) noexcept;
/// Closes the catalogues and frees the object; without one it does nothing.
void destroyNlsGlobalObject() noexcept;
/// In a forked child: forgets the parent's object without touching or freeing it, as another thread
/// of the parent may have been changing it.
void nlsForgetGlobalObject() noexcept;
/// Returns the object or null. Nothing keeps it alive: another thread may destroy it.
nlsObject_t *getNlsGlobalObjectHandle() noexcept;

/// Replaces the error routine of the message object, if there is one; null brings back the default.
void nlsSetErrorRoutine(nlsOutputFn error) noexcept;

/// Starts the object: opens the catalogues catalogDir/<language>/catalogName and keeps up to
/// cacheLimit messages of each language in memory. A missing local catalogue or converter is
/// reported to the error routine, and English serves. When the object is started already it returns
/// 0 and keeps its catalogues; call nlterm first to change them. The process's date, time and
/// number formats are set in every case but a null or empty reposName. info may be null, else it
/// gets the code and the path. Errors: NLS_RC_ARGUMENT, NLS_RC_NO_MEMORY, NLS_RC_OPEN; they start
/// nothing, and leave nothing open that was not.
int nlinit(const char *reposName, int cacheLimit, const char *catalogDir, cliType_t clientType,
           unsigned dateFormat, unsigned timeFormat, unsigned numberFormat, nlsReturnInfo_t *info,
           const char *catalogName) noexcept;

/// Closes the catalogues and forgets the messages read; the object stays and can be started again.
void nlterm() noexcept;

/// Writes the repository's name on this platform, "velo.cat" for every language, to out, which has
/// room for 1,280 characters.
void psNlsGetReposName(char *out, const char *language) noexcept;

/// Each formats a message, in the user's language or (Eng) in English. out becomes a text that the
/// caller frees with utFree; the result is its length. A message without a text, or no memory,
/// gives a null out and 0. Arguments are passed in the order of the inserts' numbers, with exactly
/// the types that the English source names. Amounts (the flag "'" there) are grouped by the number
/// format of nlinit, and are plain digits in English, which programs read.
int nlsprintf(char *&out, int msgNum, ...) noexcept;
int nlvsprintf(char *&out, int msgNum, va_list arguments) noexcept;
int nlEngsprintf(char *&out, int msgNum, ...) noexcept;
int nlEngvsprintf(char *&out, int msgNum, va_list arguments) noexcept;

/// Each formats a message in the user's language and hands the text on: nlMessage to the routine
/// for its severity, nlprintf to the message routine, nlfprintf to a stream (null: nowhere).
/// Returns the length; 0 without a text, and when the stream does not take it.
int nlMessage(int msgNum, ...) noexcept;
int nlprintf(int msgNum, ...) noexcept;
int nlfprintf(FILE *stream, int msgNum, ...) noexcept;

/// Returns the severity code of a message: nlsSevError while the repository is not started or when
/// it has no such message, 255 when the lock cannot be taken or released.
std::uint8_t nlGetMsgSev(int msgNum) noexcept;

#endif
