// Open addressing with linear probing. Identities are keyed hashes, so their own bytes are the
// hash, and nobody without the key can choose blocks that collide. Entries go only when the whole
// table is built anew, so there are no holes to remember.
#include "client/engine/duplicates/block_table.h"

#include <algorithm>
#include <cstring>

namespace arca::engine
{

namespace
{

constexpr std::size_t kFirstEntries = 4096; // most pieces of an archived log need no more

} // namespace

BlockTable::BlockTable(std::size_t capacity)
    : capacity_(capacity), entries_(std::min(capacity, kFirstEntries), Entry{{}, kEmpty, 0})
{
}

std::optional<BlockTable::Slot> BlockTable::slotOf(const PackId &pack) const
{
    const auto known = slots_.find(pack);
    return known == slots_.end() ? std::nullopt : std::optional(known->second);
}

const FrameSpan *BlockTable::frameOf(const Place &place) const
{
    const std::vector<FrameSpan> &frames = packs_.at(place.slot).frames;
    const auto after = std::upper_bound(
        frames.begin(), frames.end(), place.block,
        [](std::uint32_t block, const FrameSpan &frame) { return block < frame.firstBlock; });
    return after == frames.begin() ? nullptr : &*std::prev(after);
}

BlockTable::Slot BlockTable::addPack(const PackId &pack, std::vector<FrameSpan> frames)
{
    packs_.emplace(nextSlot_, Pack{pack, ++clock_, 0, 0, std::move(frames)});
    slots_[pack] = nextSlot_;
    return nextSlot_++;
}

std::size_t BlockTable::startOf(const BlockId &block) const
{
    std::uint64_t hash;
    std::memcpy(&hash, block.data(), sizeof hash);
    return static_cast<std::size_t>(hash) & (entries_.size() - 1);
}

void BlockTable::insert(const Entry &entry)
{
    std::size_t at = startOf(entry.id);
    while (entries_[at].slot != kEmpty)
        at = (at + 1) & (entries_.size() - 1);
    entries_[at] = entry;
    ++used_;
}

void BlockTable::add(Slot slot, const BlockId &block, std::uint32_t number)
{
    if (used_ >= entries_.size() / 4 * 3) {
        if (entries_.size() < capacity_)
            rebuild(entries_.size() * 2);
        else
            makeRoom(slot);
    }
    Pack &pack = packs_.at(slot);
    pack.blocks = std::max(pack.blocks, number + 1);
    if (used_ >= entries_.size() / 8 * 7)
        return; // one pack alone would fill the table; what of it is in must do
    ++pack.entries;
    insert({block, slot, number});
}

void BlockTable::makeRoom(Slot spared)
{
    std::vector<std::pair<std::uint64_t, Slot>> byAge;
    for (const auto &[slot, pack] : packs_)
        if (slot != spared)
            byAge.emplace_back(pack.met, slot);
    std::sort(byAge.begin(), byAge.end());
    std::size_t left = used_;
    for (const auto &[met, slot] : byAge) {
        if (left <= entries_.size() / 2)
            break;
        const Pack &pack = packs_.at(slot);
        left -= pack.entries;
        slots_.erase(pack.id);
        packs_.erase(slot);
    }
    rebuild(capacity_);
}

/// Keeps the entries of the packs that are left.
void BlockTable::rebuild(std::size_t size)
{
    std::vector<Entry> kept;
    kept.reserve(used_);
    for (const Entry &entry : entries_)
        if (entry.slot != kEmpty && packs_.contains(entry.slot))
            kept.push_back(entry);
    entries_.assign(size, Entry{{}, kEmpty, 0});
    used_ = 0;
    for (const Entry &entry : kept)
        insert(entry);
}

std::optional<BlockTable::Place> BlockTable::find(const BlockId &block)
{
    for (std::size_t at = startOf(block); entries_[at].slot != kEmpty;
         at = (at + 1) & (entries_.size() - 1)) {
        if (entries_[at].id == block) {
            packs_.at(entries_[at].slot).met = ++clock_;
            return Place{entries_[at].slot, entries_[at].block};
        }
    }
    return std::nullopt;
}

} // namespace arca::engine
