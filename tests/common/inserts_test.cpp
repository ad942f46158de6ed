// Inserts: what a catalogue may ask for, and what a hostile one gets.
#include "common/nls/nlsinserts.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
struct InsertCase {
    const char *what;
    std::string stored; // {0} is a NUL, {1} the marker
    std::string expected;
};

std::string withBytes(std::string text)
{
    for (std::size_t at; (at = text.find("{0}")) != std::string::npos;)
        text.replace(at, 3, 1, '\0');
    for (std::size_t at; (at = text.find("{1}")) != std::string::npos;)
        text.replace(at, 3, 1, '\x11');
    return text;
}

std::string place(const std::string &stored, const char *types, ...)
{
    char out[200];
    va_list arguments;
    va_start(arguments, types);
    const std::size_t length =
        nlOrderInsert(out, sizeof out, withBytes(stored), 0, types, 1, arguments);
    va_end(arguments);
    EXPECT_EQ(length, std::char_traits<char>::length(out));
    return out;
}

TEST(Inserts, ArePlacedByNumberAndShownAsTheCatalogueSays)
{
    const InsertCase cases[] = {
        {"in order", "{1}1 of {1}2{0}21s%s{0}2n%d{0}", "piece of -7"},
        {"the other way round", "{1}2: {1}1, {1}2{0}21s%s{0}2n%d{0}", "-7: piece, -7"},
        {"one left out", "only {1}2{0}21s%s{0}2n%d{0}", "only -7"},
        {"widths", "[{1}1][{1}2]{0}21s%-7.3s{0}2n%05d{0}", "[pie    ][-0007]"},
        {"as hexadecimal, not widened", "{1}2{0}12n%x{0}", "fffffff9"},
    };
    for (const InsertCase &one : cases)
        EXPECT_EQ(place(one.stored, "%s,%d", "piece", -7), one.expected) << one.what;
    EXPECT_EQ(place("{1}1{0}11n%*.*d{0}", "%*.*d", 6, 3, 42), "   042");
    EXPECT_EQ(place("{1}1{0}11n%-*d{0}|", "%*d", 4, 42), "42  ");
    EXPECT_EQ(place("{1}1{0}11n%llu{0}", "%llu", ~0ULL), "18446744073709551615");
    EXPECT_EQ(place("{1}1{0}11n%'llu{0}", "%llu", ~0ULL), "18,446,744,073,709,551,615");
    EXPECT_EQ(place("{1}1{0}11n%'-8d{0}|", "%d", -1234), "-1,234  ");
    EXPECT_EQ(place("{1}1{0}11n%'x{0}", "%x", 1234), "?????");
    EXPECT_EQ(place("{1}1{0}11f%.2f{0}", "%f", 1.005e3), "1005.00");
    EXPECT_EQ(place("{1}1{0}11s%s{0}", "%s", static_cast<const char *>(nullptr)), "(null)");
}

TEST(Inserts, ThatTheMessageDoesNotHaveShowQuestionMarks)
{
    const InsertCase cases[] = {
        {"no table", "a {1}1 b", "a ????? b"},
        {"empty table", "a {1}1 b{0}", "a ????? b"},
        {"count too low", "{1}1{1}2{0}11s%s{0}2n%d{0}", "piece?????"},
        {"count too high", "{1}1{1}2{0}91s%s{0}2n%d{0}", "piece-7"},
        {"count absurd",
         "{1}1{0}\xFF"
         "1s%s{0}",
         "?????"},
        {"argument beyond the message", "{1}3{0}33s%s{0}", "?????"},
        {"marker at the end", "{1}", "?????"},
        {"marker of argument 0", "{1}0{0}10s%s{0}", "?????"},
        {"table cut short", "{1}1{0}11s", "?????"},
        {"writes to memory", "{1}1{0}11s%n{0}", "?????"},
        {"a number shown as a text", "{1}2{0}12s%s{0}", "?????"},
        {"kind and conversion disagree", "{1}2{0}12n%s{0}", "?????"},
        {"another size", "{1}2{0}12n%lld{0}", "?????"},
        {"an asterisk too many", "{1}1{0}11s%*s{0}", "?????"},
        {"two conversions", "{1}1{0}11s%s%s{0}", "?????"},
        {"absurd width", "{1}1{0}11s%999999999s{0}", "?????"},
        {"unknown conversion", "{1}2{0}12n%y{0}", "?????"},
        {"reads by position", "{1}1{0}11s%9$s{0}", "?????"},
        {"flags without end", "{1}1{0}11s%-------s{0}", "?????"},
    };
    for (const InsertCase &one : cases)
        EXPECT_EQ(place(one.stored, "%s,%d", "piece", -7), one.expected) << one.what;
    EXPECT_EQ(place("{1}1{0}11s%s{0}", nullptr), "?????") << "a number that no source names";
}

TEST(Inserts, AreCutAtTheBuffer)
{
    const std::string text(500, 'x');
    EXPECT_EQ(place("a{1}1{0}11s%s{0}", "%s", text.c_str()).size(), 199U);
    EXPECT_EQ(place("{1}1{0}11s%999s{0}", "%s", "y"), std::string(199, ' '));
    EXPECT_EQ(place(text, ""), text.substr(0, 199));
}
} // namespace
