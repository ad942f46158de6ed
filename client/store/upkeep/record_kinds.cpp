// The table of record kinds: see the header.
#include "client/store/upkeep/record_kinds.h"

#include "client/store/changes/change_outcome.h"
#include "client/store/keys/grant.h"
#include "client/store/keys/node_record.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/marks/damage.h"
#include "client/store/marks/grace.h"
#include "client/store/marks/marked_packs.h"
#include "client/store/marks/quarantine.h"
#include "client/store/nodes/access.h"
#include "client/store/nodes/policy.h"
#include "client/store/pieces/inventory.h"
#include "client/store/records/defaults.h"
#include "client/store/space/filespace.h"
#include "client/store/space/group.h"

#include <algorithm>

namespace arca::store
{

namespace
{

template <auto decode> Result<void> check(ByteView record)
{
    const auto decoded = decode(record);
    return decoded ? Result<void>() : Result<void>(decoded.error());
}

Result<void> checkDone(ByteView record)
{
    ARCA_TRY(const ByteView payload,
             unframeRecord(record, form::changeDone.kind, form::changeDone.newest));
    if (!payload.empty())
        return Error{ErrorKind::damaged, "the mark of a change is damaged"};
    return {};
}

constexpr RecordKind kKinds[] = {
    {form::access, check<decodeAccessRule>},
    {form::changePlan, check<decodeChangePlan>},
    {form::changeDone, checkDone},
    {form::managementClass, check<decodeManagementClass>},
    {form::defaults, decodeDefaults},
    {form::damage, check<decodeDamage>},
    {form::filespace, check<decodeFilespace>},
    {form::grant, check<decodeGrant>},
    {form::group, check<decodeGroup>},
    {form::recoveryHalf, check<decodeRecoveryHalf>},
    {form::node, check<decodeNodeRecord>},
    {form::object, check<decodeObjectRecord>},
    {form::outcome, check<decodeChangeOutcome>},
    {form::heldPacks, check<decodeHeldPacks>},
    {form::note, check<decodeNote>},
    {form::graceTime, check<decodeGrace>},
    {form::mark, check<parseMark>},
};

} // namespace

Result<Bytes> recordAt(const engine::Domain &domain, std::string_view blobName, Bytes stored,
                       const RecordSeal &shared)
{
    // Filespaces may be deleted without the key, by whoever removes the node.
    constexpr const RecordForm *kProven[] = {&form::changePlan, &form::group, &form::object,
                                             &form::outcome,    &form::note,  &form::mark};
    constexpr const RecordForm *kShared[] = {&form::managementClass, &form::graceTime};
    const auto isOneOf = [&](std::span<const RecordForm *const> forms) {
        return std::ranges::any_of(forms, [&](const RecordForm *form) {
            return blobName.starts_with(form->place) && blobName.ends_with(form->suffix);
        });
    };
    const RecordSeal seal = isOneOf(kProven)   ? RecordSeal(domain)
                            : isOneOf(kShared) ? shared
                                               : RecordSeal();
    ARCA_TRY(auto opened, seal.open(blobName, std::move(stored)));
    return std::move(opened.record);
}

std::span<const RecordKind> recordKinds()
{
    return kKinds;
}

std::size_t maxRecordBytesAt(std::string_view blobName)
{
    if (blobName.starts_with(form::note.place))
        return kMaxNoteBytes;
    return blobName.starts_with(form::mark.place) ? kMaxMarkBytes : kMaxRecordBytes;
}

const RecordKind *recordKindAt(std::string_view blobName)
{
    const auto found = std::ranges::find_if(kKinds, [&](const RecordKind &kind) {
        return blobName.starts_with(kind.form.place) && blobName.ends_with(kind.form.suffix);
    });
    return found == std::end(kKinds) ? nullptr : &*found;
}

} // namespace arca::store
