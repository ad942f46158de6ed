// See progress.h.
#include "tools/common/progress.h"

#include "tools/common/terminal.h"
#include "tools/common/text.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include <fmt/format.h>

namespace tools
{

Progress::Progress(const std::string &label, std::optional<std::uint64_t> total, bool quiet)
    : label_(printable(label)), total_(total), visible_(!quiet && isTerminal(STDERR_FILENO))
{
}

double Progress::seconds() const
{
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

bool Progress::due()
{
    constexpr auto kInterval = std::chrono::milliseconds(100);
    if (!visible_ || Clock::now() - shown_ < kInterval)
        return false;
    shown_ = Clock::now();
    return true;
}

std::string Progress::rateText() const
{
    const auto done = static_cast<double>(bytes_);
    return byteText(done / std::max(seconds(), 0.001)) + "/s";
}

std::string Progress::barText(double share) const
{
    constexpr std::size_t kWidth = 24;
    const auto done = static_cast<std::size_t>(share * static_cast<double>(kWidth));
    return fmt::format("[{}{}] {:3.0f} %", std::string(done, '#'), std::string(kWidth - done, '-'),
                       100 * share);
}

void Progress::add(std::uint64_t bytes)
{
    bytes_ += bytes;
    if (!due())
        return;
    const auto done = static_cast<double>(bytes_);
    if (!total_ || *total_ < bytes_ || *total_ == 0) {
        write(fmt::format("{}  {}  {}  {}", label_, byteText(done), rateText(),
                          durationText(seconds())));
        return;
    }
    const auto total = static_cast<double>(*total_);
    const double rate = std::max(done / std::max(seconds(), 0.001), 1.0);
    write(fmt::format("{}  {}  {} of {}  {}  {} left", label_, barText(done / total),
                      byteText(done), byteText(total), rateText(),
                      durationText((total - done) / rate)));
}

void Progress::show(std::uint64_t done, std::uint64_t planned, std::uint64_t bytes)
{
    bytes_ = bytes;
    if (!due())
        return;
    if (done == 0 && planned == 0) { // how much there is is not told
        write(fmt::format("{}  {}", label_, durationText(seconds())));
        return;
    }
    const double share =
        planned == 0 ? 0.0
                     : std::min(1.0, static_cast<double>(done) / static_cast<double>(planned));
    std::string line =
        fmt::format("{}  {}  {} of {}", label_, barText(share), done, std::max(done, planned));
    if (bytes != 0)
        line += fmt::format("  {}  {}", byteText(static_cast<double>(bytes)), rateText());
    else
        line += fmt::format("  {:.0f}/s", static_cast<double>(done) / std::max(seconds(), 0.001));
    if (share >= 0.01) // before that it says little
        line += fmt::format("  {} left", durationText(seconds() * (1 - share) / share));
    write(line);
}

void Progress::write(const std::string &line)
{
    // Not fmt::print(), which throws: a terminal that was closed must not stop the work.
    std::fputs(("\r" + line + "\x1b[K").c_str(), stderr);
    std::fflush(stderr);
    lineOpen_ = true;
}

void Progress::clear()
{
    if (lineOpen_)
        std::fputs("\r\x1b[K", stderr);
    lineOpen_ = false;
}

void Progress::finish()
{
    if (!visible_)
        return;
    write(fmt::format("{}  {} in {}  {}", label_, byteText(static_cast<double>(bytes_)),
                      durationText(seconds()), rateText()));
    std::fputs("\n", stderr);
    lineOpen_ = false;
}

} // namespace tools
