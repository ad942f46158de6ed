// Which parts of which frames give a stream, in its order: runs, resolved by the indexes of packs.
// Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_RESTORING_RESTORE_PLAN_H
#define KEEL_CLIENT_ENGINE_RESTORING_RESTORE_PLAN_H

#include "client/base/crypto/hash.h"
#include "client/engine/packs/damage.h"
#include "client/engine/packs/run.h"

#include <map>
#include <memory>
#include <optional>

namespace arca::engine
{

/// A pack as far as restoring needs it: where frames are, and where blocks are in them.
struct PackLayout {
    std::unique_ptr<OpenPack> pack;
    std::vector<FrameEntry> frames;
    std::vector<std::uint32_t> firstBlock;  // of each frame
    std::vector<std::uint32_t> blockOffset; // of each block, in its frame
    Digest128 identities{};                 // of all blocks, the same in every revision
    std::uint64_t used = 0;

    const PackId &id() const { return pack->which().id; }
    /// Returns the frame that holds a block; `block` is below blockOffset.size().
    std::uint32_t frameOf(std::uint32_t block) const;
    std::uint32_t endOf(std::uint32_t frame) const // the block after its last one
    {
        return firstBlock[frame] + frames[frame].blocks;
    }
    /// Returns the bytes of a block of that frame; 0: it was dropped.
    std::uint32_t lengthOf(std::uint32_t block, std::uint32_t frame) const;
};

/// Opens a pack as PackStore::open() does. Errors: damaged, also when there is none. When it cannot
/// be opened because it is damaged, `part`, unless null, receives which part.
Result<std::shared_ptr<PackLayout>> openLayout(const PackStore &packs, const PackId &id,
                                               std::optional<DamagedPart> *part = nullptr);

/// Some bytes of the stream: of one frame, or zeros.
struct Extent {
    std::shared_ptr<PackLayout> pack; // null: zeros
    std::uint32_t frame = 0;
    std::uint32_t offset = 0; // in the frame
    std::uint64_t length = 0;
};

class RestorePlan
{
public:
    RestorePlan(const PackStore &packs, RunSource &runs);

    /// Returns nothing after the last one. After an error drop the plan. Errors: damaged when a run
    /// leads nowhere or its pack is missing, what reading says.
    Result<std::optional<Extent>> next();
    /// After next() failed: the pack that could not be opened because it is damaged, or that lacks
    /// a block which is needed, if that is what failed.
    std::optional<DamagedPart> damage() const { return damage_; }

private:
    Result<std::shared_ptr<PackLayout>> layoutOf(const PackId &id);
    Result<std::shared_ptr<PackLayout>> open(const PackId &id);
    void makeRoom();

    const PackStore &packs_;
    RunSource &runs_;
    const std::size_t maxLayouts_;
    std::map<PackId, std::shared_ptr<PackLayout>> layouts_;
    std::map<PackId, std::weak_ptr<PackLayout>> others_; // that extents may still use
    std::uint64_t clock_ = 0;
    std::optional<DamagedPart> damage_;
    Run run_; // what is left of the current one
    std::shared_ptr<PackLayout> current_;
};

} // namespace arca::engine

#endif
