// Writes the next revision of a damaged pack, with copies of the blocks that cannot be read any
// more. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_MENDING_PACK_MENDER_H
#define KEEL_CLIENT_ENGINE_MENDING_PACK_MENDER_H

#include "client/engine/mending/block_search.h"
#include "client/engine/mending/pack_check.h"
#include "client/engine/packs/revision_writer.h"

#include <functional>

namespace arca::engine
{

/// What is wrong with a pack whose index can be read.
struct BrokenPack {
    PackName which;
    PackIndex index;
    std::set<std::uint32_t> frames;        // that are damaged
    std::set<std::uint32_t> unreadable;    // of these, those the system failed to read
    std::set<std::uint32_t> wrongBlocks;   // of damaged frames that open: what is wrong in them
    std::set<std::uint32_t> missingBlocks; // that were dropped and are needed

    /// Visits the numbers of the blocks that copies are wanted of. Of a frame that opens those are
    /// its wrong blocks, of any other damaged frame all.
    template <class Visit> void eachWanted(Visit visit) const
    {
        std::uint32_t block = 0;
        for (std::uint32_t number = 0; number < index.frames.size(); ++number) {
            const std::uint32_t end = block + index.frames[number].blocks;
            const auto wrong = wrongBlocks.lower_bound(block);
            const bool opens = wrong != wrongBlocks.end() && *wrong < end;
            for (; block < end; ++block)
                if (index.blocks[block].dropped ? missingBlocks.contains(block)
                    : opens                     ? wrongBlocks.contains(block)
                                                : frames.contains(number))
                    visit(block);
        }
    }
};

/// What can be done for a broken pack now.
struct MendPlan {
    std::uint64_t found = 0; // blocks that pieces need and that a good copy was read of
    std::uint64_t foundBytes = 0;
    std::set<std::uint32_t> lost; // blocks without a copy, whether pieces need them or not
    bool losesUnreadable = false; // some of them that pieces need may become readable again

    /// A new revision gains something, and nothing that may be readable is left out of it.
    bool isWorthIt() const { return found != 0 && !losesUnreadable; }
};

/// Says what can be done, reading the copies that `search` found. Writes nothing. What pieces need
/// may change after it: `isNeeded` is asked again for a later plan.
MendPlan planMending(const BrokenPack &pack, BlockSearch &search,
                     const std::function<bool(std::uint32_t block)> &isNeeded);

struct MendedPack {
    PackName which; // the new revision
    PackIndex index;
    /// Frames of it that hold a block which contradicts its identity: it was sealed so, and no copy
    /// was found. The caller records them before the old revision goes.
    std::vector<DamagedPart> damaged;
};

/// Writes the next revision with all blocks that can be read, and proves it by reading it again
/// before it gets its name: what `plan` does not call lost is in it, as its identity says. Lost
/// blocks are dropped, or kept as they were sealed; their identities stay. Durable when it returns;
/// the old revision is still there. Errors: damaged when what was written is not what it should be;
/// exists when another process wrote that revision; full; those of `next.stillMarked`. After these
/// no name leads to what was written; after another error one may, and what it leads to is proven.
Result<MendedPack> mendPack(Domain &domain, const BrokenPack &pack, const NextRevision &next,
                            const MendPlan &plan, BlockSearch &search);

} // namespace arca::engine

#endif
