// How far long work has come, in one line that is written over, on a terminal; nothing at all
// anywhere else. One thread.
#ifndef KEEL_TOOLS_COMMON_PROGRESS_H
#define KEEL_TOOLS_COMMON_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tools
{

class Progress
{
public:
    /// total: bytes expected, if known. quiet: nothing is shown even on a terminal.
    explicit Progress(const std::string &label, std::optional<std::uint64_t> total = std::nullopt,
                      bool quiet = false);
    /// Takes an unfinished line away, so that what comes next begins on a clean one.
    ~Progress() { clear(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// More bytes have gone through; the time left is judged by them.
    void add(std::uint64_t bytes);

    /// For work that is planned in steps, by which the time left is judged. bytes: so far, whose
    /// rate is shown; 0 when they say nothing, and that of the steps is.
    void show(std::uint64_t done, std::uint64_t planned, std::uint64_t bytes);

    /// Before something else is printed.
    void clear();

    /// Leaves the line with the bytes, the time and the rate.
    void finish();

    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
    /// Since the object was made.
    [[nodiscard]] double seconds() const;

private:
    using Clock = std::chrono::steady_clock;
    [[nodiscard]] bool due();
    void write(const std::string &line);
    [[nodiscard]] std::string rateText() const;
    [[nodiscard]] std::string barText(double share) const;

    const std::string label_;
    const std::optional<std::uint64_t> total_;
    const bool visible_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point shown_ = start_;
    std::uint64_t bytes_ = 0;
    bool lineOpen_ = false;
};

} // namespace tools

#endif
