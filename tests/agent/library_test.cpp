// libobk.so as a guest in a foreign process: what it brings, what it needs, what it leaves behind,
// and what it does when the storage client is not what it should be.

#include "tests/agent/agent_fixture.h"
#include "tests/support/child.h"

#include <dlfcn.h>
#include <malloc.h>
#include <set>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;
using keel::test::readFile;
using keel::test::run;
using keel::test::writeFile;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static constexpr bool kSanitized = true;
#else
static constexpr bool kSanitized = false;
#endif

/// The words that follow mark in the output of a program, one a line.
static std::set<std::string> wordsAfter(const std::string &mark, const std::string &output)
{
    std::set<std::string> found;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        if (const auto at = line.find(mark); at != std::string::npos)
            found.insert(line.substr(at + mark.size()));
    return found;
}

TEST(LibraryTest, ExportsItsInterfaceAndNothingElse)
{
    std::set<std::string> names =
        wordsAfter(" T ", run({"nm", "-D", "--defined-only", keel::test::agentLibrary()}).out);
    for (const char *name :
         {"sbtinit", "sbtinit2", "sbtend", "sbtbackup", "sbtwrite2", "sbtclose2", "sbtrestore",
          "sbtread2", "sbtinfo2", "sbtremove2", "sbtcommand", "sbterror", "veloQueryVersion"})
        EXPECT_EQ(1U, names.erase(name)) << name;
    for (const char *later :
         {"sbtopen", "sbtwrite", "sbtread", "sbtclose", "sbtinfo", "sbtremove", "psveloUpdatePswd"})
        names.erase(later);
    EXPECT_EQ(std::set<std::string>{}, names);
    const std::string all = run({"nm", "-D", "--defined-only", keel::test::agentLibrary()}).out;
    EXPECT_EQ(occurrences(all, "\n"), occurrences(all, " T ")) << all;
}

TEST(LibraryTest, BringsTheMaintenanceUtilities)
{
    const std::string all = run({"nm", "-C", keel::test::agentLibrary()}).out;
    for (const char *name :
         {"mtSetUp", "mtQueryObjects", "mtRemoveObjects", "mtExpire", "mtClasses", "mtLogPrune",
          "mtWrapAppend", "mtAsk", "mtMeasure", "mtGroupMake", "mtAccessGrant",
          "DHoxApi::AgtHoxRCMsg", "DHoxApi::LogApiError", "DHoxApi::checkCompatibility"})
        EXPECT_NE(std::string::npos, all.find(std::string(" t ") + name + "(")) << name;
}

// At the load there may be no memory, and after an exit handler of ours the host may still call.
// What runs there is known to need neither.
TEST(LibraryTest, MakesNoObjectsAtTheLoad)
{
    if (kSanitized)
        GTEST_SKIP() << "a sanitizer registers every file";
    std::set<std::string> files;
    for (const auto &library : {keel::test::agentLibrary(), keel::test::clientLibrary()})
        for (const std::string &file :
             wordsAfter("_GLOBAL__sub_I_", run({"nm", library.string()}).out))
            if (const auto end = file.find(".cpp"); end != std::string::npos)
                files.insert(file.substr(0, end));
    EXPECT_EQ((std::set<std::string>{"crypto_locks", "crypto_start", "cutime", "dhoxapi",
                                     "mtsession", "own_descriptor", "retained", "thread"}),
              files);
}

// A child that is forked while a thread makes such an object waits for that thread for ever.
TEST(LibraryTest, MakesNoStaticObjectInItsFirstUse)
{
    for (const auto &library : {keel::test::agentLibrary(), keel::test::clientLibrary()})
        for (const std::string &object :
             wordsAfter("guard variable for ", run({"nm", "-C", library.string()}).out))
            EXPECT_TRUE(object.starts_with("std::")) << object;
}

TEST(LibraryTest, NeedsOnlyTheSystem)
{
    const std::string dynamic = run({"readelf", "-dW", keel::test::agentLibrary()}).out;
    EXPECT_EQ(1U,
              wordsAfter("Library runpath: ", dynamic).count("[$ORIGIN:$ORIGIN/../../api/bin64]"))
        << dynamic;
    if (kSanitized)
        GTEST_SKIP() << "a sanitizer brings needs of its own";
    for (const std::string &library : wordsAfter("Shared library: ", dynamic))
        EXPECT_TRUE(library == "[libc.so.6]" || library == "[libm.so.6]" ||
                    library == "[libdl.so.2]" || library == "[libpthread.so.0]" ||
                    library == "[ld-linux-x86-64.so.2]")
            << library;
}

