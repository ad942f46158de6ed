// Queries: backup objects by their exact name, groups of them, and management classes.
#include "client/api/client.h"
#include "client/api/filespace_check.h"
#include "client/api/guest.h"
#include "client/api/records.h"

using namespace arca;
using namespace arca::api;

namespace
{

Answer<Query> queryObjects(Session &session, const qryBackupData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_BACKUP_VERSION, "the query record"));
    ARCA_TRY(const store::ObjectName name, objectNameOf(asked->objName));
    ARCA_TRY(const std::string owner,
             pointerText(asked->owner, HOX_MAX_OWNER_NAME, "the owner name"));
    Query query;
    // Before anything is looked at: what was not granted must not even show whether it is there.
    ARCA_TRY(const bool readable, mayRead(session, name));
    if (!readable)
        return query;
    ARCA_CHECK(expectFilespace(session, name.filespace));
    // Only active objects exist: a deleted one is gone, and none is replaced.
    if (asked->objState == HOX_STATE_INACTIVE)
        return query;
    ARCA_TRY(auto found, session.space->find(name));
    if (found && (owner.empty() || found->description.owner == owner))
        query.answers.emplace_back(std::move(*found));
    return query;
}

Answer<Query> queryGroup(Session &session, const qryGroupData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_GROUP_VERSION, "the query record"));
    Query query;
    if (session.isGuest())
        return query; // rules name objects, not groups
    const auto leader = session.space->firstId(joined(asked->leaderObjId));
    if (!leader && leader.error().kind == ErrorKind::notFound)
        return query;
    ARCA_CHECK(leader);
    const auto group = session.space->groups().find(*leader);
    if (!group && group.error().kind == ErrorKind::notFound)
        return query;
    ARCA_CHECK(group);
    std::vector<store::PieceId> ids{*leader};
    ids.insert(ids.end(), group->members.begin(), group->members.end());
    for (const store::PieceId id : ids) {
        auto found = session.space->find(id);
        if (!found && found.error().kind == ErrorKind::notFound)
            continue; // deleted
        ARCA_CHECK(found);
        query.answers.emplace_back(std::move(*found));
    }
    return query;
}

Answer<Query> queryClasses(Session &session, const qryMCData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_MC_VERSION, "the query record"));
    Query query;
    query.classDetail = asked->detail != 0;
    store::Policy policy(session.repository->blobs());
    if (asked->mcName == nullptr || *asked->mcName == '\0') {
        ARCA_TRY(auto classes, policy.list());
        for (store::ManagementClass &known : classes)
            query.answers.emplace_back(std::move(known));
        return query;
    }
    // A name too long to be any class matches none.
    const std::string_view name(asked->mcName, strnlen(asked->mcName, HOX_MAX_MC_NAME + 1));
    ARCA_TRY(auto found, policy.find(name));
    if (found)
        query.answers.emplace_back(std::move(*found));
    return query;
}

void fillAnswer(qryRespBackupData &record, const store::PieceInfo &piece)
{
    record = qryRespBackupData{};
    record.stVersion = HOX_QRY_RESP_BACKUP_VERSION;
    const store::PieceDescription &described = piece.description;
    fill(record.objName, described.name);
    record.copyGroup = described.copyGroup;
    fill(record.mcName, described.managementClass);
    record.mediaClass = HOX_MEDIA_FIXED;
    fill(record.owner, described.owner);
    record.objState = HOX_STATE_ACTIVE;
    record.insDate = dateOf(piece.insertedAt);
    record.objId = split(piece.id);
    record.sizeEstimate = split(described.sizeEstimate);
    record.size = split(piece.totals.streamBytes);
    record.objInfoLength = HOX_MAX_OBJ_INFO;
    std::memcpy(record.objInfo, described.info.data(),
                std::min<std::size_t>(described.info.size(), sizeof record.objInfo));
    record.storedSize = split(piece.totals.storedBytes + piece.totals.manifestBytes);
}

void fillAnswer(qryRespMCData &record, const store::ManagementClass &known, bool detail)
{
    record = qryRespMCData{};
    record.stVersion = HOX_QRY_RESP_MC_VERSION;
    fill(record.mcName, known.name);
    if (!detail)
        return;
    fill(record.description, known.description);
    fill(record.stgPool, known.storagePool);
    record.isDefault = known.isDefault() ? 1 : 0;
    record.backupCopyGroup = 1;
    record.versionsKept = known.versionsKept;
    record.daysKept = known.daysKept;
}

/// The caller's answer record, if the block holds one. It may lie anywhere in the caller's memory,
/// so it is filled by copying.
template <class Record, class Fill>
Answer<void> deliver(DataBlk *block, std::uint16_t version, Fill fillRecord)
{
    ARCA_TRY(const auto room, roomIn(block));
    if (room.size() < sizeof(Record))
        return refused(HOX_RC_BAD_ARGUMENT, "the answer record is too small");
    std::uint16_t asked = 0;
    std::memcpy(&asked, room.data(), sizeof asked);
    if (asked != 0)
        ARCA_CHECK(expectVersion(block, asked, version, "the answer record"));
    Record record;
    fillRecord(record);
    std::memcpy(room.data(), &record, sizeof record);
    block->numBytes = sizeof record;
    return {};
}

} // namespace

std::int16_t hoxBeginQuery(hoxHandle_t handle, std::uint8_t queryType, const void *queryData)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.isIdle())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        if (queryType == HOX_QUERY_BACKUP) {
            ARCA_TRY(session.query,
                     queryObjects(session, static_cast<const qryBackupData *>(queryData)));
        } else if (queryType == HOX_QUERY_MGMT_CLASS) {
            ARCA_TRY(session.query,
                     queryClasses(session, static_cast<const qryMCData *>(queryData)));
        } else if (queryType == HOX_QUERY_GROUP) {
            ARCA_TRY(session.query,
                     queryGroup(session, static_cast<const qryGroupData *>(queryData)));
        } else {
            return refused(HOX_RC_BAD_ARGUMENT, "the query type is unknown");
        }
        return success();
    });
}

std::int16_t hoxGetNextQObj(hoxHandle_t handle, DataBlk *data)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.query)
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_CHECK(roomIn(data));
        data->numBytes = 0;
        Query &query = *session.query;
        if (query.answers.empty())
            return query.atEnd;
        const auto &next = query.answers.front();
        if (const auto *piece = std::get_if<store::PieceInfo>(&next))
            ARCA_CHECK(
                deliver<qryRespBackupData>(data, HOX_QRY_RESP_BACKUP_VERSION,
                                           [&](auto &record) { fillAnswer(record, *piece); }));
        else
            ARCA_CHECK(deliver<qryRespMCData>(data, HOX_QRY_RESP_MC_VERSION, [&](auto &record) {
                fillAnswer(record, std::get<store::ManagementClass>(next), query.classDetail);
            }));
        query.answers.pop_front();
        query.atEnd = HOX_RC_FINISHED;
        return outcome(HOX_RC_MORE_DATA);
    });
}

std::int16_t hoxEndQuery(hoxHandle_t handle)
{
    return inSession(handle, [](Session &session) -> Code {
        session.query.reset();
        return success();
    });
}
