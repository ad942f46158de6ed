// A ring of bytes, and how much of each segment is still missing.
#include "client/engine/restoring/restore_window.h"

#include <algorithm>

namespace arca::engine
{

RestoreWindow::RestoreWindow(std::size_t bytes)
    : open_(std::max<std::size_t>(2, bytes / kSegment), kSegment)
{
    ring_ = allocatePages(capacity());
}

std::size_t RestoreWindow::room() const
{
    // A segment comes free as a whole.
    const std::uint64_t kept = front_ / kSegment * kSegment;
    return capacity() - static_cast<std::size_t>(end_ - kept);
}

void RestoreWindow::close()
{
    closed_ = true;
    findReady(); // the last segment may be complete as it is
}

std::span<std::byte> RestoreWindow::memoryAt(std::uint64_t position, std::size_t length) const
{
    const auto at = static_cast<std::size_t>(position % capacity());
    return {ring_.get() + at, std::min(length, capacity() - at)};
}

void RestoreWindow::filled(std::uint64_t position, std::size_t length)
{
    while (length > 0) {
        const std::size_t part =
            std::min(length, kSegment - static_cast<std::size_t>(position % kSegment));
        open_[segmentOf(position)] -= part;
        position += part;
        length -= part;
    }
    findReady();
}

void RestoreWindow::findReady()
{
    while (ready_ < end_) {
        const std::uint64_t segment = ready_ / kSegment * kSegment;
        const std::uint64_t until = std::min<std::uint64_t>(end_, segment + kSegment);
        const std::size_t beyond = kSegment - static_cast<std::size_t>(until - segment);
        // A segment that the stream has only begun to fill may still grow.
        if (open_[segmentOf(segment)] != beyond || (beyond != 0 && !closed_))
            break;
        ready_ = until;
    }
}

void RestoreWindow::giveOut(std::size_t bytes)
{
    const std::uint64_t after = front_ + bytes;
    for (std::uint64_t segment = front_ / kSegment; segment < after / kSegment; ++segment)
        open_[static_cast<std::size_t>(segment % open_.size())] = kSegment;
    front_ = after;
}

} // namespace arca::engine
