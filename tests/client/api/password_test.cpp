// Passwords that people choose: whatever way they come in, and however somebody tries to guess one.
#include "tests/client/api/client_fixture.h"

#include <chrono>
#include <cinttypes>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace keel::test
{

namespace
{

using KeptPasswordTest = ClientTest;

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
        writeFile(file, repositoryLine() + "NODENAME asked\nPASSWORDACCESS prompt\n");
        ASSERT_EQ(arca({"init", "--stdin"}, "secret\n", file).status, 0);
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
        {"Secret", nullptr, "secret", HOX_RC_AUTH_FAILURE},
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
            EXPECT_EQ(text(step.code).find(longest), std::string::npos);
        }
    }
    hoxHandle_t handle = 0;
    ASSERT_EQ(logOn(handle, nullptr, longest.c_str(), nullptr), HOX_RC_OK);
    EXPECT_EQ(api_.hoxChangePW(handle, "wrong", "new"), HOX_RC_AUTH_FAILURE);
    EXPECT_EQ(api_.hoxChangePW(handle, longest.c_str(), "new"), HOX_RC_OK);
    const hoxApiVersion version{7, 1, 3};
    EXPECT_EQ(api_.hoxInit(&handle, &version, "asked", "owner", "new", "app", nullptr, nullptr), 0);
    ApiSessInfo info{};
    ASSERT_EQ(api_.hoxQuerySessInfo(handle, &info), HOX_RC_OK);
    EXPECT_STREQ(info.nodeName, "asked");
    EXPECT_STREQ(info.ownerName, "owner");
    optStruct options{};
    ASSERT_EQ(api_.hoxQueryCliOptions(&options), HOX_RC_OK);
    EXPECT_EQ(options.passwordAccess, HOX_PASSWORDACCESS_PROMPT);
    EXPECT_STREQ(options.nodeName, "asked");
}

// The test itself keeps it only so, and turns it into what it is where the library asked for it.
const char masked[] = "vxyjxk7y}7jlvv}j7ol{}";
constexpr std::size_t kMasked = sizeof masked - 1;
constexpr char kMask = 0x18;

int passwordUnmasked(char *password, std::uint32_t)
{
    for (std::size_t i = 0; i <= kMasked; ++i)
        password[i] = i < kMasked ? static_cast<char>(masked[i] ^ kMask) : '\0';
    return 0;
}

/// How often the password stands in the memory of this process that can be written.
int timesInMemory()
{
    int times = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0, end = 0;
        if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " rw", &begin, &end) != 2 ||
            line.find(" rw") == line.npos)
            continue;
        const auto *const memory = reinterpret_cast<const volatile char *>(begin);
        for (std::size_t at = 0; at + kMasked <= end - begin; ++at) {
            std::size_t same = 0;
            while (same < kMasked && memory[at + same] == (masked[same] ^ kMask))
                ++same;
            times += same == kMasked ? 1 : 0;
        }
    }
    return times;
}

TEST_F(PasswordTest, IsNowhereInTheProcessOnceItsSessionIsOver)
{
#ifdef KEEL_TEST_SANITIZED
    GTEST_SKIP() << "a sanitizer keeps what was freed, and maps terabytes";
#endif
    const auto attempt = [this](const char *newPassword, int (*callback)(char *, std::uint32_t)) {
        hoxInitExIn_t input{};
        input.stVersion = HOX_INITEX_IN_VERSION;
        input.newPassword = newPassword;
        input.passwordCallback = callback;
        typed = "secret";
        hoxHandle_t handle = 0;
        const int code = api_.hoxInitEx(&handle, &input, nullptr);
        return code == HOX_RC_OK ? api_.hoxTerminate(handle) : code;
    };
    const pid_t other = fork(); // another process changes to it
    if (other == 0) {
        char plain[kMasked + 1];
        passwordUnmasked(plain, sizeof plain);
        _exit(attempt(plain, passwordTyped));
    }
    int status = -1;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(timesInMemory(), 0);
    char plain[kMasked + 1];
    passwordUnmasked(plain, sizeof plain);
    EXPECT_EQ(timesInMemory(), 1) << "this one is found";
    std::memset(plain, 0, sizeof plain);
    asm volatile("" : : "r"(plain) : "memory");
    EXPECT_EQ(attempt(nullptr, passwordUnmasked), HOX_RC_OK);
    EXPECT_EQ(api_.hoxCleanUp(1), HOX_RC_OK);
    EXPECT_EQ(timesInMemory(), 0);
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

TEST_F(KeptPasswordTest, AKeptPasswordIsChangedWhateverAnEarlierChangeLeft)
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
        const std::string whole = readFile(file);
        const std::string line = whole.substr(whole.find_last_of('\n', whole.size() - 2) + 1);
        writeFile(file, "# old\nd\n\n" + other + c.left(line));
        hoxHandle_t handle = 0;
        EXPECT_EQ(logOn(handle, nullptr, nullptr, nullptr), c.code);
        EXPECT_EQ(text(c.code).find(line.substr(33, 64)), std::string::npos);
        if (c.code != HOX_RC_OK) {
            writeFile(file, whole);
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
