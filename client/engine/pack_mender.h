// Writes the next revision of a damaged pack, with copies of the blocks that cannot be read any
// more. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_PACK_MENDER_H
#define KEEL_CLIENT_ENGINE_PACK_MENDER_H

#include "client/engine/block_search.h"
#include "client/engine/pack_check.h"

namespace arca::engine
{

/// What is wrong with a pack whose index can be read.
struct BrokenPack {
    PackName which;
    PackIndex index;
    std::set<std::uint32_t> frames;        // that are damaged
    std::set<std::uint32_t> unreadable;    // of these, those the system failed to read
    std::set<std::uint32_t> missingBlocks; // that were dropped and are needed

    /// Visits the numbers of the blocks that copies are wanted of.
    template <class Visit> void eachWanted(Visit visit) const
    {
        std::uint32_t block = 0;
        for (std::uint32_t number = 0; number < index.frames.size(); ++number)
            for (const std::uint32_t end = block + index.frames[number].blocks; block < end;
                 ++block)
                if (index.blocks[block].dropped ? missingBlocks.contains(block)
                                                : frames.contains(number))
                    visit(block);
    }
};

/// What can be done for a broken pack now.
struct MendPlan {
    std::uint64_t found = 0; // blocks that a good copy was read of
    std::uint64_t foundBytes = 0;
    std::set<std::uint32_t> lost; // blocks without one
    bool losesUnreadable = false; // some of the lost ones may become readable again

    /// A new revision gains something, and nothing that may be readable is left out of it.
    bool isWorthIt() const { return found != 0 && !losesUnreadable; }
};

/// Reads the copies that `search` found. Writes nothing.
MendPlan planMending(const BrokenPack &pack, BlockSearch &search);

/// Writes the next revision with all blocks that can be read, and proves it by reading it again.
/// Blocks that cannot be had are dropped; their identities stay. Durable when it returns; the old
/// revision is still there. Errors: damaged when the new revision is not what it should be, and
/// then it was taken away again; exists; full.
Result<PackName> mendPack(Domain &domain, const BrokenPack &pack, BlockSearch &search);

} // namespace arca::engine

#endif
