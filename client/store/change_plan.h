// A change of several names that shows in one step: pieces that come, pieces that go, pieces that
// become inactive.
//
//   changes/<node key>/<change: 16 digits>.plan   what the change is about
//   changes/<node key>/<change: 16 digits>.done   its commit: an empty record
//
// The plan is stored first, then the records of the pieces that come, which say that they do so
// with this change, then these pieces, and those that become inactive are copied to their new
// place. None of it shows before the mark .done is there, and all of it does from then on: whoever
// looks at a piece sees whether a plan names it. Afterwards the pieces that went are removed, the
// others from the place where they were active, the records are settled so that they need the mark
// no more, and plan and mark go. All this happens under the node's lock of changes, so a plan that
// somebody finds there was left by the dead: with its mark it is finished, without it undone.
//
// A renamed piece goes and comes in one change. It has a record under its old identifier as well,
// which says where it went.
#ifndef KEEL_CLIENT_STORE_CHANGE_PLAN_H
#define KEEL_CLIENT_STORE_CHANGE_PLAN_H

#include "client/store/object_record.h"

#include <vector>

namespace arca::store
{

struct ChangePlan {
    ChangeId id = 0;
    std::vector<PieceId> coming, going, leaving; // leaving: the active ones
};

constexpr std::size_t kMaxPlanned = 4096; // of all together

/// The payload of a record of kind "ARCAPLAN", version 2: change (8 bytes), number of pieces that
/// come, of those that go, and of those that become inactive (4 bytes each), and the identifier of
/// each (8 bytes). Version 1 lacks the third number.
Bytes encodeChangePlan(const ChangePlan &plan);
Result<ChangePlan> decodeChangePlan(ByteView record);

} // namespace arca::store

#endif
