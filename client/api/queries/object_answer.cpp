// Filling in what is known of an object.
#include "client/api/queries/object_answer.h"

#include "client/api/queries/answer_record.h"

namespace arca::api
{

namespace
{

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

} // namespace

Answer<void> ObjectAnswer::expectRecord(DataBlk *data)
{
    ARCA_CHECK(recordIn<qryRespBackupData>(data, HOX_QRY_RESP_BACKUP_VERSION));
    return {};
}

Answer<void> ObjectAnswer::deliver(Session &session, DataBlk *data, const store::PieceInfo &piece)
{
    ARCA_TRY(const std::int64_t expiry, expiryOf(session, piece));
    return api::deliver<qryRespBackupData>(data, HOX_QRY_RESP_BACKUP_VERSION, [&](auto &record) {
        fillAnswer(record, piece, expiry);
    });
}

/// Returns the time (seconds since 1970) until which an inactive object's class keeps it; 0: for
/// ever, or the object is active.
Answer<std::int64_t> ObjectAnswer::expiryOf(Session &session, const store::PieceInfo &piece)
{
    constexpr std::int64_t kDay = 86400;
    if (piece.isActive())
        return std::int64_t{0};
    const std::string &name = piece.description.managementClass;
    auto known = daysKept_.find(name);
    if (known == daysKept_.end()) {
        const auto found =
            session.repository->policy().find(name, store::Policy::Retired::included);
        // As long as the class cannot be read, nothing expires by it.
        if (!found && !isUnreadable(found.error()))
            return Refusal(found.error());
        const std::uint16_t days = found && *found ? (*found)->daysKept : store::kNoLimit;
        known = daysKept_.emplace(name, days).first;
    }
    return known->second == store::kNoLimit ? 0 : piece.inactiveAt + known->second * kDay;
}

} // namespace arca::api
