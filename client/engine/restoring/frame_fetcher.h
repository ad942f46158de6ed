// Decides how sealed frames are fetched from packs: those that lie together in one read, and where
// most of a pack is needed, what follows, too. Belongs to one thread, but for what a stretch (a
// read range) says of itself.
#ifndef KEEL_CLIENT_ENGINE_RESTORING_FRAME_FETCHER_H
#define KEEL_CLIENT_ENGINE_RESTORING_FRAME_FETCHER_H

#include "client/engine/packs/io_buffers.h"
#include "client/engine/restoring/restore_plan.h"

#include <map>
#include <memory>
#include <span>
#include <vector>

namespace arca::engine
{

/// A read range: a part of a pack that is read at once, by one thread, before others look at it.
class Stretch
{
public:
    /// Rounded to pages of 4 KiB, outwards; `end` lies behind the last byte.
    Stretch(std::shared_ptr<PackLayout> pack, std::uint64_t begin, std::uint64_t end);

    bool holds(const FrameEntry &frame) const;
    std::size_t bytes() const { return static_cast<std::size_t>(end_ - begin_); }

    /// Reads it once, whole pages; where the pack ends, less. Errors: what reading says, but for a
    /// revision that is gone.
    Result<void> read(IoBuffers &buffers);
    /// Returns true when read() found the revision of the pack gone: later_revision.h.
    bool isGone() const { return gone_; }
    /// Returns a view of a frame that it holds, valid as long as the range; after read(), and not
    /// when isGone(). Errors: damaged when the pack ends before it.
    Result<ByteView> sealed(const FrameEntry &frame) const;

private:
    const std::shared_ptr<PackLayout> pack_;
    const std::uint64_t begin_;
    const std::uint64_t end_;
    std::shared_ptr<std::byte> memory_;
    std::size_t got_ = 0; // less than all where the pack ends
    bool gone_ = false;
};

/// A frame that is asked for, and what it is read with.
struct FetchedFrame {
    std::shared_ptr<PackLayout> pack;
    std::uint32_t number = 0;
    std::shared_ptr<Stretch> stretch;

    const FrameEntry &entry() const { return pack->frames[number]; }
};

class FrameFetcher
{
public:
    using Stretches = std::vector<std::shared_ptr<Stretch>>;

    /// `readAhead`: bytes that may be kept of what was read and not asked for yet.
    explicit FrameFetcher(std::size_t readAhead) : budget_(readAhead) {}

    /// Gives every frame its stretch; their order does not matter. Returns the stretches that are
    /// to be read: the others were returned before.
    Stretches assign(std::span<FetchedFrame *const> frames);

private:
    /// Where the stream is in a pack.
    struct Place {
        std::shared_ptr<Stretch> ahead; // what follows may be in it
        std::uint32_t last = 0;         // the number of the frame that was asked for last
        std::uint64_t used = 0;
    };

    /// Whether it lies in what is read anyhow.
    bool giveKnown(FetchedFrame &frame);
    std::shared_ptr<Stretch> stretchFor(std::span<FetchedFrame *const> group);
    std::uint64_t readAheadFor(const Place &place) const;
    void dropUnused();

    const std::size_t budget_;
    std::map<PackId, Place> places_;
    std::uint64_t clock_ = 0;
};

} // namespace arca::engine

#endif
