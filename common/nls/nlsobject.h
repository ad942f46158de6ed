// The process's message object: catalogues, caches, language and output routines.
//
// Internal to the message repository; everybody else includes nls.h. All members are guarded by
// the one repository lock, which the entry points in nls.cpp hold around every call.
#ifndef KEEL_COMMON_NLS_NLSOBJECT_H
#define KEEL_COMMON_NLS_NLSOBJECT_H

#include "common/nls/nls.h"
#include "common/nls/nlscatalogue.h"
#include "common/nls/nlslanguage.h"
#include "common/nls/nlsmsg.h"

/// What nlinit was given, checked.
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

    /// Opens the catalogues. 0, or NLS_RC_OPEN with nothing open.
    int initMsgSys(const nlsSetup &setup) noexcept;
    void stop() noexcept;
    bool isStarted() const noexcept { return initialised; }

    /// The message in the language that the English flag names, or null. It is the cache's, good
    /// until the next call.
    nlsMsg *GetMsg(int msgNum) noexcept;

    /// Hands a text about the repository itself to the error routine and to the trace. What goes
    /// wrong while that routine runs only reaches the trace.
    void report(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

    /// The repository last tried.
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

/// The routine itself, or the default writer in place of a null one.
nlsOutputFn nlsRoutine(nlsOutputFn routine) noexcept;

#endif
