// The message repository's entry points: locking, the built-in texts, and the output routines.
#include "common/nls/nls.h"

#include "common/cu/cutime.h"
#include "common/nls/nlsinserts.h"
#include "common/nls/nlsobject.h"
#include "common/string/ststring.h"
#include "common/thrd/psmutex.h"
#include "common/unx/pswrite.h"
#include "common/ut/utmem.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <new>

namespace
{
constexpr std::size_t maxReposName = 1280;
constexpr std::size_t maxDirectory = 1025;
constexpr std::size_t maxTextSize = 8192;
constexpr std::size_t identifierSize = 9; // "RBQ2503E " is never an insert
constexpr std::size_t spareBytes = 10;    // behind every text handed out
constexpr cliType_t firstAgentType = 9;
constexpr cliType_t lastAgentType = 11;

// Static, so that a message can be asked for before the object exists and after it was destroyed.
constinit psMutex_t reposLock;
constinit nlsObject_t *globalObject = nullptr; // guarded by reposLock

struct BuiltIn {
    int number;
    std::uint8_t severity;
    const char *text;
};

// The texts that are needed without a catalogue, and without memory for one.
constexpr BuiltIn builtIns[] = {
    {3, nlsSevSevere, "RBQ0003S An internal processing error has occurred"},
    {2522, nlsSevError, "RBQ2522E There is not enough system memory to complete command."},
};

const BuiltIn *findBuiltIn(int msgNum) noexcept
{
    for (const BuiltIn &known : builtIns)
        if (known.number == msgNum)
            return &known;
    return nullptr;
}

bool tooLong(const char *text, std::size_t limit) noexcept
{
    return text == nullptr || stLength(text, limit) == limit;
}

// Null without a message. While the repository is not started, a built-in text serves without a
// report: there is no catalogue that could lack it. The lock is held.
nlsMsg *lookUp(int msgNum, bool english) noexcept
{
    if (globalObject == nullptr || (!globalObject->isStarted() && findBuiltIn(msgNum) != nullptr))
        return nullptr;
    globalObject->english = english;
    return globalObject->GetMsg(msgNum);
}

// Formats into buffer. Returns the length, or -1 when the message has no text.
int formatText(char (&buffer)[maxTextSize], int msgNum, bool english, va_list arguments) noexcept
{
    psMutexGuard guard(reposLock);
    nlsMsg *message = lookUp(msgNum, english);
    if (message != nullptr)
        return static_cast<int>(nlOrderInsert(
            buffer, sizeof buffer, message->stored(),
            nlsKeepsIdentifier(message->severity) ? identifierSize : 0, nlsArgumentTypes(msgNum),
            english ? cuPlainNumbers : cuNumberFormat(), arguments));
    const BuiltIn *known = findBuiltIn(msgNum);
    if (known == nullptr)
        return -1;
    stCopy(buffer, known->text);
    return static_cast<int>(std::strlen(buffer));
}

int formatOwned(char *&out, int msgNum, bool english, va_list arguments) noexcept
{
    out = nullptr;
    char buffer[maxTextSize];
    const int length = formatText(buffer, msgNum, english, arguments);
    if (length <= 0)
        return 0;
    const auto size = static_cast<std::size_t>(length);
    out = static_cast<char *>(utCalloc(1, size + spareBytes));
    if (out == nullptr)
        return 0;
    std::memcpy(out, buffer, size);
    return length;
}

// Checks the lengths and opens the catalogues of the client type for the host's language.
int NlinitSetup(const char *reposName, int cacheLimit, const char *catalogDir,
                const char *catalogName) noexcept
{
    if (tooLong(reposName, maxReposName) || tooLong(catalogDir, maxDirectory))
        return NLS_RC_ARGUMENT;
    const bool agent =
        globalObject->clientType >= firstAgentType && globalObject->clientType <= lastAgentType;
    return globalObject->initMsgSys({catalogDir, agent ? catalogName : nullptr, cacheLimit,
                                     std::setlocale(LC_MESSAGES, nullptr), nl_langinfo(CODESET)});
}

nlsOutputFn routineFor(const nlsOutputFns &fns, std::uint8_t severity) noexcept
{
    switch (severity) {
    case nlsSevError:
    case nlsSevSevere:
        return fns.error;
    case nlsSevWarning:
        return fns.warning;
    default:
        return fns.information;
    }
}
} // namespace

nlsObject_t *newNlsGlobalObject(const nlsOutputFns *fns, int flags) noexcept
{
    psMutexGuard guard(reposLock);
    destroyNlsGlobalObject();
    void *room = utMalloc(sizeof(nlsObject_t));
    if (room != nullptr)
        globalObject = new (room) nlsObject_t(fns);
    if (globalObject != nullptr)
        globalObject->provisional = (flags & NLS_PROVISIONAL_START) != 0;
    return globalObject;
}

