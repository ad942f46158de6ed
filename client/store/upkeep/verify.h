// Proves that what a node keeps is all there and all right, beside any number of sessions; what is
// removed while it looks is no fault. It writes nothing but the records of damaged packs
// (damage.h) and, in this host's cache, how far it came (verify_state.h), and removes the records
// whose part it found right. It takes no lock. One thread uses it at a time.
//
// Checked are, one blob after the other: the small records of the node and of the repository; the
// packs (each opens, and its index agrees with the rest of it); the pieces (each opens, and every
// run of it leads to blocks that are there). What lies in the quarantine is named. A frame that was
// found damaged counts as damaged until a run with readData reads it and finds it right. With
// readData every frame of every pack is opened and its blocks are compared with their identities,
// whether a piece uses them or not, and every piece is read to its end and compared with its length
// and digest. Names are the only thing kept in memory that grows: those of the 256th part of the
// packs or pieces at a time, and of the records.
#ifndef KEEL_CLIENT_STORE_UPKEEP_VERIFY_H
#define KEEL_CLIENT_STORE_UPKEEP_VERIFY_H

#include "client/store/space/node_space.h"
#include "client/store/upkeep/verify_report.h"

#include <chrono>

namespace arca::store
{

struct VerifyRequest {
    bool readData = false;
    unsigned percent = 100;              // of the blobs, by number; 1 to 100
    std::chrono::seconds maxDuration{0}; // 0: as long as it takes
    RecordSeal shared{}; // Repository::sharedSeal(); without it classes and options are not proven

    /// Such a run goes on where the one before stopped, and ends with the round at the latest.
    bool isPartial() const { return percent < 100 || maxDuration.count() != 0; }
};

/// Fails only when it cannot go on: whatever is wrong with one blob is told to the watcher. What
/// was told by then holds; the next partial run goes on from some seconds before.
Result<VerifyOutcome> verify(NodeSpace &space, const VerifyRequest &request,
                             const VerifyWatcher &watcher);

} // namespace arca::store

#endif
