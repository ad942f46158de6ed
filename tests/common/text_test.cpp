// Texts: formats without arguments, bounded strings, UTF-8, dates and numbers.
#include "common/cu/cu64.h"
#include "common/cu/cutime.h"
#include "common/string/ststring.h"
#include "common/string/stwide.h"
#include "common/ut/utnoargs.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
TEST(FormatWithoutArguments, PrintsWhatAFormatterWouldAndReadsNothing)
{
    const char *const cases[][2] = {
        {"plain\n", "plain\n"},
        {"100%% sure", "100% sure"},
        {"%s%n%d", ""},
        {"a%-08.3lldb", "ab"},
        {"%1$*2$sx", "x"},
        {"end%", "end%"},
        {"%5%x", "x"},
        {"50% of", "50f"},
        {"%%%s%%", "%%"},
        {"%hhnname", "name"},
        {"(25.50%) %", "(25.50%) %"},
        {"%-)s", "%-)s"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(utFormatNoArgs(one[0]), one[1]) << one[0];
        char small[4];
        const std::size_t length = utFormatNoArgs(small, sizeof small, one[0]);
        EXPECT_EQ(std::string(small, length), std::string(one[1]).substr(0, 3)) << one[0];
    }
}

TEST(BoundedStrings, CutAndSaySo)
{
    char text[6] = "";
    EXPECT_TRUE(stCopy(text, "12345"));
    EXPECT_FALSE(stCopy(text, "123456"));
    EXPECT_STREQ(text, "12345");
    EXPECT_FALSE(stAppend(text, "6"));
    EXPECT_TRUE(stCopy(text, "ab \r"));
    stTrimRight(text);
    EXPECT_TRUE(stAppend(text, "cde"));
    stUpperAscii(text);
    EXPECT_STREQ(text, "ABCDE");
    char full[3] = {'x', 'y', 'z'};
    EXPECT_FALSE(stAppend(full, "1")) << "a text without its terminator";
    EXPECT_STREQ(full, "xy");
}

TEST(Utf8, RoundTripsAndMarksWhatIsNone)
{
    const struct {
        std::string bytes;
        std::wstring wide;
    } cases[] = {
        {"aä€𝄞", L"aä€\U0001D11E"},
        {"\xC0\xAF", L"\xFFFD\xFFFD"},
        {"\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},
        {"\xE2\x82", L"\xFFFD\xFFFD"},
        {"a\xF8z", L"a\xFFFDz"},
        {"\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
    };
    for (const auto &one : cases) {
        wchar_t wide[16];
        EXPECT_EQ(std::wstring(wide, stWideFromUtf8(wide, 16, one.bytes)), one.wide) << one.bytes;
    }
    char narrow[8];
    EXPECT_EQ(stUtf8FromWide(narrow, sizeof narrow, cases[0].wide), 6U);
    EXPECT_STREQ(narrow, "aä€") << "no half character";
}

TEST(Narrow, BecomesOneLineOfALog)
{
    const struct {
        std::string text;
        std::size_t limit;
        std::string line;
    } cases[] = {
        {"a b\\ä", 9, "a b\\ä"}, {std::string("\n\r\t\0\x7f", 5), 99, "\\n\\r\\t\\x00\\x7f"},
        {"abc", 3, "abc"},       {"abcd", 3, "abc..."},
        {"abä", 3, "ab..."},     {"", 0, ""},
    };
    for (const auto &one : cases)
        EXPECT_EQ(stOneLine(one.text, one.limit), one.line);
}

TEST(Times, OfUtcAreThoseOfTheSystem)
{
    for (const std::time_t when :
         {std::time_t{0}, std::time_t{-1}, std::time_t{951782399}, std::time_t{951868800},
          std::time_t{4107542400}, std::time_t{1782901815}, std::time_t{-62135596801},
          std::time_t{253402300799}, std::time_t{13574563200}}) {
        struct tm expected {
        }, found{};
        ASSERT_NE(gmtime_r(&when, &expected), nullptr);
        EXPECT_TRUE(cuUtcTime(when, &found));
        char texts[2][80];
        for (const auto *tm : {&expected, &found})
            std::strftime(texts[tm == &found], sizeof texts[0], "%Y-%m-%d %H:%M:%S %w %j", tm);
        EXPECT_STREQ(texts[0], texts[1]);
    }
}

// Whose summer time the parent has seen, and nothing of an older winter.
TEST(Times, OfAForkedChildHaveTheDistanceThatItsParentSaw)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0", 1);
    tzset();
    struct tm local {
    }, summer{};
    summer.tm_year = 126;
    summer.tm_mon = 6;
    summer.tm_mday = 1;
    summer.tm_isdst = 1;
    struct tm leap {
    };
    leap.tm_year = 128;
    leap.tm_mon = 1;
    leap.tm_mday = 29;
    const std::time_t midnight = cuTimeOf(summer);
    EXPECT_EQ(midnight, 1782856800);
    EXPECT_TRUE(cuLocalTime(midnight, &local));
    EXPECT_TRUE(cuLocalTime(midnight - 180 * 86400, &local));
    setenv("TZ", "UTC", 1);
    tzset();
    const pid_t child = fork();
    if (child == 0)
        _exit(cuTimeOf(summer) == midnight && cuLocalTime(midnight, &local) && local.tm_mday == 1 &&
                      local.tm_hour == 0 && cuTimeOf(leap) == 1835395200 - 7200
                  ? 0
                  : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(Formats, ShowDatesTimesAndNumbers)
{
    struct tm when {
    };
    when.tm_year = 126;
    when.tm_mon = 10;
    when.tm_mday = 1;
    when.tm_hour = 23;
    when.tm_min = 5;
    when.tm_sec = 9;
    const std::string dates[] = {"2026-11-01", "11/01/2026", "01-11-2026", "2026-11-01",
                                 "01.11.2026", "2026.11.01", "11/01/2026"};
    const std::string times[] = {"23:05:09", "23:05:09",    "23.05.09",
                                 "23,05,09", "11:05:09 PM", "23:05:09"};
    const std::string numbers[] = {"-1234567",   "-1,234,567", "-1.234.567", "-1 234 567",
                                   "-1'234'567", "-1234567",   "-12,34,567", "-1,234,567"};
    char text[32];
    for (unsigned format = 0; format < std::size(dates); ++format)
        EXPECT_EQ(std::string(text, cuFormatDate(text, sizeof text, when, format)), dates[format]);
    for (unsigned format = 0; format < std::size(times); ++format)
        EXPECT_EQ(std::string(text, cuFormatTime(text, sizeof text, when, format)), times[format]);
    for (unsigned format = 0; format < std::size(numbers); ++format)
        EXPECT_EQ(std::string(text, cuFormatNumber(text, sizeof text, -1234567, format)),
                  numbers[format]);
    cuFormatNumber(text, sizeof text, INT64_MIN, 1);
    EXPECT_STREQ(text, "-9,223,372,036,854,775,808");
    cuSetFormats(3, 1, 1);
    EXPECT_EQ(cuFormatDate(text, 5, when), 4U) << "cut to the buffer";
    EXPECT_STREQ(text, "2026");
    cuSetFormats(1, 1, 1);
    EXPECT_STREQ(cuU64ToText(UINT64_MAX, text, 16), "ffffffffffffffff");
    char binary[cu64TextSize];
    EXPECT_EQ(std::string(cuU64ToText(UINT64_MAX, binary, 2)), std::string(64, '1'));
}
} // namespace
