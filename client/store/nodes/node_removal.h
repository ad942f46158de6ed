// Removing a node with all it keeps, for good.
//
// Whatever dies when, what is left is consistent: before the node's last record says that it was
// removed (node_record.h), nothing is changed; afterwards no session can log on as the node, and
// what it kept does not show. That record stays. Its filespaces are deleted next, so that a channel
// that is still open cannot commit any more; then rules and grants, pieces before packs, and the
// records of the filespaces last, by which an unfinished removal is found and finished. The name
// cannot be registered again before that. A pack that such a channel still publishes keeps the name
// from being registered, too, and goes with one more removal.
//
// When a person was shown what the node keeps, that is looked at again after the last record is
// written. If it is something else, the removal is given up: the node's record of before becomes
// the newest state again. Until that is decided the record of before stays beneath the last one.
// Killed in between the node stays removed, and the next removal shows what there is.
#ifndef KEEL_CLIENT_STORE_NODES_NODE_REMOVAL_H
#define KEEL_CLIENT_STORE_NODES_NODE_REMOVAL_H

#include "client/store/nodes/node_list.h"

#include <functional>
#include <string>

namespace arca::store
{

/// Called after each blob with the number removed so far; false stops, and leaves the rest to
/// another removal.
using RemovalStep = std::function<bool(std::uint64_t removed)>;

/// What one removal took away, in manifests and packs.
struct NodeRemoval {
    bool all = false; // nothing is left; false: `step` stopped it
    std::uint64_t pieces = 0, inactive = 0, removed = 0, packs = 0;
};

/// Removes a node, or what an unfinished removal left. Takes the locks of reclaiming and of changes
/// itself. `shown`: what a person has agreed to lose; null: no question was put. After any error
/// but those named, run it again; what is gone stays gone. Errors: notFound when there is nothing
/// of such a node; conflict while its packs are being reclaimed, and when another node has the name
/// by now, or it keeps something else than was shown: then nothing was removed.
Result<NodeRemoval> removeNode(blob::BlobStore &store, const std::string &node,
                               const RemovalStep &step, const NodeSummary *shown = nullptr);

/// Returns true when filespaces, manifests or packs are left under `key`, which is spaceKeyOf() of
/// an incarnation that is not registered.
Result<bool> isHalfRemoved(blob::BlobStore &store, const std::string &key);

} // namespace arca::store

#endif
