// Two chunks at a time: which frames they use, which of them too little, and what becomes of those.
#include "client/engine/defragmenter.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

constexpr std::uint64_t kShareStoredAgain = 64; // one byte of so many
/// A frame is sparse when less than two of five blocks are used.
constexpr std::uint32_t kSparse = 2, kOf = 5;

} // namespace

/// What is in sight must be all of it: most of its numbers, and close together. Of a frame whose
/// blocks are spread over a long part of the stream two chunks always use few; and where files are
/// multiplexed, half of a frame's blocks may come by much later than the other half.
bool Defragmenter::Use::isSparse() const
{
    return blocks.size() * kOf < stored * kSparse && (last - first + 1) * 4 >= stored * 3 &&
           blocks.back() - blocks.front() < std::size_t{2} * stored;
}

void Defragmenter::settle(LookedUp front, LookedUp next)
{
    for (const Cut &cut : front.cuts)
        seen_ += cut.length;
    const Window window{front, next};
    const Uses uses = countUses(window);
    std::vector<const Use *> sparse;
    for (const auto &[key, use] : uses)
        // One that goes on from the chunk before is needed anyhow; what begins in the next one may
        // not be in sight whole.
        if (use.isSparse() && use.blocks.front() < front.cuts.size() && !before_.contains(key))
            sparse.push_back(&use);
    std::sort(sparse.begin(), sparse.end(),
              [](const Use *a, const Use *b) { return a->blocks.size() < b->blocks.size(); });
    for (const Use *use : sparse)
        takeApart(uses, *use, window);

    before_.clear();
    for (const auto &known : front.known)
        if (known && !known->isOwn())
            before_.insert({known->place.pack, known->frame.firstBlock});
}

Defragmenter::Uses Defragmenter::countUses(const Window &window) const
{
    Uses uses;
    auto at = uses.end();
    for (std::size_t i = 0; i < window.size(); ++i) {
        const std::optional<StoredBlock> &known = window.knownAt(i);
        if (!known || known->isOwn())
            continue;
        const FrameKey key{known->place.pack, known->frame.firstBlock};
        if (at == uses.end() || at->first != key)
            at = uses.try_emplace(key).first;
        Use &use = at->second;
        use.stored = known->frame.blocks;
        use.first = std::min(use.first, known->place.block);
        use.last = std::max(use.last, known->place.block);
        use.blocks.push_back(i);
    }
    return uses;
}

/// Copies of its blocks that an earlier backup made, in frames that are not sparse themselves.
Defragmenter::Change Defragmenter::changeFor(const Uses &uses, const Use &frame,
                                             const Window &window) const
{
    Change change{KnownBlocks(frame.blocks.size()), 0, {}};
    for (std::size_t i = 0; i < frame.blocks.size(); ++i) {
        const Cut &cut = window.cutAt(frame.blocks[i]);
        duplicates_.eachCopy(cut.id, [&](const StoredBlock &copy) {
            const FrameKey key{copy.place.pack, copy.frame.firstBlock};
            const auto other = uses.find(key);
            const bool inSight = !copy.isOwn() && other != uses.end();
            if (inSight && (&other->second == &frame || other->second.isSparse()))
                return;
            change.blocks[i] = copy;
            if (!copy.isOwn() && !inSight)
                change.others.insert(key);
        });
        change.again += change.blocks[i] ? 0 : cut.length;
    }
    return change;
}

/// All of it, or nothing: one block that stays costs as much as the whole frame.
void Defragmenter::takeApart(const Uses &uses, const Use &frame, const Window &window)
{
    const auto isAllowed = [&](const Change &change) {
        return again_ + change.again <= seen_ / kShareStoredAgain &&
               change.others.size() <= 1 + frame.blocks.size() / 8;
    };
    Change change = changeFor(uses, frame, window);
    if (change.again != 0 && isAllowed(change)) {
        // A pack of nothing but what was stored again is never come upon: all its blocks are found
        // where they were first. They would be stored again every day.
        bool more = false;
        for (std::size_t i = 0; i < frame.blocks.size(); ++i)
            if (!change.blocks[i])
                more = duplicates_.bringIn(window.cutAt(frame.blocks[i]).id) || more;
        if (more)
            change = changeFor(uses, frame, window);
    }
    if (!isAllowed(change))
        return;
    again_ += change.again;
    for (std::size_t i = 0; i < frame.blocks.size(); ++i)
        window.knownAt(frame.blocks[i]) = change.blocks[i];
}

} // namespace arca::engine
