// A part of the stream slides by: which frames hold its blocks, which of them are used too little,
// and what becomes of those.
#include "client/engine/writing/defragmenter.h"

#include <algorithm>
#include <cstring>

namespace arca::engine
{

namespace
{

constexpr std::uint64_t kShareStoredAgain = 32; // at most one byte in 32 is stored again
constexpr std::size_t kMostRemembered = 4096;   // frames
/// Of these many a stream may consist before any of it is stored again: the backup of a week.
constexpr std::size_t kFewStreams = 8;

} // namespace

std::size_t Defragmenter::FrameHash::operator()(const FrameKey &key) const
{
    std::uint64_t random = 0; // as the names of packs are
    std::memcpy(&random, key.pack.data(), sizeof random);
    return static_cast<std::size_t>(random + key.firstBlock * std::uint64_t{0x9e3779b97f4a7c15});
}

void Defragmenter::Use::add(const StoredBlock &block, Position position, bool isShared)
{
    stored = block.frame.blocks;
    first = std::min(first, block.place.block);
    last = std::max(last, block.place.block);
    if (!blocks.empty() && blocks.back() == position)
        return; // the frame holds it twice
    blocks.push_back(position);
    shared += isShared;
}

Defragmenter::Block Defragmenter::at(Position position)
{
    const auto after =
        std::upper_bound(sight_.begin(), sight_.end(), position,
                         [](Position wanted, const Looked &chunk) { return wanted < chunk.begin; });
    Looked &chunk = *std::prev(after);
    const auto i = static_cast<std::size_t>(position - chunk.begin);
    return {chunk.cuts[i], chunk.known[i], chunk.decided[i]};
}

void Defragmenter::see(std::span<const Cut> cuts, KnownBlocks known)
{
    const Position begin = sight_.empty() ? 0 : sight_.back().end();
    std::vector<bool> decided(known.size());
    sight_.push_back({cuts, std::move(known), std::move(decided), begin, {}});
    widest_ = std::max(widest_, sight_.back().end() - sight_.front().begin);
    count(sight_.back());
}

/// Adds its blocks to all frames that hold them.
void Defragmenter::count(Looked &chunk)
{
    chunk.frames.clear();
    Uses::value_type *frame = nullptr; // that of the block before
    for (std::size_t i = 0; i < chunk.cuts.size(); ++i) {
        if (chunk.cuts[i].zero)
            continue;
        copies_.clear();
        duplicates_.eachCopy(chunk.cuts[i].id, [&](const StoredBlock &copy) {
            if (!copy.isOwn())
                copies_.push_back(copy);
        });
        for (const StoredBlock &copy : copies_) {
            const FrameKey key = keyOf(copy);
            if (frame == nullptr || frame->first != key) {
                const auto [found, isNew] = uses_.try_emplace(key);
                frame = &*found;
                misjudged_ += isNew && notNeeded_.erase(key) != 0;
            }
            Use &use = frame->second;
            use.add(copy, chunk.begin + i, copies_.size() > 1);
            if (use.countedFor != chunk.begin)
                chunk.frames.push_back(frame);
            use.countedFor = chunk.begin;
        }
    }
}

/// Of packs that came into memory meanwhile, blocks were in sight already.
void Defragmenter::recount()
{
    packsLoaded_ = duplicates_.counts().packsLoaded;
    for (auto &[key, use] : uses_) {
        Use fresh;
        fresh.needed = use.needed;
        fresh.abandoned = use.abandoned;
        use = fresh;
    }
    for (Looked &chunk : sight_)
        count(chunk);
    std::erase_if(uses_, [](const auto &entry) { return entry.second.blocks.empty(); });
}

/// From where a block is taken, as things are. What was stored again in a better place is found
/// there, and the frame it was in gets less and less.
std::optional<StoredBlock> Defragmenter::bestOf(Position position)
{
    const Block block = at(position);
    if (block.decided || block.cut.zero)
        return block.known;
    std::optional<StoredBlock> best;
    std::optional<StoredBlock> own;
    std::size_t most = 0;
    duplicates_.eachCopy(block.cut.id, [&](const StoredBlock &copy) {
        if (copy.isOwn()) {
            own = copy;
            return;
        }
        const auto use = uses_.find(keyOf(copy));
        if (use != uses_.end() && !use->second.abandoned && use->second.blocks.size() > most) {
            best = copy;
            most = use->second.blocks.size();
        }
    });
    if (best || own)
        return best ? best : own;
    // Its pack went out of memory.
    const auto use = block.known ? uses_.find(keyOf(*block.known)) : uses_.end();
    return use != uses_.end() && use->second.abandoned ? std::nullopt : block.known;
}

KnownBlocks Defragmenter::settle()
{
    if (packsLoaded_ != duplicates_.counts().packsLoaded)
        recount();
    for (const Cut &cut : sight_.front().cuts)
        seen_ += cut.length;
    if (liesInManyStreams(sight_.front().known) && judgesWell())
        for (const FrameKey &frame : sparseIn(sight_.front()))
            abandon(frame);
    Looked &front = sight_.front();
    for (std::size_t i = 0; i < front.known.size(); ++i) {
        front.known[i] = bestOf(front.begin + i);
        markNeeded(front.known[i]);
    }
    pass(front);
    KnownBlocks settled = std::move(front.known);
    sight_.pop_front();
    return settled;
}

bool Defragmenter::liesInManyStreams(const KnownBlocks &known)
{
    for (std::size_t i = 0; i < known.size() && streams_.size() <= kFewStreams; ++i) {
        if (!known[i] || known[i]->isOwn())
            continue;
        StreamName name;
        std::copy_n(known[i]->place.pack.begin(), name.size(), name.begin());
        streams_.insert(name);
    }
    return streams_.size() > kFewStreams;
}

void Defragmenter::markNeeded(const std::optional<StoredBlock> &block)
{
    if (!block || block->isOwn())
        return;
    if (const auto use = uses_.find(keyOf(*block)); use != uses_.end())
        use->second.needed = true;
}

/// Frames that begin in the chunk. The least used first: they give most for what is stored again.
std::vector<Defragmenter::FrameKey> Defragmenter::sparseIn(const Looked &chunk)
{
    std::vector<std::pair<std::size_t, FrameKey>> sparse;
    for (const Uses::value_type *const frame : chunk.frames) {
        const auto &[key, use] = *frame;
        if (use.needed || use.abandoned || use.blocks.front() < chunk.begin ||
            !use.isSparse(use.blocks.size() - use.shared) || !isInSight(use))
            continue;
        const std::size_t used = blocksFrom(key, use).size();
        if (used != 0 && use.isSparse(used) && !isMixed(key, use))
            sparse.emplace_back(used, key);
    }
    std::stable_sort(sparse.begin(), sparse.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<FrameKey> keys;
    for (const auto &entry : sparse)
        keys.push_back(entry.second);
    return keys;
}

/// Whether all of it is, as far as it is in the stream at all: as its blocks lie apart, the others
/// would have come by within the same distance. They do not lie closer than they were stored.
bool Defragmenter::isInSight(const Use &use) const
{
    const Position apart = use.blocks.back() - use.blocks.front();
    const std::uint32_t numbers = use.last - use.first;
    return numbers != 0 && apart >= numbers && apart * use.stored <= widest_ * numbers;
}

/// Whether blocks that were stored before it or after it come by in between. Then files are
/// multiplexed in another order than they were, and what is missing may come by much later.
bool Defragmenter::isMixed(const FrameKey &frame, const Use &use)
{
    std::size_t others = 0;
    for (Position position = use.blocks.front(); position < use.blocks.back(); ++position) {
        const auto &known = at(position).known;
        others += known && known->place.pack == frame.pack && keyOf(*known) != frame;
    }
    return others * 4 > use.blocks.size();
}

/// Those that are taken from it, as things are.
std::vector<Defragmenter::Position> Defragmenter::blocksFrom(const FrameKey &frame, const Use &use)
{
    std::vector<Position> from;
    for (const Position position : use.blocks) {
        const auto best = bestOf(position);
        if (best && !best->isOwn() && keyOf(*best) == frame)
            from.push_back(position);
    }
    return from;
}

/// Whether its frame is worth expanding, or is expanded anyhow.
bool Defragmenter::isGood(const StoredBlock &copy) const
{
    if (copy.isOwn())
        return true;
    const auto use = uses_.find(keyOf(copy));
    return use == uses_.end() || use->second.needed ||
           !use->second.isSparse(use->second.blocks.size());
}

/// All of it, or nothing: one block that stays costs as much as the whole frame.
void Defragmenter::abandon(const FrameKey &frame)
{
    const auto found = uses_.find(frame);
    if (found == uses_.end())
        return;
    Use &use = found->second;
    const std::vector<Position> blocks = blocksFrom(frame, use);
    if (use.needed || !use.isSparse(blocks.size())) // of another one it got blocks
        return;
    use.abandoned = true;
    if (bringInCopies(blocks))
        recount();
    KnownBlocks instead;
    std::uint64_t again = 0;
    for (const Position position : blocks) {
        auto best = bestOf(position);
        if (best && !isGood(*best))
            best.reset();
        instead.push_back(best);
        again += best ? 0 : at(position).cut.length;
    }
    if (again_ + again > seen_ / kShareStoredAgain) {
        if (const auto still = uses_.find(frame); still != uses_.end())
            still->second.abandoned = false;
        return;
    }
    again_ += again;
    ++judged_;
    if (notNeeded_.size() >= kMostRemembered)
        notNeeded_.erase(notNeeded_.begin());
    notNeeded_.insert(frame);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        Block block = at(blocks[i]);
        block.known = instead[i];
        block.decided = true;
        markNeeded(instead[i]);
    }
}

/// A pack of nothing but what was stored again is never come upon: all its blocks are found where
/// they were first. They would be stored again every day. Whether one came into memory.
bool Defragmenter::bringInCopies(const std::vector<Position> &blocks)
{
    bool any = false;
    for (const Position position : blocks)
        if (const auto best = bestOf(position); !best || !isGood(*best))
            any = duplicates_.bringIn(at(position).cut.id) || any;
    return any;
}

/// Forgets the frames that hold nothing of what comes after it.
void Defragmenter::pass(const Looked &chunk)
{
    for (const Uses::value_type *const frame : chunk.frames)
        if (frame->second.blocks.back() < chunk.end())
            uses_.erase(uses_.find(FrameKey(frame->first)));
}

} // namespace arca::engine
