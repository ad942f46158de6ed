// Queries: backup objects by their exact name or by patterns, groups of them, management classes,
// and the activity log.
#include "client/api/objects/filespace_check.h"
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"
#include "client/base/text.h"

#include <limits>

using namespace arca;
using namespace arca::api;

namespace
{

constexpr std::uint16_t kQueryWithoutProgress = 1; // version of qryObjectsData

Answer<Query> queryObjects(Session &session, const qryBackupData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_BACKUP_VERSION, "the query record"));
    ARCA_TRY(const store::ObjectName name, objectNameOf(asked->objName));
    ARCA_TRY(const std::string owner,
             pointerText(asked->owner, HOX_MAX_OWNER_NAME, "the owner name"));
    Query query;
    // First of all: the answer must not show whether an object that was not granted is there.
    ARCA_TRY(const bool readable, mayRead(session, name));
    if (!readable)
        return query;
    ARCA_CHECK(expectFilespace(session, name.filespace));
    const auto answer = [&](store::PieceInfo piece) {
        if (owner.empty() || piece.description.owner == owner)
            query.answers.emplace_back(std::move(piece));
    };
    if (asked->objState != HOX_STATE_INACTIVE) {
        auto found = session.space->find(name);
        if (!found && isUnreadable(found.error()))
            query.damage = Refusal(std::move(found).error()); // returned by hoxGetNextQObj
        else if (!found)
            return Refusal(std::move(found).error());
        else if (*found)
            answer(std::move(**found));
    }
    if (asked->objState == HOX_STATE_INACTIVE || asked->objState == HOX_STATE_ANY) {
        std::optional<Error> passedOver;
        ARCA_TRY(auto found, session.space->inactiveOf(name, &passedOver));
        if (passedOver && !query.damage)
            query.damage = Refusal(std::move(*passedOver));
        for (store::PieceInfo &piece : found)
            answer(std::move(piece));
    }
    return query;
}

Answer<Query> queryGroup(Session &session, const qryGroupData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_GROUP_VERSION, "the query record"));
    Query query;
    if (session.isGuest())
        return query; // rules name objects, not groups
    const auto leader = session.space->firstId(joined(asked->leaderObjId), true);
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
        if (!found && isUnreadable(found.error())) {
            query.damage = Refusal(std::move(found).error()); // told when the others are fetched
            continue;
        }
        ARCA_CHECK(found);
        query.answers.emplace_back(std::move(*found));
    }
    return query;
}

/// What is said of classes whose records cannot be read when all others were fetched.
Refusal refusedFor(const std::vector<std::string> &records)
{
    std::string text;
    for (const std::string &name : records)
        text += (text.empty() ? "" : ", ") + name;
    return refused(HOX_RC_REPOSITORY_DAMAGED,
                   "management classes cannot be read: the " +
                       std::string(records.size() == 1 ? "record is " : "records are ") +
                       printable(text, 400));
}

Answer<Query> queryClasses(Session &session, const qryMCData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_MC_VERSION, "the query record"));
    Query query;
    query.classDetail = asked->detail != 0;
    const auto retired =
        asked->detail == 2 ? store::Policy::Retired::included : store::Policy::Retired::left;
    store::Policy policy = session.repository->policy();
    if (asked->mcName == nullptr || *asked->mcName == '\0') {
        std::vector<std::string> damaged;
        ARCA_TRY(auto classes, policy.list(retired, &damaged));
        for (store::ManagementClass &known : classes)
            query.answers.emplace_back(std::move(known));
        if (!damaged.empty())
            query.damage = refusedFor(damaged);
        return query;
    }
    // A name too long to be any class matches none.
    const std::string_view name(asked->mcName, strnlen(asked->mcName, HOX_MAX_MC_NAME + 1));
    ARCA_TRY(auto found, policy.find(name, retired));
    if (found)
        query.answers.emplace_back(std::move(*found));
    return query;
}

