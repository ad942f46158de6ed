// Option files, option strings and passwords, as an administrator gets them wrong; and what arca
// init does to a place.
#include "tests/client/api/client_fixture.h"

#include <cstring>

namespace keel::test
{

namespace
{

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

class ClientOptionsTest : public ClientTest
{
protected:
    /// What hoxSetUp says of an option file with this content.
    std::string complaint(const std::string &content)
    {
        writeFile(file_, content);
        const int code = setUp(file_);
        return code == HOX_RC_OK ? "" : text(code);
    }

    const fs::path file_ = installation_.directory() / "tried.opt";
};

TEST_F(ClientOptionsTest, GoodOptionFilesAreTakenAndBadOnesNamedWithTheirLine)
{
    const std::string file = file_.string();
    const struct {
        std::string content;
        std::vector<std::string> complaint; ///< empty: accepted
    } cases[] = {
        {"", {}},
        {"* only a comment", {}},
        {"\r\n\n  * indented\n" + repositoryLine(), {}},
        {"repository file:///a%20b\r\nNodeName\t\"my node\"\r\nPASSWORDACCESS Prompt", {}},
        {"*\nNODENAMES x\n", {file + ", line 2", "'NODENAMES'"}},
        {"NODENAME\n", {file + ", line 1", "NODENAME", "no value"}},
        {"NODENAME " + std::string(65, 'n'), {"line 1", "64 characters"}},
        {"REPOSITORY /srv/arca\n", {"line 1", "file:///"}},
        {"REPOSITORY file://host/srv\n", {"line 1", "file:///"}},
        {"REPOSITORY file:///100%\n", {"line 1", "%25"}},
        {"THREADS 4x\n", {"line 1", "'4x'", "from 1 to 16"}},
        {"THREADS 17\n", {"line 1", "'17'"}},
        {"MEMORY 31\n", {"line 1", "'31'", "from 32 to 1024"}},
        {"PASSWORDACCESS maybe\n", {"line 1", "'maybe'", "generate", "prompt"}},
        {std::string("NODENAME a\0b\n", 13), {"line 1"}},
        {std::string("\x7f"
                     "ELF\x02\x01\0\0",
                     8),
         {"line 1"}},
        {std::string(std::size_t{2} << 20, 'x'), {file, "1 MiB"}},
        {std::string(100000, 'x'), {"line 1", "..."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.content.substr(0, 60));
        const std::string said = complaint(c.content);
        EXPECT_EQ(said.empty(), c.complaint.empty()) << said;
        for (const std::string &part : c.complaint)
            EXPECT_NE(said.find(part), std::string::npos) << said;
        EXPECT_LE(said.size(), std::size_t{HOX_MAX_RC_MESSAGE});
    }
    EXPECT_EQ(setUp(installation_.directory() / "absent.opt"), HOX_RC_BAD_OPTION_FILE);
    EXPECT_NE(text(HOX_RC_BAD_OPTION_FILE).find("absent.opt"), std::string::npos);
    EXPECT_EQ(setUp(installation_.directory()), HOX_RC_BAD_OPTION_FILE);
    EXPECT_EQ(setUp("/dev/zero"), HOX_RC_BAD_OPTION_FILE);
}

TEST_F(ClientOptionsTest, OptionStringsOverrideTheFileAndBadOnesAreShown)
{
    const std::string elsewhere = "-repository=file://" + installation_.directory().string();
    const struct {
        std::string options;
        int code;
        std::string shown;
    } cases[] = {
        {"", HOX_RC_OK, ""},
        {" ", HOX_RC_OK, ""},
        {"-NodeName=testnode", HOX_RC_OK, ""},
        {"  -passwordaccess=generate   -nodename=testnode ", HOX_RC_OK, ""},
        {"-nodename=a-node", HOX_RC_AUTH_FAILURE, "a-node"},
        {elsewhere, HOX_RC_NO_REPOSITORY, installation_.directory()},
        {"-nodename", HOX_RC_BAD_OPTION_STRING, "'-nodename'"},
        {"nodename=x", HOX_RC_BAD_OPTION_STRING, "'nodename=x'"},
        {"-compress=x", HOX_RC_BAD_OPTION_STRING, "'compress'"},
        {"-nodename=testnode -", HOX_RC_BAD_OPTION_STRING, "'-'"},
        {"-=", HOX_RC_BAD_OPTION_STRING, "'-='"},
        {std::string(2000, '-'), HOX_RC_BAD_OPTION_STRING, "1024"},
    };
    for (const auto &c : cases) {
        hoxHandle_t handle = 0;
        EXPECT_EQ(logOn(handle, nullptr, nullptr, c.options.c_str()), c.code) << c.options;
        if (!c.shown.empty()) {
            EXPECT_NE(text(c.code).find(c.shown), std::string::npos) << text(c.code);
        }
    }
}

TEST_F(ClientOptionsTest, ARepositoryThatIsNotThereIsNamedAndNeverMade)
{
    const fs::path place = installation_.directory() / "nowhere";
    ASSERT_EQ(complaint("REPOSITORY file://" + place.string() + "\nNODENAME n\n"), "");
    hoxHandle_t handle = 0;
    EXPECT_EQ(logOn(handle, nullptr, nullptr, nullptr), HOX_RC_NO_REPOSITORY);
    const std::string said = text(HOX_RC_NO_REPOSITORY);
    EXPECT_NE(said.find(place.string()), std::string::npos) << said;
    EXPECT_NE(said.find("arca init --optfile " + file_.string()), std::string::npos) << said;
    EXPECT_FALSE(fs::exists(place));

    ASSERT_EQ(complaint("NODENAME n\n"), "");
    EXPECT_EQ(logOn(handle, nullptr, nullptr, nullptr), HOX_RC_BAD_OPTION_FILE);
    EXPECT_NE(text(HOX_RC_BAD_OPTION_FILE).find("REPOSITORY"), std::string::npos);
}

TEST_F(ClientOptionsTest, InitLeavesWhatIsThereAsItIs)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "p", "content"), HOX_RC_OK);
    const std::string keys = readFile(installation_.clientOptions().string() + ".keys");
    const ProgramResult again = arca({"init", "--json"});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_NE(again.out.find("\"made\": false"), std::string::npos) << again.out;
    EXPECT_EQ(readFile(installation_.clientOptions().string() + ".keys"), keys);
    EXPECT_EQ(restore(handle, "p"), "content");

