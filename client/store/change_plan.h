// A change of several names that shows in one step: pieces that come, pieces that go.
//
//   changes/<node key>/<change: 16 digits>.plan   what the change is about
//   changes/<node key>/<change: 16 digits>.done   its commit: an empty record
//
// The plan is stored first, then the records of all pieces it names, which say that they come or go
// with this change, then the pieces that come. None of it shows before the mark .done is there, and
// all of it does from then on. Afterwards the pieces that went are removed, the records are settled
// so that they need the mark no more, and plan and mark go. All this happens under the node's lock
// of changes, so a plan that somebody finds there was left by the dead: with its mark it is
// finished, without it undone.
#ifndef KEEL_CLIENT_STORE_CHANGE_PLAN_H
#define KEEL_CLIENT_STORE_CHANGE_PLAN_H

#include "client/store/object_record.h"

#include <vector>

namespace arca::store
{

struct ChangePlan {
    ChangeId id = 0;
    std::vector<PieceId> coming, going;
};

constexpr std::size_t kMaxPlanned = 4096; // of both together

/// The payload of a record of kind "ARCAPLAN": change (8 bytes), number of pieces that come and of
/// those that go (4 bytes each), and the identifier of each (8 bytes).
Bytes encodeChangePlan(const ChangePlan &plan);
Result<ChangePlan> decodeChangePlan(ByteView record);

} // namespace arca::store

#endif
