// The agent trace, through its calls and the files it leaves.
#include "common/ut/trace.h"
#include "tests/support/child.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
using namespace keel::test;

constexpr std::size_t megabyte = 1'048'576;

std::size_t countOf(const std::string &text, const std::string &what)
{
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size())
        ++count;
    return count;
}

class Trace : public testing::Test
{
protected:
    ~Trace() override { trEnd(); }

    std::string content(const char *suffix = "") const { return readFile(file() + suffix); }
    std::string file() const { return (directory / "trace").string(); }

    unsigned begin(unsigned megabytes = 0, unsigned segment = 0)
    {
        trEnd();
        trSetMaxTraceSize(megabytes);
        trSetMaxTraceSegSize(segment);
        const unsigned rc = trBegin(file().c_str(), 0);
        trEnable("GENERAL", 1);
        trEnable("TIMESTAMP PREFIX", 0);
        return rc;
    }

    /// Writes lines "line FIRST ..." to LAST, a hundred bytes each.
    static void writeLines(unsigned first, unsigned last)
    {
        for (unsigned n = first; n <= last; ++n)
            KEEL_TRACE(TR_GENERAL, "line %010u%*s\n", n, 84, "");
    }

    TempDir directory;
};

/// The numbers of the lines of a trace as it lies in its file, half lines left out.
std::vector<unsigned long> numbersIn(const std::string &text)
{
    std::vector<unsigned long> numbers;
    for (std::size_t at = 0; (at = text.find("line ", at)) != std::string::npos; at += 5)
        if (at + 100 <= text.size() && text[at + 99] == '\n')
            numbers.push_back(std::stoul(text.substr(at + 5, 10)));
    return numbers;
}

TEST_F(Trace, WritesStatementsOfTheClassesThatAreOn)
{
    KEEL_TRACE(TR_GENERAL, "before\n");
    EXPECT_EQ(begin(), 0U);
    errno = ENOENT;
    KEEL_TRACE(TR_GENERAL, "one %d\n", 1);
    EXPECT_EQ(errno, ENOENT);
    KEEL_TRACE(TR_NLS, "not this\n");
    trEnable("tr_prefix pid", 1);
    KEEL_TRACE(TR_GENERAL, "two\n");
    const std::string text = content();
    EXPECT_EQ(text.find("ARCA Trace   ARCA 7.1.3.0 DEVBUILD\nBuild Date: "), 0U);
    EXPECT_NE(text.find("\nBEGINNING NEW TRACE\n\none 1\n["), std::string::npos) << text;
    EXPECT_NE(text.find("] : trace_test.cpp      (  "), std::string::npos) << text;
    EXPECT_EQ(text.find("not this"), std::string::npos);
    EXPECT_EQ(text.find("before"), std::string::npos);

    trEnable("prefix pid", 0);
    const std::size_t before = content().size();
    KEEL_TRACE(TR_GENERAL, "%s", std::string(9000, 'x').c_str());
    EXPECT_EQ(content().size() - before, 5181U) << "a long statement is cut";
    trEnd();
    KEEL_TRACE(TR_GENERAL, "after the end\n");
    EXPECT_EQ(content().find("after the end"), std::string::npos);
}

