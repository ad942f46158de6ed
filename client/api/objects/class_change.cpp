// Defining, changing and deleting a management class: see the header.
#include "client/api/objects/class_change.h"

#include "client/api/session/guest.h"
#include "client/api/session/records.h"

namespace arca::api
{

namespace
{

constexpr std::uint32_t kActions = HOX_UPDCLASS_DEFINE | HOX_UPDCLASS_CHANGE | HOX_UPDCLASS_DELETE;
constexpr std::uint32_t kFields =
    HOX_UPDCLASS_DESCRIPTION | HOX_UPDCLASS_POOL | HOX_UPDCLASS_VERSIONS | HOX_UPDCLASS_DAYS;

/// Returns true for one action, with the fields that it needs and no others.
bool isMask(std::uint32_t mask)
{
    const std::uint32_t action = mask & kActions, fields = mask & kFields;
    if ((mask & ~(kActions | kFields)) != 0)
        return false;
    if (action == HOX_UPDCLASS_CHANGE)
        return fields != 0;
    return fields == 0 && (action == HOX_UPDCLASS_DEFINE || action == HOX_UPDCLASS_DELETE);
}

Answer<store::ManagementClass> definitionIn(const ObjAttr &attributes)
{
    mcDefinition given{};
    if (attributes.objInfo == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, "the definition of the class is null");
    if (attributes.objInfoLength != sizeof given)
        return refused(HOX_RC_BAD_ARGUMENT, "the definition of the class has another size");
    std::memcpy(&given, attributes.objInfo, sizeof given);
    ARCA_CHECK(expectVersion(&given, given.stVersion, HOX_MCDEFINITION_VERSION,
                             "the definition of the class"));
    store::ManagementClass defined;
    ARCA_TRY(defined.description, fieldText(given.description, "the description"));
    ARCA_TRY(defined.storagePool, fieldText(given.stgPool, "the storage pool"));
    defined.versionsKept = given.versionsKept;
    defined.daysKept = given.daysKept;
    return defined;
}

void takeFields(store::ManagementClass &known, const store::ManagementClass &given,
                std::uint32_t mask)
{
    if ((mask & HOX_UPDCLASS_DESCRIPTION) != 0)
        known.description = given.description;
    if ((mask & HOX_UPDCLASS_POOL) != 0)
        known.storagePool = given.storagePool;
    if ((mask & HOX_UPDCLASS_VERSIONS) != 0)
        known.versionsKept = given.versionsKept;
    if ((mask & HOX_UPDCLASS_DAYS) != 0)
        known.daysKept = given.daysKept;
}

/// Translates notFound: here it means that the class is not there, not an object.
Answer<void> answered(Result<void> result)
{
    if (!result && result.error().kind == ErrorKind::notFound)
        return refused(HOX_RC_MC_UNKNOWN, std::move(result).error().text);
    ARCA_CHECK(std::move(result));
    return {};
}

} // namespace

Answer<void> changeClass(Session &session, const ObjAttr *attributes, std::uint32_t mask)
{
    if (!session.isIdle())
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    ARCA_CHECK(expectOwnObjects(session));
    ARCA_CHECK(expectVersion(attributes,
                             attributes == nullptr ? std::uint16_t{0} : attributes->stVersion,
                             HOX_OBJATTR_VERSION, "the attribute record"));
    if (!isMask(mask))
        return refused(HOX_RC_BAD_ARGUMENT, "the mask names no action on a class, or several");
    ARCA_TRY(const std::string name,
             pointerText(attributes->mcNameP, HOX_MAX_MC_NAME, "the management class"));
    store::Policy policy = session.repository->policy();
    if (mask == HOX_UPDCLASS_DELETE)
        return answered(policy.retire(name));
    ARCA_TRY(store::ManagementClass given, definitionIn(*attributes));
    given.name = name;
    if (mask == HOX_UPDCLASS_DEFINE)
        return answered(policy.define(std::move(given)));
    return answered(policy.change(
        name, [&](store::ManagementClass &known) { takeFields(known, given, mask); }));
}

} // namespace arca::api