Answer<store::ListSelection> selectionOf(const qryObjectsData &asked)
{
    store::ListSelection selection;
    ARCA_TRY(selection.filespace, pointerText(asked.fsName, HOX_MAX_FS_NAME, "the filespace"));
    ARCA_TRY(selection.highLevel,
             pointerText(asked.hlName, HOX_MAX_HL_NAME, "the high-level name"));
    ARCA_TRY(selection.lowLevel, pointerText(asked.llName, HOX_MAX_LL_NAME, "the low-level name"));
    ARCA_TRY(selection.owner, pointerText(asked.owner, HOX_MAX_OWNER_NAME, "the owner name"));
    ARCA_TRY(selection.managementClass,
             pointerText(asked.mcName, HOX_MAX_MC_NAME, "the management class"));
    using State = store::ListSelection::State;
    const bool known = asked.objState == HOX_STATE_ACTIVE || asked.objState == HOX_STATE_INACTIVE ||
                       asked.objState == HOX_STATE_ANY;
    if (!known || asked.order > HOX_ORDER_NAME)
        return refused(HOX_RC_BAD_ARGUMENT, "the state or the order of a query is unknown");
    selection.state = asked.objState == HOX_STATE_ACTIVE     ? State::active
                      : asked.objState == HOX_STATE_INACTIVE ? State::inactive
                                                             : State::any;
    selection.order = asked.order == HOX_ORDER_NAME ? store::CatalogueOrder::name
                                                    : store::CatalogueOrder::inserted;
    selection.insertedFrom = asked.insertedFrom;
    selection.insertedBefore = asked.insertedBefore;
    selection.inactiveBefore = asked.inactiveBefore;
    selection.minBytes = joined(asked.minSize);
    selection.maxBytes = joined(asked.maxSize);
    return selection;
}

Answer<Query> listObjects(Session &session, const qryObjectsData *asked)
{
    const bool first = asked != nullptr && asked->stVersion == kQueryWithoutProgress;
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             first ? kQueryWithoutProgress : HOX_QRY_OBJECTS_VERSION,
                             "the query record"));
    ARCA_TRY(auto selection, selectionOf(*asked));
    store::Progress progress;
    if (!first && asked->progress != nullptr)
        progress = [tell = asked->progress, context = asked->progressContext,
                    guest = session.isGuest()](std::uint64_t done, std::uint64_t planned) {
            return tell(context, guest ? 0 : done, guest ? 0 : planned) == 0;
        };
    Query query;
    ARCA_TRY(query.objects,
             store::Listing::begin(*session.space, std::move(selection), std::move(progress)));
    return query;
}

Answer<Query> queryLog(Session &session, const qryLogData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_LOG_VERSION, "the query record"));
    ARCA_CHECK(expectOwnObjects(session));
    if (asked->severity > HOX_SEVERITY_SEVERE)
        return refused(HOX_RC_BAD_ARGUMENT, "the severity is unknown");
    store::LogSelection selection;
    if (asked->since != 0)
        selection.since = store::logTimeOf(asked->since);
    if (asked->before != 0)
        selection.before = store::logTimeOf(asked->before);
    selection.atLeast = static_cast<store::Severity>(asked->severity);
    ARCA_TRY(selection.node, pointerText(asked->nodeName, HOX_MAX_NODE_NAME, "the node name"));
    if (selection.node.empty())
        selection.node = session.node;
    else if (selection.node == HOX_ALL_NODES)
        selection.node.clear();
    Query query;
    ARCA_TRY(query.log, store::ActivityReader::open(session.repository->blobs(), selection,
                                                    session.node, session.log.seal()));
    return query;
}

/// Returns the time (seconds since 1970) until which an inactive object's class keeps it, by what
/// the class says now; 0: for ever, or the object is active.
Answer<std::int64_t> expiryOf(Session &session, Query &query, const store::PieceInfo &piece)
{
    constexpr std::int64_t kDay = 86400;
    if (piece.isActive())
        return std::int64_t{0};
    const std::string &name = piece.description.managementClass;
    auto known = query.daysKept.find(name);
    if (known == query.daysKept.end()) {
        const auto found =
            session.repository->policy().find(name, store::Policy::Retired::included);
        // As long as the class cannot be read, nothing expires by it.
        if (!found && !isUnreadable(found.error()))
            return Refusal(found.error());
        const std::uint16_t days = found && *found ? (*found)->daysKept : store::kNoLimit;
        known = query.daysKept.emplace(name, days).first;
    }
    return known->second == store::kNoLimit ? 0 : piece.inactiveAt + known->second * kDay;
}

std::uint32_t clamped(std::size_t number)
{
    return static_cast<std::uint32_t>(
        std::min<std::size_t>(number, std::numeric_limits<std::uint32_t>::max()));
}

