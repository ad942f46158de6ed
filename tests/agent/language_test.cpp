// The agent in hosts that speak other languages, over the catalogues as they are shipped.
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include "tests/agent/agent_fixture.h"
#include "tests/support/host_locale.h"

namespace
{

class LanguageTest : public RealAgentTest
{
protected:
    void SetUp() override
    {
        openChannel();
        ASSERT_EQ("", backUp("first", std::string(4096, 'x'))); // so that the filespace is there
        endChannel();
    }

    /// What this process said in the log of the installation, before its settings were known.
    static std::string earlyLog()
    {
        const std::string whole =
            keel::test::readFile(keel::test::stage() / "oracle/bin64/veloerror.log");
        const std::string mine = " TID<" + std::to_string(getpid()) + "> ";
        std::string lines;
        for (std::size_t at = 0, end; at < whole.size(); at = end) {
            end = whole.find('\n', at);
            end = end == std::string::npos ? whole.size() : end + 1;
            const std::string line = whole.substr(at, end - at);
            if (line.find(mine) != std::string::npos)
                lines += line;
        }
        return lines;
    }
};

TEST_F(LanguageTest, SpeaksTheHostsLanguageInItsCodeSet)
{
    const struct {
        const char *language;
        const char *codeSet;
        const char *before; // the piece's name, which is told as it is
        const char *after;
    } table[] = {
        {"de_DE", "ISO-8859-1", "RBQ2604W Das Backup-Piece /lumoorc//",
         " gefunden und nicht gel\xF6scht."},
        {"de_DE", "UTF-8", "RBQ2604W Das Backup-Piece /lumoorc//", " gefunden und nicht gelöscht."},
        {"ja_JP", "EUC-JP", "\xA5\xD4\xA1\xBC\xA5\xB9 /lumoorc//",
         "\xA5\xB5\xA1\xBC\xA5\xD0\xA1\xBC"},
        {"ru_RU", "KOI8-R", "RBQ2604W \xE6\xD2\xC1\xC7\xCD\xC5\xCE\xD4 ",
         "\xCE\xC5 \xD5\xC4\xC1\xCC\xC5\xCE."},
    };
    const std::string piece = "stück%s"; // as its bytes are, whatever the code set
    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.language) + "." + row.codeSet);
        const keel::test::HostLocale host(row.language, row.codeSet);
        const std::string before = std::setlocale(LC_ALL, nullptr);
        openChannel();
        std::filesystem::remove(installation.errorLog());
        remove({piece});
        const std::string log = errorLog();
        const std::size_t name = log.find(piece);
        ASSERT_NE(std::string::npos, name) << log;
        EXPECT_LT(log.find(row.before), name) << log;
        EXPECT_NE(std::string::npos, log.find(row.after, name)) << log;
        EXPECT_EQ("", earlyLog());
        endChannel();
        EXPECT_EQ(before, std::setlocale(LC_ALL, nullptr)) << "the host's own is left alone";
    }
}

TEST_F(LanguageTest, WarnsOnceThatItLacksALanguage)
{
    const keel::test::HostLocale host("fi_FI", "UTF-8");
    openChannel();
    remove({"piece"});
    EXPECT_EQ(1, occurrences(errorLog(), "RBS0102W")) << errorLog();
    EXPECT_EQ(1, occurrences(errorLog(), "piece was not found on the server"));
    EXPECT_EQ(std::string::npos, ("\n" + errorLog()).find("\n\n")) << errorLog();
    EXPECT_EQ("", earlyLog());
    endChannel();

    setenv("VELO_OPTFILE", path("missing").c_str(), 1);
    EXPECT_EQ("7011 2534", initialise());
    EXPECT_EQ(1, occurrences(earlyLog(), "RBS0102W")) << earlyLog();
    EXPECT_LT(earlyLog().find("RBS0102W"), earlyLog().find("RBQ2615E")) << earlyLog();
}

} // namespace
