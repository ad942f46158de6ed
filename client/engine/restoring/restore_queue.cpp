// Book-keeping between the reading and the expanding.
#include "client/engine/restoring/restore_queue.h"

namespace arca::engine
{

namespace
{

constexpr std::size_t kReadAtOnce = std::size_t{1} << 20;

} // namespace

std::size_t RestoreQueue::add(const FrameFetcher::Stretches &fresh,
                              std::vector<RestoreTaskPtr> tasks)
{
    for (const auto &stretch : fresh) {
        waiting_.try_emplace(stretch.get());
        toRead_.push_back(stretch);
    }
    std::size_t now = 0;
    for (RestoreTaskPtr &task : tasks) {
        const auto reading = waiting_.find(task->frame.stretch.get());
        if (reading != waiting_.end()) {
            reading->second.push_back(std::move(task));
        } else {
            ready(std::move(task));
            ++now;
        }
    }
    return now;
}

void RestoreQueue::ready(RestoreTaskPtr task)
{
    if (const Stretch *const stretch = task->frame.stretch.get(); stretch != nullptr)
        read_ += users_[stretch]++ == 0 ? stretch->bytes() : 0;
    toExpand_.push_back(std::move(task));
}

bool RestoreQueue::canRead() const
{
    return !toRead_.empty() && read_ < maxRead_ &&
           (reading_ == 0 || reading_ + toRead_.front()->bytes() <= kReadAtOnce);
}

std::shared_ptr<Stretch> RestoreQueue::beginRead()
{
    auto stretch = std::move(toRead_.front());
    toRead_.pop_front();
    reading_ += stretch->bytes();
    return stretch;
}

std::size_t RestoreQueue::endRead(const std::shared_ptr<Stretch> &stretch)
{
    reading_ -= stretch->bytes();
    auto tasks = waiting_.extract(stretch.get());
    for (RestoreTaskPtr &task : tasks.mapped())
        ready(std::move(task));
    return tasks.mapped().size();
}

RestoreTaskPtr RestoreQueue::takeTask()
{
    auto task = std::move(toExpand_.front());
    toExpand_.pop_front();
    return task;
}

bool RestoreQueue::letGo(const Stretch *stretch)
{
    const auto users = users_.find(stretch);
    if (users == users_.end() || --users->second != 0)
        return false;
    users_.erase(users);
    const bool wasFull = read_ >= maxRead_;
    read_ -= stretch->bytes();
    return wasFull && canRead();
}

} // namespace arca::engine
