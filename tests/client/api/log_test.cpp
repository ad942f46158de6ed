// The activity log as an administrator reads it: what sessions reported comes out, all of it and in
// order, and each selection shows what it names.
#include "tests/client/api/client_fixture.h"

#include <cstring>

namespace keel::test
{

namespace
{

using LogTest = ClientTest;

namespace fs = std::filesystem;

TEST_F(LogTest, ArcaLogShowsWhatSessionsReported)
{
    const hoxHandle_t handle = logOn();
    const char *const texts[] = {"said \x1b[2J", "warned", "failed", "broke"};
    for (std::uint32_t severity = 0; severity < 4; ++severity) {
        hoxLogEventExIn_t one = event(HOX_LOG_SERVER, severity, texts[severity]);
        std::strcpy(one.messageId, "RBQ0599");
        std::strcpy(one.appName, "KEEL");
        ASSERT_EQ(api_.hoxLogEventEx(handle, &one, nullptr), HOX_RC_OK);
    }
    const auto log = [&](std::vector<std::string> words) {
        words.insert(words.begin(), "log");
        return arca(words);
    };
    const struct {
        std::vector<std::string> options;
        std::string shown; ///< the first letters of the texts, in their order
    } cases[] = {
        {{}, "swfb"},
        {{"--severity", "warning"}, "wfb"},
        {{"--severity", "SEVERE"}, "b"},
        {{"--node", "testnode"}, "swfb"},
        {{"--all-nodes"}, "swfb"},
        {{"--node", "other"}, ""},
        {{"--since", "1h"}, "swfb"},
        {{"--since", "2000-01-01T00:00"}, "swfb"},
        {{"--since", "2999-12-31"}, ""},
    };
    for (const auto &c : cases) {
        const ProgramResult result = log(c.options);
        EXPECT_EQ(result.status, 0) << result.err;
        std::string shown;
        for (std::size_t at = result.out.find("  KEEL  RBQ0599  "); at != std::string::npos;
             at = result.out.find("  KEEL  RBQ0599  ", at + 1))
            shown += result.out[at + 17];
        EXPECT_EQ(shown, c.shown) << result.out;
        EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << "nothing steers the terminal";
    }
    // Whatever else lies there, the rest is shown.
    fs::create_directories(installation_.repository() / "log" / "20200101");
    writeFile(installation_.repository() / "log" / "20200101" / "100000-0000000000000001",
              "no line\n\t\t\t\t\t\nX\tS\ta\tb\tc\td");
    const ProgramResult json = log({"--json", "--severity", "severe"});
    EXPECT_EQ(json.status, 0) << json.err;
    for (const char *part : {"\"messageId\": \"RBQ0599\"", "\"severity\": \"severe\"",
                             "\"node\": \"testnode\"", "\"text\": \"broke\"", "\"unreadable\": 3"})
        EXPECT_NE(json.out.find(part), std::string::npos) << json.out;
    EXPECT_NE(log({"--json", "--node", "none"}).out.find("\"unreadable\": 3"), std::string::npos)
        << "also when no event is found";

    // The same for an application, and what is old goes by whole days.
    fs::create_directories(installation_.repository() / "log" / "20200105");
    writeFile(installation_.repository() / "log" / "20200105" / "100000-0000000000000000",
              "2020-01-04T23:59:59Z\tW\told\tKEEL\tRBQ1\tlong ago\n");
    constexpr std::int64_t kThen = 1578182399; // 2020-01-04 23:59:59
    const auto query = [&](qryLogData asked) {
        asked.stVersion = HOX_QRY_LOG_VERSION;
        std::string shown;
        ask<qryRespLogData>(handle, HOX_QUERY_LOG, &asked, [&](const auto &answer) {
            shown += answer.message[0];
            EXPECT_EQ(answer.time.lo == kThen, answer.message[0] == 'l');
        });
        return shown;
    };
    const auto prune = [&](std::int64_t before) {
        hoxDelInfo info{};
        info.log = {HOX_DELBACK_VERSION, before};
        return api_.hoxDeleteObj(handle, HOX_DELETE_LOG, &info);
    };
    const std::pair<qryLogData, const char *> asked[] = {
        {{0, 0, 0, 0, "*"}, "lswfb"},
        {{0, 0, 0, 0, nullptr}, "swfb"},
        {{0, 0, kThen, 0, "*"}, ""},
        {{0, 0, kThen + 1, 0, "*"}, "l"},
        {{0, kThen + 1, 0, 1, nullptr}, "wfb"},
        {{0, 0, 0, 3, nullptr}, "b"},
        {{0, 0, 0, 0, "old"}, "l"},
        {{0, kThen, kThen + 86400, 0, "*"}, "l"},
    };
    for (const auto &[selection, shown] : asked)
        EXPECT_EQ(query(selection), shown) << &shown - &asked[0].second;
    constexpr std::int64_t kDay = 86400;
    for (const auto &[before, left] :
         {std::pair{kThen + kDay, "lswfb"}, std::pair{kThen + kDay + 1, "swfb"}}) {
        EXPECT_EQ(prune(before), HOX_RC_OK);
        qryLogData all{};
        all.nodeName = "*";
        EXPECT_EQ(query(all), left) << "a day goes when it is over";
    }
}

} // namespace

} // namespace keel::test
