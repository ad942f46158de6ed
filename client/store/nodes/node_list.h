// The nodes of a repository as its administrator sees them, without the keys of any.
#ifndef KEEL_CLIENT_STORE_NODES_NODE_LIST_H
#define KEEL_CLIENT_STORE_NODES_NODE_LIST_H

#include "client/blob/blob_store.h"

#include <map>
#include <string>
#include <vector>

namespace arca::store
{

struct NodeSummary {
    std::string name; // empty: every record that tells it is damaged
    std::string key;  // of what it keeps, in blob names
    std::uint32_t incarnation = 0;
    std::uint32_t number = 0; // of the newest state of its record; 0: there is none
    bool registered = true;   // false: its removal was begun and not finished
    std::vector<std::string> filespaces;
    std::uint64_t pieces = 0;
    std::uint64_t inactive = 0; // versions that are kept without having the name
    std::uint64_t removed = 0;  // pieces that can be brought back
    std::uint64_t packs = 0;
    std::uint64_t kept = 0; // a sum over the names of these: two that differ keep something else
    std::uint64_t damagedRecords = 0; // of the node and of its filespaces
};

/// By name. What comes or goes meanwhile may be counted or not.
Result<std::vector<NodeSummary>> listNodes(blob::BlobStore &store);
/// One of them, whose records may be damaged, all of them. Errors: notFound.
Result<NodeSummary> summaryOf(blob::BlobStore &store, const std::string &node);

/// The registered nodes by what stands for them, or for what they keep, in the names of blobs and
/// locks.
Result<std::map<std::string, std::string>> nodesByKey(blob::BlobStore &store);

} // namespace arca::store

#endif
