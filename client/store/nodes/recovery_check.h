// Looking at what a node has stored with keys that come from no password of it.
#ifndef KEEL_CLIENT_STORE_NODES_RECOVERY_CHECK_H
#define KEEL_CLIENT_STORE_NODES_RECOVERY_CHECK_H

#include "client/blob/blob_store.h"
#include "client/store/keys/node_record.h"

namespace arca::store
{

/// Returns false when none of the records of filespaces that carry a proof, or none of the first
/// manifests, is the work of these keys although there are some. A node that has stored nothing
/// fits any keys. Errors: what listing says.
Result<bool> opensWhatIsStored(blob::BlobStore &store, const std::string &node,
                               const NodeKeys &keys);

} // namespace arca::store

#endif
