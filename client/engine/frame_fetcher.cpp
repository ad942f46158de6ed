// Grouping and reading ahead.
//
// A stream that was put together over many days takes a frame here and a frame there from many
// packs, from each in ascending order. Read one by one they would cost a disk access each; with a
// stretch of every such pack in memory there are few, large and direct ones.
#include "client/engine/frame_fetcher.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

// With what the beginning is rounded down by, it fits into a buffer.
constexpr std::uint64_t kMaxRead = IoBuffers::kLarge - kPageAlignment;
static_assert(kMaxFrameBytes + kTagBytes <= kMaxRead);
constexpr std::size_t kMinReadAhead = std::size_t{64} << 10; // less is not worth it
constexpr std::uint64_t kForgottenAfter = 2048;              // frames

std::uint64_t endOf(const FrameEntry &frame)
{
    return frame.offset + frame.storedBytes;
}

} // namespace

bool FrameFetcher::Stretch::holds(const FrameEntry &frame) const
{
    return frame.offset >= begin && endOf(frame) <= end;
}

void FrameFetcher::Stretch::give(FetchedFrame &frame) const
{
    frame.memory = memory;
    frame.sealed =
        ByteView(memory.get() + (frame.entry().offset - begin), frame.entry().storedBytes);
}

bool FrameFetcher::giveKnown(FetchedFrame &frame)
{
    const auto known = stretches_.find(frame.pack.get());
    if (known == stretches_.end() || !known->second.holds(frame.entry()))
        return false;
    known->second.give(frame);
    known->second.used = clock_;
    return true;
}

Result<void> FrameFetcher::fetch(std::span<FetchedFrame *const> frames)
{
    std::vector<FetchedFrame *> missing;
    for (FetchedFrame *const frame : frames) {
        ++clock_;
        if (!giveKnown(*frame))
            missing.push_back(frame);
    }
    std::sort(missing.begin(), missing.end(), [](const auto *a, const auto *b) {
        return std::pair(a->pack.get(), a->number) < std::pair(b->pack.get(), b->number);
    });
    for (std::size_t first = 0; first < missing.size();) {
        std::size_t end = first + 1;
        if (giveKnown(*missing[first])) { // was read with the one before
            first = end;
            continue;
        }
        while (end < missing.size() && missing[end]->pack == missing[first]->pack &&
               missing[end]->number <= missing[end - 1]->number + 1 &&
               endOf(missing[end]->entry()) - missing[first]->entry().offset <= kMaxRead)
            ++end;
        ARCA_CHECK(fetchTogether(std::span(missing).subspan(first, end - first)));
        first = end;
    }
    dropUnused();
    return {};
}

Result<void> FrameFetcher::fetchTogether(std::span<FetchedFrame *const> group)
{
    const std::shared_ptr<PackLayout> &pack = group.front()->pack;
    const std::uint64_t begin = group.front()->entry().offset / kPageAlignment * kPageAlignment;
    const std::uint64_t needed = endOf(group.back()->entry());
    // Whole frames: what is cut off would be read again.
    std::uint64_t ahead = needed;
    const std::uint64_t limit = begin + readAheadNow();
    for (std::size_t next = group.back()->number + std::size_t{1};
         next < pack->frames.size() && endOf(pack->frames[next]) <= limit; ++next)
        ahead = endOf(pack->frames[next]);
    ARCA_TRY(Stretch stretch, read(pack, begin, ahead));
    if (stretch.end < needed)
        return Error{ErrorKind::damaged, "the pack " + pack->pack->blobName() + ": it was cut"};
    for (FetchedFrame *const frame : group)
        stretch.give(*frame);
    if (ahead > needed)
        stretches_.insert_or_assign(pack.get(), std::move(stretch));
    else
        stretches_.erase(pack.get());
    return {};
}

Result<FrameFetcher::Stretch> FrameFetcher::read(const std::shared_ptr<PackLayout> &pack,
                                                 std::uint64_t begin, std::uint64_t end) const
{
    const auto length = static_cast<std::size_t>((end - begin + kPageAlignment - 1) /
                                                 kPageAlignment * kPageAlignment);
    Stretch stretch{pack, buffers_->take(length), begin, 0, clock_};
    ARCA_TRY(const std::size_t got, pack->pack->blob().read(begin, {stretch.memory.get(), length}));
    stretch.end = begin + got;
    return stretch;
}

void FrameFetcher::dropUnused()
{
    std::erase_if(stretches_,
                  [&](const auto &known) { return clock_ - known.second.used > kForgottenAfter; });
}

std::size_t FrameFetcher::readAheadNow() const
{
    const std::size_t share = budget_ / (stretches_.size() + 1);
    return share < kMinReadAhead ? 0 : std::min(share, IoBuffers::kSmall);
}

} // namespace arca::engine
