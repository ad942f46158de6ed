// Languages: from the host's locale to a catalogue directory and a code set.
#include "common/nls/nlslanguage.h"

#include "common/string/ststring.h"

#include <cerrno>
#include <cstring>

namespace
{
struct LanguageRow {
    std::string_view two;
    std::string_view five;
};

constexpr LanguageRow lang2To5[] = {
    {"CZ", "CS_CZ"}, {"DE", "DE_DE"}, {"EN", "EN_US"}, {"ES", "ES_ES"}, {"FR", "FR_FR"},
    {"HU", "HU_HU"}, {"IT", "IT_IT"}, {"JA", "JA_JP"}, {"KO", "KO_KR"}, {"PL", "PL_PL"},
    {"PT", "PT_BR"}, {"RU", "RU_RU"}, {"ZH", "ZH_CN"},
};
} // namespace

void nlsLanguageOfLocale(const char *locale, char (&language)[nlsLanguageSize]) noexcept
{
    const std::string_view name = locale == nullptr ? "" : locale;
    const std::string_view bare = name.substr(0, name.find_first_of(".@"));
    if (bare.empty() || bare == "C" || bare == "POSIX" ||
        name.find('/') != std::string_view::npos || !stCopy(language, name)) {
        stCopy(language, nlsEnglish);
        return;
    }
    stUpperAscii(language);
}

bool nlsIsEnglish(std::string_view language) noexcept
{
    return stEqualNoCase(language.substr(0, 2), "EN") &&
           (language.size() == 2 ||
            std::string_view("_.@").find(language[2]) != std::string_view::npos);
}

bool nlsFallbackLanguage(const char *language, char (&fallback)[nlsLanguageSize]) noexcept
{
    const std::string_view name = language;
    if (stEqualNoCase(name, "ZH_TW.BIG5")) {
        stCopy(fallback, "Zh_TW");
        return true;
    }
    const std::string_view bare = name.substr(0, name.find_first_of(".@"));
    stCopy(fallback, nlsIsEnglish(bare) ? nlsEnglish : bare);
    if (bare.size() != 2)
        return true;
    for (const LanguageRow &row : lang2To5) {
        if (row.two == bare) {
            stCopy(fallback, row.five);
            return true;
        }
    }
    stCopy(fallback, nlsEnglish);
    return false;
}

bool nlsConverter_t::open(const char *codeSet) noexcept
{
    close();
    char target[80];
    // Where the host can transliterate, "ae" for an umlaut is better than a question mark.
    if (stCopy(target, codeSet) && stAppend(target, "//TRANSLIT"))
        handle = iconv_open(target, "UTF-8");
    if (handle == none())
        handle = iconv_open(codeSet, "UTF-8");
    return handle != none();
}

void nlsConverter_t::close() noexcept
{
    if (handle != none())
        iconv_close(handle);
    handle = none();
}

std::size_t nlsConverter_t::convert(char *out, std::size_t size, std::string_view text) noexcept
{
    if (handle == none())
        return text.copy(out, size);
    char *in = const_cast<char *>(text.data());
    std::size_t inLeft = text.size();
    char *at = out;
    std::size_t left = size;
    iconv(handle, nullptr, nullptr, nullptr, nullptr);
    while (inLeft > 0 && left > 0) {
        if (iconv(handle, &in, &inLeft, &at, &left) != static_cast<std::size_t>(-1))
            break;
        if (errno == E2BIG)
            break;
        *at++ = '?';
        --left;
        // Skip the whole character, so that it gives one question mark.
        do {
            ++in;
            --inLeft;
        } while (inLeft > 0 && (static_cast<unsigned char>(*in) & 0xC0U) == 0x80);
    }
    iconv(handle, nullptr, nullptr, &at,
          &left); // a code set with shift states must end in the initial one
    return static_cast<std::size_t>(at - out);
}
