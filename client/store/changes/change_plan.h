// A change of several names that shows in one step: pieces that come, pieces that go, pieces that
// become inactive.
//
//   changes/<node key>/<change: 16 digits>.plan   what the change is about
//   outcomes/<node key>/<change: 16 digits>       what was decided of it: change_outcome.h
//
// The plan is stored first, then the records of the pieces that come, which say that they do so
// with this change, then these pieces, and those that become inactive are copied to their new
// place, under a name that carries the change. None of it shows before the outcome "done" is there,
// and all of it does from then on: each look at a piece asks the plans that name it. Afterwards the
// pieces that went are removed, the others from the place where they were active, the records are
// settled so that they need the outcome no more, and the plan goes.
//
// A plan that is found under the node's lock of changes was left by a process that died, or sleeps.
// The finder decides that the change is undone, unless it is done already, and settles it either
// way. The lock only saves work; what keeps a change whole is this:
//
// 1. Identifiers of changes and of pieces are never used twice, and everything that is taken away
//    is named by them. So a process that undoes or finishes late takes away only what was its
//    change's.
// 2. A copy of a piece whose change is undone, or not decided, does not show, and is never counted
//    as the piece. The copy is proven before the active manifest is removed.
// 3. The record of a piece that came with an undone change stays, so that its manifest stays hidden
//    when its maker publishes it late. Storing another piece under that name removes it.
//
// A piece that comes under the name of one that goes waits in a place of its own: coming_piece.h.
//
// A renamed piece goes and comes in one change. It has a record under its old identifier as well,
// which says where it went.
//
// Up to layout 3 of a repository releases are at work that know no outcomes. There an inactive copy
// has no change in its name, and when a change is done a mark, changes/<node key>/<change>.done, is
// put after the outcome and before anything is taken away; those releases go by it. Such a mark
// without an outcome was put by one of them, and holds.
#ifndef KEEL_CLIENT_STORE_CHANGES_CHANGE_PLAN_H
#define KEEL_CLIENT_STORE_CHANGES_CHANGE_PLAN_H

#include "client/store/changes/object_record.h"

#include <vector>

namespace arca::store
{

struct ChangePlan {
    ChangeId id = 0;
    std::vector<PieceId> coming, going, leaving; // leaving: the active ones
};

constexpr std::size_t kMaxPlanned = 4096; // of all together: what a transaction takes

/// The payload, for the records that hold a plan. takePlan() leaves it to its caller to see whether
/// the reader is still ok() and at its end, and that the change is not 0.
enum class PlanForm { first, withLeaving }; // first: version 1 of the plan
void appendPlan(ByteWriter &payload, const ChangePlan &plan);
ChangePlan takePlan(ByteReader &reader, PlanForm form = PlanForm::withLeaving);
/// The payload of a record of kind "ARCAPLAN", version 2: change (8 bytes), number of pieces that
/// come, of those that go, and of those that become inactive (4 bytes each), and the identifier of
/// each (8 bytes). Version 1 lacks the third number.
Bytes encodeChangePlan(const ChangePlan &plan);
Result<ChangePlan> decodeChangePlan(ByteView record);

} // namespace arca::store

#endif
