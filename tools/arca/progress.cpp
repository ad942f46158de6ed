// The line of progress: see the header.
#include "tools/arca/progress.h"

#include "tools/keel/text.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

constexpr std::size_t kBarWidth = 24;
constexpr auto kInterval = std::chrono::milliseconds(200);

} // namespace

Progress::Progress(std::string label)
    : label_(std::move(label)), visible_(::isatty(STDERR_FILENO) == 1)
{
}

void Progress::show(std::uint64_t done, std::uint64_t planned, std::uint64_t bytes)
{
    const auto now = Clock::now();
    if (!visible_ || now - shown_ < kInterval)
        return;
    shown_ = now;
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const double share =
        planned == 0 ? 0.0
                     : std::min(1.0, static_cast<double>(done) / static_cast<double>(planned));
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(kBarWidth));
    std::string line = fmt::format("{}  [{}{}] {:3.0f} %  {} of {}", label_,
                                   std::string(filled, '#'), std::string(kBarWidth - filled, '-'),
                                   100 * share, done, std::max(done, planned));
    const auto amount = static_cast<double>(bytes);
    if (bytes != 0)
        line += fmt::format("  {}  {}/s", keel::byteText(amount), keel::byteText(amount / elapsed));
    if (share > 0)
        line += fmt::format("  {} left", keel::durationText(elapsed * (1 - share) / share));
    fmt::print(stderr, "\r{}\x1b[K", line);
    std::fflush(stderr);
    lineOpen_ = true;
}

void Progress::clear()
{
    if (lineOpen_)
        fmt::print(stderr, "\r\x1b[K");
    lineOpen_ = false;
}

} // namespace arca::tool
