// Which catalogue directory serves the host's locale, and the conversion to its code set. The
// functions have no state; a converter is used by one thread at a time (the repository's lock).
#ifndef KEEL_COMMON_NLS_NLSLANGUAGE_H
#define KEEL_COMMON_NLS_NLSLANGUAGE_H

#include <cstddef>
#include <iconv.h>
#include <string_view>

constexpr std::size_t nlsLanguageSize = 64;
constexpr const char *nlsEnglish = "EN_US";

/// Writes the language of a locale's name, upper-cased, code set included: "DE_DE.UTF-8". A null or
/// empty name, "C" or "POSIX" in any code set, a name with a slash and one that is too long give
/// nlsEnglish.
void nlsLanguageOfLocale(const char *locale, char (&language)[nlsLanguageSize]) noexcept;

/// Writes the directory to try when there is none of the language's full name: the name without its
/// code set and its modifier ("@euro"); for two letters the name that the table of languages gives;
/// nlsEnglish for English of any country. Returns false when a two-letter name is not in the table;
/// fallback is nlsEnglish then.
bool nlsFallbackLanguage(const char *language, char (&fallback)[nlsLanguageSize]) noexcept;

/// Returns true for English of any country, for which the English texts serve unconverted.
bool nlsIsEnglish(std::string_view language) noexcept;

/// Converts the repository's UTF-8 to the code set of the host's locale.
class nlsConverter_t
{
public:
    nlsConverter_t() noexcept = default;
    ~nlsConverter_t() { close(); }
    nlsConverter_t(const nlsConverter_t &) = delete;
    nlsConverter_t &operator=(const nlsConverter_t &) = delete;

    /// Closes an earlier conversion. Returns false, and nothing is open, when this host cannot
    /// convert to that code set.
    bool open(const char *codeSet) noexcept;
    void close() noexcept;

    /// Writes at most size bytes, not terminated, and returns the number written; what does not fit
    /// is cut silently. A character that the code set lacks becomes a similar one where the host
    /// knows one, else a question mark. Without an open conversion the text is copied as it is.
    std::size_t convert(char *out, std::size_t size, std::string_view text) noexcept;

private:
    static iconv_t none() noexcept { return reinterpret_cast<iconv_t>(-1); }

    iconv_t handle = none();
};

#endif
