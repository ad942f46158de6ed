// The process's message object: catalogues, caches, language and output routines.
//
// Internal to the message repository; other units include nls.h. The caller holds the one
// repository lock, which guards all members; the entry points in nls.cpp take it around every call.
#ifndef KEEL_COMMON_NLS_NLSOBJECT_H
#define KEEL_COMMON_NLS_NLSOBJECT_H

#include "common/nls/nlscatalogue.h"
#include "common/nls/nlslanguage.h"
#include "common/nls/nlsmsg.h"
#include "common/nls/nlswords.h"

/// The checked arguments of nlinit. The texts need to live during initMsgSys only.
struct nlsSetup {
    const char *directory;
    const char *file; // null: the storage client's own
    int cacheLimit;
    const char *locale;  // the host's name for the language of messages; null: none
    const char *codeSet; // the host's code set
};

class nlsObject_t
{
public:
    explicit nlsObject_t(const nlsOutputFns *given) noexcept;

    /// Opens the catalogues of an object that is not started. Returns 0, or NLS_RC_OPEN with
    /// nothing open when there is no English one. A language that cannot be served is reported, and
    /// English serves.
    int initMsgSys(const nlsSetup &setup) noexcept;
    /// Closes the catalogues, forgets the messages and a report that was held back.
    void stop() noexcept;
    bool isStarted() const noexcept { return initialised; }

    /// Returns the message in the language that the flag `english` names, and clears the flag. The
    /// cache owns the message; it is valid until the next call. Null when the message is missing or
    /// damaged in English too, which is reported.
    nlsMsg *GetMsg(int msgNum) noexcept;

    /// Hands a text about the repository itself to the error routine and to the trace, cut at 1,599
    /// bytes. A report that is made while that routine runs reaches the trace only.
    void report(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

    /// The path of the catalogue last tried; "" before the first.
    const char *path() const noexcept { return reposPath; }

    nlsOutputFns fns;
    bool english = false;     // for the next lookup; cleared by it
    bool provisional = false; // the next start holds back what it says; cleared by it
    cliType_t clientType = 0;

private:
    int openCat(nlsCatalogue_t &catalogue, const char *directory, const char *language,
                const char *file) noexcept;
    bool tryCat(nlsCatalogue_t &catalogue, const char *directory, const char *language,
                const char *file) noexcept;
    void openLocal(const nlsSetup &setup) noexcept;
    void deliver(const char *text) noexcept;
    nlsMsg *ReadMsg(std::uint16_t number, bool fromEnglish, bool quietly) noexcept;

    bool initialised = false;
    bool localIsEnglish = true;
    bool converting = false;
    bool reporting = false;
    bool holding = false;
    nlsCatalogue_t engCatalogue;
    nlsCatalogue_t localCatalogue;
    nlsMsgCache_t engCache;
    nlsMsgCache_t localCache;
    nlsConverter_t converter;
    char reposPath[1281] = "";
    char errorText[1600] = "";
    char heldText[1600] = ""; // of a provisional start
};

/// Returns routine, or the default writer for a null one.
nlsOutputFn nlsRoutine(nlsOutputFn routine) noexcept;

#endif
