// The passwords that a host keeps beside its option file, between real processes: none is lost,
// none stays that does not hold, and each belongs to whose programs use it.
#include "client/config/cipher_secret.h"
#include "client/config/node_keys.h"
#include "tests/support/child.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace
{

using namespace arca;
using keel::test::Child;
using keel::test::tell;

class KeptPasswords : public testing::Test
{
protected:
    keel::test::TempDir directory_;
};

Result<void> any(const std::string &)
{
    return {};
}

/// Steps of a registration over a register that is a variable.
config::NodeKeys::Introduction stepsOver(std::string &registered, const char *password,
                                         const std::function<void()> &whileMaking)
{
    return {[&] { return Result<bool>(!registered.empty()); },
            [&](const std::string &kept) {
                return kept == registered ? Result<void>()
                                          : Error{ErrorKind::authentication, "another password"};
            },
            [password, whileMaking] {
                whileMaking();
                return Result<std::string>(password);
            },
            [&](const std::string &kept) -> Result<void> {
                if (!registered.empty())
                    return Error{ErrorKind::exists, "registered already"};
                registered = kept;
                return {};
            }};
}

TEST_F(KeptPasswords, OfTwoRegistrationsAtOnceTheLoserKeepsNoPasswordOfItsOwn)
{
    const std::string uuid(32, 'u'), mine(64, 'm'), theirs(64, 't');
    const config::NodeKeys here((directory_ / "here.opt").string());
    {
        SCOPED_TRACE("on two hosts");
        const config::NodeKeys there((directory_ / "there.opt").string());
        std::string registered;
        const auto lost =
            here.introduce(uuid, "node", stepsOver(registered, mine.c_str(), [&] {
                               EXPECT_TRUE(*there.introduce(
                                   uuid, "node", stepsOver(registered, theirs.c_str(), [] {})));
                           }));
        ASSERT_FALSE(lost);
        EXPECT_EQ(lost.error().kind, ErrorKind::exists);
        EXPECT_EQ(registered, theirs);
        EXPECT_EQ(*there.find(uuid, "node", any), theirs);
        EXPECT_FALSE(here.find(uuid, "node", any));
    }
    SCOPED_TRACE("on one host");
    std::string registered;
    Result<bool> second = true;
    std::thread other;
    const auto first = here.introduce(
        uuid, "node", stepsOver(registered, mine.c_str(), [&] {
            other = std::thread([&] {
                second = here.introduce(uuid, "node", stepsOver(registered, theirs.c_str(), [] {}));
            });
        }));
    other.join();
    EXPECT_TRUE(first && *first);
    EXPECT_TRUE(second && !*second);
    EXPECT_EQ(*here.find(uuid, "node", any), mine);
}

TEST_F(KeptPasswords, ANewNodeOfARemovedOnesNameHasAPasswordOfItsOwnAndKeepsIt)
{
    const std::string uuid(32, 'u'), old(64, 'o'), fresh(64, 'f');
    const config::NodeKeys keys((directory_ / "here.opt").string());
    ASSERT_TRUE(keys.keep(uuid, "node", old, any)); // the node was removed from another host
    std::string registered;
    const auto steps = stepsOver(registered, fresh.c_str(), [] {});
    EXPECT_TRUE(*keys.introduce(uuid, "node", steps));
    EXPECT_EQ(registered, fresh);
    EXPECT_EQ(keel::test::readFile(keys.path()).find(old), std::string::npos);
    // A removal on this host ends, and an exported key of the old node comes, only now.
    EXPECT_TRUE(keys.forget(uuid, "node", steps.prove));
    EXPECT_FALSE(keys.keep(uuid, "node", old, steps.prove));
    EXPECT_EQ(*keys.find(uuid, "node", any), fresh);
    registered.clear();
    EXPECT_TRUE(keys.forget(uuid, "node", steps.prove));
    EXPECT_FALSE(keys.find(uuid, "node", any));
}

TEST_F(KeptPasswords, TheKeptPasswordsNameTheProcessThatChangesThem)
{
    const std::string options = directory_ / "here.opt", uuid(32, 'u'), password(64, 'p');
    Child holder([&](int told) {
        std::string registered;
        (void)config::NodeKeys(options).introduce(uuid, "node",
                                                  stepsOver(registered, password.c_str(), [&] {
                                                      tell(told, "1");
                                                      for (;;)
                                                          pause();
                                                  }));
    });
    ASSERT_EQ(holder.hear(), "1");
    const config::NodeKeys keys(options, std::chrono::milliseconds(0));
    const auto kept = keys.keep(uuid, "other", password, any);
    ASSERT_FALSE(kept);
    EXPECT_EQ(kept.error().kind, ErrorKind::conflict);
    for (const std::string &part : {"process " + std::to_string(holder.pid) + " on ",
                                    std::string("(changing kept passwords)")})
        EXPECT_NE(kept.error().text.find(part), std::string::npos) << kept.error().text;
    // A program that notes a signal, as ours do, ends although it waits.
    const Child waiter([&](int told) {
        struct sigaction noted = {};
        noted.sa_handler = [](int) {};
        noted.sa_flags = static_cast<int>(SA_RESETHAND);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP})
            sigaddset(&noted.sa_mask, signal);
        sigaction(SIGTERM, &noted, nullptr);
        std::thread signals([waits = gettid()] {
            while (!keel::test::isInCall(waits, {SYS_clock_nanosleep}))
                std::this_thread::yield();
            kill(getpid(), SIGTERM);
        });
        const auto ended = config::NodeKeys(options).keep(uuid, "other", password, any);
        signals.join();
        tell(told, !ended && ended.error().kind == ErrorKind::stopped ? "stopped" : "went on");
    });
    EXPECT_EQ(waiter.hear(), "stopped");
    holder.end(SIGKILL);
    EXPECT_TRUE(keys.keep(uuid, "other", password, any));
}