    // A second node, the first one's password stays; without it the first is not registered anew.
    writeFile(installation_.clientOptions(), repositoryLine() + "NODENAME second\n");
    EXPECT_EQ(arca({"init"}).status, 0);
    const std::string both = readFile(installation_.clientOptions().string() + ".keys");
    EXPECT_TRUE(both.starts_with(keys));
    EXPECT_TRUE(both.ends_with(" second\n")) << "every node has a password of its own";
    writeFile(file_, repositoryLine() + "NODENAME testnode\n");
    const ProgramResult stranger = arca({"init"}, "", file_);
    EXPECT_EQ(stranger.status, 1);
    EXPECT_NE(stranger.err.find("tried.opt.keys"), std::string::npos) << stranger.err;
    EXPECT_EQ(restore(handle, "p"), "content");
}

TEST_F(ClientOptionsTest, InitRefusesInOneLineWhatItCannotDo)
{
    const fs::path occupied = installation_.directory() / "occupied";
    fs::create_directory(occupied);
    writeFile(occupied / "mine", "mine");
    writeFile(installation_.directory() / "plain", "");
    const struct {
        std::string options;
        std::vector<std::string> arguments;
        int status;
        std::string said;
    } cases[] = {
        {"REPOSITORY file://" + occupied.string(), {"init", "--optfile", file_}, 1, "not empty"},
        {"REPOSITORY file://" + (installation_.directory() / "plain/x").string(),
         {"init", "--optfile", file_},
         1,
         "plain"},
        {"NODENAME x", {"init", "--optfile", file_}, 1, "REPOSITORY"},
        {"", {"init", "--optfile", "/nowhere/arca.opt"}, 1, "/nowhere/arca.opt"},
        {"", {"init", "--nonsense"}, 2, "--nonsense"},
        {"", {}, 2, "--help"},
    };
    for (const auto &c : cases) {
        writeFile(file_, c.options);
        Words line = c.arguments;
        line.insert(line.begin(), arcaProgram());
        const ProgramResult result = run(line);
        EXPECT_EQ(result.status, c.status) << c.options;
        EXPECT_NE(result.err.find(c.said), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    }
    EXPECT_EQ(readFile(occupied / "mine"), "mine");
    EXPECT_NE(run({arcaProgram(), "init", "--help"}).out.find("Example:"), std::string::npos);
}

} // namespace

} // namespace keel::test
