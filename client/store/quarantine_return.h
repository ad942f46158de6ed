// Brings back what was set aside as damaged and can be read after all, as when a disk failed to
// read it in passing.
//
//   1. The manifest is written again, byte for byte, under the name that it had, if that is free.
//      When another piece has the name by now, it becomes an inactive piece of that name.
//   2. Like every writer it takes its claim first and reads the marks of reclaiming then. What
//   needs
//      a marked pack waits for the next run: from the quarantine it keeps its packs as well.
//   3. It leaves the quarantine only when what was written was read and found right. Killed before,
//      both are there, and the next run ends it.
#ifndef KEEL_CLIENT_STORE_QUARANTINE_RETURN_H
#define KEEL_CLIENT_STORE_QUARANTINE_RETURN_H

#include "client/store/node_space.h"

#include <functional>
#include <string>

namespace arca::store
{

struct SetAside {
    std::string blobName; // in the quarantine
    std::string piece;    // its name
    std::string now;      // the blob that it is in now; empty: it stays where it is
    std::string reason;   // why it stays
};

/// Tells `visit` each manifest that can be read; those that cannot are passed over. With `dryRun`
/// nothing changes, and `now` is where it would be. Only who holds the node's lock of reclaiming
/// calls it. Errors: what listing and writing say.
Result<void> bringBackReadable(NodeSpace &space, bool dryRun,
                               const std::function<void(const SetAside &)> &visit);

} // namespace arca::store

#endif
