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
    std::string now;          // the name of what was set aside
    std::string goesWith;     // what a record takes along: a clause, empty when that is nothing
    std::uint64_t pieces = 0; // of this node that it concerns
};

/// Says what removeBlob() would do, all but `now`; changes nothing. Of a record it looks through
/// the node's pieces. Errors: badArgument when the blob is not damaged, or is none of this node's,
/// or is a pack (repairing and reclaiming decide about packs); notFound.
Result<BlobRemoval> fateOfBlob(NodeSpace &space, const std::string &blobName);

/// Durable when it returns. Errors: as fateOfBlob(), conflict while the node is being repaired or
/// its space reclaimed, and what the store says; then the blob is still there.
Result<BlobRemoval> removeBlob(NodeSpace &space, const std::string &blobName);

} // namespace arca::store

#endif
