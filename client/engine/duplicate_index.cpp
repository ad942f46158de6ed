// The look-up of one block: the table, then the hints if the block is one of those they have.
#include "client/engine/duplicate_index.h"

#include <bit>

namespace arca::engine
{

namespace
{

constexpr std::size_t kEntryBytes = 24;
constexpr std::size_t kPacksPerHint = 4;
/// At the beginning of a stream every block is asked for: the first ones of a pack are hints.
constexpr std::uint64_t kEagerLookups = 64;

} // namespace

DuplicateIndex::DuplicateIndex(Domain &domain, std::set<PackId> unusable, const Settings &settings)
    : domain_(domain), unusable_(std::move(unusable)), sealedOnly_(settings.cipher != Cipher::none),
      table_(settings.deduplication ? std::bit_floor(settings.memory / 8 * 3 / kEntryBytes) : 64)
{
}

std::optional<BlockRef> DuplicateIndex::find(const BlockId &block)
{
    ++counts_.lookups;
    auto found = inTable(block);
    // Where a former stream was left, another pack may begin.
    const bool eager = lastFound_ || counts_.lookups <= kEagerLookups;
    if (!found && (eager || isSampled(block))) {
        ++counts_.hintQueries;
        for (const PackId &pack : domain_.hints().packsWith(block, kPacksPerHint))
            if (load(pack) && (found = inTable(block)))
                break;
    }
    lastFound_ = found.has_value();
    counts_.found += lastFound_;
    return found;
}

std::optional<BlockRef> DuplicateIndex::inTable(const BlockId &block)
{
    const auto place = table_.find(block);
    if (!place)
        return std::nullopt;
    const BlockRef ref{table_.packOf(place->slot), place->block};
    prepareSuccessor(*place);
    return ref;
}

/// A stream that follows a former one out of a pack goes on in the pack that was written next.
void DuplicateIndex::prepareSuccessor(const BlockTable::Place &place)
{
    const PackId &pack = table_.packOf(place.slot);
    if (place.block >= table_.blocksOf(place.slot) / 8 * 7 && !own_.contains(pack))
        (void)load(successorOf(pack));
}

/// Whether its blocks came into the table now.
bool DuplicateIndex::load(const PackId &pack)
{
    if (unusable_.contains(pack) || table_.slotOf(pack))
        return false;
    auto opened = domain_.packs().open(pack);
    auto index = opened ? (*opened)->readIndex() : Result<PackIndex>(opened.error());
    if (!index || (sealedOnly_ && (*opened)->cipher().cipher() == Cipher::none)) {
        // Gone, hurt, or in the clear: nothing new must come to rely on it.
        unusable_.insert(pack);
        return false;
    }
    ++counts_.packsLoaded;
    counts_.indexBytesRead += index->blocks.size() * 20;
    const BlockTable::Slot slot = table_.addPack(pack);
    for (std::uint32_t i = 0; i < index->blocks.size(); ++i)
        if (!index->blocks[i].dropped && index->blocks[i].id != BlockId{})
            table_.add(slot, index->blocks[i].id, i);
    return true;
}

void DuplicateIndex::addOwn(const BlockRef &place, const BlockId &block)
{
    if (!ownSlot_ || ownPack_ != place.pack || !table_.slotOf(place.pack)) {
        ownSlot_ = table_.addPack(place.pack);
        ownPack_ = place.pack;
        own_.insert(place.pack);
    }
    table_.add(*ownSlot_, block, place.block);
}

} // namespace arca::engine
