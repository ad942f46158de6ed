// Goes on with a restore when the revision of a pack that it counts on is gone. A pack is closed to
// keep few files open; until it is opened again, a repair or a reclaiming that does not have to
// wait for this reader may have put the next revision in its place.
//
//   The blocks of a pack keep their numbers and identities from one revision to the next; only
//   which frame holds them changes. So what a frame of the old revision gave is put together, block
//   by block, from the newest one, if that has the same identities.
#ifndef KEEL_CLIENT_ENGINE_RESTORING_LATER_REVISION_H
#define KEEL_CLIENT_ENGINE_RESTORING_LATER_REVISION_H

#include "client/engine/restoring/restore_plan.h"

#include <functional>
#include <mutex>

namespace arca::engine
{

/// Any number of threads may use it.
class LaterRevisions
{
public:
    explicit LaterRevisions(const PackStore &packs) : packs_(packs) {}

    /// Hands out `length` bytes from `offset` on of a frame as `gone` has it, in order, each
    /// portion with its place in that frame; a portion is valid until `take` returns. Errors:
    /// damaged when the pack is missing, lacks a block of them or has other blocks; what reading
    /// says. Some may have been handed out by then.
    Result<void> read(const PackLayout &gone, std::uint32_t frame, std::uint32_t offset,
                      std::uint64_t length, FrameCoder &coder,
                      const std::function<void(std::uint32_t at, ByteView)> &take);

private:
    Result<std::shared_ptr<PackLayout>> newestOf(const PackLayout &gone);

    const PackStore &packs_;
    std::mutex mutex_;                   // guards the next
    std::shared_ptr<PackLayout> newest_; // of the pack that was asked for last, and held open
};

} // namespace arca::engine

#endif