TEST(LibraryTest, LeavesNoMemoryBehindWhenItIsClosed)
{
    if (kSanitized)
        GTEST_SKIP() << "the runtime of a sanitizer is the host's, and stays";
    constexpr std::size_t kRounds = 20;
    std::size_t before = 0; // what the system itself keeps for libraries is there by then
    for (std::size_t round = 0; round < 2 * kRounds; ++round) {
        void *const library = dlopen(keel::test::agentLibrary().c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, library) << dlerror();
        dlclose(library);
        if (round == kRounds)
            before = mallinfo2().uordblks;
    }
    EXPECT_LT(mallinfo2().uordblks, before + kRounds * 1024);
}

/// The outcome of sbtinit in a process of its own, so that no library opened there stays here.
template <class Prepare> static std::string initialiseApart(Prepare prepare)
{
    keel::test::Child child([&](int told) {
        AgentLibrary *agent = prepare();
        sbtInitError error{};
        sbtPair *out = nullptr;
        const int rc = agent->sbtinit(&error, nullptr, &out);
        keel::test::tell(told, std::to_string(rc) + " " + std::to_string(error.code) + " " +
                                   std::to_string(error.secondary));
    });
    const std::string outcome = child.hear();
    const int status = child.wait();
    return status == 0 ? outcome : "ended with " + std::to_string(status);
}

TEST(LibraryTest, RefusesAStorageClientThatIsMissingOrIncomplete)
{
    keel::test::Installation installation({"testnode", {}, {}, false});
    fs::copy_file(keel::test::agentLibrary(), "libobk.so"); // with no client on its search path
    const auto alone = [] { return new AgentLibrary(fs::absolute("libobk.so")); };
    EXPECT_EQ("-1 7011 104", initialiseApart(alone));
    EXPECT_NE(std::string::npos, readFile("veloerror.log").find("RBQ0156S"));

    const std::string client = readFile(KEEL_SCRIPTED_CLIENT);
    const std::set<std::string> operations =
        wordsAfter(" T ", run({"nm", "-D", "--defined-only", KEEL_SCRIPTED_CLIENT}).out);
    int lacking = 0;
    for (const std::string &operation : operations) {
        if (operation.compare(0, 3, "hox") != 0)
            continue;
        // Under another first letter in the table of names, the operation is not found any more.
        std::string changed = client;
        const std::size_t at = changed.find('\0' + operation + '\0');
        ASSERT_NE(std::string::npos, at);
        changed[at + 1] = 'x';
        writeFile("libApiHX64.so", changed);
        const auto withClient = [&] {
            if (!dlopen(fs::absolute("libApiHX64.so").c_str(), RTLD_NOW))
                _exit(9);
            return alone();
        };
        EXPECT_EQ("-1 7011 104", initialiseApart(withClient)) << operation;
        ++lacking;
    }
    EXPECT_EQ(44, lacking);
    writeFile("libApiHX64.so", client);
    EXPECT_EQ("0 0 0", initialiseApart([&] {
                  dlopen(fs::absolute("libApiHX64.so").c_str(), RTLD_NOW);
                  return alone();
              }));
    // What the loader did not find once it never finds again.
    fs::create_directories("oracle/bin64");
    fs::copy_file(keel::test::agentLibrary(), "oracle/bin64/libobk.so");
    EXPECT_EQ("0 0 0", initialiseApart([&] {
                  auto *const agent = new AgentLibrary(fs::absolute("oracle/bin64/libobk.so"));
                  sbtInitError error{};
                  sbtPair *out = nullptr;
                  if (agent->sbtinit(&error, nullptr, &out) == 0)
                      _exit(9);
                  fs::create_directories("api/bin64");
                  writeFile("api/bin64/libApiHX64.so", client);
                  if (geteuid() == 0 && setreuid(65534, 0) != 0) // who may not look there
                      _exit(9);
                  return agent;
              }));
}
