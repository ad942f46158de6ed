// Finds blocks that are stored already. In memory are only the blocks of packs that the stream
// comes near: a sampled block leads to the packs that hold it, their own index gives the
// neighbours, and as blocks that were stored together come back together, these are what is asked
// for next. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_DUPLICATES_DUPLICATE_INDEX_H
#define KEEL_CLIENT_ENGINE_DUPLICATES_DUPLICATE_INDEX_H

#include "client/engine/duplicates/block_table.h"
#include "client/engine/duplicates/domain.h"
#include "client/engine/packs/damage.h"

#include <set>

namespace arca::engine
{

struct BlockRef {
    PackId pack{};
    std::uint32_t block = 0;
};

/// A block that is stored, and the frame that holds it.
struct StoredBlock {
    BlockRef place;
    FrameSpan frame{0, 0}; // without blocks: of a pack that the stream writes itself

    bool isOwn() const { return frame.blocks == 0; }
};

/// What it cost, for showing how the cost grows.
struct LookupCounts {
    std::uint64_t lookups = 0;
    std::uint64_t found = 0;
    std::uint64_t hintQueries = 0;
    std::uint64_t packsLoaded = 0;
    std::uint64_t indexBytesRead = 0;
};

class DuplicateIndex
{
public:
    /// Nothing is found in the `avoided` packs and frames, nor in packs in the clear when
    /// `settings` ask for a cipher.
    DuplicateIndex(Domain &domain, AvoidedPacks avoided, const Settings &settings);

    /// Returns a place of the block, reading hints and indexes of packs if need be; nothing when
    /// none is found. Never fails: what cannot be read counts as not stored, and is stored again.
    std::optional<StoredBlock> find(const BlockId &block);
    /// Returns where the stream itself has stored it last, as far as that is in memory.
    std::optional<BlockRef> findOwn(const BlockId &block) const;
    /// Brings the packs into memory that are said to hold the block, though it was found already.
    /// Returns true when one came in.
    bool bringIn(const BlockId &block);
    /// Visits every place that is in memory now.
    template <class Visit> void eachCopy(const BlockId &block, Visit visit) const
    {
        table_.eachPlace(block, [&](const BlockTable::Place &place) { visit(storedAt(place)); });
    }
    /// Adds a block that this stream stores itself.
    void addOwn(const BlockRef &place, const BlockId &block);

    const LookupCounts &counts() const { return counts_; }

private:
    std::optional<StoredBlock> inTable(const BlockId &block);
    StoredBlock storedAt(const BlockTable::Place &place) const;
    bool load(const PackId &pack);
    void addBlocks(const PackName &pack, const PackIndex &index);
    void prepareSuccessor(const BlockTable::Place &place);

    Domain &domain_;
    std::set<PackId> unusable_;
    const DamagedParts damaged_;
    const bool sealedOnly_;
    std::set<PackId> own_;
    BlockTable table_;
    std::optional<BlockTable::Slot> ownSlot_;
    PackId ownPack_{};
    bool lastFound_ = false;
    LookupCounts counts_;
};

} // namespace arca::engine

#endif
