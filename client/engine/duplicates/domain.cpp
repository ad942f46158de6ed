// Keys by purpose, and the comparison of the hints with the packs.
#include "client/engine/duplicates/domain.h"

#include <ctime>
#include <new>
#include <set>

namespace arca::engine
{

namespace
{

constexpr std::int64_t kCompareEvery = 3600; // seconds
/// What a stream may wait for: some milliseconds of listing, and as many indexes.
constexpr std::size_t kListedAtOnce = 4096, kReadAtOnce = 32;

} // namespace

Domain::Domain(blob::BlobStore &blobs, std::string nodeKey, Keys keys, RecordForm records,
               HostCache cache)
    : blobs_(blobs), nodeKey_(std::move(nodeKey)), keys_(std::move(keys)), recordForm_(records),
      cache_(std::move(cache)), packs_(blobs_, nodeKey_, keys_.packs.view()),
      hasher_(keys_.blocks.view())
{
}

Result<std::unique_ptr<Domain>> Domain::open(blob::BlobStore &blobs, std::string nodeKey,
                                             const SecretKey &dataKey, RecordForm records,
                                             HostCache cache)
{
    Keys keys;
    ARCA_TRY(keys.blocks, deriveKey(dataKey, "block identities"));
    ARCA_TRY(keys.packs, deriveKey(dataKey, "packs"));
    ARCA_TRY(keys.manifests, deriveKey(dataKey, "manifests"));
    ARCA_TRY(keys.names, deriveKey(dataKey, "names of pieces"));
    ARCA_TRY(keys.records, deriveKey(dataKey, "records"));
    return std::unique_ptr<Domain>(
        new Domain(blobs, std::move(nodeKey), std::move(keys), records, std::move(cache)));
}

Domain::~Domain()
{
    ending_ = true;
    comparing_.reset();
}

HintCatalogue &Domain::hints()
{
    const std::lock_guard hold(mutex_);
    if (!hints_) {
        hints_ = std::make_unique<HintCatalogue>(cache_.directory(), nodeKey_);
        beginComparing();
    }
    return *hints_;
}

void Domain::beginComparing()
{
    const std::int64_t now = std::time(nullptr);
    const std::int64_t last = hints_->comparedAt();
    if (!hints_->isOpen() || (last > now - kCompareEvery && last <= now) ||
        compareHints(Much::some))
        return;
    try {
        comparing_ = std::make_unique<Thread>(
            [this] {
                try {
                    (void)compareHints(Much::all);
                } catch (const std::bad_alloc &) {
                    // What is missing is filled in by another session.
                }
            },
            [] {});
    } catch (const std::bad_alloc &) {
        // The same.
    }
}

/// Fills in what is missing: packs that other hosts wrote, or all after the catalogue was lost. Two
/// processes may do it at once. Answers false when there was too much to do, or no time.
bool Domain::compareHints(Much much) const
{
    const std::int64_t now = std::time(nullptr);
    const bool all = much == Much::all;
    std::set<PackId> gone;
    for (const PackId &known : hints_->packs())
        gone.insert(known);
    std::vector<PackId> fresh;
    std::size_t listedPacks = 0;
    const auto goesOn = [&] {
        return !ending_ && (all || (++listedPacks <= kListedAtOnce && fresh.size() <= kReadAtOnce));
    };
    const auto listed = packs_.list([&](const PackName &pack) {
        if (gone.erase(pack.id) == 0)
            fresh.push_back(pack.id);
        return goesOn();
    });
    if (!listed || !goesOn())
        return !listed;
    for (const PackId &pack : gone) {
        if (ending_)
            return false;
        hints_->forget(pack);
    }
    std::set<std::string> synced; // directories
    for (const PackId &pack : fresh) {
        if (ending_ || !hints_->isOpen())
            return false;
        auto opened = packs_.open(pack);
        if (!opened)
            continue;
        // Its writer may not have come to making the name durable, and what a stream counts on
        // must not go with the power.
        const std::string name = packs_.blobNameOf((*opened)->which());
        if (synced.insert(name.substr(0, name.rfind('/'))).second && !blobs_.sync(name))
            return false;
        if (const auto index = (*opened)->readIndex())
            hints_->remember(pack, *index);
    }
    hints_->setComparedAt(now);
    return true;
}

} // namespace arca::engine
