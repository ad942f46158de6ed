// Which blocks of which packs the pieces of a node need: what all its manifests refer to, those
// that do not show (yet, or any more) included. In bounded memory: with many packs the manifests
// are gone through several times.
#ifndef KEEL_CLIENT_STORE_PACK_USAGE_H
#define KEEL_CLIENT_STORE_PACK_USAGE_H

#include "client/engine/domain.h"
#include "client/store/stored_manifests.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace arca::store
{

/// For each block of a pack whether it is needed; blocks beyond the end are not.
using BlockUse = std::vector<bool>;
using PackUse = std::map<engine::PackId, BlockUse>;

/// Manifests that cannot be read, and all packs that they may need (quarantine.h).
struct DamagedManifests {
    std::set<std::string> blobNames;
    std::set<engine::PackId> heldPacks;
    bool keepLists = true; // of these packs, in the repository
};

/// Manifests that are about to go, and what only they may need.
struct Leaving {
    std::function<bool(const StoredManifest &)> leaves;
    PackUse use;
};

/// Returns the use of the packs that `wanted` admits. What a manifest needs that leaves is put into
/// `leaving`, and counts as used only if another one needs it too. Damaged manifests are added to
/// `damaged` and passed over. Without it they are an error, as what they need cannot be told.
/// Errors: damaged.
Result<PackUse> usedBlocks(engine::Domain &domain,
                           const std::function<bool(const engine::PackId &)> &wanted,
                           Leaving *leaving = nullptr, DamagedManifests *damaged = nullptr);

std::size_t countUsed(const BlockUse &use);

} // namespace arca::store

#endif
