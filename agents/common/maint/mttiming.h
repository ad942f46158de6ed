// Where the time of a job goes: how often and how long, by category, shown when the job ends.
//
// Off unless switched on, and then an mtTimed costs one relaxed atomic load. Times are exclusive:
// what happens inside an inner mtTimed is not counted for the outer one, so the categories of a
// thread add up to at most the time that passed. Any thread may measure.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTTIMING_H
#define KEEL_AGENTS_COMMON_MAINT_MTTIMING_H

#include <atomic>
#include <chrono>
#include <cstdint>

enum mtCategory_t : unsigned {
    MT_TIME_CLIENT,   // calls that begin, end and ask; none that carry data
    MT_TIME_TRANSFER, // calls that carry data
    MT_TIME_WAITING,  // for a person, or somebody else, to be ready
    MT_TIME_DATABASE, // reading or writing the data on the database's side
    MT_TIME_CATEGORIES
};

struct mtMeasured_t {
    std::uint64_t count = 0;
    std::uint64_t nanoseconds = 0;
};

extern std::atomic<bool> mtMeasuring;

/// Switches measuring on or off. What was measured stays until it is switched on again.
void mtMeasure(bool on) noexcept;
[[nodiscard]] mtMeasured_t mtMeasured(mtCategory_t category) noexcept;
/// "client calls", "transfer", "waiting", "database".
[[nodiscard]] const char *mtCategoryName(mtCategory_t category) noexcept;

/// Counts the time that it lives. On the stack only: the innermost of a thread is the one that
/// runs.
class mtTimed
{
public:
    explicit mtTimed(mtCategory_t category) noexcept
    {
        if (mtMeasuring.load(std::memory_order_relaxed)) {
            begin(category);
        }
    }
    ~mtTimed()
    {
        if (running_) {
            end();
        }
    }
    mtTimed(const mtTimed &) = delete;
    mtTimed &operator=(const mtTimed &) = delete;

private:
    using Clock = std::chrono::steady_clock;
    void begin(mtCategory_t category) noexcept;
    void end() noexcept;

    bool running_ = false;
    mtCategory_t category_ = MT_TIME_CLIENT; // the rest is set only while running
    mtTimed *outer_ = nullptr;
    Clock::time_point since_;
    Clock::duration spent_{};
};

#endif
