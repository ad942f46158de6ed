// Which pieces need blocks that no pack has any more.
#ifndef KEEL_CLIENT_STORE_UPKEEP_LOST_PIECES_H
#define KEEL_CLIENT_STORE_UPKEEP_LOST_PIECES_H

#include "client/store/space/node_space.h"

#include <map>

namespace arca::store
{

/// Blocks that cannot be read: of each pack their numbers, or all of them.
class LostBlocks
{
public:
    void add(const engine::PackId &pack, std::uint32_t block)
    {
        const auto [known, first] = packs_.try_emplace(pack);
        if (first || !known->second.empty())
            known->second.insert(block);
    }
    void addAll(const engine::PackId &pack) { packs_[pack].clear(); }
    bool empty() const { return packs_.empty(); }

    /// Returns true when the run refers to one of them.
    bool touches(const engine::Run &run) const
    {
        const auto pack = packs_.find(run.pack);
        if (run.blocks == 0 || pack == packs_.end())
            return false;
        const auto first = pack->second.lower_bound(run.firstBlock);
        return pack->second.empty() ||
               (first != pack->second.end() && *first - run.firstBlock < run.blocks);
    }

private:
    std::map<engine::PackId, std::set<std::uint32_t>> packs_; // an empty set: all blocks
};

struct LostPiece {
    std::string name; // its own, else that of its blob; not made printable
    std::string reason;
};

/// Names every stored piece whose manifest cannot be read, or that needs one of `lost`; removed
/// ones and those set aside, too. Errors: what listing or reading says, but for damage.
Result<void> visitLostPieces(NodeSpace &space, const LostBlocks &lost,
                             const std::function<void(const LostPiece &)> &visit);

} // namespace arca::store

#endif
