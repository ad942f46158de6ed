// The process's message object.
#include "common/nls/nlsobject.h"

#include "common/string/ststring.h"
#include "common/ut/trace.h"
#include "common/ut/utmem.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace
{
constexpr const char *clientFile = "hoxclientV3.cat";
constexpr std::size_t maxPathLength = 1279;

void outDeflt(const char *text) noexcept
{
    KEEL_TRACE(TR_NLS, "%s", text);
}
} // namespace

nlsOutputFn nlsRoutine(nlsOutputFn routine) noexcept
{
    return routine != nullptr ? routine : outDeflt;
}

nlsObject_t::nlsObject_t(const nlsOutputFns *given) noexcept
    : fns(given != nullptr ? *given : nlsOutputFns{})
{
}

void nlsObject_t::report(const char *format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(errorText, sizeof errorText, format, arguments);
    va_end(arguments);
    KEEL_TRACE(TR_NLS, "%s", errorText);
    if (holding)
        stCopy(heldText, errorText);
    else
        deliver(errorText);
}

void nlsObject_t::deliver(const char *text) noexcept
{
    if (reporting || fns.error == nullptr)
        return;
    reporting = true;
    fns.error(text);
    reporting = false;
}

bool nlsObject_t::tryCat(nlsCatalogue_t &catalogue, const char *directory, const char *language,
                         const char *file) noexcept
{
    std::snprintf(reposPath, sizeof reposPath, "%s/%s/%s", directory, language, file);
    return catalogue.open(reposPath);
}

int nlsObject_t::openCat(nlsCatalogue_t &catalogue, const char *directory, const char *language,
                         const char *file) noexcept
{
    if (file == nullptr || *file == '\0')
        file = clientFile;
    if (std::strlen(directory) + std::strlen(language) +
            std::max(std::strlen(file), std::strlen(clientFile)) + 2 >
        maxPathLength) {
        KEEL_TRACE(TR_NLS, "openCat(): The passed arguments are too long\n");
        return NLS_RC_OPEN;
    }
    if (tryCat(catalogue, directory, language, file))
        return 0;
    char fallback[nlsLanguageSize];
    if (!nlsFallbackLanguage(language, fallback))
        KEEL_TRACE(TR_NLS, "Language specification \"%s\" not found, substituting US English\n",
                   language);
    return tryCat(catalogue, directory, fallback, file) ? 0 : NLS_RC_OPEN;
}

int nlsObject_t::initMsgSys(const nlsSetup &setup) noexcept
{
    engCache.setLimit(setup.cacheLimit);
    localCache.setLimit(setup.cacheLimit);
    const int rc = openCat(engCatalogue, setup.directory, nlsEnglish, setup.file);
    if (rc != 0)
        return rc;
    holding = provisional;
    openLocal(setup);
    holding = provisional = false;
    initialised = true;
    return 0;
}

void nlsObject_t::openLocal(const nlsSetup &setup) noexcept
{
    char language[nlsLanguageSize];
    nlsLanguageOfLocale(setup.locale, language);
    localIsEnglish = true;
    converting = false;
    if (std::strcmp(language, nlsEnglish) == 0)
        return;
    if (!nlsIsEnglish(language) && !stEqualNoCase(setup.codeSet, "UTF-8")) {
        converting = converter.open(setup.codeSet);
        if (!converting) {
            report("RBS0121W Unable to open the iconv converter for the message repository %s. The "
                   "American English repository will be used instead.\n",
                   language);
            return;
        }
    }
    localIsEnglish = openCat(localCatalogue, setup.directory, language, setup.file) != 0;
    if (localIsEnglish)
        report("RBS0102W Unable to open the message repository %s. The American English repository "
               "will be used instead.\n",
               reposPath);
}

void nlsObject_t::stop() noexcept
{
    initialised = false;
    localIsEnglish = true;
    converting = false;
    engCatalogue.close();
    localCatalogue.close();
    engCache.clear();
    localCache.clear();
    converter.close();
    heldText[0] = '\0';
}

nlsMsg *nlsObject_t::GetMsg(int msgNum) noexcept
{
    if (!english && heldText[0] != '\0') {
        deliver(heldText);
        heldText[0] = '\0';
    }
    const bool fromEnglish = english || localIsEnglish;
    english = false;
    if (msgNum < 0 || msgNum > UINT16_MAX)
        return nullptr;
    const auto number = static_cast<std::uint16_t>(msgNum);
    nlsMsgCache_t &cache = fromEnglish ? engCache : localCache;
    nlsMsg *message = cache.find(number);
    if (message != nullptr)
        return message;
    message = ReadMsg(number, fromEnglish, !fromEnglish);
    if (message == nullptr && !fromEnglish)
        message = ReadMsg(number, true, false);
    if (message != nullptr)
        cache.add(message);
    return message;
}

nlsMsg *nlsObject_t::ReadMsg(std::uint16_t number, bool fromEnglish, bool quietly) noexcept
{
    const nlsCatalogue_t &catalogue = fromEnglish ? engCatalogue : localCatalogue;
    if (!catalogue.isOpen()) {
        report("Cannot get an NLS message due to catalog file is closed\n");
        return nullptr;
    }
    char absent[80];
    std::snprintf(absent, sizeof absent, "RBS1111M Error retrieving message %d from %s.\n", number,
                  clientFile);
    const char *stored = catalogue.get(number, absent);
    nlsMsg *message = nullptr;
    nlsMsgResult result = nlsMsgResult::refused;
    if (stored != absent)
        result =
            nlsMakeMsg(number, stored, !fromEnglish && converting ? &converter : nullptr, &message);
    if (result == nlsMsgResult::made)
        return message;
    if (quietly) // the English text serves; when that is missing too, its own lookup reports it
        KEEL_TRACE(TR_NLS, "Message %d is not in the local repository\n", number);
    else if (result == nlsMsgResult::noMemory)
        report("RBS0109E Insufficient memory for allocation of message structure.\n");
    else if (result == nlsMsgResult::corrupted)
        report("Message %d of the message repository %s is corrupted\n", number, reposPath);
    else
        report("RBS9999E %s(%u): Message No %u could not be found.\n", "nlsobject.cpp",
               static_cast<unsigned>(__LINE__), static_cast<unsigned>(number));
    return nullptr;
}
