// Placing arguments into a message's text.
#ifndef KEEL_COMMON_NLS_NLSINSERTS_H
#define KEEL_COMMON_NLS_NLSINSERTS_H

#include <cstdarg>
#include <cstddef>
#include <string_view>

/// A printf-style conversion: %[flags][width][.precision][l|ll]letter, width and precision being
/// numbers up to 999 or asterisks. The flag "'" (with d, i and u) is of an amount: its digits are
/// grouped as the number format says.
struct nlsConversion {
    char flags[6]; // without "'"
    bool grouped;
    int width;     // -1: none
    int precision; // -1: none
    bool widthStar;
    bool precisionStar;
    int longs; // 0 to 2
    char letter;
};

/// False when the text is not exactly one such conversion with a letter of "cdeEfgGiopsuxX".
bool nlsParseConversion(std::string_view format, nlsConversion &out) noexcept;

/// Both take the same arguments from an argument list: number of asterisks, size and kind agree.
bool nlsSameArguments(const nlsConversion &a, const nlsConversion &b) noexcept;

/// The letter that stands for a conversion's kind in an insert table: s, c, n, f or p.
char nlsKindOf(const nlsConversion &conversion) noexcept;

/// What arguments a message of that number takes, compiled in: its conversions in the order of the
/// arguments, separated by commas ("%s,%llu"); null for a number that no source names.
const char *nlsArgumentTypes(int msgNum) noexcept;

/// Writes text with its inserts placed to out, cut to size - 1 bytes and terminated, and returns
/// the length. The first verbatim bytes are copied as they are. stored is the text, a NUL and the
/// insert table. The argument list is read by types alone; whatever in the stored form does not
/// agree with them, or is no insert of the message, shows as "?????". numberFormat (cutime.h) is
/// that of amounts.
std::size_t nlOrderInsert(char *out, std::size_t size, std::string_view stored,
                          std::size_t verbatim, const char *types, unsigned numberFormat,
                          va_list arguments) noexcept;

#endif
