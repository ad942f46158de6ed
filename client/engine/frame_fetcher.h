// Fetches sealed frames from packs, many at a time: those that lie together in one read, and with
// few of them what follows in the pack, which the stream most likely needs next. Belongs to one
// thread.
#ifndef KEEL_CLIENT_ENGINE_FRAME_FETCHER_H
#define KEEL_CLIENT_ENGINE_FRAME_FETCHER_H

#include "client/engine/io_buffers.h"
#include "client/engine/restore_plan.h"

#include <map>
#include <memory>
#include <span>

namespace arca::engine
{

/// A frame that is asked for, and where it was read to.
struct FetchedFrame {
    std::shared_ptr<PackLayout> pack;
    std::uint32_t number = 0;
    std::shared_ptr<std::byte> memory; // keeps `sealed`
    ByteView sealed;

    const FrameEntry &entry() const { return pack->frames[number]; }
};

class FrameFetcher
{
public:
    /// `readAhead`: bytes that may be kept of what was read and not asked for yet.
    explicit FrameFetcher(std::size_t readAhead) : budget_(readAhead) {}

    /// Fills in memory and sealed bytes of all; their order does not matter.
    Result<void> fetch(std::span<FetchedFrame *const> frames);

private:
    /// A part of a pack, as it was read.
    struct Stretch {
        std::shared_ptr<PackLayout> pack; // so that its address stays its own
        std::shared_ptr<std::byte> memory;
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        std::uint64_t used = 0;

        bool holds(const FrameEntry &frame) const;
        void give(FetchedFrame &frame) const;
    };

    /// Whether it lies in what was read already.
    bool giveKnown(FetchedFrame &frame);
    Result<void> fetchTogether(std::span<FetchedFrame *const> group);
    Result<Stretch> read(const std::shared_ptr<PackLayout> &pack, std::uint64_t begin,
                         std::uint64_t end) const;
    void dropUnused();
    std::size_t readAheadNow() const;

    const std::size_t budget_;
    const std::shared_ptr<IoBuffers> buffers_ = std::make_shared<IoBuffers>();
    std::map<const PackLayout *, Stretch> stretches_; // the last one of each pack
    std::uint64_t clock_ = 0;
};

} // namespace arca::engine

#endif
