// Which catalogue directory serves the host's locale, and the conversion to its code set.
#ifndef KEEL_COMMON_NLS_NLSLANGUAGE_H
#define KEEL_COMMON_NLS_NLSLANGUAGE_H

#include <cstddef>
#include <iconv.h>
#include <string_view>

constexpr std::size_t nlsLanguageSize = 64;
constexpr const char *nlsEnglish = "EN_US";

/// Writes the language of a locale's name, upper-cased, code set included: "DE_DE.UTF-8". No name,
/// "C" in any code set, and a name that cannot be a directory's are English.
void nlsLanguageOfLocale(const char *locale, char (&language)[nlsLanguageSize]) noexcept;

/// What to try when there is no directory of that very name: the name without its code set and its
/// modifier ("@euro"), with two letters spelled out by the table of languages, and American English
/// for English of any country. False when a two-letter name is not in the table; fallback is
/// English then.
bool nlsFallbackLanguage(const char *language, char (&fallback)[nlsLanguageSize]) noexcept;

/// English of any country: the repository's own texts serve, and need no conversion.
bool nlsIsEnglish(std::string_view language) noexcept;

/// Converts the repository's UTF-8 to the code set of the host's locale.
class nlsConverter_t
{
public:
    nlsConverter_t() noexcept = default;
    ~nlsConverter_t() { close(); }
    nlsConverter_t(const nlsConverter_t &) = delete;
    nlsConverter_t &operator=(const nlsConverter_t &) = delete;

    /// False when this host cannot convert to that code set.
    bool open(const char *codeSet) noexcept;
    void close() noexcept;

    /// Writes at most size bytes and returns how many; what the code set lacks becomes a question
    /// mark. Not terminated.
    std::size_t convert(char *out, std::size_t size, std::string_view text) noexcept;

private:
    static iconv_t none() noexcept { return reinterpret_cast<iconv_t>(-1); }

    iconv_t handle = none();
};

#endif
