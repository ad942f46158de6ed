// The look-up of one block: the table, then the hints if the block is one of those they have.
#include "client/engine/duplicates/duplicate_index.h"

#include <algorithm>
#include <bit>

namespace arca::engine
{

namespace
{

constexpr std::size_t kEntryBytes = 24;
constexpr std::size_t kPacksPerHint = 4;
/// At the beginning of a stream every block is asked for: the first ones of a pack are hints.
constexpr std::uint64_t kEagerLookups = 64;

std::vector<FrameSpan> framesOf(const PackIndex &index)
{
    std::vector<FrameSpan> frames;
    frames.reserve(index.frames.size());
    std::uint32_t block = 0;
    for (const FrameEntry &entry : index.frames) {
        FrameSpan frame{block, 0};
        for (const std::uint32_t end = block + entry.blocks; block < end; ++block)
            frame.blocks += index.blocks[block].dropped ? 0 : 1;
        frames.push_back(frame);
    }
    return frames;
}

/// The writer of a pack may not have come to making its name durable, and what a stream counts on
/// must not go with the power. The hints have none of which that is not known.
bool survives(Domain &domain, const PackName &pack, const PackIndex &index)
{
    if (!index.blocks.empty()) {
        const auto known = domain.hints().packsWith(index.blocks.front().id, kPacksPerHint);
        if (std::ranges::find(known, pack.id) != known.end())
            return true;
    }
    return static_cast<bool>(domain.blobs().sync(domain.packs().blobNameOf(pack)));
}

} // namespace

DuplicateIndex::DuplicateIndex(Domain &domain, AvoidedPacks avoided, const Settings &settings)
    : domain_(domain), unusable_(std::move(avoided.marked)), damaged_(std::move(avoided.damaged)),
      sealedOnly_(settings.cipher != Cipher::none),
      table_(settings.deduplication ? std::bit_floor(settings.memory / 8 * 3 / kEntryBytes) : 64)
{
}

std::optional<StoredBlock> DuplicateIndex::find(const BlockId &block)
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

bool DuplicateIndex::bringIn(const BlockId &block)
{
    ++counts_.hintQueries;
    bool any = false;
    for (const PackId &pack : domain_.hints().packsWith(block, kPacksPerHint))
        any = load(pack) || any;
    return any;
}

std::optional<StoredBlock> DuplicateIndex::inTable(const BlockId &block)
{
    const auto place = table_.find(block);
    if (!place)
        return std::nullopt;
    const StoredBlock stored = storedAt(*place);
    prepareSuccessor(*place);
    return stored;
}

StoredBlock DuplicateIndex::storedAt(const BlockTable::Place &place) const
{
    const FrameSpan *frame = table_.frameOf(place);
    return {{table_.packOf(place.slot), place.block}, frame != nullptr ? *frame : FrameSpan{0, 0}};
}

std::optional<BlockRef> DuplicateIndex::findOwn(const BlockId &block) const
{
    std::optional<BlockRef> own;
    eachCopy(block, [&](const StoredBlock &copy) {
        if (copy.isOwn())
            own = copy.place;
    });
    return own;
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
    if (!index || damaged_.isWhole((*opened)->which()) ||
        (sealedOnly_ && (*opened)->cipher().cipher() == Cipher::none)) {
        // Missing, damaged, or in the clear: nothing new must come to rely on it.
        unusable_.insert(pack);
        return false;
    }
    if (!survives(domain_, (*opened)->which(), *index)) {
        unusable_.insert(pack);
        return false;
    }
    ++counts_.packsLoaded;
    counts_.indexBytesRead += index->blocks.size() * 20;
    addBlocks((*opened)->which(), *index);
    return true;
}

/// A block of a damaged frame counts as not stored: the stream that brings it stores it again.
void DuplicateIndex::addBlocks(const PackName &pack, const PackIndex &index)
{
    const BlockTable::Slot slot = table_.addPack(pack.id, framesOf(index));
    std::uint32_t block = 0;
    for (std::uint32_t number = 0; number < index.frames.size(); ++number) {
        const std::uint32_t end = block + index.frames[number].blocks;
        if (damaged_.hasFrame(pack, number))
            block = end;
        for (; block < end; ++block)
            if (!index.blocks[block].dropped && index.blocks[block].id != BlockId{})
                table_.add(slot, index.blocks[block].id, block);
    }
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
