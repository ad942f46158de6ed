// The blocks of the packs that a stream is likely to meet again: identity to place, in a bounded
// piece of memory. When it is full the packs that were not met for longest go. Belongs to one
// thread.
#ifndef KEEL_CLIENT_ENGINE_DUPLICATES_BLOCK_TABLE_H
#define KEEL_CLIENT_ENGINE_DUPLICATES_BLOCK_TABLE_H

#include "client/engine/packs/pack_format.h"

#include <map>
#include <optional>
#include <unordered_map>

namespace arca::engine
{

/// A frame of a pack.
struct FrameSpan {
    std::uint32_t firstBlock;
    std::uint32_t blocks; // that are stored
};

class BlockTable
{
public:
    using Slot = std::uint32_t; // a pack of the table

    struct Place {
        Slot slot;
        std::uint32_t block; // its number in the pack
    };

    /// Grows to `capacity` entries of 24 bytes, a power of two.
    explicit BlockTable(std::size_t capacity);

    std::optional<Slot> slotOf(const PackId &pack) const;
    const PackId &packOf(Slot slot) const { return packs_.at(slot).id; }
    /// Returns the highest number that was added of that pack, plus 1.
    std::uint32_t blocksOf(Slot slot) const { return packs_.at(slot).blocks; }

    /// Returns the frame of that pack that holds a block, until the pack goes; null when its frames
    /// are not known.
    const FrameSpan *frameOf(const Place &place) const;

    /// Adds a pack that is not in the table. Its slot is valid until the pack goes, and never given
    /// again; slotOf() tells. `frames` in the order of the pack.
    Slot addPack(const PackId &pack, std::vector<FrameSpan> frames = {});
    /// Adds a block of a pack that is in the table. Forgets other packs if it must, and the block
    /// itself when its pack alone fills the table. The numbers may come in any order.
    void add(Slot slot, const BlockId &block, std::uint32_t number);

    /// Returns one place of the block, and marks the pack as met.
    std::optional<Place> find(const BlockId &block);
    /// Visits every place of the block.
    template <class Visit> void eachPlace(const BlockId &block, Visit visit) const
    {
        for (std::size_t at = startOf(block); entries_[at].slot != kEmpty;
             at = (at + 1) & (entries_.size() - 1))
            if (entries_[at].id == block)
                visit(Place{entries_[at].slot, entries_[at].block});
    }

private:
    struct Entry {
        BlockId id;
        Slot slot; // kEmpty: none
        std::uint32_t block;
    };
    struct Pack {
        PackId id;
        std::uint64_t met;
        std::uint32_t blocks;
        std::size_t entries;
        std::vector<FrameSpan> frames;
    };
    static constexpr Slot kEmpty = 0xffffffff;

    std::size_t startOf(const BlockId &block) const;
    void insert(const Entry &entry);
    void makeRoom(Slot spared);
    void rebuild(std::size_t size);

    const std::size_t capacity_;
    std::vector<Entry> entries_;
    std::size_t used_ = 0;
    std::uint64_t clock_ = 0;
    Slot nextSlot_ = 0;
    std::unordered_map<Slot, Pack> packs_;
    std::map<PackId, Slot> slots_; // of the packs above
};

} // namespace arca::engine

#endif
