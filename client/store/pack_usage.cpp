// Going through the manifests of a node.
#include "client/store/pack_usage.h"

#include "client/store/manifest_writer.h"
#include "client/store/quarantine.h"
#include "client/store/stored_manifests.h"

#include <algorithm>

namespace arca::store
{

namespace
{

Result<void> addRuns(blob::BlobReader &blob, const SecretKey &key,
                     const std::function<bool(const engine::PackId &)> &wanted, PackUse &use)
{
    ARCA_TRY(const Manifest manifest, readManifest(blob, key));
    ManifestRuns runs(blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return {};
        if (run->blocks == 0 || !wanted(run->pack))
            continue;
        BlockUse &blocks = use[run->pack];
        const std::size_t end = std::size_t{run->firstBlock} + run->blocks;
        // No pack has more; a manifest that says otherwise is found when it is verified.
        constexpr std::size_t kMost = std::size_t{1} << 22;
        if (end > kMost)
            return Error{ErrorKind::damaged, "a run leads beyond every pack"};
        if (blocks.size() < end)
            blocks.resize(end);
        std::fill(blocks.begin() + run->firstBlock,
                  blocks.begin() + static_cast<std::ptrdiff_t>(end), true);
    }
}

} // namespace

Result<PackUse> usedBlocks(engine::Domain &domain,
                           const std::function<bool(const engine::PackId &)> &wanted,
                           Leaving *leaving, DamagedManifests *damaged)
{
    PackUse use;
    ARCA_CHECK(visitManifests(
        domain.blobs(), domain.nodeKey(), [&](const StoredManifest &stored) -> Result<void> {
            const bool leaves = leaving != nullptr && leaving->leaves(stored);
            PackUse &into = leaves ? leaving->use : use;
            auto added = addRuns(stored.blob, domain.manifestKey(), wanted, into);
            // A read that failed in passing must not make a sound manifest a damaged one.
            if (!added && added.error().kind == ErrorKind::damaged)
                added = addRuns(stored.blob, domain.manifestKey(), wanted, into);
            // What is damaged and leaves needs nothing any more.
            if (added || (leaves && added.error().kind == ErrorKind::damaged))
                return {};
            if (damaged == nullptr || added.error().kind != ErrorKind::damaged)
                return inContext(std::move(added).error(),
                                 "the stored piece in " + stored.blobName);
            damaged->blobNames.insert(stored.blobName);
            ARCA_TRY(const auto held,
                     Quarantine(domain).packsHeldFor(stored.blob, damaged->keepLists));
            damaged->heldPacks.insert(held.begin(), held.end());
            return {};
        }));
    return use;
}

std::size_t countUsed(const BlockUse &use)
{
    return static_cast<std::size_t>(std::count(use.begin(), use.end(), true));
}

} // namespace arca::store
