// The node's password in a file: written by the exported call, read by every session that is
// opened.

#include "tests/agent/agent_fixture.h"

#include <dlfcn.h>
#include <sys/resource.h>

namespace fs = std::filesystem;

class PasswordFileTest : public ScriptedAgentTest
{
protected:
    PasswordFileTest() { client.passwordAccess = HOX_PASSWORDACCESS_PROMPT; }

    void openChannelFor(const std::string &directory)
    {
        endChannel();
        client.passwordAccess = HOX_PASSWORDACCESS_PROMPT;
        installation.configureAgent({"VELO_NODE mynode", "VELO_PSWDPATH " + path(directory)});
        openChannel();
    }
    int update(std::string password)
    {
        using Update = std::uint16_t(char *, void *);
        return reinterpret_cast<Update *>(dlsym(agent.handle, "psveloUpdatePswd"))(password.data(),
                                                                                   ctx);
    }
    /// The password of the session that a call opens, or what the call came to.
    std::string loggedOnWith()
    {
        client.calls.clear();
        const std::string outcome = remove({"missing"});
        const auto sessions = client.callsOf({"hoxInitEx node=mynode owner= password="});
        if (sessions.empty())
            return outcome + " " + errorText().substr(0, 8);
        const std::string rest = sessions[0].substr(38);
        return rest.substr(0, rest.find(" application"));
    }
};

TEST_F(PasswordFileTest, KeepsAPasswordInBlocksOfEight)
{
    openChannelFor("pw/");
    EXPECT_EQ("sbtremove2 7501 RBQ2519E", loggedOnWith());
    const struct {
        std::string password, digits;
    } table[] = {{"", ""},
                 {"short", "5"},
                 {"8letters", "8"},
                 {"8letters9", "81"},
                 {std::string(64, 'p'), "88888888"}};
    for (const auto &row : table) {
        ASSERT_EQ(0, update(row.password));
        const std::string file = contents("pw/VELO.mynode");
        ASSERT_EQ(39 + 9 * row.digits.size(), file.size());
        EXPECT_EQ(0U, file.find("Agent for Oracle Backup - Password file"));
        for (std::size_t i = 0; i < row.digits.size(); ++i)
            EXPECT_EQ(row.digits[i], file[39 + 9 * i]);
        EXPECT_TRUE(row.password.empty() || file.find(row.password) == std::string::npos);
        EXPECT_EQ(fs::perms(0644), fs::status("pw/VELO.mynode").permissions()) << "not read yet";
        EXPECT_EQ(row.password, loggedOnWith());
    }
    EXPECT_EQ(fs::perms(0700), fs::status("pw").permissions());
}

TEST_F(PasswordFileTest, TakesOfADamagedFileWhatThereIs)
{
    openChannelFor("pw");
    ASSERT_EQ(0, update("8letters"));
    const std::string file = "pw/VELO.mynode", whole = contents(file);
    const std::string header = whole.substr(0, 39), block = whole.substr(40);
    std::string huge = header;
    while (huge.size() < 10U << 20)
        huge += whole.substr(39);
    const struct {
        std::string content, password;
    } table[] = {{"", ""},
                 {header.substr(0, 20), ""},
                 {std::string(39, '?') + whole.substr(39), "8letters"},
                 {"a line\n" + whole.substr(39), "8letters"},
                 {whole + whole.substr(39, 5), "8letters"},
                 {header + "9" + block, "8letters"},
                 {header + "0" + block, ""},
                 {header + std::string(1, '\0') + block, ""},
                 {header + "\xff" + block + "3" + block, "8letters8le"},
                 {huge, [] {
                      std::string eight;
                      while (eight.size() < 64)
                          eight += "8letters";
                      return eight;
                  }()}};
    for (const auto &row : table) {
        keel::test::writeFile(file, row.content);
        EXPECT_EQ(row.password, loggedOnWith()) << row.content.substr(0, 60);
    }
    // Of one that never ends, nothing: no record of it holds a character.
    keel::test::writeFile(file, header);
    fs::resize_file(file, std::uintmax_t{1} << 40);
    EXPECT_EQ("", loggedOnWith());
    fs::remove(file);
    keel::test::writeFile("elsewhere", whole);
    fs::permissions("elsewhere", fs::perms(0600));
    fs::create_symlink(path("elsewhere"), file);
    EXPECT_EQ("8letters", loggedOnWith());
    EXPECT_EQ(fs::perms(0600), fs::status("elsewhere").permissions()) << "of another's file";
    fs::remove(file);
    fs::create_symlink("/proc/self/mem", file); // every read of its beginning is EIO
    EXPECT_EQ("sbtremove2 7501 RBQ2519E", loggedOnWith())
        << "an unreadable password is no empty one";
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ("sbtremove2 7501 RBQ2519E", loggedOnWith());
    EXPECT_EQ(65535, update("new")) << "the file cannot be made";
    EXPECT_EQ(2U, std::distance(fs::directory_iterator("pw"), {}) + 1U) << "nothing is left beside";
    openChannelFor("no/such");
    EXPECT_EQ(167, update("new"));
    openChannelFor("velo.opt/");
    EXPECT_EQ(2521, update("new"));
}

TEST_F(PasswordFileTest, KeepsTheOldFileUnlessTheNewOneIsWholeAndReadsBack)
{
    openChannelFor("pw");
    ASSERT_EQ(0, update("old"));
    const std::string file = "pw/VELO.mynode", old = contents(file);
    const auto unchanged = [&] {
        return contents(file) == old && std::distance(fs::directory_iterator("pw"), {}) == 1;
    };
    EXPECT_EQ(2520, update(std::string(65, 'x')));
    EXPECT_TRUE(unchanged());
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit{45, before.rlim_max}; // ends within the first record
    setrlimit(RLIMIT_FSIZE, &limit);
    const int cut = update("new");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(65535, cut);
    EXPECT_TRUE(unchanged());
    client.keysDiffer = true; // a key that nobody can derive a second time
    EXPECT_EQ(2519, update("new"));
    EXPECT_TRUE(unchanged());
    client.keysDiffer = false;
    fs::rename(file, "elsewhere");
    fs::create_symlink(path("elsewhere"), file);
    EXPECT_EQ(0, update("new"));
    EXPECT_TRUE(fs::is_symlink(file)) << "a file behind a link stays behind it";
    EXPECT_EQ("new", loggedOnWith());

    // Without a storage client there is no key; what lies on the stack is none.
    endChannel();
    fs::remove(file);
    ctx = memory.data();
    EXPECT_EQ(104, update("new"));
    EXPECT_FALSE(fs::exists(file));
}
