// Locks and claims between real processes: each wait ends and names the holder, and neither
// outlives the process that has it, whatever that forked.
#include "client/base/descriptor.h"
#include "client/base/local/host_cache.h"
#include "client/base/own_descriptor.h"
#include "client/blob/directory/directory_store.h"
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

#include <atomic>
#include <csignal>
#include <fcntl.h>
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
            while (fcntl(1, F_GETFD) < 0 || !keel::test::isInCall(opener, {SYS_openat, SYS_open}))
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

} // namespace
