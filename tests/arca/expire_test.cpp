// Expiry: what a class lets go goes, the active version and the last one stay, and an expiry that
// is killed and begun again ends as one that was not.
#include "agents/common/maint/mtexpire.h"
#include "tests/arca/arca_fixture.h"
#include "tests/support/child.h"
#include "tests/support/terminal.h"

#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

namespace keel::test
{

namespace
{

/// Leaves the end of the process to be waited for.
bool isRunning(pid_t process)
{
    siginfo_t state{};
    return waitid(P_PID, static_cast<id_t>(process), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           state.si_pid == 0;
}

class ExpireTest : public ArcaTest
{
protected:
    /// Stores and makes inactive, `inactive` times over, then once more when there is an active
    /// version.
    void history(hoxHandle_t handle, const std::string &piece, int inactive, bool active,
                 const char *className)
    {
        for (int i = 0; i < inactive + (active ? 1 : 0); ++i) {
            store(handle, piece, piece + std::to_string(i), className);
            const hox64_t id = recordOf(handle, piece).objId;
            ASSERT_EQ(i < inactive ? changeById(handle, HOX_DEACTIVATE_BACKUP_ID, id) : 0, 0);
        }
    }

    /// So many names with as many inactive versions each, and an active one of all or every other.
    void fill(int names, int inactive, bool allActive)
    {
        const hoxHandle_t handle = logOn();
        for (int i = 0; i < names; ++i)
            history(handle, "p" + std::to_string(i), inactive, allActive || i % 2 == 0, nullptr);
    }

    /// Of the versions of one piece.
    static mtExpired_t expire(const std::string &piece, int daysLater, bool dryRun)
    {
        mtSession finding, changing;
        EXPECT_EQ(finding.start({}), HOX_RC_OK);
        EXPECT_EQ(changing.start({}), HOX_RC_OK);
        mtExpiry_t expiry;
        expiry.names.llName = "/" + piece;
        expiry.now = std::time(nullptr) + daysLater * 86400;
        expiry.dryRun = dryRun;
        mtExpired_t totals;
        EXPECT_EQ(mtExpire(
                      finding, changing, expiry,
                      [](const mtObject_t &, int rc) { return rc == HOX_RC_OK; }, totals),
                  HOX_RC_OK);
        return totals;
    }
};

TEST_F(ExpireTest, WhatTheClassLetsGoGoes)
{
    const struct {
        const char *versions, *days;
        int inactive;
        bool active;
        int daysLater;
        unsigned stay; ///< inactive versions
    } cases[] = {
        {"1", "forever", 3, true, 9999, 1},
        {"2", "forever", 3, false, 0, 2},
        {"nolimit", "forever", 3, true, 9999, 3},
        {"nolimit", "30", 3, true, 29, 3},
        {"nolimit", "30", 3, true, 31, 0},
        {"nolimit", "30", 3, false, 31, 1},
        {"2", "30", 3, true, 29, 2},
        {"2", "30", 3, true, 31, 0},
        {"1", "0", 2, true, 0, 0},
        {"1", "0", 2, false, 0, 1},
        {"5", "1", 0, true, 9999, 0},
    };
    const hoxHandle_t handle = logOn();
    for (const auto &c : cases) {
        const auto number = std::to_string(&c - cases);
        const std::string piece = "p" + number, className = "C" + number;
        SCOPED_TRACE(className);
        ASSERT_EQ(
            arca({"class", "define", className, "--versions", c.versions, "--days", c.days}).status,
            0);
        history(handle, piece, c.inactive, c.active, className.c_str());
        // A class that was deleted goes on to say what it said.
        if ((&c - cases) % 2 == 0) {
            ASSERT_EQ(arca({"class", "delete", className}).status, 0);
        }
    }
    ASSERT_EQ(mtSetUp(installation_.clientOptions()), 0);
    for (const auto &c : cases) {
        const std::string piece = "p" + std::to_string(&c - cases);
        SCOPED_TRACE(piece);
        const auto going = static_cast<unsigned>(c.inactive) - c.stay;
        EXPECT_EQ(expire(piece, c.daysLater, true).deleted, going) << "a dry run tells";
        EXPECT_EQ(expire(piece, c.daysLater, true).inactive, static_cast<unsigned>(c.inactive));
        EXPECT_EQ(expire(piece, c.daysLater, false).deleted, going);
        const mtExpired_t again = expire(piece, c.daysLater, false);
        EXPECT_EQ(again.deleted, 0U) << "nothing twice";
        EXPECT_EQ(again.inactive, c.stay);
        EXPECT_EQ(again.looked, c.stay + (c.active ? 1 : 0)) << "the active one stays";
    }
    mtCleanUp();
}

TEST_F(ExpireTest, WhatIsBoundToADamagedClassStaysAndNothingElseDoes)
{
    const hoxHandle_t handle = logOn();
    const auto standard = stored("classes").front();
    ASSERT_EQ(arca({"class", "define", "BAD", "--days", "0"}).status, 0);
    const auto classes = stored("classes");
    const auto record = classes.front() == standard ? classes.back() : classes.front();
    ASSERT_EQ(arca({"class", "change", "STANDARD", "--days", "0"}).status, 0);
    history(handle, "bad", 1, true, "BAD");
    history(handle, "plain", 1, true, nullptr);
    flipByte(record, 20);

    const std::string blob = record.lexically_relative(installation_.repository());
    const ProgramResult expired = arca({"expire", "--yes"});
    EXPECT_EQ(expired.status, 1);
    EXPECT_NE(expired.err.find(blob), std::string::npos) << expired.err;
    store(handle, "late", "stream", "bad");
    EXPECT_EQ(listed({"--all"}), "bad bad late plain");
    const ProgramResult list = arca({"class", "list"});
    EXPECT_EQ(list.status, 1);
    EXPECT_NE(list.out.find("STANDARD"), std::string::npos) << list.out;
    EXPECT_NE(list.err.find(blob), std::string::npos) << list.err;
    EXPECT_EQ(arca({"class", "define", "NEW"}).status, 0);
    EXPECT_EQ(arca({"show", "bad"}).status, 0);
    EXPECT_EQ(arcaJson({"rm", "--blob", blob, "--dry-run"})["blobs"][0]["pieces"], 3);
    EXPECT_EQ(arca({"rm", "--blob", blob, "--yes"}).status, 0);
    EXPECT_EQ(arca({"class", "list"}).status, 0);

    // What a later state has replaced takes nothing along.
    const auto states = stored("classes");
    ASSERT_EQ(arca({"class", "change", "STANDARD", "--days", "1"}).status, 0);
    int superseded = 0;
    for (const auto &now : stored("classes"))
        for (const auto &old : states)
            if (now.parent_path() == old.parent_path() && std::ranges::count(states, now) == 0) {
                writeFile(old, "damaged");
                const std::string name = old.lexically_relative(installation_.repository());
                const ProgramResult told = arca({"rm", "--blob", name, "--dry-run"});
                EXPECT_NE(told.out.find("nothing else changes, as classes/"), std::string::npos)
                    << told.out << told.err;
                ++superseded;
            }
    EXPECT_EQ(superseded, 1);

    // A damaged record of a filespace keeps nothing of it out of reach; rm --blob takes along all
    // that lies in it, and says so.
    const auto space = stored("filespaces").back();
    flipByte(space, 20);
    const std::string named = space.lexically_relative(installation_.repository());
    EXPECT_EQ(arca({"ls"}).status, 0);
    const ProgramResult verified = arca({"verify"});
    EXPECT_EQ(verified.status, 1);
    EXPECT_NE((verified.out + verified.err).find("arca rm --blob " + named), std::string::npos)
        << verified.out << verified.err;
    std::filesystem::permissions(space.parent_path(), std::filesystem::perms::owner_all);
    for (const auto &state : stored("filespaces"))
        if (state != space)
            std::filesystem::remove(state);
    const ProgramResult dry = arca({"rm", "--blob", named, "--dry-run"});
    EXPECT_NE(dry.out.find("/fs is not registered any more, and 4 pieces in it are"),
              std::string::npos)
        << dry.out << dry.err;
    EXPECT_EQ(arca({"rm", "--blob", named, "--yes"}).status, 0);
    EXPECT_EQ(listed({"--all"}), "");
}

TEST_F(ExpireTest, WhoeverStopsTheQueryLosesNothing)
{
    constexpr int kNames = 30;
    fill(kNames, 1, true);
    ASSERT_EQ(arca({"class", "change", "STANDARD", "--days", "0"}).status, 0);
    ASSERT_EQ(mtSetUp(installation_.clientOptions()), 0);
    {
        mtSession finding, changing;
        ASSERT_EQ(finding.start({}), HOX_RC_OK);
        ASSERT_EQ(changing.start({}), HOX_RC_OK);
        const auto report = [](const mtObject_t &, int) { return true; };
        // Stops at the n-th time of being told; whether both numbers were the same each time.
        std::vector<bool> same;
        const auto stopped = [&](std::size_t at, bool expiring) {
            same.clear();
            mtFilter_t filter;
            filter.progress = [&](std::uint64_t done, std::uint64_t planned) {
                same.push_back(done == planned);
                return same.size() != at;
            };
            mtExpired_t totals;
            return expiring ? mtExpire(finding, changing, {filter, std::time(nullptr), false},
                                       report, totals)
                            : mtRemoveObjects(finding, changing, filter,
                                              at == 0 ? mtAction_t::nothing : mtAction_t::remove,
                                              report);
        };
        (void)stopped(0, false); // fills the catalogue
        ASSERT_EQ(stopped(0, false), HOX_RC_OK);
        const std::size_t last = same.size();
        EXPECT_EQ(std::ranges::count(same, true), 2) << "when it begins to answer, and then";
        for (const bool expiring : {false, true})
            for (const std::size_t at :
                 {std::size_t{1}, last / 2, last - 3, last - 2, last - 1, last}) {
                EXPECT_EQ(stopped(at, expiring), HOX_RC_ABORTED) << at << " of " << last;
                EXPECT_EQ(same.size(), at);
            }
    }
    mtCleanUp();
    EXPECT_EQ(arcaJson({"ls", "--all"})["count"], 2 * kNames);
}

TEST_F(ExpireTest, CtrlCEndsEveryPhaseInOneLine)
{
    constexpr int kNames = 30;
    fill(kNames, 1, true);
    ASSERT_EQ(arca({"class", "define", "GOLD"}).status, 0);
    ASSERT_EQ(arca({"class", "change", "STANDARD", "--days", "0"}).status, 0);
    const auto state = [&] {
        return std::tuple(arcaJson({"ls"})["count"].get<int>(),
                          arcaJson({"ls", "--inactive"})["count"].get<int>(),
                          arcaJson({"ls", "--class", "GOLD"})["count"].get<int>());
    };
    for (const Words &verb : {Words{"class", "bind", "GOLD", "*"}, {"expire"}, {"rm", "*"}}) {
        const std::string name = verb[0] == "class" ? "class bind" : verb[0];
        const auto before = state();
        Terminal asks(commandLine(verb));
        asks.answer("[y/N] ", "\x03");
        EXPECT_EQ(asks.finish(), 1) << asks.shown;
        EXPECT_NE(asks.shown.find("arca " + name + ": nothing was changed: interrupted"),
                  std::string::npos)
            << asks.shown;
        for (const bool filled : {false, true}) {
            if (!filled)
                std::filesystem::remove_all(installation_.caches());
            Words words = verb;
            words.emplace_back("--yes");
            // Once the catalogue is open, wherever it is by then.
            Program running(commandLine(words));
            const auto open = [&] {
                return std::ranges::any_of(cached("objects-"), [](const auto &file) {
                    const int lock = ::open((file.string() + "-lock").c_str(), O_RDWR);
                    const bool used = lock >= 0 && flock(lock, LOCK_EX | LOCK_NB) != 0;
                    ::close(lock);
                    return used;
                });
            };
            while (isRunning(running.pid()) && !open()) {
            }
            running.signal(SIGINT);
            const ProgramResult result = running.wait();
            SCOPED_TRACE(name + ": " + result.err);
            EXPECT_EQ(result.err.find("arca " + name + ": interrupted; "),
                      result.status == 1 ? 0 : std::string::npos);
            EXPECT_EQ(std::ranges::count(result.err, '\n'), result.status);
            EXPECT_TRUE(result.err.find("nothing was changed") == std::string::npos ||
                        state() == before);
        }
    }
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 0);
}

TEST_F(ExpireTest, TheFirstSignalEndsAWaitForALock)
{
    const hoxHandle_t handle = logOn();
    store(handle, "p", "stays");
    store(handle, "q", "goes");
    ASSERT_EQ(arca({"rm", "q", "--yes"}).status, 0) << "it makes the file of the lock";
    const auto locks = stored("locks");
    const auto lock = std::ranges::find_if(
        locks, [](const auto &file) { return file.filename().string().starts_with("change-"); });
    ASSERT_NE(lock, locks.end());
    const int held = ::open(lock->c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    for (const int number : {SIGINT, SIGTERM}) {
        Program running(commandLine({"rm", "p", "--yes"}));
        // Between two looks at a lock it sleeps, and nowhere else.
        while (isRunning(running.pid()) && !isInCall(running.pid(), {SYS_clock_nanosleep})) {
        }
        running.signal(number);
        const ProgramResult result = running.wait();
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("; nothing was changed"), std::string::npos) << result.err;
    }
    ::close(held);
    EXPECT_EQ(listed({}), "p");
}

TEST_F(ExpireTest, KilledAnywhereItEndsAsIfItWereNot)
{
    constexpr int kNames = 25, kInactive = 3;
    fill(kNames, kInactive, false);
    // Ever later moments, told by what the run has done to the repository so far.
    for (std::size_t touched = 1; touched < 60; touched += 12) {
        const std::size_t before = stored("objects").size() + stored("inactive").size();
        Program running(commandLine({"expire", "--yes"}));
        std::size_t now = before;
        while (isRunning(running.pid()) && (now > before ? now - before : before - now) < touched)
            now = stored("objects").size() + stored("inactive").size();
        running.signal(SIGKILL);
        (void)running.wait();
        const auto left = arcaJson({"ls", "--inactive"})["count"].get<int>();
        EXPECT_TRUE(left == kNames * kInactive || left == kNames) << left << ": one step or none";
        if (left == kNames)
            break;
    }
    EXPECT_EQ(arca({"expire", "--yes"}).status, 0);
    EXPECT_EQ(arcaJson({"ls", "--inactive"})["count"], kNames);
    EXPECT_EQ(arcaJson({"ls"})["count"], (kNames + 1) / 2) << "no active version went";
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 0);
    EXPECT_EQ(arcaJson({"expire", "--yes"})["expired"], 0);
}

} // namespace

} // namespace keel::test
