// Writes the next revision of a pack: the blocks that are still needed, under the numbers they had.
#ifndef KEEL_CLIENT_ENGINE_MENDING_PACK_REWRITER_H
#define KEEL_CLIENT_ENGINE_MENDING_PACK_REWRITER_H

#include "client/engine/duplicates/domain.h"
#include "client/engine/packs/damage.h"
#include "client/engine/packs/revision_writer.h"

#include <functional>
#include <vector>

namespace arca::engine
{

struct RewrittenPack {
    PackName which;                // the new revision
    std::uint64_t storedBytes = 0; // of it
    bool gaps = false;             // it lacks needed blocks, which were dropped before
};

/// `isNeeded` is asked for numbers of blocks; at least one must be. Every needed block is compared
/// with its identity, and the new revision is proven by reading it again before it gets its name.
/// Durable when it returns; the old revision is still there. Errors: damaged when frames with
/// needed blocks are not what was written, then they are added to `found`; damaged without any when
/// what was written is not right; exists when another process wrote that revision; those of
/// `next.stillMarked`. After these no name leads to what was written; after another error one may,
/// and what it leads to is proven.
Result<RewrittenPack> rewritePack(Domain &domain, OpenPack &pack, const NextRevision &next,
                                  const std::function<bool(std::uint32_t block)> &isNeeded,
                                  std::vector<DamagedPart> &found);

} // namespace arca::engine

#endif
