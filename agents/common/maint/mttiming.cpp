// The time of a job by category: see the header.
#include "agents/common/maint/mttiming.h"

std::atomic<bool> mtMeasuring{false};

namespace
{

struct Sums {
    std::atomic<std::uint64_t> count{0};
    std::atomic<std::uint64_t> nanoseconds{0};
};
Sums sums[MT_TIME_CATEGORIES];

thread_local mtTimed *innermost = nullptr;

} // namespace

void mtMeasure(bool on) noexcept
{
    for (Sums &sum : sums) {
        if (on) {
            sum.count = 0;
            sum.nanoseconds = 0;
        }
    }
    mtMeasuring = on;
}

mtMeasured_t mtMeasured(mtCategory_t category) noexcept
{
    if (category >= MT_TIME_CATEGORIES) {
        return {};
    }
    return {sums[category].count, sums[category].nanoseconds};
}

const char *mtCategoryName(mtCategory_t category) noexcept
{
    constexpr const char *names[] = {"client calls", "transfer", "waiting", "database"};
    static_assert(sizeof names / sizeof names[0] == MT_TIME_CATEGORIES);
    return category < MT_TIME_CATEGORIES ? names[category] : "";
}

void mtTimed::begin(mtCategory_t category) noexcept
{
    running_ = true;
    category_ = category;
    since_ = Clock::now();
    outer_ = innermost;
    if (outer_ != nullptr) {
        outer_->spent_ += since_ - outer_->since_;
    }
    innermost = this;
}

void mtTimed::end() noexcept
{
    const Clock::time_point now = Clock::now();
    spent_ += now - since_;
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(spent_).count();
    sums[category_].count.fetch_add(1, std::memory_order_relaxed);
    sums[category_].nanoseconds.fetch_add(static_cast<std::uint64_t>(nanoseconds),
                                          std::memory_order_relaxed);
    innermost = outer_;
    if (outer_ != nullptr) {
        outer_->since_ = now;
    }
}
