// The message repository: numbered texts in the user's language, with inserts.
//
// One message object for the process reads "velo.cat" through the host's catalogue calls: the
// English one always, a second one when the host's locale asks for another language. Every call
// here works at any time and from any thread, before the object exists and after it is gone as
// well: then two built-in texts serve, the numbers 3 and 2522, and other numbers have no text.
//
// The arguments of a message are read by types that were compiled in from the English source, never
// by what a file on the host's disk says, so a damaged or foreign catalogue can spoil a text but
// never the process.
#ifndef KEEL_COMMON_NLS_NLS_H
#define KEEL_COMMON_NLS_NLS_H

#include <cstdarg>
#include <cstdint>
#include <cstdio>

using nlsOutputFn = void (*)(const char *text);

/// Where texts go. A null routine is replaced by the default writer, which shows them in the agent
/// trace (class TR_NLS) and nowhere else.
struct nlsOutputFns {
    nlsOutputFn message;     // nlprintf
    nlsOutputFn information; // nlMessage, by severity: everything below a warning
    nlsOutputFn warning;     // ... W
    nlsOutputFn error;       // ... E and S, and what goes wrong in the repository itself
    nlsOutputFn prompt;
    nlsOutputFn progress;
    nlsOutputFn log;
    nlsOutputFn trace; // what the repository says about its own steps
    nlsOutputFn console;
};

/// The program on whose behalf texts are read; the value decides which catalogue is meant.
using cliType_t = int;
constexpr cliType_t cliTypeOracle = 9;

struct nlsReturnInfo_t {
    int rc;
    char path[1281]; // the repository last tried
};

constexpr int NLS_RC_OPEN = 2; // the English catalogue cannot be opened
constexpr int NLS_RC_NO_MEMORY = 102;
constexpr int NLS_RC_ARGUMENT = 610; // an empty or over-long argument

class nlsObject_t;

/// A flag of newNlsGlobalObject: the first start serves only until the settings are known. What it
/// has to say about the host's language is said when a text is asked for in it, and not at all when
/// nlterm comes first: the next start speaks for itself.
constexpr int NLS_PROVISIONAL_START = 1;

/// Creates the process's message object in place of an earlier one. fns may be null. Null when
/// there is no memory.
nlsObject_t *newNlsGlobalObject(const nlsOutputFns *fns, int flags) noexcept;
void destroyNlsGlobalObject() noexcept;
/// In a forked child: gives the object up as it is, without touching or freeing it.
void nlsForgetGlobalObject() noexcept;
nlsObject_t *getNlsGlobalObjectHandle() noexcept;

/// Replaces the error routine of the message object, if there is one; null brings back the default.
void nlsSetErrorRoutine(nlsOutputFn error) noexcept;

/// Opens the catalogues catalogDir/<language>/catalogName and sets the process's date, time and
/// number formats. 0 at once when the object is started already; end it with nlterm first to start
/// it anew. cacheLimit is the number of messages kept per language. info may be null.
int nlinit(const char *reposName, int cacheLimit, const char *catalogDir, cliType_t clientType,
           unsigned dateFormat, unsigned timeFormat, unsigned numberFormat, nlsReturnInfo_t *info,
           const char *catalogName) noexcept;

/// Closes the catalogues and forgets the messages read.
void nlterm() noexcept;

/// The repository's name on this platform, whatever the language: "velo.cat". out has room for
/// 1,280 characters.
void psNlsGetReposName(char *out, const char *language) noexcept;

/// Format a message in the user's language, or in English. out becomes a text that the caller gives
/// back with utFree; the result is its length. Without a text out is null and the result 0.
/// Arguments are passed in the order of the inserts' numbers, with exactly the types that the
/// English source names. Amounts (the flag "'" there) are grouped by the number format of nlinit,
/// and are plain digits in English, which programs read.
int nlsprintf(char *&out, int msgNum, ...) noexcept;
int nlvsprintf(char *&out, int msgNum, va_list arguments) noexcept;
int nlEngsprintf(char *&out, int msgNum, ...) noexcept;
int nlEngvsprintf(char *&out, int msgNum, va_list arguments) noexcept;

/// Format a message and hand it on: nlMessage to the routine for its severity, nlprintf to the
/// message routine, nlfprintf to a stream. They return the length, 0 without a text.
int nlMessage(int msgNum, ...) noexcept;
int nlprintf(int msgNum, ...) noexcept;
int nlfprintf(FILE *stream, int msgNum, ...) noexcept;

/// The codes of the severity letters.
enum nlsSeverity : std::uint8_t {
    nlsSevZ = 0, // the letters Z, T, R and L carry no identifier into the text
    nlsSevT = 1,
    nlsSevR = 2,
    nlsSevK = 3,
    nlsSevInformation = 4,
    nlsSevWarning = 5,
    nlsSevError = 6,
    nlsSevSevere = 7,
    nlsSevL = 8
};

/// The severity code of a message; 6 while the repository is not started or when it has no such
/// message, 255 when its lock cannot be released.
std::uint8_t nlGetMsgSev(int msgNum) noexcept;

#endif
