// Deactivation and deletion of backup objects, in transactions of as many objects as the repository
// allows.
//
// An object is named by its identifier, which no other object ever gets. So no object is treated
// twice, and an interrupted removal can be started again: it does what is left. What was reported
// as done is durable.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTREMOVE_H
#define KEEL_AGENTS_COMMON_MAINT_MTREMOVE_H

#include <functional>
#include <span>
#include <vector>

#include "agents/common/maint/mtquery.h"

enum class mtAction_t {
    deactivate, // active objects become inactive: their names are free, expiry deletes them later
    remove,     // active and inactive objects are deleted; only an administrator brings them back
    nothing,    // a dry run: each object is reported with 0, and nothing is done
};

/// The part of an object that is kept until its transaction is over.
struct mtObject_t {
    std::uint64_t objId = 0;
    std::string fsName, hlName, llName; // empty when only the identifier is known
    std::uint64_t size = 0;             // bytes
    std::uint64_t storedSize = 0;
    bool active = false;

    mtObject_t() = default;
    explicit mtObject_t(const dhoxBackupObject_t &object);
};

/// Receives what became of an object: 0; HOX_RC_OBJECT_UNKNOWN when it does not exist any more or,
/// for deactivate, is inactive already; HOX_RC_REPOSITORY_DAMAGED when it cannot be read, and stays
/// as it is. Called after the object's transaction, in the thread of add() or finish(). Returning
/// false stops the removal; the other objects of the same transaction are still reported. It must
/// not throw where it is called within a query (mtquery.h).
using mtRemovalReport_t = std::function<bool(const mtObject_t &object, int rc)>;

/// A removal that is fed objects one by one. One thread. The destructor carries nothing out:
/// objects that were added since the last transaction are forgotten unless finish() is called.
class mtRemoval
{
public:
    /// Uses the session, which must be idle and outlive the removal; no other use of it meanwhile.
    mtRemoval(const mtSession &session, mtAction_t action, mtRemovalReport_t report);

    /// Adds an object and carries out a transaction when there are enough for one. Returns 0, the
    /// storage client's code, or HOX_RC_ABORTED when the report said stop. After anything but 0
    /// call neither again: what was reported with 0 is done, the rest is not.
    int add(mtObject_t object);
    /// Carries out what is left. Returns as add(), and HOX_RC_REPOSITORY_DAMAGED when objects were
    /// reported as damaged and all others are done.
    int finish();

private:
    struct Attempt {
        int rc;
        std::size_t good; // steps that succeeded before one failed; all of them at the commit
    };
    Attempt attempt(std::span<const mtObject_t> batch) const;
    int flush();
    int commit() const;
    int step(const mtObject_t &object) const;
    int carryOut(std::span<const mtObject_t> batch);
    int report(std::span<const mtObject_t> batch, int rc);

    const mtSession &session_;
    const mtAction_t action_;
    const mtRemovalReport_t report_;
    std::vector<mtObject_t> batch_;
    bool stopped_ = false;
    int damage_ = 0; // the code of a damaged object that was passed over
};

/// Applies `action` to every object that the filter names. `finding` answers the query while
/// `changing` changes; they are two idle sessions of one node. What was reported with 0 stays done
/// whatever is returned. Errors: HOX_RC_ABORTED when the report or the progress said stop;
/// HOX_RC_REPOSITORY_DAMAGED when objects cannot be read: then all others were treated.
int mtRemoveObjects(const mtSession &finding, const mtSession &changing, const mtFilter_t &filter,
                    mtAction_t action, const mtRemovalReport_t &report);

#endif