void fillAnswer(qryRespLogData &record, const store::LoggedEvent &logged, std::size_t unreadable)
{
    record = qryRespLogData{};
    record.stVersion = HOX_QRY_RESP_LOG_VERSION;
    record.sealed = logged.sealed ? 1 : 0;
    record.severity = static_cast<std::uint32_t>(logged.event.severity);
    const std::int64_t seconds = store::secondsOf(logged.time);
    record.time = split(static_cast<std::uint64_t>(seconds));
    record.date = dateOf(seconds);
    record.unreadable = clamped(unreadable);
    fill(record.nodeName, logged.event.node);
    fill(record.application, logged.event.application);
    fill(record.messageId, logged.event.messageId);
    fill(record.message, logged.event.text);
}

void fillAnswer(qryRespBackupData &record, const store::PieceInfo &piece, std::int64_t expiresAt)
{
    record = qryRespBackupData{};
    record.stVersion = HOX_QRY_RESP_BACKUP_VERSION;
    const store::PieceDescription &described = piece.description;
    fill(record.objName, described.name);
    record.copyGroup = described.copyGroup;
    fill(record.mcName, described.managementClass);
    record.mediaClass = HOX_MEDIA_FIXED;
    fill(record.owner, described.owner);
    record.objState = piece.isActive() ? HOX_STATE_ACTIVE : HOX_STATE_INACTIVE;
    record.insDate = dateOf(piece.insertedAt);
    record.insTime = split(static_cast<std::uint64_t>(piece.insertedAt));
    if (!piece.isActive())
        record.inactDate = dateOf(piece.inactiveAt);
    record.inactTime = split(static_cast<std::uint64_t>(piece.inactiveAt));
    if (expiresAt != 0)
        record.expDate = dateOf(expiresAt);
    record.objId = split(piece.id);
    record.sizeEstimate = split(described.sizeEstimate);
    record.size = split(piece.totals.streamBytes);
    record.objInfoLength = HOX_MAX_OBJ_INFO;
    std::memcpy(record.objInfo, described.info.data(),
                std::min<std::size_t>(described.info.size(), sizeof record.objInfo));
    record.objCompressed = piece.totals.compressed ? 1 : 0;
    record.objDeduplicated = piece.totals.deduplicated ? 1 : 0;
    record.encryptionType = encryptionBits(piece.totals.cipher);
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
    record.isDeleted = known.retired ? 1 : 0;
}

/// Returns the caller's buffer when it holds a record of the right size and version.
template <class Record> Answer<std::span<std::byte>> recordIn(DataBlk *block, std::uint16_t version)
{
    ARCA_TRY(const auto room, roomIn(block));
    if (room.size() < sizeof(Record))
        return refused(HOX_RC_BAD_ARGUMENT, "the answer record is too small");
    struct {
        std::uint16_t stVersion;
    } asked;
    std::memcpy(&asked, room.data(), sizeof asked);
    ARCA_CHECK(expectFillable(&asked, version, "the answer record"));
    return room;
}

/// Fills the caller's record by copying: it may lie at any address, also an unaligned one.
template <class Record, class Fill>
Answer<void> deliver(DataBlk *block, std::uint16_t version, Fill fillRecord)
{
    ARCA_TRY(const auto room, recordIn<Record>(block, version));
    Record record;
    fillRecord(record);
    std::memcpy(room.data(), &record, sizeof record);
    block->numBytes = sizeof record;
    return {};
}

/// Returns the next object that the session may find now; nothing at the end. Re-reads the access
/// rules before each object that they cover, so that a revoked rule ends the access at once, and
/// every 1,000 objects otherwise, so that a new rule is noticed.
Answer<std::optional<store::PieceInfo>> nextObject(Session &session, Query &query)
{
    constexpr std::size_t kForOneLook = 1000;
    for (;;) {
        ARCA_TRY(auto piece, query.objects->next());
        if (!piece)
            return std::optional<store::PieceInfo>();
        const store::ObjectName &name = piece->description.name;
        if (query.seen++ % kForOneLook != 0 && !session.granted.covers(name))
            continue;
        ARCA_TRY(const bool readable, mayRead(session, name));
        if (readable)
            return piece;
    }
}

/// Ends a listing that met damage, for a reader of another node's objects. It learns only whether
/// an object that it was granted is, or may be, damaged, and no blob names.
Code endForReader(Session &session, const Query &query)
{
    bool any = false;
    for (const store::AccessRule &rule : session.granted.rules()) {
        any = any || !rule.namesOne();
        const auto found = rule.namesOne() ? session.space->find(rule.name)
                                           : Result<std::optional<store::PieceInfo>>(std::nullopt);
        if (!found && found.error().kind == ErrorKind::damaged)
            return refused(HOX_RC_REPOSITORY_DAMAGED,
                           "the object " + printable(rule.name.joined()) + " is damaged");
    }
    if (any)
        return refused(HOX_RC_REPOSITORY_DAMAGED,
                       "objects of node " + printable(session.space->node()) +
                           " are damaged, and some that it granted may be among them");
    return query.atEnd;
}

