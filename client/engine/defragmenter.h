// Keeps a stream quick to restore. A database that changes a little every day comes to lie in the
// frames of many days, and of the oldest ones fewer and fewer blocks are still in use, while each
// has to be read and expanded whole. So the blocks of a frame that the stream hardly uses any more
// are stored again, together with what is new next to them, and that frame is not needed any more.
//
// The idea is the capping of Lillibridge, Eshghi and Bhagwat, "Improving Restore Speed for Backup
// Systems that Use Inline Chunk-Based Deduplication" (FAST 2013). Here the bound is on what is
// stored again, a 64th of the stream, and only a frame that comes by within two chunks can be
// judged, while all that it still gives is in memory.
//
// Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_DEFRAGMENTER_H
#define KEEL_CLIENT_ENGINE_DEFRAGMENTER_H

#include "client/engine/cutter.h"
#include "client/engine/duplicate_index.h"

#include <map>
#include <set>
#include <span>

namespace arca::engine
{

/// What is known of the blocks of a chunk, in the order of its cuts; nothing: to be stored.
using KnownBlocks = std::vector<std::optional<StoredBlock>>;

/// A chunk that was looked up.
struct LookedUp {
    std::span<const Cut> cuts;
    std::span<std::optional<StoredBlock>> known;
};

class Defragmenter
{
public:
    explicit Defragmenter(DuplicateIndex &duplicates) : duplicates_(duplicates) {}

    /// Takes apart the frames of which the two use too little: their blocks are changed for copies,
    /// or forgotten. Called for every chunk of the stream in turn with the one that follows it
    /// (empty for the last one).
    void settle(LookedUp front, LookedUp next);

private:
    using FrameKey = std::pair<PackId, std::uint32_t>; // its first block
    struct Use {
        std::uint32_t stored = 0;
        std::uint32_t first = 0xffffffff, last = 0; // numbers of blocks that are used
        std::vector<std::size_t> blocks;            // positions in the window

        bool isSparse() const;
    };
    using Uses = std::map<FrameKey, Use>;

    /// Two chunks as one.
    struct Window {
        LookedUp front, next;

        std::size_t size() const { return front.cuts.size() + next.cuts.size(); }
        const Cut &cutAt(std::size_t i) const
        {
            return i < front.cuts.size() ? front.cuts[i] : next.cuts[i - front.cuts.size()];
        }
        std::optional<StoredBlock> &knownAt(std::size_t i) const
        {
            return i < front.known.size() ? front.known[i] : next.known[i - front.known.size()];
        }
    };
    /// What would take the place of a frame.
    struct Change {
        KnownBlocks blocks;        // nothing: to be stored again
        std::uint64_t again;       // bytes of those
        std::set<FrameKey> others; // frames that nothing else in sight needs
    };

    Uses countUses(const Window &window) const;
    Change changeFor(const Uses &uses, const Use &frame, const Window &window) const;
    void takeApart(const Uses &uses, const Use &frame, const Window &window);

    DuplicateIndex &duplicates_;
    std::set<FrameKey> before_; // the frames that the chunk before used
    std::uint64_t seen_ = 0;    // bytes of the stream,
    std::uint64_t again_ = 0;   // and of what was stored again
};

} // namespace arca::engine

#endif
