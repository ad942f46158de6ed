// Inactivation and deletion of backup objects, in transactions of at most what the server takes.
//
// What is done is durable and the same object is never touched twice: it is told by its identifier,
// which no other object ever gets, so that whoever was interrupted begins again and does what is
// left.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTREMOVE_H
#define KEEL_AGENTS_COMMON_MAINT_MTREMOVE_H

#include <functional>
#include <span>
#include <vector>

#include "agents/common/maint/mtquery.h"

enum class mtAction_t {
    deactivate, // active objects become inactive: their names are free, expiry takes them later
    remove,     // active and inactive ones are gone for good
    nothing,    // a dry run: each is reported as if it were done
};

/// What is kept of an object until its transaction is over.
struct mtObject_t {
    std::uint64_t objId = 0;
    std::string fsName, hlName, llName; // empty when only the identifier is known
    std::uint64_t size = 0;             // bytes
    std::uint64_t storedSize = 0;
    bool active = false;

    mtObject_t() = default;
    explicit mtObject_t(const dhoxBackupObject_t &object);
};

/// What became of an object: 0, or HOX_RC_OBJECT_UNKNOWN when it was not there any more (or, to be
/// made inactive, was so already), or HOX_RC_REPOSITORY_DAMAGED when it cannot be read, and stays
/// as it is. False stops after the transaction that is under way.
using mtRemovalReport_t = std::function<bool(const mtObject_t &object, int rc)>;

class mtRemoval
{
public:
    /// The session belongs to the removal as long as that lives.
    mtRemoval(const mtSession &session, mtAction_t action, mtRemovalReport_t report);

    /// Carries a transaction out when there is enough for one. Anything but 0 ends the removal:
    /// what was reported is done, the rest is not. HOX_RC_ABORTED when the report said stop.
    int add(mtObject_t object);
    /// Carries out what is left. HOX_RC_REPOSITORY_DAMAGED when objects were reported as damaged,
    /// and all others are done.
    int finish();

private:
    struct Attempt {
        int rc;
        std::size_t good; // steps that were taken before one failed; all of them at the commit
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
    int damage_ = 0; // of an object that was passed over
};

/// Applies `action` to every object that the filter names. `finding` answers the query while
/// `changing` carries out; they are two sessions of one node. HOX_RC_REPOSITORY_DAMAGED when
/// objects cannot be read: then all others were treated.
int mtRemoveObjects(const mtSession &finding, const mtSession &changing, const mtFilter_t &filter,
                    mtAction_t action, const mtRemovalReport_t &report);

#endif
