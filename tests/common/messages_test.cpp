// The message repository over real catalogues: texts, languages, damage and shortage of memory.
#include "common/nls/nls.h"
#include "common/nls/nlsobject.h"
#include "tests/common/catalogue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

namespace
{
using namespace keel::test;

std::vector<std::string> reported;

void keepReport(const char *text)
{
    reported.emplace_back(text);
}

class Messages : public testing::Test
{
protected:
    ~Messages() override { destroyNlsGlobalObject(); }

    TempDir directory;
};

const std::string noMemory = "RBQ2522E There is not enough system memory to complete command.";

TEST_F(Messages, OfTheShippedCatalogueCarryTheirInserts)
{
    ASSERT_EQ(startMessages(KEEL_TEST_CATALOGUES), 0);
    EXPECT_EQ(textOf(nlsprintf, 3), "RBQ0003S An internal processing error has occurred");
    EXPECT_EQ(textOf(nlsprintf, 2522), noMemory);
    EXPECT_EQ(textOf(nlsprintf, 507), "Yes");
    EXPECT_EQ(textOf(nlEngsprintf, 2601),
              "RBQ2601E There is no Registry entry for KEEL for Oracle install path.");
    EXPECT_EQ(textOf(nlsprintf, 2503, "/fs", "/", "/100%sure%n")
                  .find("RBQ2503E The backup piece /fs//100%sure%n exists"),
              0U);
    EXPECT_EQ(textOf(nlsprintf, 2527, "/f", "/", "/p", 9ULL, 1, 2, 3, "77"),
              "RBQ2527I Restore details for /f//p: bytes received 9, elapsed time 01:02:03, "
              "throughput 77 KB/s.");
    // Amounts are for people; in English they are for programs, too.
    const char *const refused = " passed to sbtbackup() is 0 or too large.";
    EXPECT_EQ(textOf(nlsprintf, 2702, "sbtbackup()", 5'000'000'000ULL),
              std::string("RBQ2702E The block size 5,000,000,000") + refused);
    EXPECT_EQ(textOf(nlEngsprintf, 2702, "sbtbackup()", 5'000'000'000ULL),
              std::string("RBQ2702E The block size 5000000000") + refused);
    EXPECT_EQ(nlGetMsgSev(2503), nlsSevError);
    EXPECT_EQ(nlGetMsgSev(507), nlsSevZ);
    EXPECT_EQ(textOf(nlsprintf, 9999), "<none>");
}

TEST_F(Messages, AreAnsweredWithoutAnyCatalogue)
{
    const auto check = [](const char *when) {
        EXPECT_EQ(textOf(nlsprintf, 2522), noMemory) << when;
        EXPECT_EQ(textOf(nlEngsprintf, 3), "RBQ0003S An internal processing error has occurred");
        EXPECT_EQ(textOf(nlsprintf, 2503, "a", "b", "c"), "<none>") << when;
        EXPECT_EQ(nlGetMsgSev(2503), nlsSevError) << when;
    };
    check("before the object exists");
    nlsOutputFns fns{};
    fns.error = keepReport;
    newNlsGlobalObject(&fns, 0);
    check("before it is started");
    EXPECT_EQ(reported, std::vector<std::string>{
                            "Cannot get an NLS message due to catalog file is closed\n"});
    EXPECT_EQ(startMessages(directory.path()), NLS_RC_OPEN);
    check("after a start without a catalogue");
    EXPECT_EQ(startMessages(KEEL_TEST_CATALOGUES), 0);
    nlterm();
    check("after its end");
    destroyNlsGlobalObject();
    check("after the object is gone");
}

TEST_F(Messages, RefuseBadArgumentsAndIgnoreASecondStart)
{
    newNlsGlobalObject(nullptr, 0);
    const std::string longName(1280, 'n');
    const std::string longDirectory(1025, 'd');
    const auto init = [](const char *name, const char *where) {
        return nlinit(name, 10, where, cliTypeOracle, 1, 1, 1, nullptr, "velo.cat");
    };
    EXPECT_EQ(init("", KEEL_TEST_CATALOGUES), NLS_RC_ARGUMENT);
    EXPECT_EQ(init(nullptr, KEEL_TEST_CATALOGUES), NLS_RC_ARGUMENT);
    EXPECT_EQ(init(longName.c_str(), KEEL_TEST_CATALOGUES), NLS_RC_ARGUMENT);
    EXPECT_EQ(init("velo.cat", longDirectory.c_str()), NLS_RC_ARGUMENT);
    EXPECT_EQ(init("velo.cat", KEEL_TEST_CATALOGUES), 0);
    EXPECT_EQ(init("velo.cat", "/nowhere"), 0);
}

TEST_F(Messages, FollowTheLetterOfTheirSeverity)
{
    makeCatalogue(directory.path(), "EN_US",
                  {"1 RBQ0001Z word", "2 RBQ0002T word", "3 RBQ0003R word", "4 RBQ0004L word",
                   "5 RBQ0005K text", "6 RBQ0006I text", "7 RBQ0007W text", "8 RBQ0008S text",
                   "9 RBQ0009M text", "10 RBQ0010Q text", "11 RBQ0011a text", "12 RBQ",
                   "13 RBQ0013", "14 RBQ12345E text", "15 RBQ0015I cut{2}trailer",
                   "16 RBQ0016I kept{2}longer than fourteen", "17 RBQ0017Z"});
    ASSERT_EQ(startMessages(directory.path()), 0);
    for (int number : {1, 2, 4})
        EXPECT_EQ(textOf(nlsprintf, number), "word") << number;
    EXPECT_EQ(textOf(nlsprintf, 5), "RBQ0005K text");
    EXPECT_EQ(textOf(nlsprintf, 8), "RBQ0008S text");
    for (int number : {9, 10, 11, 12, 13, 17})
        EXPECT_EQ(textOf(nlsprintf, number), "<none>") << number;
    EXPECT_EQ(textOf(nlsprintf, 14), "RBQ2345E text");
    EXPECT_EQ(textOf(nlsprintf, 15), "RBQ0015I cut");
    EXPECT_EQ(textOf(nlsprintf, 16), "RBQ0016I kept\x12longer than fourteen");
    const std::vector<int> codes = {0, 1, 2, 8, 3, 4, 5, 7};
    for (int number = 1; number <= 8; ++number)
        EXPECT_EQ(nlGetMsgSev(number), codes[static_cast<std::size_t>(number - 1)]) << number;
}

TEST_F(Messages, NeverHandADamagedFileToTheHost)
{
    const std::string whole =
        readFile(std::filesystem::path(KEEL_TEST_CATALOGUES) / "EN_US" / "velo.cat");
    ASSERT_GT(whole.size(), 1000U);
    std::filesystem::create_directories(directory / "EN_US");
    const auto path = directory / "EN_US/velo.cat";
    for (std::size_t length = 0; length < whole.size(); length += length < 64 ? 1 : 97) {
        writeFile(path, whole.substr(0, length));
        EXPECT_EQ(startMessages(directory.path()), NLS_RC_OPEN) << length << " bytes";
    }
    std::uint32_t words[3];
    std::memcpy(words, whole.data(), sizeof words);
    const std::size_t textsAt = 12 + std::size_t{24} * words[1] * words[2];
    const auto textsLength = static_cast<std::uint32_t>(whole.size() - textsAt);
    const struct {
        std::size_t at;
        std::uint32_t value;
    } lies[] = {{0, 0xDE080496},
                {4, 0},
                {8, 0},
                {4, words[1] * 2},
                {8, 0x10000000},
                {4, 0xFFFFFFFF},
                {20, textsLength},
                {textsAt / 2 + 2, textsLength},
                {20, 0xFFFFFFFF}};
    for (const auto &lie : lies) {
        std::string damaged = whole;
        std::memcpy(damaged.data() + lie.at, &lie.value, sizeof lie.value);
        writeFile(path, damaged);
        EXPECT_EQ(startMessages(directory.path()), NLS_RC_OPEN) << lie.at << ": " << lie.value;
    }
    for (std::size_t at = 0; at < whole.size(); at += at < textsAt / 2 ? 1 : 11) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ (at % 3 == 0 ? 0xFF : 1 << at % 8));
        std::filesystem::remove(path); // some file systems flush what is written over
        writeFile(path, damaged);
        if (startMessages(directory.path()) != 0)
            continue;
        for (int number : {3, 507, 2702})
            textOf(nlsprintf, number, "text", 7ULL);
        textOf(nlsprintf, 2526, "a", 7ULL, 1, 2, 3, "c", "d", "e", "f", "g", "h", "i");
    }
    std::filesystem::remove(path);
    writeFile(path, whole);
    ASSERT_EQ(startMessages(directory.path()), 0);
    const auto here = std::filesystem::current_path();
    std::filesystem::current_path(path.parent_path());
    nlsCatalogue_t bare;
    EXPECT_FALSE(bare.open("velo.cat")) << "a name is no path: it depends on where the host stands";
    EXPECT_TRUE(bare.open("./velo.cat"));
    std::filesystem::current_path(here);
    std::filesystem::resize_file(path, 0); // while it is in use
    EXPECT_EQ(textOf(nlsprintf, 2522), noMemory);
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(startMessages(directory.path()), NLS_RC_OPEN) << "a directory";
}

struct LanguageCase {
    const char *locale;
    const char *codeSet;
    std::string expected;
    std::string warning;
};

TEST_F(Messages, ComeInTheLanguageOfTheHost)
{
    const std::vector<std::string> english = {"507 RBQ0507Z Yes", "508 RBQ0508Z No"};
    makeCatalogue(directory.path(), "EN_US", english);
    makeCatalogue(directory.path(), "DE_DE", {"507 RBQ0507Z Ja, schön"});
    makeCatalogue(directory.path(), "Zh_TW", {"507 RBQ0507Z 是"});
    const LanguageCase cases[] = {
        {nullptr, "UTF-8", "Yes", ""},
        {"C", "ANSI_X3.4-1968", "Yes", ""},
        {"C.UTF-8", "UTF-8", "Yes", ""},
        {"en_US.UTF-8", "UTF-8", "Yes", ""},
        {"de_DE.UTF-8", "UTF-8", "Ja, schön", ""},
        {"de_DE", "ISO-8859-1", "Ja, sch\xF6n", ""},
        {"de", "UTF-8", "Ja, schön", ""},
        {"zh_TW.big5", "UTF-8", "是", ""},
        {"xx", "UTF-8", "Yes", ""},
        {"de_DE@euro", "UTF-8", "Ja, schön", ""},
        {"de_DE.UTF-8@euro", "UTF-8", "Ja, schön", ""},
        {"C@quot", "UTF-8", "Yes", ""},
        {"en_GB.UTF-8", "UTF-8", "Yes", ""},
        {"en_AU@x", "NO-SUCH-SET", "Yes", ""},
        {"eng_GB", "UTF-8", "Yes", "RBS0102W"},
        {"fr_FR.UTF-8", "UTF-8", "Yes", "RBS0102W"},
        {"../DE_DE", "UTF-8", "Yes", ""},
        {"de_DE", "NO-SUCH-SET", "Yes", "RBS0121W"},
    };
    for (const LanguageCase &one : cases) {
        reported.clear();
        nlsOutputFns fns{};
        fns.error = keepReport;
        nlsObject_t object(&fns);
        ASSERT_EQ(
            object.initMsgSys({directory.path().c_str(), "velo.cat", 10, one.locale, one.codeSet}),
            0);
        const std::string where = one.locale != nullptr ? one.locale : "no locale";
        nlsMsg *message = object.GetMsg(507);
        ASSERT_NE(message, nullptr) << where;
        EXPECT_EQ(message->text(), one.expected) << where;
        object.english = true;
        EXPECT_STREQ(object.GetMsg(507)->text(), "Yes") << where;
        EXPECT_EQ(object.GetMsg(507)->text(), one.expected) << where << ", English is not for ever";
        EXPECT_STREQ(object.GetMsg(508)->text(), "No") << where;
        ASSERT_EQ(reported.size(), one.warning.empty() ? 0U : 1U) << where;
        if (!reported.empty()) {
            EXPECT_EQ(reported[0].substr(0, 8), one.warning) << where;
        }
    }
}

/// The stored text of a message for a host of that locale and code set.
class Host
{
public:
    Host(bool client, const char *locale, const char *codeSet) : object(nullptr)
    {
        const char *directory = client ? KEEL_TEST_CLIENT_CATALOGUES : KEEL_TEST_CATALOGUES;
        const char *file = client ? nullptr : "velo.cat";
        EXPECT_EQ(object.initMsgSys({directory, file, 10, locale, codeSet}), 0);
    }
    std::string operator[](int number)
    {
        nlsMsg *message = object.GetMsg(number);
        return message != nullptr ? message->text() : "<none>";
    }

private:
    nlsObject_t object;
};

TEST_F(Messages, AreShippedInThirteenLanguages)
{
    const struct {
        const char *locale;
        const char *codeSet; // the one of hosts without UTF-8
        const char *yes;
    } cases[] = {
        {"cz", "ISO-8859-2", "Ano"},  {"cs_CZ", "ISO-8859-2", "Ano"},
        {"de", "ISO-8859-1", "Ja"},   {"en", "ISO-8859-1", "Yes"},
        {"es", "ISO-8859-1", "Sí"},   {"fr_FR", "ISO-8859-1", "Oui"},
        {"hu", "ISO-8859-2", "Igen"}, {"it", "ISO-8859-1", "Sì"},
        {"ja", "EUC-JP", "はい"},     {"ja_JP.SJIS", "SHIFT_JIS", "はい"},
        {"ko", "EUC-KR", "예"},       {"pl", "ISO-8859-2", "Tak"},
        {"pt", "ISO-8859-1", "Sim"},  {"pt_BR.ISO8859-1", "ISO-8859-1", "Sim"},
        {"ru", "KOI8-R", "Да"},       {"ru_RU", "ISO-8859-5", "Да"},
        {"zh", "GB2312", "是"},       {"zh_CN.gb18030", "GB18030", "是"},
    };
    Host english(false, nullptr, "UTF-8");
    Host clientEnglish(true, nullptr, "UTF-8");
    const auto check = [](const std::string &where, Host &original, Host &local, Host &older) {
        int messages = 0;
        for (int number = 1; number <= 10'000; ++number) {
            if (original[number] == "<none>")
                continue;
            ++messages;
            const std::string text = local[number];
            EXPECT_TRUE(number == 508 || (text == original[number]) == (where == "en")) << text;
            EXPECT_EQ(text.find('?'), std::string::npos) << where << ": " << text;
            EXPECT_EQ(older[number].find('?'), std::string::npos)
                << where << ": the older code set lacks a character of " << text;
        }
        EXPECT_GT(messages, 35) << where;
    };
    for (const auto &one : cases) {
        Host local(false, one.locale, "UTF-8");
        Host older(false, one.locale, one.codeSet);
        Host client(true, one.locale, "UTF-8");
        Host olderClient(true, one.locale, one.codeSet);
        EXPECT_EQ(local[507], one.yes) << one.locale;
        check(one.locale, english, local, older);
        check(one.locale, clientEnglish, client, olderClient);
    }
}

TEST_F(Messages, GoToTheRoutineOfTheirSeverity)
{
    nlsOutputFns fns{};
    fns.message = [](const char *text) { keepReport(("message " + std::string(text)).c_str()); };
    fns.information = [](const char *text) { keepReport(("i " + std::string(text)).c_str()); };
    fns.warning = [](const char *text) { keepReport(("w " + std::string(text)).c_str()); };
    fns.error = [](const char *text) { keepReport(("e " + std::string(text)).c_str()); };
    newNlsGlobalObject(&fns, 0);
    ASSERT_EQ(startMessages(KEEL_TEST_CATALOGUES), 0);
    reported.clear();
    for (int number : {2505, 2528, 2508, 2507, 9999})
        EXPECT_EQ(nlMessage(number) != 0, number != 9999);
    EXPECT_EQ(nlprintf(2505), 54);
    char *written = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&written, &size);
    EXPECT_EQ(nlfprintf(stream, 507), 3);
    EXPECT_EQ(nlfprintf(nullptr, 507), 0);
    std::fclose(stream);
    EXPECT_STREQ(written, "Yes");
    std::free(written);
    const char *const begun[] = {"i RBQ2505I", "w RBQ2528W", "e RBQ2508E",
                                 "e RBQ2507S", "e RBS9999E", "message RBQ2505I"};
    ASSERT_EQ(reported.size(), std::size(begun));
    for (std::size_t i = 0; i < std::size(begun); ++i)
        EXPECT_EQ(reported[i].find(begun[i]), 0U) << reported[i];
    newNlsGlobalObject(nullptr, 0);
}

