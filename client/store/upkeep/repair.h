// Makes pieces whole again whose blocks were damaged, from copies of these blocks in other packs of
// the node: a later backup of the same data stores such copies, as streams do not refer to what is
// damaged.
//
//   0. return  what was set aside as damaged and can be read after all (quarantine_return.h)
//   1. look    read every pack that a record of damage names, as it is now: what is right again
//              loses its record
//   2. search  the indexes of all packs for the identities of the damaged blocks, and read the
//              copies
//   3. mark    the packs that gain something, and wait for the claims from before, as reclaiming
//              does (reclaim.h); what is still claimed is left for the next run
//   4. mend    write the next revision with all that can be read, and prove it before it gets its
//              name
//   5. remove  the revisions before, and their records
//   6. unmark, and name the pieces that need what no pack has
//
// What stays true:
//   a. A revision goes only when a later one was proven to have every block of it that can be read.
//      A pack that gains nothing stays as it is, and so does one that the system fails to read.
//   b. Blocks that no pack has are dropped, and their identities stay. A record says so until
//   copies
//      are found.
//   c. Killed anywhere it does no harm: a new revision beside the old one has the same blocks under
//      the same numbers, and the next run, or reclaiming, goes on.
// One at a time for a node, and not beside reclaiming: they share a lock, which only saves work.
#ifndef KEEL_CLIENT_STORE_UPKEEP_REPAIR_H
#define KEEL_CLIENT_STORE_UPKEEP_REPAIR_H

#include "client/store/upkeep/lost_pieces.h"
#include "client/store/upkeep/quarantine_return.h"

namespace arca::store
{

struct RepairOutcome {
    std::uint64_t damagedPacks = 0; // that have a record and were found damaged
    std::uint64_t healed = 0;       // records of parts that are right again
    std::uint64_t mendedPacks = 0;  // or that would be
    std::uint64_t foundBlocks = 0, foundBytes = 0;
    std::uint64_t lostBlocks = 0; // that pieces need and that no copy was found of
    std::uint64_t lostPacks = 0;  // whose index cannot be read, and that pieces need
    std::uint64_t lostPieces = 0;
    std::uint64_t stuckPacks = 0;        // that could not be read, or not be written again
    std::uint64_t broughtBack = 0;       // pieces, out of the quarantine
    std::uint64_t waitingPacks = 0;      // could be mended, but claims from before still live
    std::vector<std::string> waitingFor; // these claims
};

/// Any of them may be empty.
struct RepairWatcher {
    std::function<void(const std::string &blobName, const std::string &what)> pack;
    std::function<void(const LostPiece &)> lostPiece;
    std::function<void(const SetAside &)> setAside; // a piece of the quarantine that can be read
    std::function<bool()> goOn;                     // false ends the run early, and cleanly
};

/// Repairs what can be repaired now; lost pieces and waiting packs are counted, and no error.
/// `dryRun` changes nothing and takes no lock. A pack that cannot be read or written holds up no
/// other one. Errors: conflict when another process repairs or reclaims for this node, stopped, and
/// what listing and the records say; what was mended by then stays so.
Result<RepairOutcome> repair(NodeSpace &space, bool dryRun, const RepairWatcher &watcher);

} // namespace arca::store

#endif
