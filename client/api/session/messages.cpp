// The texts of return codes: the English ones built in, and the catalogue of the host's language.
//
// Numbers once given are never used for anything else.
#include "client/api/session/messages.h"

#include "client/include/hoxapi.h"
#include "common/nls/nlsobject.h"
#include "keel_paths.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>

namespace arca::api
{

namespace
{

constexpr const char *kCatalogues = KEEL_CLIENT_ROOT "/api/bin64";

struct Message {
    int number;
    char severity;
    const char *sentence;
};

constexpr Message kMessages[] = {
#include "hoxclient_texts.inc"
};

/// Returns the number of a code's message, or 0 for a code without one: a catalogue's numbers begin
/// at 1.
constexpr int messageNumber(std::int16_t code)
{
    constexpr int numberOfSuccess = 10000;
    if (code == HOX_RC_OK)
        return numberOfSuccess;
    if (code == HOX_RC_RETRY_SESSION)
        return -HOX_RC_RETRY_SESSION;
    return code > 0 && code < numberOfSuccess && code != -HOX_RC_RETRY_SESSION ? code : 0;
}

const Message *find(std::int16_t code)
{
    const int number = messageNumber(code);
    for (const Message &message : kMessages)
        if (message.number == number)
            return &message;
    return nullptr;
}

} // namespace

std::string messageIdentifier(std::int16_t code)
{
    // Four digits, whatever the code: the records have no room for more.
    const int number = std::abs(static_cast<int>(code)) % 10000;
    const Message *known = find(code);
    char identifier[16];
    std::snprintf(identifier, sizeof identifier, "RBS%04d%c", number,
                  known == nullptr ? 'E' : known->severity);
    return identifier;
}

std::string messageSentence(std::int16_t code)
{
    if (const Message *known = find(code))
        return known->sentence;
    return "The storage client has no text for the return code " + std::to_string(code) + ".";
}

std::string messageInHostLanguage(std::int16_t code)
{
    const char *locale = std::setlocale(LC_MESSAGES, nullptr);
    char language[nlsLanguageSize];
    nlsLanguageOfLocale(locale, language);
    const Message *known = find(code);
    if (known == nullptr || std::strcmp(language, nlsEnglish) == 0)
        return {};
    // Opened for this one message: nothing stays open when the host closes this library, and the
    // locale may change between two messages.
    nlsObject_t catalogues(nullptr);
    if (catalogues.initMsgSys({kCatalogues, nullptr, 1, locale, nl_langinfo(CODESET)}) != 0)
        return {};
    nlsMsg *message = catalogues.GetMsg(known->number);
    std::string text = message == nullptr ? "" : message->text();
    return text.ends_with(known->sentence) ? std::string() : text;
}

} // namespace arca::api