void askAgain(const char *text)
{
    keepReport(text);
    textOf(nlsprintf, 9998);
}

TEST_F(Messages, ReportAMissingNumberOnceWhateverTheReporterDoes)
{
    ASSERT_EQ(startMessages(KEEL_TEST_CATALOGUES), 0);
    reported.clear();
    nlsSetErrorRoutine(askAgain);
    EXPECT_EQ(textOf(nlsprintf, 9999), "<none>");
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_EQ(reported[0].substr(0, 8), "RBS9999E");
    EXPECT_NE(reported[0].find("9999 could not be found"), std::string::npos);
}

TEST_F(Messages, KeepTheLatestTen)
{
    nlsMsgCache_t cache;
    cache.setLimit(10);
    const auto add = [&](std::uint16_t number) {
        nlsMsg *message = nullptr;
        ASSERT_EQ(nlsMakeMsg(number, "RBQ0001I text", nullptr, &message), nlsMsgResult::made);
        cache.add(message);
    };
    for (std::uint16_t number = 1; number <= 10; ++number)
        add(number);
    ASSERT_NE(cache.find(1), nullptr);
    add(11);
    EXPECT_EQ(cache.find(2), nullptr) << "the least recently used one goes";
    for (const std::uint16_t number : std::initializer_list<std::uint16_t>{1, 3, 10, 11})
        EXPECT_NE(cache.find(number), nullptr) << number;
}

