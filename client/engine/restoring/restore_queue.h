// Which stretches of packs are to be read for a restore, which frames can be expanded as theirs
// are, and how much may go on at once. Its owner guards it with a mutex; what goes out of it
// belongs to the thread that takes it.
#ifndef KEEL_CLIENT_ENGINE_RESTORING_RESTORE_QUEUE_H
#define KEEL_CLIENT_ENGINE_RESTORING_RESTORE_QUEUE_H

#include "client/engine/restoring/restore_tasks.h"

namespace arca::engine
{

class RestoreQueue
{
public:
    /// `maxRead`: bytes that may have been read and not been expanded.
    explicit RestoreQueue(std::size_t maxRead) : maxRead_(maxRead) {}

    /// Adds tasks whose stretches are among `fresh`, or were handed in before. Returns how many of
    /// them can be expanded now.
    std::size_t add(const FrameFetcher::Stretches &fresh, std::vector<RestoreTaskPtr> tasks);

    /// Small stretches are read side by side; of large ones the nearest is read first.
    bool canRead() const;
    /// Returns the next one to read; only when canRead().
    std::shared_ptr<Stretch> beginRead();
    /// Says that it was read. Returns how many more tasks can be expanded now.
    std::size_t endRead(const std::shared_ptr<Stretch> &stretch);

    bool canExpand() const { return !toExpand_.empty(); }
    /// Returns the next one; only when canExpand().
    RestoreTaskPtr takeTask();
    /// Says that a task does not need its stretch (null: it had none) any more. Returns true when
    /// there is room for a read again.
    bool letGo(const Stretch *stretch);

private:
    void ready(RestoreTaskPtr task);

    const std::size_t maxRead_;
    std::deque<std::shared_ptr<Stretch>> toRead_;
    std::map<const Stretch *, std::vector<RestoreTaskPtr>> waiting_; // for what is not read yet
    std::map<const Stretch *, std::size_t> users_;                   // tasks, of what was read
    std::size_t reading_ = 0;                                        // bytes,
    std::size_t read_ = 0; // and those of stretches that tasks still need
    std::deque<RestoreTaskPtr> toExpand_;
};

} // namespace arca::engine

#endif
