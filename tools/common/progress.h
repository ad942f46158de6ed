// The progress of long work, in one line of standard error that is written over. Shows nothing when
// standard error is no terminal, and nothing in the first 100 ms and then at most every 100 ms, but
// for finish(). One thread at a time. A failed write is ignored.
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
    /// `label` is copied and made printable(). `total` is the number of bytes expected, if known;
    /// without it, with 0, and once more is counted, no bar and no time left are shown. `quiet`:
    /// nothing is shown on a terminal either. Time counts from here.
    explicit Progress(const std::string &label, std::optional<std::uint64_t> total = std::nullopt,
                      bool quiet = false);
    /// Removes an unfinished line, so that the next output begins on a clean one.
    ~Progress() { clear(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// Counts `bytes` more, by which the time left is estimated.
    void add(std::uint64_t bytes);

    /// For work that is planned in steps, by which the time left is estimated. `bytes` are those so
    /// far, and their rate is shown; with 0 the rate of the steps is. `planned` is shown as at
    /// least `done`; with 0 the bar stays at 0 %, and with both 0 only the time passed is shown.
    void show(std::uint64_t done, std::uint64_t planned, std::uint64_t bytes);

    /// Removes the line; call it before something else is printed. The next change shows it again.
    void clear();

    /// Ends the line with the bytes(), the time and the rate, however short the work was; it stays.
    void finish();

    /// Returns the bytes: show() sets them, add() adds to them; counted when nothing is shown, too.
    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
    /// Returns the seconds since the object was made.
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
