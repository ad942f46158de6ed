// See bench_processes.h.
#include "tools/keel/bench/bench_processes.h"

#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/interrupt.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace
{

/// A process with a channel. The destructor ends it with SIGTERM if it still runs, and waits for
/// it.
class Process
{
public:
    Process(const BenchPlan &plan, BenchWork work, unsigned day, unsigned number)
    {
        int ends[2] = {-1, -1};
        if (::pipe(ends) != 0)
            throw Failure("no file descriptor is free");
        std::fflush(nullptr); // or the child would print it once more
        child_ = ::fork();
        if (child_ == 0) {
            ::close(ends[0]);
            runBenchChannel(plan, work, day, number, ends[1]);
            ::_exit(0);
        }
        ::close(ends[1]);
        pipe_ = ends[0];
        ::fcntl(pipe_, F_SETFD, FD_CLOEXEC);
        if (child_ < 0) {
            ::close(pipe_);
            throw Failure("no process can be started");
        }
    }
    ~Process()
    {
        if (child_ > 0)
            ::kill(child_, SIGTERM);
        ::close(pipe_);
        wait();
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    [[nodiscard]] int pipe() const { return pipe_; }

    /// Reads the next report; false at their end. `report` is unchanged when a signal interrupted.
    bool read(BenchReport &report)
    {
        const ssize_t count = ::read(pipe_, &report, sizeof report);
        if (count < 0 && errno == EINTR)
            return true;
        return count == static_cast<ssize_t>(sizeof report);
    }
    void wait()
    {
        while (child_ > 0 && ::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
        }
        child_ = -1;
    }

private:
    pid_t child_ = -1;
    int pipe_ = -1;
};

/// Adds a report to the channel. Throws Failure when it says that the channel failed.
void note(BenchChannel &channel, const BenchReport &report, tools::Progress &progress)
{
    if (report.kind == BenchReport::kFailed)
        throw Failure(report.text, report.sbtCode);
    const std::uint64_t bytes = report.bytes - channel.last.bytes;
    const double seconds = report.seconds - channel.last.seconds;
    if (seconds > 0)
        channel.rates.push_back(static_cast<double>(bytes) / seconds);
    channel.last = report;
    progress.add(bytes);
}

} // namespace

std::uint64_t BenchRound::bytes() const
{
    std::uint64_t sum = 0;
    for (const BenchChannel &channel : channels)
        sum += channel.last.bytes;
    return sum;
}

double BenchRound::processorSeconds() const
{
    double sum = 0;
    for (const BenchChannel &channel : channels)
        sum += channel.last.processorSeconds;
    return sum;
}

BenchRound runBenchRound(const BenchPlan &plan, BenchWork work, unsigned day,
                         tools::Progress &progress)
{
    constexpr int kLookUp = 200; // milliseconds
    const auto start = std::chrono::steady_clock::now();
    BenchRound round;
    round.channels.resize(plan.channels);
    std::vector<std::unique_ptr<Process>> processes;
    for (unsigned i = 0; i < plan.channels; ++i)
        processes.push_back(std::make_unique<Process>(plan, work, day, i));
    std::vector<pollfd> waits;
    for (const auto &process : processes)
        waits.push_back({process->pipe(), POLLIN, 0});
    for (std::size_t open = processes.size(); open != 0;) {
        checkInterrupted();
        if (::poll(waits.data(), static_cast<nfds_t>(waits.size()), kLookUp) <= 0)
            continue;
        for (std::size_t i = 0; i < waits.size(); ++i) {
            if (waits[i].fd < 0 || waits[i].revents == 0)
                continue;
            BenchReport report = round.channels[i].last;
            if (processes[i]->read(report))
                note(round.channels[i], report, progress);
            else
                waits[i].fd = -1; // poll(2) skips it
            if (waits[i].fd < 0) {
                --open;
                processes[i]->wait();
                if (round.channels[i].last.kind != BenchReport::kDone)
                    throw Failure(fmt::format("the process of channel {} is gone", i + 1));
            }
        }
    }
    round.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return round;
}

} // namespace keel