/// Ends a listing: with damage when objects were passed over, which the local log names.
Code endOfObjects(Session &session, const Query &query)
{
    const auto &hurt = query.objects->hurt();
    if (hurt.empty())
        return query.atEnd;
    if (session.isGuest())
        return endForReader(session, query);
    for (const std::string &one : hurt)
        (void)Client::instance().logLocally(one);
    return refused(HOX_RC_REPOSITORY_DAMAGED, hurt.front());
}

Code deliverObject(Session &session, Query &query, DataBlk *data)
{
    ARCA_CHECK(recordIn<qryRespBackupData>(data, HOX_QRY_RESP_BACKUP_VERSION));
    ARCA_TRY(const auto piece, nextObject(session, query));
    if (!piece)
        return endOfObjects(session, query);
    ARCA_TRY(const std::int64_t expiry, expiryOf(session, query, *piece));
    ARCA_CHECK(deliver<qryRespBackupData>(data, HOX_QRY_RESP_BACKUP_VERSION, [&](auto &record) {
        fillAnswer(record, *piece, expiry);
    }));
    query.atEnd = HOX_RC_FINISHED;
    return outcome(HOX_RC_MORE_DATA);
}

Code deliverEvent(Query &query, DataBlk *data)
{
    ARCA_CHECK(recordIn<qryRespLogData>(data, HOX_QRY_RESP_LOG_VERSION));
    ARCA_TRY(const auto event, query.log->next());
    if (!event) {
        ARCA_CHECK(deliver<qryRespLogData>(data, HOX_QRY_RESP_LOG_VERSION, [&](auto &record) {
            record = qryRespLogData{};
            record.stVersion = HOX_QRY_RESP_LOG_VERSION;
            record.unreadable = clamped(query.log->unreadable());
        }));
        data->numBytes = 0;
        return query.atEnd;
    }
    ARCA_CHECK(deliver<qryRespLogData>(data, HOX_QRY_RESP_LOG_VERSION, [&](auto &record) {
        fillAnswer(record, *event, query.log->unreadable());
    }));
    query.atEnd = HOX_RC_FINISHED;
    return outcome(HOX_RC_MORE_DATA);
}

Code deliverNext(Session &session, Query &query, DataBlk *data)
{
    if (query.objects)
        return deliverObject(session, query, data);
    if (query.log)
        return deliverEvent(query, data);
    if (query.answers.empty() && query.damage)
        return *query.damage;
    if (query.answers.empty())
        return query.atEnd;
    const auto &next = query.answers.front();
    if (const auto *piece = std::get_if<store::PieceInfo>(&next)) {
        // All answers have the name that was asked for: if one may not be read, none may.
        ARCA_TRY(const bool readable, mayRead(session, piece->description.name));
        if (!readable) {
            query.answers.clear();
            return query.atEnd;
        }
        ARCA_TRY(const std::int64_t expiry, expiryOf(session, query, *piece));
        ARCA_CHECK(deliver<qryRespBackupData>(data, HOX_QRY_RESP_BACKUP_VERSION, [&](auto &record) {
            fillAnswer(record, *piece, expiry);
        }));
    } else {
        ARCA_CHECK(deliver<qryRespMCData>(data, HOX_QRY_RESP_MC_VERSION, [&](auto &record) {
            fillAnswer(record, std::get<store::ManagementClass>(next), query.classDetail);
        }));
    }
    query.answers.pop_front();
    query.atEnd = HOX_RC_FINISHED;
    return outcome(HOX_RC_MORE_DATA);
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
        } else if (queryType == HOX_QUERY_OBJECTS) {
            ARCA_TRY(session.query,
                     listObjects(session, static_cast<const qryObjectsData *>(queryData)));
        } else if (queryType == HOX_QUERY_LOG) {
            ARCA_TRY(session.query, queryLog(session, static_cast<const qryLogData *>(queryData)));
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
        return deliverNext(session, *session.query, data);
    });
}

std::int16_t hoxEndQuery(hoxHandle_t handle)
{
    return inSession(handle, [](Session &session) -> Code {
        session.query.reset();
        return success();
    });
}
