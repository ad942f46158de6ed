// How far long work has come, in one line that is written over, on a terminal; nothing anywhere
// else.
#ifndef KEEL_TOOLS_ARCA_PROGRESS_H
#define KEEL_TOOLS_ARCA_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace arca::tool
{

class Progress
{
public:
    explicit Progress(std::string label);
    /// Takes the line away.
    ~Progress() { clear(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// `bytes` read so far; the time left is judged by `done` of `planned` steps.
    void show(std::uint64_t done, std::uint64_t planned, std::uint64_t bytes);
    /// Before something else is printed.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    const std::string label_;
    const bool visible_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point shown_ = start_;
    bool lineOpen_ = false;
};

} // namespace arca::tool

#endif
