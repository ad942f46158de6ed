// The order of the visit: see the header.
#include "client/store/pieces/stored_manifests.h"

#include "client/base/text.h"
#include "client/blob/syncing_store.h"
#include "client/store/pieces/removed_piece.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

namespace
{

/// Stands for a blob that could not be opened.
class Unopened final : public blob::BlobReader
{
public:
    explicit Unopened(Error why) : why_(std::move(why)) {}

    /// So that what reads it meets the reason, and not too short a blob.
    std::uint64_t size() const override { return std::uint64_t{1} << 20; }
    Result<std::size_t> read(std::uint64_t, std::span<std::byte>) override { return why_; }
    void readAhead(std::uint64_t, std::uint64_t) override {}

private:
    const Error why_;
};

} // namespace

bool isNamedFor(ManifestPlace place, const std::string &nodeKey, const std::string &blobName)
{
    const std::string last = blobName.substr(blobName.rfind('/') + 1);
    const std::string stem = last.substr(0, last.find_first_of(".-"));
    const bool divided =
        blobName == placePrefix(place, nodeKey) + last.substr(0, 2) + "/" + last && fromHex(stem);
    constexpr std::size_t kHash = 32, kIdentifier = 16, kNumber = 1 + 16; // with what parts it
    switch (place) {
    case ManifestPlace::coming:
        return divided && stem.size() == kHash && changeIn(last) != 0;
    case ManifestPlace::active:
        return divided && last == stem && stem.size() == kHash;
    case ManifestPlace::inactive:
        return divided && stem.size() == kIdentifier &&
               (last == stem || (last.size() == kIdentifier + kNumber && changeIn(last) != 0));
    case ManifestPlace::removed:
        return parseRemovedName(nodeKey, blobName).has_value();
    case ManifestPlace::quarantined:
        break;
    }
    return true;
}

Result<void> visitManifests(blob::BlobStore &blobs, const std::string &nodeKey,
                            const std::function<Result<void>(const StoredManifest &)> &visit)
{
    for (const ManifestPlace place :
         {ManifestPlace::coming, ManifestPlace::active, ManifestPlace::inactive,
          ManifestPlace::removed, ManifestPlace::quarantined}) {
        Result<void> visited;
        const auto open = [&](const std::string &name) -> Result<void> {
            if (place == ManifestPlace::quarantined && name.ends_with(form::heldPacks.suffix))
                return {}; // what such a manifest may need
            auto blob = blobs.open(name);
            if (!blob && blob.error().kind == ErrorKind::notFound)
                return {}; // in a later place by now, or gone for good
            if (blob)
                return visit({place, name, **blob});
            Unopened unopened(std::move(blob).error());
            return visit({place, name, unopened});
        };
        auto listed = blobs.list(placePrefix(place, nodeKey), [&](const std::string &name) {
            visited = open(name);
            return static_cast<bool>(visited);
        });
        ARCA_CHECK(std::move(visited));
        ARCA_CHECK(std::move(listed));
    }
    return {};
}

Result<void> syncVisited(blob::BlobStore &blobs, const std::string &nodeKey)
{
    for (const ManifestPlace place : {ManifestPlace::coming, ManifestPlace::active,
                                      ManifestPlace::inactive, ManifestPlace::removed})
        ARCA_CHECK(blob::syncListed(blobs, placePrefix(place, nodeKey)));
    return {};
}

} // namespace arca::store
