// Changing objects that are stored: their attributes, their names; and management classes.
#include "client/api/objects/attributes.h"
#include "client/api/objects/class_change.h"
#include "client/api/objects/filespace_check.h"
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"

#include <optional>

using namespace arca;
using namespace arca::api;

namespace
{

/// Returns the name of an object that the session may change now.
Answer<store::ObjectName> changeable(Session &session, std::uint8_t sendType,
                                     const hoxObjName *name)
{
    if (!session.isIdle())
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    ARCA_CHECK(expectOwnObjects(session));
    ARCA_CHECK(expectBackup(sendType));
    ARCA_TRY(store::ObjectName own, objectNameOf(name));
    ARCA_CHECK(expectFilespace(session, own.filespace));
    return own;
}

} // namespace

std::int16_t hoxUpdateObj(hoxHandle_t handle, std::uint8_t sendType, const hoxObjName *name,
                          const ObjAttr *attributes, std::uint32_t mask)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (sendType == HOX_UPDATE_CLASS) {
            ARCA_CHECK(changeClass(session, attributes, mask));
            return success();
        }
        ARCA_TRY(const store::ObjectName own, changeable(session, sendType, name));
        const std::uint32_t changed = mask & ~HOX_UPDOBJ_ONLY_ID;
        if (changed == 0 || (changed & ~kEveryAttribute) != 0)
            return refused(HOX_RC_BAD_ARGUMENT, "the mask names no attributes, or unknown ones");
        store::PieceDescription given;
        ARCA_CHECK(takeAttributes(session, attributes, mask, given));
        std::optional<store::PieceId> only;
        if (changed != mask)
            only = joined(attributes->objId);
        ARCA_CHECK(session.space->update(own, only, [&](store::PieceDescription &piece) {
            if ((mask & HOX_UPDOBJ_OWNER) != 0)
                piece.owner = given.owner;
            if ((mask & HOX_UPDOBJ_MC) != 0)
                piece.managementClass = given.managementClass;
            if ((mask & HOX_UPDOBJ_INFO) != 0)
                piece.info = given.info;
        }));
        return success();
    });
}

std::int16_t hoxRenameObj(hoxHandle_t handle, std::uint8_t sendType, const hoxObjName *name,
                          const char *newHlName, const char *newLlName)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_TRY(const store::ObjectName from, changeable(session, sendType, name));
        if (newHlName == nullptr || newLlName == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the new name is null");
        hoxObjName wanted = *name;
        ARCA_TRY(const std::string high,
                 pointerText(newHlName, HOX_MAX_HL_NAME, "the new high-level name"));
        ARCA_TRY(const std::string low,
                 pointerText(newLlName, HOX_MAX_LL_NAME, "the new low-level name"));
        fill(wanted.hlName, high);
        fill(wanted.llName, low);
        ARCA_TRY(const store::ObjectName to, objectNameOf(&wanted));
        ARCA_CHECK(session.space->rename(from, to));
        return success();
    });
}