TEST_F(Trace, KnowsItsClassesByManyNames)
{
    const struct {
        const char *flags;
        std::vector<trClass> on;
        unsigned rc;
    } cases[] = {
        {"TR_ORCLEVEL1 nls", {TR_ORCLEVEL1, TR_NLS}, 0},
        {"  Oracle  ", {TR_ORCLEVEL0, TR_ORCLEVEL1, TR_ORCLEVEL2}, 0},
        {"nosuch TR_API", {TR_API}, TR_RC_FLAG},
        {"tr_", {}, TR_RC_FLAG},
        {"", {}, 0},
    };
    for (const auto &one : cases) {
        trEnd();
        ASSERT_EQ(trBegin(file().c_str(), 0), 0U);
        EXPECT_EQ(trEnable(one.flags, 1), one.rc) << one.flags;
        for (unsigned which = 0; which < TR_CLASSES; ++which)
            EXPECT_EQ(trTest(static_cast<trClass>(which)),
                      std::count(one.on.begin(), one.on.end(), which) == 1)
                << one.flags << " " << which;
    }
    EXPECT_EQ(countOf(content(), "Invalid trace flag: nosuch\n"), 1U);
    trEnable("ALL", 1);
    EXPECT_TRUE(trTest(TR_MEMORY) && trTest(TR_ORCBUFF) && !trTest(TR_TIMESTAMP));
    trEnable("ALL", 0);
    EXPECT_EQ(trMask.load(), 0U);
}

/// What a child process that runs the steps leaves on its two streams, its end in front.
template <class Steps> std::string streamsOf(const std::filesystem::path &directory, Steps steps)
{
    const std::string path = (directory / "streams").string();
    const int status = inChild([&] {
        const int streams = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        dup2(streams, STDOUT_FILENO);
        dup2(streams, STDERR_FILENO);
        steps();
        return 0;
    });
    return std::to_string(status) + " " + readFile(path);
}

TEST_F(Trace, PrintsNothingUnlessAStreamIsNamed)
{
    const std::string none = (directory / "no/such/trace").string();
    EXPECT_EQ(streamsOf(directory.path(),
                        [&] {
                            trBegin(none.c_str(), 1);
                            trBegin(std::string(300, 'n').c_str(), 1);
                            trBegin("", 1);
                            trBegin("/dev/full", 1); // every write to it fails
                            trEnable("ALL nosuch", 1);
                            KEEL_TRACE(TR_GENERAL, "lost\n");
                        }),
              "0 ");
    EXPECT_EQ(streamsOf(directory.path(),
                        [] {
                            trBegin("stdout", 0);
                            trEnable("GENERAL", 1);
                            KEEL_TRACE(TR_GENERAL, "seen\n");
                        }),
              "0 Tracing to stdout\nseen\n");
    EXPECT_EQ(streamsOf(directory.path(),
                        [] {
                            trSetConsole(
                                [](const char *text) { dprintf(STDERR_FILENO, "<%s>", text); });
                            trBegin("Console", 0);
                            trEnable("GENERAL", 1);
                            KEEL_TRACE(TR_GENERAL, "shown");
                            trBegin("/no/such", 0);
                        }),
              "0 <shown><Unable to open trace output file /no/such\n>");
    EXPECT_EQ(streamsOf(directory.path(),
                        [] {
                            int ends[2];
                            if (pipe(ends) != 0)
                                _exit(1);
                            dup2(ends[1], STDOUT_FILENO);
                            close(ends[0]);
                            trBegin("STDOUT", 1);
                            _exit(trActive() ? 2 : 0);
                        }),
              "0 ")
        << "a broken pipe ends the trace, not the host";
}

TEST_F(Trace, EndsAtAFailedWriteAndReportsCodes)
{
    EXPECT_EQ(trBegin("/dev/full", 0), TR_RC_OPEN);
    EXPECT_FALSE(trActive());
    EXPECT_EQ(trBegin(nullptr, 0), TR_RC_NAME);
    EXPECT_EQ(trBegin(std::string(261, 'n').c_str(), 0), TR_RC_NAME);
    EXPECT_EQ(trBegin(directory.path().c_str(), 0), TR_RC_OPEN);
    EXPECT_EQ(trBegin(file().c_str(), 1), 0U);
    EXPECT_NE(content().find(" - Trace begun.\n"), std::string::npos);
}