void destroyNlsGlobalObject() noexcept
{
    psMutexGuard guard(reposLock);
    if (globalObject == nullptr)
        return;
    globalObject->~nlsObject_t();
    utFree(globalObject);
    globalObject = nullptr;
}

void nlsForgetGlobalObject() noexcept
{
    psMutexGuard guard(reposLock);
    globalObject = nullptr;
}

nlsObject_t *getNlsGlobalObjectHandle() noexcept
{
    psMutexGuard guard(reposLock);
    return globalObject;
}

void nlsSetErrorRoutine(nlsOutputFn error) noexcept
{
    psMutexGuard guard(reposLock);
    if (globalObject != nullptr)
        globalObject->fns.error = error;
}

int nlinit(const char *reposName, int cacheLimit, const char *catalogDir, cliType_t clientType,
           unsigned dateFormat, unsigned timeFormat, unsigned numberFormat, nlsReturnInfo_t *info,
           const char *catalogName) noexcept
{
    psMutexGuard guard(reposLock);
    if (info != nullptr)
        *info = {NLS_RC_ARGUMENT, ""};
    if (reposName == nullptr || *reposName == '\0')
        return NLS_RC_ARGUMENT;
    cuSetFormats(dateFormat, timeFormat, numberFormat);
    if (globalObject == nullptr)
        return NLS_RC_NO_MEMORY; // no object: there was no memory for it, or none was made
    globalObject->clientType = clientType;
    const int rc =
        globalObject->isStarted() ? 0 : NlinitSetup(reposName, cacheLimit, catalogDir, catalogName);
    if (info != nullptr) {
        info->rc = rc;
        stCopy(info->path, globalObject->path());
    }
    return rc;
}

void nlterm() noexcept
{
    psMutexGuard guard(reposLock);
    if (globalObject != nullptr)
        globalObject->stop();
}

void psNlsGetReposName(char *out, const char *) noexcept
{
    stCopy(out, maxReposName, "velo.cat");
}

int nlvsprintf(char *&out, int msgNum, va_list arguments) noexcept
{
    return formatOwned(out, msgNum, false, arguments);
}

int nlEngvsprintf(char *&out, int msgNum, va_list arguments) noexcept
{
    return formatOwned(out, msgNum, true, arguments);
}

int nlsprintf(char *&out, int msgNum, ...) noexcept
{
    va_list arguments;
    va_start(arguments, msgNum);
    const int length = nlvsprintf(out, msgNum, arguments);
    va_end(arguments);
    return length;
}

int nlEngsprintf(char *&out, int msgNum, ...) noexcept
{
    va_list arguments;
    va_start(arguments, msgNum);
    const int length = nlEngvsprintf(out, msgNum, arguments);
    va_end(arguments);
    return length;
}

int nlMessage(int msgNum, ...) noexcept
{
    char text[maxTextSize];
    va_list arguments;
    va_start(arguments, msgNum);
    const int length = formatText(text, msgNum, false, arguments);
    va_end(arguments);
    if (length <= 0)
        return 0;
    const std::uint8_t severity = nlGetMsgSev(msgNum);
    psMutexGuard guard(reposLock);
    const nlsOutputFns fns = globalObject != nullptr ? globalObject->fns : nlsOutputFns{};
    nlsRoutine(routineFor(fns, severity))(text);
    return length;
}

int nlprintf(int msgNum, ...) noexcept
{
    char text[maxTextSize];
    va_list arguments;
    va_start(arguments, msgNum);
    const int length = formatText(text, msgNum, false, arguments);
    va_end(arguments);
    if (length <= 0)
        return 0;
    psMutexGuard guard(reposLock);
    nlsRoutine(globalObject != nullptr ? globalObject->fns.message : nullptr)(text);
    return length;
}

int nlfprintf(FILE *stream, int msgNum, ...) noexcept
{
    char text[maxTextSize];
    va_list arguments;
    va_start(arguments, msgNum);
    const int length = formatText(text, msgNum, false, arguments);
    va_end(arguments);
    const psWriteGuard guard;
    return length > 0 && stream != nullptr && std::fputs(text, stream) >= 0 ? length : 0;
}

std::uint8_t nlGetMsgSev(int msgNum) noexcept
{
    if (reposLock.lock() != 0)
        return UINT8_MAX;
    std::uint8_t severity = nlsSevError;
    if (globalObject != nullptr && globalObject->isStarted()) {
        const nlsMsg *message = lookUp(msgNum, false);
        const BuiltIn *known = findBuiltIn(msgNum);
        if (message != nullptr)
            severity = message->severity;
        else if (known != nullptr)
            severity = known->severity;
    }
    return reposLock.unlock() == 0 ? severity : std::uint8_t{UINT8_MAX};
}
