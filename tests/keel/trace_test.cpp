// keel trace: what the agent wrote around the end of a file comes out in the order of time.
#include "tests/keel/keel_fixture.h"

#include <algorithm>
#include <sstream>
#include <sys/stat.h>

namespace keel::test
{

using KeelTraceTest = KeelTest;

namespace
{

const std::string kEnd = "\nEND OF DATA\n\n";
const std::string kAround = "\nContinued at beginning of file\n\n";

/// A trace with a maximum: newest lines, what lies behind them, and where the first line says that
/// the newest end; by default they do.
std::string wrapped(const std::string &newest, const std::string &behind, long position = -1)
{
    std::string tail(10, ' ');
    tail.replace(0, 1, "1");
    tail += " ARCA 7.1.3.0 DEVBUILD Build date: Nov 21 2026\n\n";
    const std::size_t at =
        position < 0 ? 24 + tail.size() + newest.size() : static_cast<std::size_t>(position);
    std::string number = std::to_string(at);
    number.resize(12, ' ');
    return "ARCA Trace  " + number + tail + newest + behind;
}

std::string full(const std::string &lines, int next)
{
    return wrapped(lines, "\nContinued at beginning of segment " + std::to_string(next) + "\n\n");
}

} // namespace

TEST_F(KeelTraceTest, TraceOfTheAgentThatWentAroundComesOutInTheOrderOfTime)
{
    const auto trace = installation_.directory() / "agent.trace";
    installation_.configureAgent(
        {"VELO_TRACE_FILE " + trace.string(), "VELO_TRACE_MAX 1", "VELO_TRACE_FLAGS SERVICE"});
    for (int round = 0; round < 20 && readFile(trace).find(kAround) == std::string::npos; ++round)
        backUp("p" + std::to_string(round), randomBytes(512 * 600, 1), "512");
    backUp("last", "x");
    const std::string bytes = readFile(trace);
    ASSERT_NE(bytes.find(kAround), std::string::npos) << "it never became full";

    const ProgramResult result = keel({"trace", trace});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.find("END OF DATA"), std::string::npos);
    EXPECT_EQ(result.out.find("Continued at"), std::string::npos);
    EXPECT_GT(result.out.size() + 1000, bytes.size()) << "nothing else is left out";
    const std::size_t end = bytes.find(kEnd);
    EXPECT_EQ(result.out.substr(result.out.size() - 200), bytes.substr(end - 200, 200));

    // Lines begin with the date and the time to the millisecond, of one width.
    std::istringstream lines(result.out);
    std::string before;
    int compared = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t process = line.find(" [");
        if (process == std::string::npos || line.find_first_of("0123456789") != 0)
            continue;
        const std::string time = line.substr(0, process);
        EXPECT_LE(before, time);
        before = time;
        ++compared;
    }
    EXPECT_GT(compared, 1000);
}

TEST_F(KeelTraceTest, TraceIsPrintedWhereverTheAgentStopped)
{
    const struct {
        std::string file, printed;
    } cases[] = {
        {"ARCA Trace   ARCA 7.1.3.0 DEVBUILD\nBuild Date: x\nBEGINNING NEW TRACE\n\none\n",
         "ARCA Trace   ARCA 7.1.3.0 DEVBUILD\nBuild Date: x\nBEGINNING NEW TRACE\n\none\n"},
        {wrapped("one\ntwo\n", kEnd), "one\ntwo\n"},
        {wrapped("four\n", kEnd + "of one\ntwo\nthree\n" + kAround), "two\nthree\nfour\n"},
        // killed behind the line, before it was counted
        {wrapped("four\n", "five\n" + kEnd + "wo\nthree\n" + kAround), "three\nfour\nfive\n"},
        // killed behind the words at the end
        {wrapped("one\ntwo\n", kAround), "one\ntwo\n"},
        // killed before there was a line
        {wrapped("BEGINNING NEW TRACE\n\n", "", 123456789012), "BEGINNING NEW TRACE\n\n"},
    };
    const auto trace = installation_.directory() / "trace";
    for (const auto &row : cases) {
        writeFile(trace, row.file);
        const ProgramResult result = keel({"trace", trace});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, row.printed) << row.file;
    }
}

TEST_F(KeelTraceTest, SegmentsOfATraceComeInTheOrderOfTime)
{
    const auto trace = installation_.directory() / "trace";
    const auto segment = [&](int number, const std::string &bytes) {
        writeFile(trace.string() + "." + std::to_string(number), bytes);
    };
    segment(1, full("one\n", 2));
    segment(2, wrapped("two\n", kEnd));
    EXPECT_EQ(keel({"trace", trace}).out, "one\ntwo\n");
    segment(3, full("older\n", 4));
    segment(4, full("old\n", 1));
    EXPECT_EQ(keel({"trace", trace}).out, "older\nold\none\ntwo\n") << "once around";
    segment(3, wrapped("end of an earlier trace\n", kEnd));
    EXPECT_EQ(keel({"trace", trace}).out, "old\nend of an earlier trace\none\ntwo\n");
    EXPECT_EQ(keel({"trace", trace.string() + ".1"}).out, "one\n");
    segment(5, "no segment");
    const ProgramResult result = keel({"trace", trace});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "") << "all are looked at before the first is printed";
}

TEST_F(KeelTraceTest, WhatIsNoTraceIsRefusedInOneLine)
{
    const auto directory = installation_.directory();
    const std::string good = wrapped("one\n", kEnd);
    const std::string files[] = {
        "",
        "ARCA",
        "a letter\n\n",
        good.substr(0, 40),
        wrapped("one\n", kEnd, 10),
        wrapped("one\n", kEnd, 100'000),
        good.substr(0, 12) + "12x         " + good.substr(24),
        good.substr(0, 12) + "99999999999999999999999" + good.substr(24),
        good.substr(0, 24) + "          " + good.substr(34),
        good.substr(0, 34) + std::string(300, ' ') + good.substr(34),
        "ARCA Trace  " + std::string(1000, '1'),
        std::string("ARCA Trace  \0\0\0\n\n", 17),
    };
    std::vector<std::string> names = {directory / "absent", directory, directory / "pipe"};
    ASSERT_EQ(::mkfifo(names.back().c_str(), 0600), 0);
    for (const std::string &bytes : files) {
        names.push_back(directory / ("hostile-" + std::to_string(names.size())));
        writeFile(names.back(), bytes);
    }
    for (const std::string &name : names)
        expectRefusal({"trace", name}, 1, "keel trace " + name + ": ");
}

} // namespace keel::test
