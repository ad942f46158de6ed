// Brings back what was set aside as damaged and can be read after all, as when a disk failed to
// read it in passing.
//
//   1. The manifest is written again, byte for byte, under the name that it had, if that is free,
//      and claims that name as a new piece does (coming_piece.h). When another piece has the name
//      by now, or gets it meanwhile, it becomes an inactive piece of that name. A piece that waited
//      in coming/ has the name that it waited for.
//   2. Like every writer it takes its claim first and reads the marks of reclaiming then. What
//      needs a marked pack waits for the next run: from the quarantine it keeps its packs as well.
//   3. It leaves the quarantine only when what was written was read and found right, and its name
//      is claimed. Killed before, both are there, and the next run ends it. When a name is lost,
//      the inactive piece is there before the name is given back, as another run may have counted
//      on what it found there.
//   4. What became of the piece since is never undone. Killed between two steps, a repair or a
//      setting aside leaves the piece in the quarantine and in its place, from where it may be
//      deleted, renamed or made inactive. So before the piece is published, and once more after it
//      was, these places are looked at. When it is in one of them, it only leaves the quarantine.
//      When it is noted as gone for good (inventory.h), it stays, and a person decides.
//   5. A piece that came with a change which was undone, or given up, was never stored, and stays.
//   6. It holds the lock of changes, which only saves work: quarantine.h says what keeps the piece
//      when it is set aside at that moment.
#ifndef KEEL_CLIENT_STORE_UPKEEP_QUARANTINE_RETURN_H
#define KEEL_CLIENT_STORE_UPKEEP_QUARANTINE_RETURN_H

#include "client/store/space/node_space.h"

#include <functional>
#include <string>

namespace arca::store
{

struct SetAside {
    std::string blobName; // in the quarantine
    std::string piece;    // its name
    std::string now;      // the blob that it is in now; empty: it was not brought back
    std::string reason;   // why it was not
    bool dropped = false; // only taken out of the quarantine: the piece is elsewhere
};

/// Tells `visit` each manifest that can be read; those that cannot are passed over. With `dryRun`
/// nothing changes, and `now` is where it would be. The caller holds the node's lock of reclaiming,
/// unless it is a dry run; the lock of changes is taken for each piece. Errors: what listing and
/// writing say; what was brought back by then stays so.
Result<void> bringBackReadable(NodeSpace &space, bool dryRun,
                               const std::function<void(const SetAside &)> &visit);

} // namespace arca::store

#endif
