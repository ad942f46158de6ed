// Looking at what a node has stored with keys that come from no password of it.
#ifndef KEEL_CLIENT_STORE_NODES_RECOVERY_CHECK_H
#define KEEL_CLIENT_STORE_NODES_RECOVERY_CHECK_H

#include "client/blob/blob_store.h"
#include "client/store/keys/node_record.h"

namespace arca::store
{

/// Returns false when there are records of filespaces that carry a proof and none of the first 16
/// is the work of these keys, or when none of the first 16 manifests is and more than 3 could be
/// opened: up to 3 may be damaged. A node that has stored nothing fits any keys. Errors: what
/// listing says.
Result<bool> opensWhatIsStored(blob::BlobStore &store, const std::string &node,
                               const NodeKeys &keys);

} // namespace arca::store

#endif