/// What must hold of a wrapped file after line number newest was written.
void checkWrapped(const std::string &text, unsigned long newest)
{
    ASSERT_LE(text.size(), megabyte);
    ASSERT_EQ(countOf(text, "END OF DATA"), 1U);
    const std::size_t end = text.find("\nEND OF DATA\n\n");
    ASSERT_EQ(std::stoul(text.substr(12, 12)), end) << "the header says where to go on";
    const auto young = numbersIn(text.substr(0, end));
    ASSERT_FALSE(young.empty());
    ASSERT_EQ(young.back(), newest);
    auto inOrder = numbersIn(text.substr(end));
    inOrder.insert(inOrder.end(), young.begin(), young.end());
    for (std::size_t i = 1; i < inOrder.size(); ++i)
        ASSERT_EQ(inOrder[i], inOrder[i - 1] + 1) << "in order from the oldest line left";
    if (newest > 11'000) {
        ASSERT_GT(inOrder.size(), 10'300U) << "little of the room is lost";
    }
}

TEST_F(Trace, WrapsWithinItsMaximumAndGoesOnWhereItEnded)
{
    ASSERT_EQ(begin(1), 0U);
    EXPECT_EQ(content().find("ARCA Trace  "), 0U);
    EXPECT_EQ(content().substr(24, 33), "1          ARCA 7.1.3.0 DEVBUILD ");
    unsigned next = 1;
    for (const unsigned until : {5u, 10'000u, 10'480u, 10'490u, 21'000u, 34'567u, 34'568u}) {
        writeLines(next, until);
        next = until + 1;
        checkWrapped(content(), until);
        EXPECT_EQ(countOf(content(), "Continued at beginning of file"), until > 10'485 ? 1U : 0U);
        ASSERT_EQ(begin(1), 0U) << "a new process";
    }

    ASSERT_EQ(begin(3), 0U) << "a larger maximum";
    EXPECT_EQ(content().substr(24, 11), "3          ");
    writeLines(next, next);
    EXPECT_EQ(countOf(content(), "END OF DATA"), 1U);
    EXPECT_GT(content().size(), megabyte - 200);
    ASSERT_EQ(begin(1), 0U) << "a smaller maximum";
    EXPECT_EQ(content().substr(24, 11), "3          ") << "the file's own holds for all";
    writeLines(next + 1, next + 25'000);
    EXPECT_GT(content().size(), 2 * megabyte);
    EXPECT_EQ(numbersIn(content()).back(), next + 25'000);
}

TEST_F(Trace, ChangesNoFileThatIsNotItsOwn)
{
    const std::string data = "ARCA Trade\n" + std::string(3 * megabyte, 'd');
    for (const unsigned megabytes : {0U, 1U, 2000U}) {
        SCOPED_TRACE(megabytes);
        const char *suffix = megabytes < 2000 ? "" : ".1";
        writeFile(file() + suffix, data);
        EXPECT_EQ(begin(megabytes), TR_RC_OPEN);
        EXPECT_FALSE(trActive());
        EXPECT_EQ(content(suffix), data);
    }
    // A trace that is emptied while it is used stays one.
    writeFile(file(), "");
    ASSERT_EQ(begin(), 0U);
    writeFile(file(), "");
    writeLines(1, 1);
    ASSERT_EQ(begin(), 0U);
    EXPECT_EQ(countOf(content(), "ARCA Trace   "), 2U);
    // One that stands where the next segment is to be ends the trace.
    writeFile(file() + ".1", "");
    writeFile(file() + ".2", data);
    ASSERT_EQ(begin(2, 1), 0U);
    writeLines(1, 11'000);
    EXPECT_FALSE(trActive());
    EXPECT_EQ(content(".2"), data);
    // And so does one that takes the place of a file in use.
    writeFile(file(), "");
    ASSERT_EQ(begin(1), 0U);
    writeFile(file(), data);
    writeLines(1, 1);
    EXPECT_FALSE(trActive());
    EXPECT_EQ(content(), data);
}

TEST_F(Trace, FollowsAMaximumThatAnotherProcessRaised)
{
    ASSERT_EQ(begin(1), 0U);
    ASSERT_EQ(inChild([&] { return static_cast<int>(begin(2)); }), 0);
    writeLines(1, 15'000);
    EXPECT_GT(content().size(), megabyte + 400'000);
}

TEST_F(Trace, NeverPassesItsMaximumWhateverRoomIsLeft)
{
    ASSERT_EQ(begin(1), 0U);
    const std::string continued = "\nContinued at beginning of file\n\n";
    const std::string header = content();
    const std::string older(megabyte - header.size() - continued.size(), '.');
    for (std::size_t room = 0; room < 130; ++room) {
        std::string position = std::to_string(megabyte - room);
        position.resize(12, ' ');
        std::filesystem::remove(file());
        writeFile(file(), header.substr(0, 12) + position + header.substr(24) + older + continued);
        ASSERT_EQ(begin(1), 0U);
        KEEL_TRACE(TR_GENERAL, "%-90s\n", "first line");
        KEEL_TRACE(TR_GENERAL, "second line\n");
        const std::string text = content();
        ASSERT_LE(text.size(), megabyte) << room << " bytes left";
        ASSERT_EQ(countOf(text, "END OF DATA"), 1U) << room << " bytes left";
        ASSERT_EQ(countOf(text, continued), 1U) << room << " bytes left";
    }
}

TEST_F(Trace, SurvivesAnyDamageToAWrappingFile)
{
    ASSERT_EQ(begin(1), 0U);
    writeLines(1, 3);
    const std::string whole = content();
    const auto goesOn = [&](const std::string &damaged, std::size_t at) {
        writeFile(file(), damaged);
        ASSERT_EQ(begin(1), 0U) << at;
        writeLines(4, 4);
        const std::string text = content();
        ASSERT_EQ(text.find("ARCA Trace  "), 0U) << at;
        ASSERT_EQ(std::stoul(text.substr(12, 12)) + 14, text.find("\nEND OF DATA\n\n") + 14) << at;
        ASSERT_EQ(numbersIn(text).back(), 4U) << at;
        ASSERT_LE(text.size(), megabyte);
    };
    for (std::size_t length = 0; length < whole.size(); length += length < 40 ? 1 : 13)
        goesOn(whole.substr(0, length), length);
    for (std::size_t at = 10; at < 40; ++at) // without its tag it would be none of ours
        for (const char byte : {'\0', '9', ' '}) {
            std::string damaged = whole;
            damaged[at] = byte;
            if (at >= 12 && at < 24 && byte == ' ')
                continue; // a smaller position is as good as any
            goesOn(damaged, at);
        }
}

TEST_F(Trace, IsSharedByProcessesAndThreads)
{
    ASSERT_EQ(begin(1), 0U);
    std::vector<std::unique_ptr<Child>> children;
    for (unsigned who = 1; who <= 3; ++who)
        children.push_back(std::make_unique<Child>([&](int) {
            begin(1);
            writeLines(who * 10'000, who * 10'000 + 999);
        }));
    std::vector<std::thread> threads;
    for (unsigned who = 4; who <= 5; ++who)
        threads.emplace_back([who] { writeLines(who * 10'000, who * 10'000 + 999); });
    for (std::thread &thread : threads)
        thread.join();
    for (const auto &child : children)
        ASSERT_EQ(child->wait(), 0);
    auto numbers = numbersIn(content());
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(std::unique(numbers.begin(), numbers.end()), numbers.end());
    EXPECT_EQ(numbers.size(), 5000U) << "no line covers another";
    EXPECT_EQ(countOf(content(), "END OF DATA"), 1U);
}

TEST_F(Trace, OutlivesAThreadThatIsCancelled)
{
    for (const unsigned megabytes : {0u, 1u}) {
        std::filesystem::remove(file());
        ASSERT_EQ(begin(megabytes), 0U);
        pthread_t thread{};
        const auto traceWhileCancelled = [](void *) -> void * {
            pthread_cancel(pthread_self());
            KEEL_TRACE(TR_GENERAL, "written\n");
            // Still pending, but an unwound stack is more than a sanitizer bears.
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, nullptr, traceWhileCancelled, nullptr), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
        KEEL_TRACE(TR_GENERAL, "by another\n"); // no lock was left behind
        EXPECT_NE(content().find("written\nby another\n"), std::string::npos) << content();
    }
}

TEST_F(Trace, IsKeptInSegments)
{
    ASSERT_EQ(begin(5, 2), 0U);
    writeLines(1, 20'000);
    EXPECT_TRUE(content(".2").empty());
    writeLines(20'001, 30'000);
    const std::string first = content(".1");
    EXPECT_EQ(first.substr(first.size() - 39), "\n\nContinued at beginning of segment 2\n\n");
    EXPECT_GT(first.size(), 2 * megabyte - 200);
    EXPECT_LE(first.size(), 2 * megabyte);
    EXPECT_NE(content(".2").find("\n\nContinued from end of segment 1\n\n"), std::string::npos);
    writeLines(30'001, 53'000);
    EXPECT_LE(content(".3").size(), megabyte) << "the last one has what is left";
    EXPECT_GT(content(".3").size(), megabyte - 200);
    EXPECT_NE(content(".3").find("Continued at beginning of segment 1\n\n"), std::string::npos);
    EXPECT_NE(content(".1").find("\n\nContinued from end of segment 3\n\n"), std::string::npos);
    EXPECT_EQ(numbersIn(content(".1")).back(), 53'000U);
    EXPECT_EQ(countOf(content(".1"), "END OF DATA"), 1U);
    EXPECT_EQ(content(), "") << "nothing under the bare name";
    for (const unsigned megabytes : {5U, 9U}) { // another channel starts, also with more
        ASSERT_EQ(begin(megabytes, 2), 0U);
        EXPECT_EQ(numbersIn(content(".1")).back(), 53'000U) << "and takes nothing from the others";
        EXPECT_EQ(content(".1").substr(24, 11), "5          ");
    }
    writeLines(53'001, 53'001);
    EXPECT_EQ(numbersIn(content(".1")).back(), 53'001U);
}

TEST_F(Trace, FollowsAnotherProcessIntoTheNextSegment)
{
    ASSERT_EQ(begin(2, 1), 0U);
    writeLines(1, 10);
    (void)inChild([] {
        writeLines(11, 11'000); // with the descriptor it was born with, as another channel
        return 0;
    });
    EXPECT_FALSE(content(".2").empty());
    writeLines(11'001, 11'001);
    EXPECT_EQ(numbersIn(content(".2")).back(), 11'001U);
    EXPECT_EQ(numbersIn(content(".2")).size() + numbersIn(content(".1")).size(), 11'001U);
}

TEST(TestFlags, HoldUntilTheNextOnesAndNeedNoTrace)
{
    const char *value = nullptr;
    EXPECT_EQ(trTestEnable("  TEST_ONE test_two=250  THREE=a=b FOUR="), 0U);
    EXPECT_TRUE(trTestFlag("test_one", &value));
    EXPECT_STREQ(value, "");
    EXPECT_TRUE(trTestFlag("TEST_TWO", &value));
    EXPECT_STREQ(value, "250");
    EXPECT_TRUE(trTestFlag("THREE", &value));
    EXPECT_STREQ(value, "a=b");
    EXPECT_TRUE(trTestFlag("FOUR", nullptr));
    EXPECT_FALSE(trTestFlag("TEST", nullptr));
    EXPECT_EQ(trTestEnable((std::string(2000, 'x') + " KEPT").c_str()), TR_RC_FLAG);
    EXPECT_TRUE(trTestFlag("KEPT", nullptr));
    EXPECT_FALSE(trTestFlag("TEST_ONE", nullptr));
    trTestEnable(nullptr);
    EXPECT_FALSE(trTestFlag("KEPT", nullptr));
}
} // namespace
