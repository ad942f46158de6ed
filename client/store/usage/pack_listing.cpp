// One sorted listing of packs: see the header.
#include "client/store/usage/pack_listing.h"

#include <algorithm>
#include <tuple>

namespace arca::store
{

Result<PackListing> PackListing::of(const engine::PackStore &packs)
{
    PackListing listing;
    ARCA_CHECK(packs.list([&](const engine::PackName &pack) {
        listing.found_.push_back(pack);
        return true;
    }));
    std::ranges::sort(listing.found_, [](const auto &one, const auto &other) {
        return std::tie(one.id, one.revision) < std::tie(other.id, other.revision);
    });
    return listing;
}

std::span<const engine::PackName> PackListing::revisionsOf(const engine::PackId &id) const
{
    const auto some = std::ranges::equal_range(found_, id, {}, &engine::PackName::id);
    return {some.begin(), some.end()};
}

} // namespace arca::store
