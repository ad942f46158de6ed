// What both programs show, and the logs and timings that they share.
#include "agents/common/maint/mttiming.h"
#include "agents/common/maint/mtwrap.h"
#include "tests/support/files.h"
#include "tools/common/plot.h"
#include "tools/common/table.h"
#include "tools/common/text.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <map>
#include <sstream>
#include <thread>

namespace keel::test
{

TEST(Shown, ColumnsStandUnderEachOtherWhateverTheNamesAreMadeOf)
{
    tools::Table table({{"NAME"}, {"SIZE", tools::Align::kRight}, {"CLASS"}});
    table.add({"\u00e9t\u00e9", "1", "GOLD"});
    table.add({"\u5099\u4efd", "100000"}); // two columns each
    table.add({"a\nb\xff", "2"});
    table.add({"\x9b\xc2\x9b", "3"}); // which terminals obey
    EXPECT_EQ(table.text(), "NAME            SIZE  CLASS\n"
                            "\u00e9t\u00e9                1  GOLD\n"
                            "\u5099\u4efd          100000\n"
                            "a\\nb\xff              2\n"
                            "\\x9b\\xc2\\x9b       3\n");
}

TEST(Shown, PlotsFitShowWhatIsThereAndNothingElse)
{
    ::setenv("LC_ALL", "C", 1);
    EXPECT_EQ(tools::bar(1e-9, 1e9, 10), "#") << "what is there shows";
    EXPECT_EQ(tools::bar(5, 10, 10), "#####");
    EXPECT_EQ(tools::bar(99, 10, 10), "##########");
    EXPECT_EQ(tools::bar(0, 0, 10) + tools::bar(-1, 10, 10) + tools::bar(1, 0, 10), "");
    const std::vector<double> days = {0, 1, 2, 4, 8, 8, 8, 8};
    EXPECT_EQ(tools::sparkline(days, 80), " _.=####");
    EXPECT_EQ(tools::sparkline(days, 4), "_-##") << "means of neighbours";
    EXPECT_EQ(tools::sparkline({}, 80), "");
    const tools::PlotLine lines[] = {{"one", 1, "1 MiB"}, {"eleven", 4, "4 MiB"}};
    EXPECT_EQ(tools::barPlot(lines, 31), "one     1 MiB  ####\n"
                                         "eleven  4 MiB  ################\n");
    ::setenv("LC_ALL", "de_DE.UTF-8", 1);
    EXPECT_EQ(tools::bar(9, 16, 2), "\u2588\u258f");
}

namespace
{

/// Every line that is in the log and in what was put aside, how often.
std::map<std::string, int> linesOf(const std::filesystem::path &directory, std::uint64_t maximum)
{
    std::map<std::string, int> lines;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        EXPECT_LE(entry.file_size(), maximum) << entry.path();
        std::istringstream text(readFile(entry.path()));
        for (std::string line; std::getline(text, line);)
            ++lines[line];
    }
    return lines;
}

} // namespace

TEST(ProgramLog, WritersThatPutItAsideLoseAndSplitNoLineEvenWhenKilled)
{
    constexpr int kProcesses = 4;
    constexpr int kThreads = 2;
    constexpr int kLines = 300;
    const TempDir directory;
    const std::string path = directory / "arca.log";
    const mtWrapLimits_t limits{1000, 100000};
    const auto line = [](int process, int thread, int number) {
        return std::to_string(process) + "-" + std::to_string(thread) + "-" +
               std::to_string(number) + " " +
               std::string(static_cast<std::size_t>(number % 90), 'x');
    };
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        const pid_t child = ::fork();
        if (child == 0) {
            std::vector<std::thread> threads;
            for (int thread = 0; thread < kThreads; ++thread)
                threads.emplace_back([&, thread] {
                    for (int i = 0; i < kLines; ++i) {
                        if (mtWrapAppend(path.c_str(), limits, line(process, thread, i)) != 0)
                            ::_exit(1);
                        if (process == 3 && thread == 0 && i == kLines / 2)
                            ::raise(SIGKILL);
                    }
                });
            for (std::thread &thread : threads)
                thread.join();
            ::_exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(child == children.back() ? WIFSIGNALED(status) : status == 0);
    }
    auto lines = linesOf(directory.path(), limits.maximum);
    for (int process = 0; process < kProcesses - 1; ++process)
        for (int thread = 0; thread < kThreads; ++thread)
            for (int i = 0; i < kLines; ++i)
                EXPECT_EQ(lines.extract(line(process, thread, i)).mapped(), 1);
    for (const auto &[left, count] : lines) {
        EXPECT_EQ(left[0], '3') << left;
        EXPECT_EQ(count, 1);
    }
}

