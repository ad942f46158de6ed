// What was decided of a change: that it is done, or that it is undone. This one blob, put if it is
// absent, is the whole decision; no lock and no clock has a part in it.
//
//   outcomes/<node key>/<change: 16 digits>   never changed
//
// 1. The process that makes a change decides that it is done. Any process that finds the plan of a
//    change may decide that it is undone. The first one wins, and the other one acts on what it
//    reads there, however late it comes.
// 2. Nothing is taken away because of a decision before the decision survives a loss of power.
// 3. An outcome "undone" stays for ever: its maker may be asleep. They are rare, and small.
// 4. An outcome "done" stays as long as the inactive copies that carry its change in their names:
//    a process that read the plan long ago and decides only now must find it. Without such copies
//    it goes after the plan, when every record and piece of the change is settled; a decision that
//    comes later finds nothing that it concerns.
#ifndef KEEL_CLIENT_STORE_CHANGES_CHANGE_OUTCOME_H
#define KEEL_CLIENT_STORE_CHANGES_CHANGE_OUTCOME_H

#include "client/store/changes/change_plan.h"

#include <optional>
#include <string>
#include <vector>

namespace arca::store
{

enum class Decision { done = 1, undone = 2 };

struct ChangeOutcome {
    Decision decision = Decision::undone;
    ChangePlan plan;
};

/// The payload of a record of kind "ARCAOUTC", version 1: 1 when done, 2 when undone (2 bytes),
/// then the payload of the plan.
Bytes encodeChangeOutcome(const ChangeOutcome &outcome);
/// Errors: damaged, newerFormat.
Result<ChangeOutcome> decodeChangeOutcome(ByteView record);

/// The outcomes of one node. Any number of processes may decide at once.
class Outcomes
{
public:
    explicit Outcomes(const engine::Domain &domain)
        : store_(domain.blobs()), seal_(domain), prefix_("outcomes/" + domain.nodeKey() + "/")
    {
    }

    /// Decides as `wanted`, unless it is decided already. Returns what holds, durably; only that
    /// counts. After an error it may or may not be decided: ask again.
    Result<Decision> decide(const ChangePlan &plan, Decision wanted);
    /// Returns nothing when the change is not decided, or was settled long ago. Errors: damaged.
    Result<std::optional<ChangeOutcome>> find(ChangeId change);
    /// Returns all that are kept, in no order. One that cannot be read is left out.
    Result<std::vector<ChangeOutcome>> list();
    /// Fine when there is none.
    Result<void> forget(ChangeId change);

private:
    std::string nameOf(ChangeId change) const;

    blob::BlobStore &store_;
    RecordSeal seal_;
    std::string prefix_;
};

} // namespace arca::store

#endif
