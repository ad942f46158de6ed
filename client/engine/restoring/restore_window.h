// The part of a stream that is being put together for a restore: a ring of bytes, filled in any
// order, given out from the front. Its owner guards everything but memoryAt() with a mutex; those
// bytes belong to the thread that fills them until filled() was called, then to the one that gives
// them out. Positions are bytes from the beginning of the stream.
#ifndef KEEL_CLIENT_ENGINE_RESTORING_RESTORE_WINDOW_H
#define KEEL_CLIENT_ENGINE_RESTORING_RESTORE_WINDOW_H

#include "client/base/bytes.h"
#include "client/base/pages.h"

#include <vector>

namespace arca::engine
{

class RestoreWindow
{
public:
    /// The bytes of a segment; the window keeps one state of readiness for each.
    static constexpr std::size_t kSegment = std::size_t{128} << 10;

    /// Rounded down to segments, and at least two. Throws bad_alloc.
    explicit RestoreWindow(std::size_t bytes);

    std::size_t capacity() const { return open_.size() * kSegment; }
    /// Returns how much more of the stream may come into it now.
    std::size_t room() const;
    /// Lets the next `bytes` of the stream, at most room(), come into it.
    void extend(std::size_t bytes) { end_ += bytes; }
    /// Nothing follows what is in it.
    void close();
    bool isClosed() const { return closed_; }

    /// Where bytes of the stream are put, as far as they lie together: perhaps less than `length`.
    std::span<std::byte> memoryAt(std::uint64_t position, std::size_t length) const;
    /// Says that these are there. Each byte once.
    void filled(std::uint64_t position, std::size_t length);

    /// What can be given out: from the front, as far as it is filled.
    std::uint64_t front() const { return front_; }
    std::size_t ready() const { return static_cast<std::size_t>(ready_ - front_); }
    bool atEnd() const { return closed_ && front_ == end_; }
    /// Gives out at most ready(): their place comes free.
    void giveOut(std::size_t bytes);

private:
    std::size_t segmentOf(std::uint64_t position) const
    {
        return static_cast<std::size_t>(position / kSegment % open_.size());
    }
    void findReady();

    Pages ring_;
    std::vector<std::size_t> open_; // of each segment, the bytes that are not filled
    std::uint64_t front_ = 0;       // positions in the stream
    std::uint64_t ready_ = 0;
    std::uint64_t end_ = 0;
    bool closed_ = false;
};

} // namespace arca::engine

#endif