TEST(ProgramLog, KeepsAsManyFilesAsItShallAndRefusesTheErrorLog)
{
    const TempDir directory;
    const std::string path = directory / "keel.log";
    const auto content = [&](const std::string &suffix) {
        return std::filesystem::exists(path + suffix) ? readFile(path + suffix) : "none";
    };
    const mtWrapLimits_t limits{8, 2};
    for (const char *line : {"1\n", "2", "3", "4", "5", "6", "7", "8", "9", "longer than all"})
        EXPECT_EQ(mtWrapAppend(path.c_str(), limits, line), 0);
    EXPECT_EQ(content(""), "longer than all\n");
    EXPECT_EQ(content(".1"), "9\n");
    EXPECT_EQ(content(".2"), "5\n6\n7\n8\n");
    EXPECT_EQ(content(".3"), "none");
    // A rename that a dead process left undone costs no file.
    std::filesystem::remove(path + ".1");
    EXPECT_EQ(mtWrapAppend(path.c_str(), limits, "next"), 0);
    EXPECT_EQ(content(".1") + content(".2"), "longer than all\n5\n6\n7\n8\n");

    // With a way to tell, nothing is renamed, overwritten or appended to that is no such log.
    mtWrapLimits_t ours = limits;
    ours.isLog = tools::isOutcomeLine;
    const std::string line = tools::outcomeLine("keel", "info p", "done");
    const auto append = [&] { return mtWrapAppend(path.c_str(), ours, line); };
    EXPECT_EQ(append(), EEXIST) << "the file itself";
    writeFile(path, line + "\n");
    for (const char *foreign : {".1", ".2"}) {
        writeFile(path + ".1", line + "\n");
        writeFile(path + ".2", line + "\n");
        writeFile(path + foreign, "data");
        EXPECT_EQ(append(), EEXIST) << foreign;
        EXPECT_EQ(content(foreign), "data");
        EXPECT_EQ(content(""), line + "\n");
    }
    writeFile(path + ".2", line + "\n");
    EXPECT_EQ(append(), 0);

    const std::string errorLog = directory / "veloerror.log";
    EXPECT_EQ(mtWrapAppend(errorLog.c_str(), limits, "line"), EINVAL);
    EXPECT_EQ(mtWrapAppend(path.c_str(), limits, "two\nlines"), EINVAL);
    EXPECT_EQ(mtWrapAppend("/proc/nowhere/log", limits, "line"), ENOENT);
}

TEST(Timing, CountsTheInnermostAndNothingWhenOff)
{
    const auto work = [] {
        const mtTimed outer(MT_TIME_TRANSFER);
        for (int i = 0; i < 3; ++i) {
            const mtTimed inner(MT_TIME_WAITING);
            ::usleep(2000);
        }
    };
    work();
    EXPECT_EQ(mtMeasured(MT_TIME_WAITING).count, 0U);
    mtMeasure(true);
    std::thread beside(work);
    work();
    beside.join();
    mtMeasure(false);
    work();
    const mtMeasured_t waiting = mtMeasured(MT_TIME_WAITING);
    const mtMeasured_t transfer = mtMeasured(MT_TIME_TRANSFER);
    EXPECT_EQ(waiting.count, 6U);
    EXPECT_EQ(transfer.count, 2U);
    EXPECT_GE(waiting.nanoseconds, 6U * 2'000'000);
    EXPECT_LT(transfer.nanoseconds, waiting.nanoseconds) << "the inner time is not its own";
}

} // namespace keel::test
