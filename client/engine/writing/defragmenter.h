// Keeps a stream quick to restore. A database that changes a little every day comes to lie in the
// frames of many days, and of the older ones fewer and fewer blocks are still in use, while each
// has to be read and expanded whole. So the blocks of a frame that the stream hardly uses any more
// are stored again, together with what is new next to them, and that frame is not needed any more.
//
// The bound is on what is stored again, a part of the stream. Only a frame whose blocks are in
// sight (in the look-ahead window) together can be judged, while all that it still gives is in
// memory.
//
// A stream that lies in the packs of few others is quick to restore whatever order its blocks have:
// nothing of it is stored again. When files are multiplexed in another order than on the day
// before, each frame comes by in parts that are far from each other, which looks like a frame that
// is hardly used.
//
// Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_WRITING_DEFRAGMENTER_H
#define KEEL_CLIENT_ENGINE_WRITING_DEFRAGMENTER_H

#include "client/engine/duplicates/duplicate_index.h"
#include "client/engine/writing/cutter.h"

#include <array>
#include <deque>
#include <set>
#include <span>
#include <unordered_map>
#include <unordered_set>

namespace arca::engine
{

/// Where the blocks of a chunk are stored already, in the order of its cuts; nothing: to be stored.
using KnownBlocks = std::vector<std::optional<StoredBlock>>;

class Defragmenter
{
public:
    explicit Defragmenter(DuplicateIndex &duplicates) : duplicates_(duplicates) {}

    /// Takes the next chunk of the stream into the look-ahead window. `known` is as long as `cuts`,
    /// which are used until the chunk was settled.
    void see(std::span<const Cut> cuts, KnownBlocks known);
    /// Takes the oldest chunk out of the window; there is one. Returns the copy to refer to for
    /// each of its blocks: of several the one whose frame the window uses most. Nothing: store the
    /// block, unless the stream has stored it itself since.
    KnownBlocks settle();

private:
    using Position = std::uint64_t;                   // of a block in the stream
    static constexpr std::uint64_t kFewMisjudged = 2; // frames
    using StreamName = std::array<std::byte, 12>;     // what the names of its packs begin with
    struct FrameKey {
        PackId pack;
        std::uint32_t firstBlock;

        bool operator==(const FrameKey &) const = default;
    };
    struct FrameHash {
        std::size_t operator()(const FrameKey &key) const;
    };
    /// What a frame holds of what is in sight.
    struct Use {
        std::uint32_t stored = 0;                   // blocks in all
        std::uint32_t first = 0xffffffff, last = 0; // numbers of those that are in sight
        std::vector<Position> blocks;               // ascending
        std::size_t shared = 0;                     // of them, those that other frames hold, too
        Position countedFor = ~Position{0};         // the chunk that counted it last
        bool needed = false;                        // for a block that was settled
        bool abandoned = false;

        void add(const StoredBlock &block, Position position, bool isShared);
        bool isSparse(std::size_t used) const { return used * 2 < stored; }
    };
    using Uses = std::unordered_map<FrameKey, Use, FrameHash>;
    struct Looked {
        std::span<const Cut> cuts;
        KnownBlocks known;
        std::vector<bool> decided;
        Position begin;                         // of its first block
        std::vector<Uses::value_type *> frames; // that it counted

        Position end() const { return begin + known.size(); }
    };
    /// A block in sight.
    struct Block {
        const Cut &cut;
        std::optional<StoredBlock> &known;
        std::vector<bool>::reference decided;
    };

    static FrameKey keyOf(const StoredBlock &block)
    {
        return {block.place.pack, block.frame.firstBlock};
    }
    Block at(Position position);
    void count(Looked &chunk);
    void recount();
    std::optional<StoredBlock> bestOf(Position position);
    void markNeeded(const std::optional<StoredBlock> &block);
    bool isGood(const StoredBlock &copy) const;

    std::vector<FrameKey> sparseIn(const Looked &chunk);
    bool isInSight(const Use &use) const;
    bool isMixed(const FrameKey &frame, const Use &use);
    std::vector<Position> blocksFrom(const FrameKey &frame, const Use &use);
    void abandon(const FrameKey &frame);
    bool bringInCopies(const std::vector<Position> &blocks);
    void pass(const Looked &chunk);
    bool liesInManyStreams(const KnownBlocks &known);
    bool judgesWell() const { return misjudged_ <= kFewMisjudged + judged_ / 16; }

    DuplicateIndex &duplicates_;
    std::deque<Looked> sight_;
    Position widest_ = 0; // the most blocks that were in sight at once
    Uses uses_;
    std::uint64_t packsLoaded_ = 0; // when all was counted
    std::vector<StoredBlock> copies_;
    std::set<StreamName> streams_;                      // whose packs hold blocks that were settled
    std::unordered_set<FrameKey, FrameHash> notNeeded_; // whose blocks were stored again lately
    std::uint64_t judged_ = 0, misjudged_ = 0;          // frames
    std::uint64_t seen_ = 0;                            // bytes of the stream that were settled,
    std::uint64_t again_ = 0;                           // and of what was stored again
};

} // namespace arca::engine

#endif
