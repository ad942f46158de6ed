// Takes one damaged blob of a node out of the way, by its name.
#ifndef KEEL_CLIENT_STORE_UPKEEP_BLOB_REMOVAL_H
#define KEEL_CLIENT_STORE_UPKEEP_BLOB_REMOVAL_H

#include "client/store/space/node_space.h"

namespace arca::store
{

enum class BlobFate {
    setAside, // a damaged manifest: moved to the quarantine
    deleted   // a manifest of the quarantine, or a damaged record
};

struct BlobRemoval {
    BlobFate fate = BlobFate::deleted;
    std::string now;          // the name of what was set aside; only of removeBlob()
    std::string goesWith;     // what a record takes along: a clause, empty when that is nothing
    std::uint64_t pieces = 0; // of this node that a filespace or a class concerns
};

/// Says what removeBlob() would do, all but `now`; changes nothing. Of a filespace and of a class
/// it looks through the node's pieces. `blobName` is a whole name. Errors: badArgument when the
/// blob is not damaged, or is none of this node's, or is a pack (repairing and reclaiming decide
/// about packs), a mark, or a record that only a sound copy can replace; notFound.
Result<BlobRemoval> fateOfBlob(NodeSpace &space, const std::string &blobName);

/// Removes the very blob that was judged, durably; fills in `fate` and `now`. Errors: as
/// fateOfBlob(); of a manifest in the quarantine conflict while the node is being repaired or its
/// space reclaimed: then the blob is still there. After what the store says it may be gone.
Result<BlobRemoval> removeBlob(NodeSpace &space, const std::string &blobName);

} // namespace arca::store

#endif
