// How far a transfer has come, on a terminal; nothing at all anywhere else.
#ifndef KEEL_TOOLS_KEEL_PROGRESS_H
#define KEEL_TOOLS_KEEL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace keel
{

class Progress
{
public:
    /// total: bytes expected, if known. quiet: nothing is shown even on a terminal.
    Progress(const std::string &label, std::optional<std::uint64_t> total, bool quiet);
    /// Takes an unfinished line away, so that what comes next begins on a clean one.
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void add(std::uint64_t bytes);

    /// Leaves the line with the totals.
    void finish();

    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
    /// Since the object was made.
    [[nodiscard]] double seconds() const;

private:
    using Clock = std::chrono::steady_clock;
    void show(const std::string &line);
    [[nodiscard]] std::string line() const;

    const std::string label_;
    const std::optional<std::uint64_t> total_;
    const bool visible_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point shown_ = start_;
    std::uint64_t bytes_ = 0;
    bool lineOpen_ = false;
};

} // namespace keel

#endif
