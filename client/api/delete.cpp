// Deleting objects.
#include "client/api/client.h"
#include "client/api/filespace_check.h"
#include "client/api/records.h"
#include "client/base/text.h"

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
    if (delType == HOX_DELETE_BACKUP_ID)
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

} // namespace

std::int16_t hoxDeleteObj(hoxHandle_t handle, std::uint8_t delType, const hoxDelInfo *info)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.transaction || session.transaction->isSending())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        const auto id = idToDelete(session, delType, info);
        if (!id) {
            session.transaction->poison(id.error());
            return id.error();
        }
        ARCA_CHECK(session.transaction->deleteObject(*id));
        return success();
    });
}
