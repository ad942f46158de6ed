// Which blocks of which packs the pieces of a node need: what all its manifests refer to, those
// that do not show (yet, or any more) included. With many packs in bounded memory and one pass over
// the manifests: what they need is kept in a temporary file, and looked at share by share.
#ifndef KEEL_CLIENT_STORE_USAGE_PACK_USAGE_H
#define KEEL_CLIENT_STORE_USAGE_PACK_USAGE_H

#include "client/engine/duplicates/domain.h"
#include "client/store/pieces/stored_manifests.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace arca::store
{

/// For each block of a pack, by its number, whether it is needed; blocks beyond the end are not.
using BlockUse = std::vector<bool>;
using PackUse = std::map<engine::PackId, BlockUse>;

/// Manifests that cannot be read, and all packs that they may need (quarantine.h).
struct DamagedManifests {
    std::set<std::string> blobNames;
    std::set<std::string> leaving; // others, that are about to go: they hold nothing
    std::set<engine::PackId> heldPacks;
    bool keepLists = true; // of these packs, in the repository
};

struct UseQuestion {
    std::size_t packs = 0; // about how many there are
    /// Empty: all packs are wanted.
    std::function<bool(const engine::PackId &)> wanted;
    /// Answers true for manifests that are about to go; empty: none is.
    std::function<bool(const StoredManifest &)> leaves;
    /// Called before each pass over the manifests. May be empty.
    std::function<void()> beginPass;
    /// Damaged manifests are added to it and passed over. Null: they are an error, as what they
    /// need cannot be told.
    DamagedManifests *damaged = nullptr;
    /// A temporary file that has grown to this size in bytes is written again without what is in
    /// it twice.
    std::uint64_t mostSpilled = std::uint64_t{1} << 30;
};

/// The use of the packs whose shareOf() is `share`.
struct ShareUse {
    std::size_t share = 0, shares = 1;
    PackUse needed;
    PackUse leaving; // what manifests need that are about to go

    bool has(const engine::PackId &pack) const;
};

/// Visits each share once, in their order. The temporary file is made in the directory of the
/// host's cache; where that does not work, the manifests are gone through once for each share.
/// `visit` may take what it is given away. Memory: 2 KiB for each of 16,384 packs at a time. Takes
/// no lock: the caller sees to it that what comes later needs nothing that it takes away. Errors:
/// damaged, what reading says, and the first one of `visit`, which ends it.
Result<void> visitUse(engine::Domain &domain, const UseQuestion &question,
                      const std::function<Result<void>(ShareUse &)> &visit);

/// Returns the use of the packs that `wanted` admits, all in memory at once. Errors: damaged when a
/// manifest cannot be read, what reading says.
Result<PackUse> usedBlocks(engine::Domain &domain,
                           const std::function<bool(const engine::PackId &)> &wanted);

/// Returns the number of needed blocks.
std::size_t countUsed(const BlockUse &use);

/// Returns the share, below `shares`, that a pack is in.
std::size_t shareOf(const engine::PackId &id, std::size_t shares);

} // namespace arca::store

#endif
