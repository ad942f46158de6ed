// The time of a job by category: how often and how long, shown when the job ends.
//
// Off unless switched on; while off an mtTimed costs one relaxed atomic load. Times are exclusive:
// the time of an inner mtTimed is not counted for the outer one, so the categories of a thread add
// up to at most the time that passed. Any thread may measure; the sums are of all threads.
// Monotonic clock. No locks.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTTIMING_H
#define KEEL_AGENTS_COMMON_MAINT_MTTIMING_H

#include <atomic>
#include <chrono>
#include <cstdint>

enum mtCategory_t : unsigned {
    MT_TIME_CLIENT,   // calls of the client that carry no data of pieces
    MT_TIME_TRANSFER, // calls of the client that carry data of pieces
    MT_TIME_WAITING,  // waiting for a person or another process
    MT_TIME_DATABASE, // reading or writing the data on the database's side
    MT_TIME_CATEGORIES
};

struct mtMeasured_t {
    std::uint64_t count = 0;
    std::uint64_t nanoseconds = 0;
};

/// True while measuring is on; changed by mtMeasure only.
extern std::atomic<bool> mtMeasuring;

/// Switches measuring on, which sets the sums to 0, or off, which keeps them. What an mtTimed does
/// is decided when it begins: one that began while measuring was on adds all its time at its end,
/// whatever was switched meanwhile, and one that began while it was off adds nothing.
void mtMeasure(bool on) noexcept;
/// Returns the sums of a category so far, without an mtTimed that is still running; zeros for no
/// category. While others end, count and time may not belong together.
[[nodiscard]] mtMeasured_t mtMeasured(mtCategory_t category) noexcept;
/// Returns a constant: "client calls", "transfer", "waiting", "database"; "" for no category.
[[nodiscard]] const char *mtCategoryName(mtCategory_t category) noexcept;

/// Counts the time that it lives, and 1 (an inner one of the same category too). On the stack only:
/// the innermost mtTimed of a thread runs, the outer ones pause. The category is not checked: never
/// MT_TIME_CATEGORIES.
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
