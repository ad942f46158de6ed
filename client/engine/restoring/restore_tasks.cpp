// Extents to tasks.
#include "client/engine/restoring/restore_tasks.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

constexpr std::uint64_t kFetchTogether = std::uint64_t{3} << 20;

} // namespace

void RestoreTask::add(const Part &part)
{
    if (!parts.empty() && parts.back().offset + parts.back().length == part.offset &&
        parts.back().position + parts.back().length == part.position)
        parts.back().length += part.length;
    else
        parts.push_back(part);
}

Result<std::size_t> RestoreTasks::plan(std::size_t bytes)
{
    const std::uint64_t before = planned_;
    while (planned_ - before < bytes) {
        if (!rest_) {
            ARCA_TRY(rest_, plan_.next());
            allPlanned_ = !rest_;
            if (allPlanned_)
                break;
        }
        Extent now = *rest_;
        now.length = std::min<std::uint64_t>(now.length, bytes - (planned_ - before));
        ARCA_CHECK(place(now));
        planned_ += now.length;
        rest_->length -= now.length;
        rest_->offset += static_cast<std::uint32_t>(now.pack ? now.length : 0);
        if (rest_->length == 0)
            rest_.reset();
    }
    return static_cast<std::size_t>(planned_ - before);
}

Result<void> RestoreTasks::place(const Extent &extent)
{
    const Part part{extent.offset, static_cast<std::size_t>(extent.length), planned_};
    if (!extent.pack) {
        pending_.push_back(std::make_unique<RestoreTask>());
        pending_.back()->add(part);
        return {};
    }
    if (extent.offset + extent.length > extent.pack->frames[extent.frame].rawBytes)
        return Error{ErrorKind::damaged, "a run leads beyond its frame"};
    RestoreTask *&known = open_[{extent.pack.get(), extent.frame}];
    if (known == nullptr) {
        pending_.push_back(std::make_unique<RestoreTask>());
        known = pending_.back().get();
        known->frame.pack = extent.pack;
        known->frame.number = extent.frame;
    }
    known->add(part);
    return {};
}

/// Nothing of what comes later will be near them.
std::vector<RestoreTaskPtr> RestoreTasks::takeDue()
{
    std::vector<RestoreTaskPtr> due;
    std::uint64_t bytes = 0;
    while (bytes < kFetchTogether && !pending_.empty() &&
           (allPlanned_ || pending_.front()->parts.front().position + horizon_ <= planned_)) {
        const FetchedFrame &frame = pending_.front()->frame;
        if (frame.pack) {
            open_.erase({frame.pack.get(), frame.number});
            bytes += frame.entry().storedBytes;
        }
        due.push_back(std::move(pending_.front()));
        pending_.pop_front();
    }
    return due;
}

} // namespace arca::engine
