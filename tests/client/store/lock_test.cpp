// Locks and claims between real processes: each wait ends and names the holder, and neither
// outlives the process that has it, whatever that forked.
#include "client/base/descriptor.h"
#include "client/base/local/host_cache.h"
#include "client/base/own_descriptor.h"
#include "client/blob/directory/directory_store.h"
#include "client/config/cipher_secret.h"
#include "client/config/node_keys.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/node_removal.h"
#include "client/store/nodes/repository.h"
#include "client/store/upkeep/blob_removal.h"
#include "client/store/upkeep/reclaim.h"
#include "client/store/upkeep/repair.h"
#include "tests/support/child.h"
#include "tests/support/files.h"
#include "tools/common/signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

// What the process says of its limit on file sizes, as before another thread lowered it.
static bool limitIsHidden = false;

extern "C" int getrlimit(__rlimit_resource_t resource, rlimit *limit) noexcept
{
    const auto code = syscall(SYS_prlimit64, 0, resource, nullptr, limit);
    if (limitIsHidden && resource == RLIMIT_FSIZE)
        limit->rlim_cur = RLIM_INFINITY;
    return static_cast<int>(code);
}

namespace
{

using namespace arca;
using blob::DirectoryStore;
using keel::test::Child;
using keel::test::tell;

class LockTest : public testing::Test
{
protected:
    std::unique_ptr<DirectoryStore> store()
    {
        return std::make_unique<DirectoryStore>(directory_.path().string(),
                                                std::chrono::milliseconds(0));
    }
    keel::test::TempDir directory_;
};

TEST_F(LockTest, EveryWaitEndsAndNamesTheHolderUntilThatIsGone)
{
    const auto here = store();
    for (const char *name : {"pieces/aa/1", "pieces/bb/1"})
        ASSERT_TRUE(blob::putWhole(*here, name, viewOf("x")));
    const auto remove = [&](const char *name) -> Result<void> {
        ARCA_TRY(const auto opened, here->open(name));
        return here->remove(name, *opened);
    };
    Child holder([&](int told) {
        const auto own = store();
        const auto changes = own->lock("change-aa", "removing pieces");
        const auto removal = own->lock("remove-aa", "removing a blob");
        tell(told, changes && removal ? "1" : "0");
        for (;;)
            pause();
    });
    ASSERT_EQ(holder.hear(), "1");
    char host[256] = "";
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    for (const int signal : {0, SIGSTOP}) { // slow, and stopped
        kill(holder.pid, signal);
        const auto waited = here->lock("change-aa", "storing");
        ASSERT_FALSE(waited);
        EXPECT_EQ(waited.error().kind, ErrorKind::conflict);
        for (const std::string &part : {"process " + std::to_string(holder.pid) + " on " + host,
                                        std::string("removing pieces"), std::string(" since 20")})
            EXPECT_NE(waited.error().text.find(part), std::string::npos) << waited.error().text;
        EXPECT_FALSE(remove("pieces/aa/1"));
    }
    EXPECT_TRUE(remove("pieces/bb/1")) << "another node's removals wait for nobody";
    holder.end(SIGKILL);
    EXPECT_TRUE(here->lock("change-aa", "storing"));
    EXPECT_TRUE(remove("pieces/aa/1"));
}

TEST_F(LockTest, OnlyASignalThatAProgramEndsByEndsAWait)
{
    const auto held = store()->lock("change-aa", "removing pieces");
    ASSERT_TRUE(held);
    const auto waitAfter = [&](const std::function<void()> &host) {
        const Child child([&](int told) {
            (void)std::signal(SIGINT, [](int) {});
            (void)std::signal(SIGHUP, SIG_DFL); // which the test may ignore
            const auto own = store();
            host();
            tell(told, own->lock("change-aa", "storing").error().kind == ErrorKind::stopped
                           ? "stopped"
                           : "waited");
        });
        return child.hear();
    };
    EXPECT_EQ(waitAfter([] { (void)std::signal(SIGINT, SIG_IGN); }), "waited");
    EXPECT_EQ(waitAfter([] { (void)std::signal(SIGINT, SIG_DFL); }), "waited");
    EXPECT_EQ(waitAfter([] { tools::noteSignals([](int) {}); }), "waited");
    EXPECT_EQ(waitAfter([] {
                  tools::noteSignals([](int) {});
                  (void)raise(SIGHUP);
              }),
              "stopped");
}

TEST_F(LockTest, WhatNeedsThePacksOfANodeNamesWhatHoldsThem)
{
    auto repository = store::Repository::create(store(), "test");
    ASSERT_TRUE(repository);
    const auto recovery = store::publicHalfOf(*SecretKey::random());
    ASSERT_TRUE(store::publishRecoveryHalf((*repository)->blobs(), *recovery));
    ASSERT_TRUE((*repository)->nodes().registerNode("node", std::string(64, 'a')));
    const auto space = (*repository)->logOn("node", std::string(64, 'a'));
    ASSERT_TRUE(space) << space.error().text;
    const std::string key = (*space)->domain().nodeKey();
    const std::string aside = "quarantine/" + key + "/" + std::string(32, '0') + ".pieces-01234567";
    blob::BlobStore &blobs = (*repository)->blobs();
    ASSERT_TRUE(blob::putWhole(blobs, aside, viewOf("damaged")));
    const auto held = blobs.tryLock("reclaim-" + key, "looking at packs");
    ASSERT_TRUE(held && *held);
    const auto errorOf = [](const auto &done) { return done ? std::string() : done.error().text; };
    for (const std::string &text :
         {errorOf(store::Reclaim(**space, {}).run()), errorOf(store::repair(**space, false, {})),
          errorOf(store::removeBlob(**space, aside)),
          errorOf(store::removeNode(blobs, "node", {}))}) {
        EXPECT_NE(text.find("process " + std::to_string(getpid())), std::string::npos) << text;
        EXPECT_NE(text.find("(looking at packs)"), std::string::npos) << text;
    }
}

TEST_F(LockTest, AForkedChildKeepsNeitherLocksNorClaimsOfItsDeadParent)
{
    Child parent([&](int told) {
        const auto own = store();
        const auto claim = own->begin();
        const auto lock = own->lock("change-aa", "removing pieces");
        // The child says so itself: only when its fork has returned has it closed them.
        if (const pid_t child = fork(); child == 0)
            tell(told, lock && claim ? std::to_string(getpid()) : "-");
        for (;;)
            pause();
    });
    const std::string child = parent.hear();
    ASSERT_NE(child, "-");
    const auto here = store();
    EXPECT_EQ(here->livingWriters()->size(), 1U);
    EXPECT_FALSE(*here->tryLock("change-aa", "")) << "the child's closing left it to the parent";
    parent.end(SIGKILL);
    EXPECT_EQ(kill(std::stoi(child), 0), 0) << "the child lives";
    EXPECT_TRUE(here->livingWriters()->empty());
    EXPECT_TRUE(*here->tryLock("change-aa", ""));
    EXPECT_TRUE(here->removeLeftovers());
    EXPECT_TRUE(std::filesystem::is_empty(directory_ / "tmp"));
    kill(std::stoi(child), SIGKILL);
}

/// What the host does when it forks, before anything of ours that was registered later.
std::function<void()> whileForking;
const int watchesForks = pthread_atfork(
    [] {
        if (whileForking)
            whileForking();
    },
    nullptr, nullptr);

TEST_F(LockTest, WhatIsOpenedWhileTheHostForksIsWaitedForByNobodyAndKeptByNoChild)
{
    ASSERT_EQ(watchesForks, 0);
    const std::string path = directory_ / "file";
    Child parent([&](int told) {
        alarm(60); // or a wait for the fork would last for ever
        const auto own = store();
        std::unique_ptr<blob::BlobWriter> claim;
        std::unique_ptr<OwnDescriptor> opened;
        std::atomic<int> number = -1;
        std::atomic<bool> forked = false;
        std::thread opening;
        whileForking = [&] {
            // As a host does that waits in its handler for a thread that is calling.
            std::thread([&] { claim = std::move(own->begin()).value(); }).join();
            opening = std::thread([&] {
                int error = 0;
                opened = OwnDescriptor::open(
                    {AT_FDCWD, path.c_str()},
                    [&] {
                        number = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
                        while (!forked)
                            std::this_thread::yield();
                        return number.load();
                    },
                    error);
            });
            while (number < 0)
                std::this_thread::yield();
        };
        if (const pid_t child = fork(); child == 0) {
            alarm(60);
            tell(told, fcntl(number, F_GETFD) < 0 ? std::to_string(getpid()) : "kept");
        } else {
            forked = true;
            opening.join();
        }
        for (;;)
            pause();
    });
    const std::string child = parent.hear();
    ASSERT_GT(std::atoi(child.c_str()), 0) << child;
    const auto here = store();
    EXPECT_EQ(here->livingWriters()->size(), 1U);
    parent.end(SIGKILL);
    EXPECT_TRUE(here->livingWriters()->empty());
    kill(std::atoi(child.c_str()), SIGKILL);
}

/// Whether that thread is in one of these system calls.
bool isIn(pid_t thread, std::initializer_list<long> calls)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
    long number = -1;
    return file >> number && std::ranges::count(calls, number) != 0;
}

