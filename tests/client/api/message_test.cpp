// The texts of return codes, in English and in the language of the host.
#include "tests/client/api/client_fixture.h"
#include "tests/support/host_locale.h"

#include <map>
#include <regex>

namespace keel::test
{

namespace
{

using MessageTest = ClientTest;

/// The whole text that hoxRCMsgEx gives, which a server's log wants in English.
std::string englishText(const ClientLibrary &api, int code)
{
    const hoxRCMsgExIn_t input{HOX_RCMSGEX_VERSION, 0, static_cast<std::int16_t>(code), 1};
    hoxRCMsgExOut_t output{};
    EXPECT_EQ(api.hoxRCMsgEx(0, &input, &output), HOX_RC_OK);
    return output.message;
}

} // namespace

TEST_F(MessageTest, EveryPublishedCodeHasItsText)
{
    const std::string header = readFile(KEEL_TEST_HOXAPI);
    const std::regex line(R"(#define (HOX_RC_\w+)[\s\\]+\(?(-?\d+))");
    int codes = 0;
    for (auto at = std::sregex_iterator(header.begin(), header.end(), line);
         at != std::sregex_iterator(); ++at, ++codes)
        EXPECT_EQ(text(std::stoi((*at)[2])).find("has no text"), std::string::npos) << (*at)[1];
    EXPECT_GT(codes, 35);
    for (const int code : {1, 50, -2, -2110, 10000, 32767, -32768})
        EXPECT_NE(text(code).find("has no text for the return code"), std::string::npos) << code;
}

TEST_F(MessageTest, SpeaksTheLanguageOfTheHost)
{
    const struct {
        const char *language, *codeSet;
        std::map<int, const char *> texts;
    } table[] = {
        {"de_DE",
         "ISO-8859-1",
         {{0, "RBS0000I Die Operation wurde erfolgreich ausgef\xFChrt."},
          {-50, "RBS0050W Das Repository ist belegt. Starten Sie die Sitzung erneut."},
          {1, "RBS0001E The storage client has no text for the return code 1."}}},
        {"zh_CN", "UTF-8", {{2110, "RBS2110E 具有该名称的对象已存在。"}}},
        {"fi_FI", "UTF-8", {{2110, "RBS2110E An object of that name exists already."}}},
    };
    for (const auto &row : table) {
        const HostLocale host(row.language, row.codeSet);
        for (const auto &[code, said] : row.texts) {
            EXPECT_EQ(text(code), said) << row.language;
            EXPECT_EQ(englishText(api_, code).find("RBS"), 0U);
        }
    }
    const HostLocale host("de_DE", "UTF-8");
    EXPECT_EQ(englishText(api_, 2110), "RBS2110E An object of that name exists already.");
    ASSERT_EQ(setUp("/no/such/file"), HOX_RC_BAD_OPTION_FILE);
    const std::string said = text(HOX_RC_BAD_OPTION_FILE);
    EXPECT_EQ(said.find("RBS2030E Die Optionsdatei des Speicher-Clients ist nicht verwendbar. ("),
              0U);
    EXPECT_NE(said.find("/no/such/file"), std::string::npos) << "what happened this time: " << said;
}

} // namespace keel::test
