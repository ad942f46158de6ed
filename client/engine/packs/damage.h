// Parts of packs that were found damaged, so that no new stream refers to them. Values of these
// types belong to one thread.
#ifndef KEEL_CLIENT_ENGINE_PACKS_DAMAGE_H
#define KEEL_CLIENT_ENGINE_PACKS_DAMAGE_H

#include "client/engine/packs/pack_store.h"

#include <compare>
#include <set>

namespace arca::engine
{

/// What of a pack is damaged.
enum class DamageKind : std::uint8_t {
    frame, // the blocks of one frame cannot be read
    whole, // header, index or trailer: no block of the pack can be found
    gaps   // the pack is sound, but blocks that pieces need were dropped by a repair that found no
           // copy of them
};

struct DamagedPart {
    PackId pack{};
    std::uint32_t revision = 1;
    DamageKind kind = DamageKind::frame;
    std::uint32_t frame = 0; // its number, from 0; 0 for the other kinds

    auto operator<=>(const DamagedPart &) const = default;
};

class DamagedParts
{
public:
    void add(const DamagedPart &part) { parts_.insert(part); }
    const std::set<DamagedPart> &all() const { return parts_; }

    /// Returns true when nothing can be found in that revision of the pack.
    bool isWhole(const PackName &pack) const
    {
        return parts_.contains({pack.id, pack.revision, DamageKind::whole, 0});
    }
    bool hasFrame(const PackName &pack, std::uint32_t frame) const
    {
        return parts_.contains({pack.id, pack.revision, DamageKind::frame, frame});
    }

private:
    std::set<DamagedPart> parts_;
};

/// The packs, and parts of packs, that a new stream does not refer to.
struct AvoidedPacks {
    std::set<PackId> marked; // by reclaiming, which may remove them
    DamagedParts damaged;
};

} // namespace arca::engine

#endif
