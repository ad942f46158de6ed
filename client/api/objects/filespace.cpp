// Filespaces: registering, describing, deleting.
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"
#include "client/store/nodes/access.h"

using namespace arca;
using namespace arca::api;

namespace
{

Answer<std::string> infoOf(const hoxFSAttr &attributes)
{
    if (attributes.infoLength > HOX_MAX_FS_INFO)
        return refused(HOX_RC_BAD_ARGUMENT, "the filespace information is too long");
    return std::string(attributes.info, attributes.infoLength);
}

Answer<std::string> typeOf(const char *type)
{
    return pointerText(type, HOX_MAX_FS_TYPE, "the filespace type");
}

} // namespace

std::int16_t hoxRegisterFS(hoxHandle_t handle, const regFSData *data)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_CHECK(expectOwnObjects(session));
        ARCA_CHECK(expectVersion(data, data == nullptr ? std::uint16_t{0} : data->stVersion,
                                 HOX_REGFS_VERSION, "the filespace record"));
        store::Filespace filespace;
        ARCA_TRY(filespace.name, filespaceNameOf(data->fsName));
        ARCA_TRY(filespace.type, typeOf(data->fsType));
        ARCA_TRY(filespace.info, infoOf(data->fsAttr));
        filespace.occupancyBytes = joined(data->occupancy);
        filespace.capacityBytes = joined(data->capacity);
        auto registered = session.space->registerFilespace(filespace);
        if (!registered && registered.error().kind == ErrorKind::exists)
            return refused(HOX_RC_FS_REGISTERED, std::move(registered).error().text);
        ARCA_CHECK(std::move(registered));
        return success();
    });
}

std::int16_t hoxUpdateFS(hoxHandle_t handle, const char *fsName, const hoxFSUpd *update,
                         std::uint32_t mask)
{
    constexpr std::uint32_t kKnown = HOX_FSUPD_TYPE | HOX_FSUPD_ATTR | HOX_FSUPD_OCCUPANCY |
                                     HOX_FSUPD_CAPACITY | HOX_FSUPD_PROTECTED_SIZE;
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_CHECK(expectOwnObjects(session));
        ARCA_CHECK(expectVersion(update, update == nullptr ? std::uint16_t{0} : update->stVersion,
                                 HOX_FSUPD_VERSION, "the filespace record"));
        ARCA_TRY(const std::string name, filespaceNameOf(fsName));
        if ((mask & ~kKnown) != 0)
            return refused(HOX_RC_BAD_ARGUMENT, "the mask names fields that are not known");
        std::string type, info;
        if ((mask & HOX_FSUPD_TYPE) != 0) {
            ARCA_TRY(type, typeOf(update->fsType));
        }
        if ((mask & HOX_FSUPD_ATTR) != 0) {
            ARCA_TRY(info, infoOf(update->fsAttr));
        }
        auto updated = session.space->updateFilespace(name, [&](store::Filespace &filespace) {
            if ((mask & HOX_FSUPD_TYPE) != 0)
                filespace.type = type;
            if ((mask & HOX_FSUPD_ATTR) != 0)
                filespace.info = info;
            if ((mask & HOX_FSUPD_OCCUPANCY) != 0)
                filespace.occupancyBytes = joined(update->occupancy);
            if ((mask & HOX_FSUPD_CAPACITY) != 0)
                filespace.capacityBytes = joined(update->capacity);
            if ((mask & HOX_FSUPD_PROTECTED_SIZE) != 0)
                filespace.protectedMebibytes = update->protectedSize;
        });
        if (!updated && updated.error().kind == ErrorKind::notFound)
            return refused(HOX_RC_FS_UNKNOWN, std::move(updated).error().text);
        ARCA_CHECK(std::move(updated));
        return success();
    });
}

std::int16_t hoxDeleteFS(hoxHandle_t handle, const char *fsName, std::uint8_t repositoryType)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.isIdle())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_CHECK(expectOwnObjects(session));
        if (repositoryType != HOX_REPOSITORY_ALL && repositoryType != HOX_REPOSITORY_BACKUP)
            return refused(HOX_RC_BAD_ARGUMENT, "the repository type is unknown");
        ARCA_TRY(const std::string name, filespaceNameOf(fsName));
        // The rules are removed before the filespace, so that a crash in between leaves no rule for
        // a filespace that is registered again, and once more after it, for a rule that was made
        // meanwhile. hoxSetAccess looks at the filespace after it made a rule, so a later rule is
        // taken back there. What was granted since it was registered again stays.
        ARCA_TRY(auto rules,
                 store::AccessRules::of(session.repository->blobs(), session.space->node(),
                                        session.space->incarnation()));
        ARCA_TRY(const auto known, session.space->filespace(name));
        const std::uint32_t registration = known ? known->registration : 0;
        ARCA_CHECK(rules.removeOf(name, [&]() -> Result<bool> {
            ARCA_TRY(const auto now, session.space->filespace(name));
            return now && now->registration == registration;
        }));
        auto deleted = session.space->deleteFilespace(name, registration);
        if (!deleted && deleted.error().kind == ErrorKind::notFound)
            return refused(HOX_RC_FS_UNKNOWN, std::move(deleted).error().text);
        ARCA_CHECK(std::move(deleted));
        ARCA_CHECK(
            rules.removeOf(name, [&] { return session.space->isDeleted(name, registration); }));
        return success();
    });
}
