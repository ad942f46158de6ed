// Proves that what a node keeps is all there and all right, beside any number of sessions; what is
// removed while it looks is no fault. It writes nothing but the records of damaged packs
// (damage.h), and removes those whose part it found right. One thread uses it at a time.
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
#include "client/store/upkeep/verify_state.h"

#include <chrono>
#include <functional>

namespace arca::store
{

struct VerifyRequest {
    bool readData = false;
    unsigned percent = 100;              // of the blobs, by number; 1 to 100
    std::chrono::seconds maxDuration{0}; // 0: as long as it takes
    RecordSeal shared{}; // Repository::sharedSeal(); without it nobody proves classes and options

    /// Such a run goes on where the one before stopped, and ends with the round at the latest.
    bool isPartial() const { return percent < 100 || maxDuration.count() != 0; }
};

enum class Checked { record, pack, piece };

struct Hurt {
    Checked what;
    std::string name; // of a piece its own, else, or when that cannot be read, that of the blob
    std::string reason;
};

struct VerifyProgress {
    std::uint64_t done = 0;    // blobs
    std::uint64_t planned = 0; // of this run; others may come and go meanwhile
    std::uint64_t bytes = 0;   // of packs and streams that were read
};

struct VerifyOutcome {
    std::uint64_t records = 0, packs = 0, pieces = 0;
    std::uint64_t hurtRecords = 0, hurtPacks = 0, hurtPieces = 0;
    std::uint64_t recorded = 0;    // damaged parts of packs that had no record before
    std::uint64_t healed = 0;      // records that went, as their parts are right again or gone
    std::uint64_t quarantined = 0; // damaged manifests that were set aside, and lie there
    std::uint64_t missing = 0;     // pieces that were stored, never purged, and are not there
    bool onlyPacks = false; // there are packs, no piece at all, and no stream that is being stored
    bool uncounted = false; // nothing says how many pieces there should be (inventory.h)
    std::uint64_t bytesRead = 0;
    bool roundEnded = false;
    VerifyRound round; // as it stands after this run

    std::uint64_t hurt() const
    {
        return hurtRecords + hurtPacks + hurtPieces + quarantined + missing + (onlyPacks ? 1 : 0);
    }
};

/// Either may be empty.
struct VerifyWatcher {
    std::function<void(const Hurt &)> hurt;
    std::function<void(const VerifyProgress &)> progress; // often
};

/// Fails only when it cannot go on: whatever is wrong with one blob is told to the watcher.
Result<VerifyOutcome> verify(NodeSpace &space, const VerifyRequest &request,
                             const VerifyWatcher &watcher);

} // namespace arca::store

#endif
