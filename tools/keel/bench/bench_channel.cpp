// See bench_channel.h.
#include "tools/keel/bench/bench_channel.h"

#include "tools/common/datafile.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/interrupt.h"
#include "tools/keel/channel/open_channel.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

namespace keel
{

namespace
{

using Clock = std::chrono::steady_clock;

/// The data that a channel stores: its part of the file, or a generated data file as it is on that
/// day. The last block is filled up with zeros.
class Source
{
public:
    Source(const BenchPlan &plan, unsigned day, unsigned channelNumber)
    {
        const std::uint64_t blocks = plan.bytes / tools::kDatafileBlock;
        const std::uint64_t from = blocks * channelNumber / plan.channels;
        const std::uint64_t to = blocks * (channelNumber + 1) / plan.channels;
        if (plan.input.empty()) {
            tools::DatafileSettings settings;
            settings.bytes = std::max<std::uint64_t>(to - from, 1) * tools::kDatafileBlock;
            settings.seed = channelNumber + 1;
            settings.inserts = settings.bytes >> 28; // a GiB grows by four extents in a day
            settings.day = day;
            settings.rate = plan.changeRate;
            made_.emplace(settings);
            return;
        }
        file_ = ::open(plan.input.c_str(), O_RDONLY | O_CLOEXEC);
        if (file_ < 0)
            throw Failure(fmt::format("cannot open {}: {}", plan.input, std::strerror(errno)));
        at_ = from * tools::kDatafileBlock;
        // The last channel takes the rest, which may be no whole block.
        end_ = channelNumber + 1 == plan.channels ? plan.bytes : to * tools::kDatafileBlock;
    }
    ~Source()
    {
        if (file_ >= 0)
            ::close(file_);
    }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    /// Fills the block and returns how many bytes are data; 0 at the end.
    std::size_t fill(std::span<std::byte> block)
    {
        const std::size_t count = made_ ? make(block) : read(block);
        std::ranges::fill(block.subspan(count), std::byte{});
        return count;
    }

private:
    std::size_t make(std::span<std::byte> block)
    {
        constexpr std::size_t kUnit = tools::kDatafileBlock;
        std::size_t done = 0;
        while (done < block.size()) {
            if (taken_ == kUnit && next_ == made_->blocks())
                break;
            if (taken_ == kUnit) {
                made_->make(next_++, unit_);
                taken_ = 0;
            }
            const std::size_t count = std::min(kUnit - taken_, block.size() - done);
            std::memcpy(&block[done], &unit_[taken_], count);
            taken_ += count;
            done += count;
        }
        return done;
    }

    std::size_t read(std::span<std::byte> block)
    {
        const auto wanted = static_cast<std::size_t>(
            std::min<std::uint64_t>(block.size(), end_ - std::min(at_, end_)));
        std::size_t done = 0;
        while (done < wanted) {
            const ssize_t count =
                ::pread(file_, &block[done], wanted - done, static_cast<off_t>(at_ + done));
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                throw Failure(fmt::format("cannot read the input: {}", std::strerror(errno)));
            if (count == 0)
                throw Failure("the input was cut while it was read");
            done += static_cast<std::size_t>(count);
        }
        at_ += done;
        return done;
    }

    std::optional<tools::Datafile> made_;
    std::uint64_t next_ = 0;
    std::array<std::byte, tools::kDatafileBlock> unit_{};
    std::size_t taken_ = tools::kDatafileBlock;
    int file_ = -1;
    std::uint64_t at_ = 0;
    std::uint64_t end_ = 0;
};

double secondsOf(const timespec &time)
{
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double secondsOf(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

double threadSeconds()
{
    timespec time = {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return secondsOf(time);
}

/// Keeps the sums, and reports them every 100 ms.
class Reporter
{
public:
    explicit Reporter(int descriptor) : descriptor_(descriptor) {}

    /// Runs fn and counts its time as the source's.
    template <class Fn> auto sourced(Fn fn)
    {
        const Clock::time_point begin = Clock::now();
        const double processor = threadSeconds();
        const auto result = fn();
        sourceProcessor_ += threadSeconds() - processor;
        report_.sourceSeconds += std::chrono::duration<double>(Clock::now() - begin).count();
        return result;
    }

    void add(std::size_t bytes)
    {
        constexpr auto kInterval = std::chrono::milliseconds(100);
        report_.bytes += bytes;
        checkInterrupted();
        if (Clock::now() - told_ < kInterval)
            return;
        told_ = Clock::now();
        tell(BenchReport::kProgress);
    }

    void tell(BenchReport::Kind kind, const std::string &text = {}, std::uint32_t sbtCode = 0)
    {
        rusage usage = {};
        ::getrusage(RUSAGE_SELF, &usage);
        report_.kind = kind;
        report_.sbtCode = sbtCode;
        report_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        report_.processorSeconds =
            secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime) - sourceProcessor_;
        text.copy(report_.text, sizeof report_.text - 1);
        // The process that started this one has ended: no process would remove what is stored now.
        if (::write(descriptor_, &report_, sizeof report_) != sizeof report_ &&
            kind == BenchReport::kProgress)
            throw Failure("nobody waits for this channel");
    }

private:
    int descriptor_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point told_ = start_;
    double sourceProcessor_ = 0;
    BenchReport report_;
};

void backUp(const BenchPlan &plan, const std::string &name, Source &source, Reporter &reporter)
{
    std::vector<std::byte> block(plan.blockSize);
    const auto channel = openChannel(plan.channel);
    channel->beginBackup(name, {}, plan.blockSize);
    while (const std::size_t count = reporter.sourced([&] { return source.fill(block); })) {
        channel->writeBlock(block);
        reporter.add(count);
    }
    channel->closePiece();
}

void restore(const BenchPlan &plan, const std::string &name, Source &source, Reporter &reporter)
{
    std::vector<std::byte> block(plan.blockSize);
    std::vector<std::byte> expected(plan.blockSize);
    const auto channel = openChannel(plan.channel);
    channel->beginRestore(name, plan.blockSize);
    while (channel->readBlock(block)) {
        const bool same =
            reporter.sourced([&] { return source.fill(expected) != 0 && block == expected; });
        if (!same)
            throw Failure(fmt::format("{} came back with other contents", name));
        reporter.add(block.size());
    }
    channel->closePiece();
    if (source.fill(expected) != 0)
        throw Failure(fmt::format("{} came back short", name));
}

} // namespace

std::string BenchPlan::pieceOf(unsigned day, unsigned channelNumber) const
{
    return fmt::format("{}-{}-{}", prefix, day, channelNumber + 1);
}

void runBenchChannel(const BenchPlan &plan, BenchWork work, unsigned day, unsigned channelNumber,
                     int descriptor)
{
    Reporter reporter(descriptor);
    try {
        catchInterrupts(); // makes a pipe of this process's own: the parent's is shared
        Source source(plan, day, channelNumber);
        const std::string name = plan.pieceOf(day, channelNumber);
        if (work == BenchWork::kBackup)
            backUp(plan, name, source, reporter);
        else
            restore(plan, name, source, reporter);
        reporter.tell(BenchReport::kDone);
    } catch (const Failure &failure) {
        reporter.tell(BenchReport::kFailed, failure.what(), failure.sbtCode());
    } catch (const std::exception &error) {
        reporter.tell(BenchReport::kFailed, error.what());
    }
}

} // namespace keel
