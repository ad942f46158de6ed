// Placing arguments into a message's text. No shared state; any thread.
#ifndef KEEL_COMMON_NLS_NLSINSERTS_H
#define KEEL_COMMON_NLS_NLSINSERTS_H

#include <cstdarg>
#include <cstddef>
#include <string_view>

/// A printf-style conversion: %[flags][width][.precision][l|ll]letter, width and precision being
/// numbers up to 999 or asterisks. The flag "'" (with d, i and u) marks an amount, whose digits are
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

/// Parses format into out. Returns false when the text is not exactly one such conversion with a
/// letter of "cdeEfgGiopsuxX"; out may be partly set then.
bool nlsParseConversion(std::string_view format, nlsConversion &out) noexcept;

/// Returns true when both take the same arguments from an argument list: asterisks, size and kind
/// agree.
bool nlsSameArguments(const nlsConversion &a, const nlsConversion &b) noexcept;

/// Returns the letter of a conversion's kind in an insert table: s text, c character, n integer, f
/// floating point, p pointer.
char nlsKindOf(const nlsConversion &conversion) noexcept;

/// Returns what arguments the message takes, as compiled in: its conversions in the order of the
/// arguments, separated by commas ("%s,%llu"). A constant; null for a number that no source names.
const char *nlsArgumentTypes(int msgNum) noexcept;

/// Writes the text of a message with its inserts placed to out, cut silently to size - 1 bytes and
/// terminated, and returns the length. The first verbatim bytes are copied without looking for
/// inserts. stored is the text, a NUL and the insert table. The argument list is read by types
/// alone (null: no arguments); an insert that does not agree with them shows as "?????".
/// numberFormat (cutime.h) is that of amounts.
std::size_t nlOrderInsert(char *out, std::size_t size, std::string_view stored,
                          std::size_t verbatim, const char *types, unsigned numberFormat,
                          va_list arguments) noexcept;

#endif
