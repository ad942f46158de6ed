// Keys by purpose, and the comparison of the hints with the packs.
#include "client/engine/domain.h"

#include <ctime>
#include <set>

namespace arca::engine
{

namespace
{

constexpr std::int64_t kCompareEvery = 3600; // seconds

} // namespace

Domain::Domain(blob::BlobStore &blobs, std::string nodeKey, Keys keys)
    : blobs_(blobs), nodeKey_(std::move(nodeKey)), keys_(std::move(keys)),
      packs_(blobs_, nodeKey_, keys_.packs.view()), hasher_(keys_.blocks.view())
{
}

Result<std::unique_ptr<Domain>> Domain::open(blob::BlobStore &blobs, std::string nodeKey,
                                             const SecretKey &dataKey)
{
    Keys keys;
    ARCA_TRY(keys.blocks, deriveKey(dataKey, "block identities"));
    ARCA_TRY(keys.packs, deriveKey(dataKey, "packs"));
    ARCA_TRY(keys.manifests, deriveKey(dataKey, "manifests"));
    ARCA_TRY(keys.names, deriveKey(dataKey, "names of pieces"));
    return std::unique_ptr<Domain>(new Domain(blobs, std::move(nodeKey), std::move(keys)));
}

HintCatalogue &Domain::hints()
{
    const std::lock_guard hold(mutex_);
    if (!hints_) {
        hints_ = std::make_unique<HintCatalogue>(blobs_.cacheDirectory(), nodeKey_);
        compareHints(*hints_);
    }
    return *hints_;
}

/// Fills in what is missing: packs that other hosts wrote, or all after the catalogue was lost. Two
/// processes may do it at once.
void Domain::compareHints(HintCatalogue &hints) const
{
    const std::int64_t now = std::time(nullptr);
    const std::int64_t last = hints.comparedAt();
    if (last > now - kCompareEvery && last <= now)
        return;
    std::set<PackId> gone;
    for (const PackId &known : hints.packs())
        gone.insert(known);
    std::vector<PackId> fresh;
    const auto listed = packs_.list([&](const PackName &pack) {
        if (gone.erase(pack.id) == 0)
            fresh.push_back(pack.id);
        return true;
    });
    if (!listed)
        return;
    for (const PackId &pack : gone)
        hints.forget(pack);
    for (const PackId &pack : fresh) {
        auto opened = packs_.open(pack);
        if (!opened)
            continue;
        if (const auto index = (*opened)->readIndex())
            hints.remember(pack, *index);
    }
    hints.setComparedAt(now);
}

} // namespace arca::engine