/// A host that has closed its output and gives itself another one, while we hold that number.
TEST_F(LockTest, WhatTheHostPutsInPlaceOfAStandardDescriptorMeanwhileStays)
{
    const std::string pipe = directory_ / "pipe", log = directory_ / "log";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const bool duplicates : {true, false}) {
        const Child host([&](int told) {
            close(1);
            int opened = -1;
            std::atomic<pid_t> opener = 0;
            std::thread ours([&] {
                opener = gettid();
                opened = openAbove(pipe.c_str(), O_WRONLY);
            });
            while (fcntl(1, F_GETFD) < 0 || !isIn(opener, {SYS_openat, SYS_open}))
                std::this_thread::yield();
            const int file = duplicates ? open(log.c_str(), O_WRONLY | O_CREAT, 0600) : -1;
            if (duplicates)
                dup2(file, 1);
            else
                (void)(close(1) + open(log.c_str(), O_WRONLY));
            const int reader = open(pipe.c_str(), O_RDONLY); // lets ours go on
            ours.join();
            struct stat one = {}, other = {};
            const bool kept = fstat(1, &one) == 0 && stat(log.c_str(), &other) == 0 &&
                              one.st_ino == other.st_ino && opened > 2 && reader > 2;
            tell(told, kept ? "kept" : "closed");
        });
        EXPECT_EQ(host.hear(), "kept") << duplicates;
    }
}