TEST_F(Messages, SurviveEachAllocationThatFails)
{
    for (long n = 1; n <= 6; ++n) {
        const utMemStats before = utMemOutstanding();
        utMemFailAfter(n);
        newNlsGlobalObject(nullptr, 0);
        if (startMessages(KEEL_TEST_CATALOGUES) == 0)
            textOf(nlsprintf, 2503, "a", "b", "c");
        utMemFailAfter(-1);
        destroyNlsGlobalObject();
        EXPECT_EQ(utMemOutstanding().blocks, before.blocks) << "allocation " << n;
    }
}

TEST_F(Messages, AreFormattedByManyThreadsWhileTheRepositoryRestarts)
{
    ASSERT_EQ(startMessages(KEEL_TEST_CATALOGUES), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 200; ++n) {
                const std::string text = textOf(nlsprintf, 2604, "/fs", "/", "/p");
                EXPECT_TRUE(text == "<none>" || text.find("piece /fs//p was") != text.npos) << text;
                EXPECT_EQ(textOf(nlEngsprintf, 2522), noMemory);
            }
        });
    for (int n = 0; n < 20; ++n)
        EXPECT_EQ(startMessages(KEEL_TEST_CATALOGUES), 0);
    for (std::thread &thread : threads)
        thread.join();
}
} // namespace
