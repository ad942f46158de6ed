// See progress.h.
#include "tools/keel/progress.h"

#include "tools/keel/text.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace
{

std::string bar(double fraction)
{
    constexpr std::size_t kWidth = 24;
    const auto done = static_cast<std::size_t>(fraction * static_cast<double>(kWidth));
    return "[" + std::string(done, '#') + std::string(kWidth - done, '-') + "]";
}

} // namespace

Progress::Progress(const std::string &label, std::optional<std::uint64_t> total, bool quiet)
    : label_(printable(label)), total_(total), visible_(!quiet && ::isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    if (lineOpen_)
        fmt::print(stderr, "\r\x1b[K");
}

double Progress::seconds() const
{
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::add(std::uint64_t bytes)
{
    bytes_ += bytes;
    constexpr auto kInterval = std::chrono::milliseconds(100);
    if (!visible_ || Clock::now() - shown_ < kInterval)
        return;
    shown_ = Clock::now();
    show(line());
}

std::string Progress::line() const
{
    const auto done = static_cast<double>(bytes_);
    const double elapsed = seconds();
    const double rate = done / std::max(elapsed, 0.001);
    if (!total_ || *total_ < bytes_ || *total_ == 0) {
        return fmt::format("{}  {}  {}/s  {}", label_, byteText(done), byteText(rate),
                           durationText(elapsed));
    }
    const auto total = static_cast<double>(*total_);
    return fmt::format("{}  {} {:3.0f} %  {} of {}  {}/s  {} left", label_, bar(done / total),
                       100 * done / total, byteText(done), byteText(total), byteText(rate),
                       durationText((total - done) / std::max(rate, 1.0)));
}

void Progress::show(const std::string &line)
{
    fmt::print(stderr, "\r{}\x1b[K", line);
    std::fflush(stderr);
    lineOpen_ = true;
}

void Progress::finish()
{
    if (!visible_)
        return;
    const double elapsed = std::max(seconds(), 0.001);
    show(fmt::format("{}  {} in {}  {}/s", label_, byteText(static_cast<double>(bytes_)),
                     durationText(elapsed), byteText(static_cast<double>(bytes_) / elapsed)));
    fmt::print(stderr, "\n");
    lineOpen_ = false;
}

} // namespace keel
