// Deleting objects, making them inactive, and deleting old events of the activity log.
#include "client/api/objects/filespace_check.h"
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"
#include "client/base/text.h"
#include "client/store/log/activity_reader.h"

#include <optional>

using namespace arca;
using namespace arca::api;

namespace
{

Answer<store::PieceId> idToDelete(Session &session, std::uint8_t delType, const hoxDelInfo *info)
{
    if (info == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, "the record of the deletion is null");
    // Both forms begin with their version.
    ARCA_CHECK(expectVersion(info, info->backID.stVersion, HOX_DELBACK_VERSION,
                             "the record of the deletion"));
    if (delType == HOX_DELETE_BACKUP_ID || delType == HOX_DEACTIVATE_BACKUP_ID)
        return joined(info->backID.objId);
    if (delType != HOX_DELETE_BACKUP_NAME)
        return refused(HOX_RC_BAD_ARGUMENT, "the deletion type is unknown");
    ARCA_TRY(const store::ObjectName name, objectNameOf(info->backName.objName));
    ARCA_CHECK(expectFilespace(session, name.filespace));
    ARCA_TRY(const auto found, session.space->find(name));
    if (!found)
        return refused(HOX_RC_OBJECT_UNKNOWN, "there is no object " + printable(name.joined()));
    return found->id;
}

/// Returns the name of an object whose description is damaged: it has no identifier that the commit
/// could name it by. Nothing when that is not the case.
std::optional<store::ObjectName> damagedName(Session &session, std::uint8_t delType,
                                             const hoxDelInfo *info)
{
    if (delType != HOX_DELETE_BACKUP_NAME || info == nullptr || session.isGuest())
        return std::nullopt;
    const auto name = objectNameOf(info->backName.objName);
    if (!name || !session.space->expectDamaged(*name))
        return std::nullopt;
    return *name;
}

Answer<void> deleteObject(Session &session, std::uint8_t delType, const hoxDelInfo *info)
{
    if (!session.transaction || session.transaction->isSending())
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    auto id = idToDelete(session, delType, info);
    if (!id)
        if (const auto name = damagedName(session, delType, info))
            return session.transaction->deleteDamaged(*name);
    if (id && delType == HOX_DEACTIVATE_BACKUP_ID && !session.repository->takesInactive())
        id = refused(HOX_RC_NOT_SUPPORTED, "the repository has the layout of an older release, "
                                           "which knew no inactive objects");
    if (!id) {
        session.transaction->poison(id.error());
        return id.error();
    }
    return delType == HOX_DEACTIVATE_BACKUP_ID ? session.transaction->deactivateObject(*id)
                                               : session.transaction->deleteObject(*id);
}

/// Deletes whole days only: nothing of the day (UTC) of `before` is deleted.
Answer<void> deleteLog(Session &session, const hoxDelInfo *info)
{
    if (!session.isIdle())
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    ARCA_CHECK(expectOwnObjects(session));
    ARCA_CHECK(expectVersion(info, info == nullptr ? std::uint16_t{0} : info->log.stVersion,
                             HOX_DELBACK_VERSION, "the record of the deletion"));
    ARCA_CHECK(store::pruneActivityLog(session.repository->blobs(), info->log.before));
    return {};
}

} // namespace

std::int16_t hoxDeleteObj(hoxHandle_t handle, std::uint8_t delType, const hoxDelInfo *info)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_CHECK(delType == HOX_DELETE_LOG ? deleteLog(session, info)
                                             : deleteObject(session, delType, info));
        return success();
    });
}
