// Finds blocks that are stored already. In memory are only the blocks of packs that the stream
// comes near: a sampled block leads to the packs that hold it, their own index gives the
// neighbours, and as blocks that were stored together come back together, these are what is asked
// for next. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_DUPLICATE_INDEX_H
#define KEEL_CLIENT_ENGINE_DUPLICATE_INDEX_H

#include "client/engine/block_table.h"
#include "client/engine/domain.h"

#include <set>

namespace arca::engine
{

struct BlockRef {
    PackId pack{};
    std::uint32_t block = 0;
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
    /// `unusable`: packs that may be on their way out; nothing is found in them, nor in packs in
    /// the clear when `settings` ask for a cipher.
    DuplicateIndex(Domain &domain, std::set<PackId> unusable, const Settings &settings);

    std::optional<BlockRef> find(const BlockId &block);
    /// A block that this stream stores itself.
    void addOwn(const BlockRef &place, const BlockId &block);

    const LookupCounts &counts() const { return counts_; }

private:
    std::optional<BlockRef> inTable(const BlockId &block);
    bool load(const PackId &pack);
    void prepareSuccessor(const BlockTable::Place &place);

    Domain &domain_;
    std::set<PackId> unusable_;
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
