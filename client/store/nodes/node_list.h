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
    bool registered = true;   // false: its removal was not finished, or its record is lost
    std::vector<std::string> filespaces; // registered ones, sorted
    std::uint64_t pieces = 0;            // manifests, here and below: damaged and hidden ones, too
    std::uint64_t inactive = 0;          // versions that are kept without having the name
    std::uint64_t removed = 0;           // pieces that can be brought back, and leftovers of others
    std::uint64_t packs = 0;
    std::uint64_t kept = 0; // a sum over the names of these: two that differ keep something else
    std::uint64_t damagedRecords = 0; // of the node and of its filespaces
};

/// Returns them by name, those without one first. What comes or goes meanwhile may be counted or
/// not. A damaged record is counted; one of a newer release is an error of both calls.
Result<std::vector<NodeSummary>> listNodes(blob::BlobStore &store);
/// Returns one of them, also when all its records are damaged. Errors: notFound.
Result<NodeSummary> summaryOf(blob::BlobStore &store, const std::string &node);

/// Returns the names of the registered nodes, each by what stands for it and by what stands for
/// what it keeps, in the names of blobs and locks. Errors: damaged when a node's record is.
Result<std::map<std::string, std::string>> nodesByKey(blob::BlobStore &store);

} // namespace arca::store

#endif
