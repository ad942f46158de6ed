// The order of the visit: see the header.
#include "client/store/stored_manifests.h"

#include "client/store/record_forms.h"

namespace arca::store
{

std::string placePrefix(ManifestPlace place, const std::string &nodeKey)
{
    const char *const room = place == ManifestPlace::active     ? "pieces/"
                             : place == ManifestPlace::inactive ? "inactive/"
                             : place == ManifestPlace::removed  ? "removed/"
                                                                : "quarantine/";
    return room + nodeKey + "/";
}

Result<void> visitManifests(blob::BlobStore &blobs, const std::string &nodeKey,
                            const std::function<Result<void>(const StoredManifest &)> &visit)
{
    for (const ManifestPlace place : {ManifestPlace::active, ManifestPlace::inactive,
                                      ManifestPlace::removed, ManifestPlace::quarantined}) {
        Result<void> visited;
        const auto open = [&](const std::string &name) -> Result<void> {
            if (place == ManifestPlace::quarantined && name.ends_with(form::heldPacks.suffix))
                return {}; // what such a manifest may need
            auto blob = blobs.open(name);
            if (!blob && blob.error().kind == ErrorKind::notFound)
                return {}; // in a later place by now, or gone for good
            ARCA_TRY(const auto opened, std::move(blob));
            return visit({place, name, *opened});
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

} // namespace arca::store
