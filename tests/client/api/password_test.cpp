// Passwords that people choose: whatever way they come in, and however somebody tries to guess one.
#include "tests/client/api/client_fixture.h"

#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace keel::test
{

namespace
{

/// What the application answers when it is asked; 1 refuses.
const char *typed = "";
int passwordTyped(char *password, std::uint32_t size)
{
    if (std::strlen(typed) >= size)
        return 1;
    std::strcpy(password, typed);
    return 0;
}

class PasswordTest : public ClientTest
{
protected:
    void SetUp() override
    {
        const auto file = installation_.directory() / "prompt.opt";
        writeFile(file, "REPOSITORY file://" + installation_.repository().string() +
                            "\nNODENAME asked\nPASSWORDACCESS prompt\n");
        ProgramOptions options;
        options.input = "secret\n";
        ASSERT_EQ(run({arcaProgram(), "init", "--stdin", "--optfile", file}, options).status, 0);
        ASSERT_EQ(setUp(file), HOX_RC_OK);
    }

    /// hoxInitEx with these, the callback answering with `answer`; ends the session again.
    int tried(const char *password, const char *newPassword, const char *answer)
    {
        typed = answer;
        hoxInitExIn_t input{};
        input.stVersion = HOX_INITEX_IN_VERSION;
        input.password = password;
        input.newPassword = newPassword;
        input.passwordCallback = passwordTyped;
        hoxHandle_t handle = 0;
        const int code = api_.hoxInitEx(&handle, &input, nullptr);
        EXPECT_EQ(handle != 0, code == HOX_RC_OK);
        if (handle != 0) {
            EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
        }
        return code;
    }
};

TEST_F(PasswordTest, HoweverAPasswordComesInItIsTheOneThatCounts)
{
    const std::string longest(HOX_MAX_PASSWORD, 'x'), tooLong(HOX_MAX_PASSWORD + 1, 'x');
    const struct {
        const char *given, *changedTo, *typed;
        int code;
    } steps[] = {
        {nullptr, nullptr, "", HOX_RC_AUTH_FAILURE},
        {nullptr, nullptr, "wrong", HOX_RC_AUTH_FAILURE},
        {nullptr, nullptr, "secret", HOX_RC_OK},
        {"wrong", nullptr, "secret", HOX_RC_AUTH_FAILURE},
        {nullptr, "second", "secret", HOX_RC_OK},
        {"secret", nullptr, "", HOX_RC_AUTH_FAILURE},
        {"secret", "third", "", HOX_RC_AUTH_FAILURE},
        {"second", longest.c_str(), "", HOX_RC_OK},
        {longest.c_str(), tooLong.c_str(), "", HOX_RC_BAD_ARGUMENT},
        {tooLong.c_str(), nullptr, "", HOX_RC_AUTH_FAILURE},
        {longest.c_str(), nullptr, "", HOX_RC_OK},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(&step - steps);
        EXPECT_EQ(tried(step.given, step.changedTo, step.typed), step.code);
        if (step.code == HOX_RC_AUTH_FAILURE) {
            EXPECT_TRUE(text(step.code).starts_with("RBS0137E ")) << text(step.code);
        }
    }
}

TEST_F(PasswordTest, WrongOnesTakeTurnsAndNeverLockTheOwnerOut)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    std::thread other([&] { EXPECT_EQ(tried("wrong", nullptr, ""), HOX_RC_AUTH_FAILURE); });
    hoxHandle_t handle = 0;
    EXPECT_EQ(logOn(handle, nullptr, "guess", nullptr), HOX_RC_AUTH_FAILURE);
    other.join();
    EXPECT_GE(Clock::now() - start, std::chrono::seconds(1)) << "half a second each, one by one";

    const auto locks = stored("locks");
    std::size_t held = 0;
    for (const auto &lock : locks) {
        if (lock.filename().string().rfind("attempt-", 0) != 0)
            continue;
        const int turn = open(lock.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(flock(turn, LOCK_EX | LOCK_NB), 0) << "no turn outlasts its attempt";
        ++held;
        EXPECT_EQ(tried("secret", nullptr, ""), HOX_RC_OK);
        close(turn);
    }
    EXPECT_EQ(held, 1U);
}

TEST_F(ClientTest, AKeptPasswordIsChangedWhateverAnEarlierChangeLeft)
{
    const std::filesystem::path file = installation_.clientOptions().string() + ".keys";
    const std::string stale = std::string(64, 'a');
    const auto lineWith = [](const std::string &line, const std::string &password) {
        return line.substr(0, 33) + password + line.substr(33 + 64);
    };
    const std::string other = std::string(32, '0') + " " + stale + " another node\n";
    const struct {
        const char *what;
        std::function<std::string(const std::string &)> left; ///< of the node's line
        int code;
    } cases[] = {
        {"nothing", [](const auto &line) { return line; }, HOX_RC_OK},
        {"the next one, which was never set",
         [&](const auto &line) { return line + lineWith(line, stale); }, HOX_RC_OK},
        {"the old one, which was not dropped",
         [&](const auto &line) { return lineWith(line, stale) + line; }, HOX_RC_OK},
        {"only a wrong one", [&](const auto &line) { return lineWith(line, stale); },
         HOX_RC_AUTH_FAILURE},
        {"nothing of this node", [](const auto &) { return std::string(); }, HOX_RC_NO_PASS_FILE},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const std::string text = readFile(file);
        const std::string line = text.substr(text.find_last_of('\n', text.size() - 2) + 1);
        writeFile(file, "# old\n" + other + c.left(line));
        hoxHandle_t handle = 0;
        EXPECT_EQ(logOn(handle, nullptr, nullptr, nullptr), c.code);
        if (c.code != HOX_RC_OK) {
            writeFile(file, text);
            continue;
        }
        EXPECT_EQ(api_.hoxChangePW(handle, nullptr, nullptr), HOX_RC_OK);
        const std::string changed = readFile(file);
        EXPECT_NE(changed.find(other), std::string::npos) << "another node's line is lost";
        EXPECT_EQ(changed.find(line.substr(33, 64)), std::string::npos) << "the old one stays";
        EXPECT_EQ(changed.find(line.substr(0, 33) + stale), std::string::npos);
        EXPECT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
        ASSERT_EQ(logOn(handle, nullptr, nullptr, nullptr), HOX_RC_OK);
    }
}

} // namespace

} // namespace keel::test