TEST_F(KeptPasswords, APasswordIsKeptUntilTheOneThatReplacesItHolds)
{
    const std::string uuid(32, 'u'), old(64, 'o'), fresh(64, 'f');
    const config::NodeKeys keys((directory_ / "here.opt").string());
    std::string holds = old;
    const auto prove = [&](const std::string &kept) -> Result<void> {
        return kept == holds ? Result<void>() : Error{ErrorKind::authentication, "another one"};
    };
    const auto recover = [&](bool reaches, bool reports) {
        return keys.recover(uuid, "node", fresh, prove, [&]() -> Result<void> {
            EXPECT_TRUE(holds != old || *keys.find(uuid, "node", prove) == old);
            holds = reaches ? fresh : holds;
            EXPECT_TRUE(!reaches || *keys.find(uuid, "node", prove) == fresh);
            return reports ? Result<void>() : Error{ErrorKind::io, "stopped here"};
        });
    };
    ASSERT_TRUE(keys.keep(uuid, "node", old, any));
    for (const bool reaches : {false, true}) {
        EXPECT_FALSE(recover(reaches, false));
        EXPECT_EQ(*keys.find(uuid, "node", prove), holds);
    }
    EXPECT_TRUE(recover(true, true));
    holds = "lost";
    EXPECT_FALSE(keys.find(uuid, "node", prove));
    EXPECT_TRUE(recover(true, true)) << "none that is kept holds any more";
    EXPECT_EQ(*keys.find(uuid, "node", prove), fresh);
    EXPECT_EQ(keel::test::readFile(keys.path()).find(old), std::string::npos);
}

TEST_F(KeptPasswords, PasswordsThatRootKeepsBelongToWhoseProgramsUseThem)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can";
    const std::string options = directory_ / "arca.opt", kept = options + ".keys";
    const config::NodeKeys keys(options);
    const auto ownerAfterKeeping = [&] {
        EXPECT_TRUE(keys.keep("uuid", "node", "password", any));
        struct stat file = {}, lock = {};
        EXPECT_EQ(stat(kept.c_str(), &file) + stat((kept + ".lock").c_str(), &lock), 0);
        EXPECT_EQ(file.st_uid, lock.st_uid);
        EXPECT_EQ(file.st_mode & 0777U, 0600U);
        return file.st_uid;
    };
    keel::test::writeFile(options, "");
    EXPECT_EQ(ownerAfterKeeping(), 0U);
    std::filesystem::remove(kept + ".lock");
    ASSERT_EQ(chown(kept.c_str(), 65534, 65534), 0);
    EXPECT_EQ(ownerAfterKeeping(), 65534U) << "as it was";
    std::filesystem::remove(kept);
    std::filesystem::remove(kept + ".lock");
    ASSERT_EQ(chown(options.c_str(), 12345, 12345), 0);
    EXPECT_EQ(ownerAfterKeeping(), 12345U) << "as the options";
    struct stat secret = {};
    EXPECT_TRUE(config::cipherSecret(options));
    EXPECT_EQ(stat((options + ".secret").c_str(), &secret), 0);
    EXPECT_EQ(secret.st_uid, 12345U);
}

} // namespace
