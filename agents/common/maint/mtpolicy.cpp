// Management classes: see the header.
#include "agents/common/maint/mtpolicy.h"

#include "common/cu/cu64.h"
#include "common/string/ststring.h"

namespace
{

mtClass_t classFrom(const qryRespMCData &answer)
{
    return {answer.mcName,   answer.description,    answer.stgPool,       answer.versionsKept,
            answer.daysKept, answer.isDefault != 0, answer.isDeleted != 0};
}

/// Sends a definition of a class (null for none) to the storage client, with the action in mask.
int update(const mtSession &session, const std::string &name, const mcDefinition *definition,
           std::uint32_t mask)
{
    ObjAttr attributes{};
    attributes.stVersion = HOX_OBJATTR_VERSION;
    attributes.mcNameP = name.c_str();
    attributes.objInfo = reinterpret_cast<const char *>(definition);
    attributes.objInfoLength = definition == nullptr ? 0 : sizeof *definition;
    return mtApi()->dhoxUpdateObj(mtStatus(), session.handle(), HOX_UPDATE_CLASS, nullptr,
                                  &attributes, mask);
}

/// Copies the fields that have a value into the definition, and their bits into `fields`. Returns
/// 0, or HOX_RC_BAD_ARGUMENT when a text is too long.
int apply(const mtClassChange_t &change, mcDefinition &definition, std::uint32_t &fields)
{
    definition.stVersion = HOX_MCDEFINITION_VERSION;
    definition.versionsKept = change.versionsKept.value_or(definition.versionsKept);
    definition.daysKept = change.daysKept.value_or(definition.daysKept);
    const bool fits =
        (!change.description || stCopy(definition.description, *change.description)) &&
        (!change.stgPool || stCopy(definition.stgPool, *change.stgPool));
    fields = (change.description ? HOX_UPDCLASS_DESCRIPTION : 0U) |
             (change.stgPool ? HOX_UPDCLASS_POOL : 0U) |
             (change.versionsKept ? HOX_UPDCLASS_VERSIONS : 0U) |
             (change.daysKept ? HOX_UPDCLASS_DAYS : 0U);
    return fits ? HOX_RC_OK : HOX_RC_BAD_ARGUMENT;
}

int bind(const mtSession &session, const dhoxBackupObject_t &object, const std::string &className)
{
    ObjAttr attributes{};
    attributes.stVersion = HOX_OBJATTR_VERSION_ID;
    attributes.mcNameP = className.c_str();
    attributes.objId = {cuHigh32(object.objId), cuLow32(object.objId)};
    return mtApi()->dhoxUpdateObj(mtStatus(), session.handle(), HOX_SEND_BACKUP, &object.objName,
                                  &attributes, HOX_UPDOBJ_MC | HOX_UPDOBJ_ONLY_ID);
}

/// Returns 0 when the class exists. Asked also when there is nothing to bind: naming a class that
/// does not exist is a mistake in any case.
int expectClass(const mtSession &session, const std::string &name)
{
    std::vector<mtClass_t> classes;
    const int rc = mtClasses(session, false, classes);
    for (const mtClass_t &known : classes) {
        if (stEqualNoCase(known.name, name)) {
            return HOX_RC_OK;
        }
    }
    return rc != HOX_RC_OK ? rc : HOX_RC_MC_UNKNOWN;
}

} // namespace

int mtClasses(const mtSession &session, bool alsoDeleted, std::vector<mtClass_t> &classes)
{
    classes.clear();
    const qryMCData asked{HOX_QRY_MC_VERSION, nullptr,
                          static_cast<std::uint8_t>(alsoDeleted ? 2 : 1)};
    int rc = mtApi()->dhoxBeginQuery(mtStatus(), session.handle(), HOX_QUERY_MGMT_CLASS, &asked);
    if (rc != HOX_RC_OK) {
        return rc;
    }
    qryRespMCData answer{};
    DataBlk block{HOX_DATABLK_VERSION, sizeof answer, 0, reinterpret_cast<char *>(&answer)};
    while ((rc = mtApi()->dhoxGetNextQObj(mtStatus(), session.handle(), &block, nullptr)) ==
           HOX_RC_MORE_DATA) {
        classes.push_back(classFrom(answer));
    }
    const int ended = mtApi()->dhoxEndQuery(mtStatus(), session.handle());
    return rc == HOX_RC_FINISHED || rc == HOX_RC_NO_MATCH ? ended : rc;
}

int mtClassDefine(const mtSession &session, const std::string &name, const mtClassChange_t &change)
{
    std::vector<mtClass_t> classes;
    const int listed = mtClasses(session, false, classes);
    const bool poolKnown = change.stgPool || (!classes.empty() && classes.front().isDefault);
    // A damaged record is in the way only when it may be the one of the default class.
    if (listed != HOX_RC_OK && !(listed == HOX_RC_REPOSITORY_DAMAGED && poolKnown)) {
        return listed;
    }
    mcDefinition definition{};
    definition.versionsKept = 1;
    definition.daysKept = mtNoLimit;
    if (!classes.empty() && classes.front().isDefault) {
        stCopy(definition.stgPool, classes.front().stgPool);
    }
    std::uint32_t fields = 0;
    if (const int rc = apply(change, definition, fields); rc != HOX_RC_OK) {
        return rc;
    }
    return update(session, name, &definition, HOX_UPDCLASS_DEFINE);
}

int mtClassChange(const mtSession &session, const std::string &name, const mtClassChange_t &change)
{
    mcDefinition definition{};
    std::uint32_t fields = 0;
    if (const int rc = apply(change, definition, fields); rc != HOX_RC_OK) {
        return rc;
    }
    return update(session, name, &definition, HOX_UPDCLASS_CHANGE | fields);
}

int mtClassDelete(const mtSession &session, const std::string &name)
{
    return update(session, name, nullptr, HOX_UPDCLASS_DELETE);
}

int mtBindObjects(const mtSession &finding, const mtSession &changing, const mtFilter_t &filter,
                  const std::string &className, bool dryRun, const mtRemovalReport_t &report)
{
    if (const int rc = expectClass(changing, className); rc != HOX_RC_OK) {
        return rc;
    }
    mtFilter_t active = filter;
    active.objState = HOX_STATE_ACTIVE;
    int rc = HOX_RC_OK;
    int damage = HOX_RC_OK;
    const int asked =
        mtQueryObjects(finding, active, mtOrder_t::inserted, [&](const dhoxBackupObject_t &object) {
            if (stEqualNoCase(object.mcName, className)) {
                return true;
            }
            const int bound = dryRun ? HOX_RC_OK : bind(changing, object, className);
            if (bound == HOX_RC_REPOSITORY_DAMAGED) {
                damage = bound;
            } else if (bound != HOX_RC_OK && bound != HOX_RC_OBJECT_UNKNOWN) {
                rc = bound;
            } else if (!report(mtObject_t(object), bound)) {
                rc = HOX_RC_ABORTED;
            }
            return rc == HOX_RC_OK;
        });
    rc = rc != HOX_RC_OK ? rc : asked;
    return rc != HOX_RC_OK ? rc : damage;
}
