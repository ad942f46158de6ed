// Deactivation and deletion: see the header.
//
// One missing or damaged object fails its whole transaction. So the objects before it are carried
// out in a separate transaction, and those after it in another one. When only the commit fails for
// such an object, halves of the batch are tried until it is found.
#include "agents/common/maint/mtremove.h"

#include "common/cu/cu64.h"

namespace
{

/// True when the failure concerns one object of the batch only. Damage that a commit meets may be
/// anywhere, so that one ends the removal.
bool isOfOneObject(int rc, bool atCommit)
{
    return rc == HOX_RC_OBJECT_UNKNOWN || (rc == HOX_RC_REPOSITORY_DAMAGED && !atCommit);
}

} // namespace

mtObject_t::mtObject_t(const dhoxBackupObject_t &object)
    : objId(object.objId), fsName(object.objName.fsName), hlName(object.objName.hlName),
      llName(object.objName.llName), size(object.size), storedSize(object.storedSize),
      active(object.objState == HOX_STATE_ACTIVE)
{
}

mtRemoval::mtRemoval(const mtSession &session, mtAction_t action, mtRemovalReport_t report)
    : session_(session), action_(action), report_(std::move(report))
{
}

int mtRemoval::add(mtObject_t object)
{
    batch_.push_back(std::move(object));
    return batch_.size() < session_.mostPerTransaction() ? HOX_RC_OK : flush();
}

int mtRemoval::finish()
{
    const int rc = flush();
    return rc != HOX_RC_OK ? rc : damage_;
}

int mtRemoval::flush()
{
    const int rc = stopped_ ? HOX_RC_ABORTED : carryOut(batch_);
    batch_.clear();
    return rc;
}

int mtRemoval::step(const mtObject_t &object) const
{
    hoxDelInfo info{};
    info.backID = {HOX_DELBACK_VERSION, {cuHigh32(object.objId), cuLow32(object.objId)}};
    const std::uint8_t type =
        action_ == mtAction_t::deactivate ? HOX_DEACTIVATE_BACKUP_ID : HOX_DELETE_BACKUP_ID;
    return mtApi()->dhoxDeleteObj(mtStatus(), session_.handle(), type, &info);
}

int mtRemoval::commit() const
{
    std::uint16_t reason = 0;
    const int rc = mtApi()->dhoxEndTxn(mtStatus(), session_.handle(), HOX_VOTE_COMMIT, &reason);
    // HOX_RC_CHECK_REASON without a reason is a failure all the same.
    return rc == HOX_RC_CHECK_REASON && reason != 0 ? reason : rc;
}

mtRemoval::Attempt mtRemoval::attempt(std::span<const mtObject_t> batch) const
{
    if (const int rc = mtApi()->dhoxBeginTxn(mtStatus(), session_.handle()); rc != HOX_RC_OK) {
        return {rc, 0};
    }
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (const int rc = step(batch[i]); rc != HOX_RC_OK) {
            std::uint16_t reason = 0;
            mtApi()->dhoxEndTxn(mtStatus(), session_.handle(), HOX_VOTE_ABORT, &reason);
            return {rc, i};
        }
    }
    return {commit(), batch.size()};
}

int mtRemoval::report(std::span<const mtObject_t> batch, int rc)
{
    for (const mtObject_t &object : batch) {
        stopped_ = !report_(object, rc) || stopped_;
    }
    return stopped_ ? HOX_RC_ABORTED : HOX_RC_OK;
}

int mtRemoval::carryOut(std::span<const mtObject_t> batch)
{
    while (!batch.empty()) {
        const Attempt tried =
            action_ == mtAction_t::nothing ? Attempt{HOX_RC_OK, batch.size()} : attempt(batch);
        if (tried.rc == HOX_RC_OK) {
            return report(batch, HOX_RC_OK);
        }
        const bool atCommit = tried.good == batch.size();
        if (!isOfOneObject(tried.rc, atCommit)) {
            return tried.rc;
        }
        const std::size_t before = atCommit ? batch.size() / 2 : tried.good;
        if (const int rc = carryOut(batch.first(before)); rc != HOX_RC_OK) {
            return rc;
        }
        batch = batch.subspan(before);
        if (!atCommit || before == 0) {
            damage_ = tried.rc == HOX_RC_REPOSITORY_DAMAGED ? tried.rc : damage_;
            if (const int rc = report(batch.first(1), tried.rc); rc != HOX_RC_OK) {
                return rc;
            }
            batch = batch.subspan(1);
        }
    }
    return HOX_RC_OK;
}

int mtRemoveObjects(const mtSession &finding, const mtSession &changing, const mtFilter_t &filter,
                    mtAction_t action, const mtRemovalReport_t &report)
{
    mtRemoval removal(changing, action, report);
    int rc = HOX_RC_OK;
    const int asked =
        mtQueryObjects(finding, filter, mtOrder_t::inserted, [&](const dhoxBackupObject_t &object) {
            rc = removal.add(mtObject_t(object));
            return rc == HOX_RC_OK;
        });
    if (rc == HOX_RC_OK && asked != HOX_RC_ABORTED) {
        rc = removal.finish();
    }
    return rc != HOX_RC_OK ? rc : asked;
}