TEST_F(LockTest, WhateverTheUmaskOfTheHostItsFilesCanBeUsed)
{
    for (const mode_t mask : {0777U, 0277U, 0177U}) {
        const std::string part = std::to_string(mask);
        const Child host([&](int told) {
            umask(mask);
            const auto own = store();
            const auto cache = HostCache::in({directory_ / part / "cache"}, "part");
            const bool done =
                blob::putWhole(*own, "pieces/" + part + "/1", viewOf("x")) &&
                own->lock("change-" + part, "storing") && cache.directory() != "" &&
                config::NodeKeys((directory_ / part / "arca.opt").string())
                    .keep("u", "n", "p", [](const std::string &) { return Result<void>(); });
            tell(told, done ? "done" : "failed");
        });
        EXPECT_EQ(host.hear(), "done") << std::oct << mask;
    }
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory_.path()))
        EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()),
                  entry.is_directory() ? 0700U : 0600U)
            << entry.path();
}

TEST_F(LockTest, ALimitOfFilesThatIsLoweredMeanwhileEndsNoHost)
{
    for (const bool behindTheCheck : {false, true}) {
        const Child host([&](int told) {
            (void)std::signal(SIGXFSZ, SIG_DFL);
            const auto own = store();
            const auto piece = std::move(own->begin()).value();
            const std::string file = directory_ / (behindTheCheck ? "second" : "first");
            const auto other = std::move(blob::systemFiles().create(file)).value();
            const rlimit none{0, 0};
            limitIsHidden = behindTheCheck;
            const bool begun = piece->append(viewOf("x")) && setrlimit(RLIMIT_FSIZE, &none) == 0;
            std::string said = begun ? "" : "not begun ";
            const auto note = [&](const auto &done) {
                const bool named =
                    !done && done.error().text.find("ulimit -f") != std::string::npos;
                said += named ? "told " : "- ";
            };
            note(piece->commit("pieces/aa/1", blob::Unsure::takeBack));
            note(other->write(viewOf("x")));
            note(other->allocate(4096));
            other->setNote("x");
            tell(told, said);
        });
        EXPECT_EQ(host.hear(), "told told told ") << behindTheCheck;
    }
}

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

TEST_F(LockTest, OfTwoRegistrationsAtOnceTheLoserKeepsNoPasswordOfItsOwn)
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

TEST_F(LockTest, ANewNodeOfARemovedOnesNameHasAPasswordOfItsOwnAndKeepsIt)
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

TEST_F(LockTest, TheKeptPasswordsNameTheProcessThatChangesThem)
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
            while (!isIn(waits, {SYS_clock_nanosleep}))
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

TEST_F(LockTest, APasswordIsKeptUntilTheOneThatReplacesItHolds)
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

TEST_F(LockTest, PasswordsThatRootKeepsBelongToWhoseProgramsUseThem)
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
