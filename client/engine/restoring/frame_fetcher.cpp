// Grouping and reading ahead.
//
// A stream that was put together over many days takes a frame here and a frame there from many
// packs, from each in ascending order. Read one by one they would cost a disk access each; with a
// stretch of every such pack in memory there are few, large and direct ones. But of an old pack it
// may need so little that most of what follows would be read for nothing.
#include "client/engine/restoring/frame_fetcher.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

// With what the beginning is rounded down by, it fits into a buffer.
constexpr std::uint64_t kMaxRead = IoBuffers::kLarge - kPageAlignment;
static_assert(kMaxFrameBytes + kTagBytes <= kMaxRead);
constexpr std::size_t kMinReadAhead = std::size_t{64} << 10; // less is not worth it
constexpr std::uint32_t kNearby = 2;                         // frames
constexpr std::uint64_t kForgottenAfter = 2048;              // frames

std::uint64_t endOf(const FrameEntry &frame)
{
    return frame.offset + frame.storedBytes;
}

} // namespace

Stretch::Stretch(std::shared_ptr<PackLayout> pack, std::uint64_t begin, std::uint64_t end)
    : pack_(std::move(pack)), begin_(begin / kPageAlignment * kPageAlignment),
      end_((end + kPageAlignment - 1) / kPageAlignment * kPageAlignment)
{
}

bool Stretch::holds(const FrameEntry &frame) const
{
    return frame.offset >= begin_ && endOf(frame) <= end_;
}

Result<void> Stretch::read(IoBuffers &buffers)
{
    memory_ = buffers.take(bytes());
    const auto got = pack_->pack->read(begin_, {memory_.get(), bytes()});
    gone_ = !got && got.error().kind == ErrorKind::notFound;
    if (gone_)
        return {};
    ARCA_TRY(got_, got);
    return {};
}

Result<ByteView> Stretch::sealed(const FrameEntry &frame) const
{
    if (endOf(frame) > begin_ + got_)
        return Error{ErrorKind::damaged, "the pack " + pack_->pack->blobName() + ": it was cut"};
    return ByteView(memory_.get() + (frame.offset - begin_), frame.storedBytes);
}

bool FrameFetcher::giveKnown(FetchedFrame &frame)
{
    const auto known = places_.find(frame.pack->id());
    if (known == places_.end() || !known->second.ahead ||
        !known->second.ahead->holds(frame.entry()))
        return false;
    frame.stretch = known->second.ahead;
    known->second.last = frame.number;
    known->second.used = clock_;
    return true;
}

FrameFetcher::Stretches FrameFetcher::assign(std::span<FetchedFrame *const> frames)
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
    Stretches fresh;
    for (std::size_t first = 0; first < missing.size();) {
        std::size_t end = first + 1;
        if (giveKnown(*missing[first])) { // is read with the one before
            first = end;
            continue;
        }
        while (end < missing.size() && missing[end]->pack == missing[first]->pack &&
               missing[end]->number <= missing[end - 1]->number + 1 &&
               endOf(missing[end]->entry()) - missing[first]->entry().offset <= kMaxRead)
            ++end;
        fresh.push_back(stretchFor(std::span(missing).subspan(first, end - first)));
        first = end;
    }
    dropUnused();
    return fresh;
}

std::shared_ptr<Stretch> FrameFetcher::stretchFor(std::span<FetchedFrame *const> group)
{
    const std::shared_ptr<PackLayout> &pack = group.front()->pack;
    const auto [known, isFirst] = places_.try_emplace(pack->id());
    Place &place = known->second;
    const std::uint32_t number = group.front()->number;
    const bool isNearby = isFirst || (number > place.last && number - place.last <= kNearby);
    place = {nullptr, group.back()->number, clock_};

    const std::uint64_t begin = group.front()->entry().offset;
    const std::uint64_t needed = endOf(group.back()->entry());
    // Whole frames: what is cut off would be read again.
    std::uint64_t end = needed;
    const std::uint64_t limit = begin + (isNearby ? readAheadFor(place) : 0);
    for (std::size_t next = group.back()->number + std::size_t{1};
         next < pack->frames.size() && endOf(pack->frames[next]) <= limit; ++next)
        end = endOf(pack->frames[next]);
    auto stretch = std::make_shared<Stretch>(pack, begin, end);
    for (FetchedFrame *const frame : group)
        frame->stretch = stretch;
    if (end > needed)
        place.ahead = stretch;
    return stretch;
}

void FrameFetcher::dropUnused()
{
    std::erase_if(places_,
                  [&](const auto &known) { return clock_ - known.second.used > kForgottenAfter; });
}

/// The share of one among the packs that are read ahead.
std::uint64_t FrameFetcher::readAheadFor(const Place &place) const
{
    const auto others = std::count_if(places_.begin(), places_.end(), [&](const auto &known) {
        return &known.second != &place && known.second.ahead;
    });
    const std::size_t share = budget_ / (static_cast<std::size_t>(others) + 1);
    return share < kMinReadAhead ? 0 : std::min(share, IoBuffers::kSmall);
}

} // namespace arca::engine
