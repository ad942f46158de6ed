// Goes through every manifest that a node stores, whether it shows or not, and misses none that
// others move meanwhile.
//
//   1. A manifest moves forward only: coming/, pieces/, inactive/, removed/, quarantine/. It is in
//      its next place before it leaves the one before.
//   2. The places are visited in that order, and each is listed and read to its end before the next
//      one is listed.
//   So a blob that is gone when it is opened lies in a later place, which is listed only now. Who
//   lists all places first and opens the blobs afterwards loses it.
//
// What brings a manifest back to an earlier place (a rename, an undelete) writes a new one under a
// new identifier. The visit may miss that one; reclaim.h says why reclaiming does not need it.
#ifndef KEEL_CLIENT_STORE_PIECES_STORED_MANIFESTS_H
#define KEEL_CLIENT_STORE_PIECES_STORED_MANIFESTS_H

#include "client/blob/blob_store.h"
#include "client/store/pieces/manifest_place.h"

#include <functional>
#include <string>

namespace arca::store
{

/// Valid during the visit only.
struct StoredManifest {
    ManifestPlace place;
    const std::string &blobName;
    blob::BlobReader &blob;
};

/// Returns true when a blob of that place has a name of the form that the place gives. What was
/// moved between places by hand has another one, and is found under no name of a piece.
bool isNamedFor(ManifestPlace place, const std::string &nodeKey, const std::string &blobName);

/// Visits each stored manifest, those set aside, too, in no order within a place. Of one that
/// exists and cannot be opened every read fails with the reason. One that moves forward meanwhile
/// may be visited in both places. The first failure of `visit` ends the visit and is returned.
Result<void> visitManifests(blob::BlobStore &blobs, const std::string &nodeKey,
                            const std::function<Result<void>(const StoredManifest &)> &visit);

/// Makes what a visit found, and what it lacked, survive a loss of power: a name that a
/// process took away before it died must not come back when its packs are gone. Between the visit
/// and taking anything away by it.
Result<void> syncVisited(blob::BlobStore &blobs, const std::string &nodeKey);

} // namespace arca::store

#endif
