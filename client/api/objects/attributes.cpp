// The attributes of an object: see the header.
#include "client/api/objects/attributes.h"

#include "client/api/session/records.h"
#include "client/base/text.h"

#include <algorithm>

namespace arca::api
{

Answer<void> expectBackup(std::uint8_t sendType)
{
    if (sendType != HOX_SEND_BACKUP && sendType != HOX_SEND_BACKUP_BIND)
        return refused(HOX_RC_BAD_ARGUMENT, "the send type is unknown");
    return {};
}

namespace
{

Answer<std::string> classFor(Session &session, const char *name)
{
    ARCA_TRY(const std::string wanted,
             pointerText(name, HOX_MAX_MC_NAME, "the management class", HOX_RC_MC_UNKNOWN));
    if (wanted.empty())
        return std::string(store::kDefaultClass);
    const auto found = session.repository->policy().find(wanted);
    // A record that cannot be read is one of a class that was defined. What is bound to it stays
    // until the class can be read again.
    if (!found && isUnreadable(found.error())) {
        std::string known = wanted;
        std::transform(known.begin(), known.end(), known.begin(), upperAscii);
        return known;
    }
    ARCA_CHECK(found);
    if (!*found)
        return refused(HOX_RC_MC_UNKNOWN,
                       "the management class " + printable(wanted) + " is not defined");
    return (*found)->name;
}

Answer<std::string> infoOf(const ObjAttr &attributes)
{
    if (attributes.objInfoLength > HOX_MAX_OBJ_INFO)
        return refused(HOX_RC_BAD_ARGUMENT, "the object information is too long");
    if (attributes.objInfo == nullptr && attributes.objInfoLength != 0)
        return refused(HOX_RC_NULL_ARGUMENT, "the object information is null");
    return std::string(attributes.objInfo == nullptr ? "" : attributes.objInfo,
                       attributes.objInfoLength);
}

} // namespace

Answer<void> takeAttributes(Session &session, const ObjAttr *attributes, std::uint32_t mask,
                            store::PieceDescription &piece)
{
    const bool identified = (mask & HOX_UPDOBJ_ONLY_ID) != 0;
    ARCA_CHECK(expectVersion(
        attributes, attributes == nullptr ? std::uint16_t{0} : attributes->stVersion,
        identified ? HOX_OBJATTR_VERSION_ID : HOX_OBJATTR_VERSION, "the attribute record"));
    if ((mask & HOX_UPDOBJ_OWNER) != 0) {
        ARCA_TRY(piece.owner, fieldText(attributes->owner, "the owner"));
    }
    if ((mask & HOX_UPDOBJ_MC) != 0) {
        ARCA_TRY(piece.managementClass, classFor(session, attributes->mcNameP));
    }
    if ((mask & HOX_UPDOBJ_INFO) != 0) {
        ARCA_TRY(piece.info, infoOf(*attributes));
    }
    return {};
}

} // namespace arca::api
