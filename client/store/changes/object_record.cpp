// What became of a piece: see the header.
#include "client/store/changes/object_record.h"

#include "client/base/text.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::object.kind;
constexpr std::uint32_t kVersion = form::object.newest;

} // namespace

void ObjectRecord::describe(const PieceDescription &as)
{
    described = true;
    owner = as.owner;
    managementClass = as.managementClass;
    info = as.info;
}

void ObjectRecord::applyTo(PieceInfo &piece) const
{
    if (insertedAt != 0)
        piece.insertedAt = insertedAt;
    if (!described)
        return;
    piece.description.owner = owner;
    piece.description.managementClass = managementClass;
    piece.description.info = info;
}

Bytes encodeObjectRecord(const ObjectRecord &record)
{
    ByteWriter payload;
    for (const std::uint64_t number : {record.id, record.origin, record.renamedTo, record.shownBy,
                                       record.goneBy, static_cast<PieceId>(record.insertedAt)})
        payload.u64(number);
    payload.u16(record.described ? 1 : 0);
    for (const std::string *text : {&record.owner, &record.managementClass, &record.info})
        payload.text(*text);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<ObjectRecord> decodeObjectRecord(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    ObjectRecord record;
    for (std::uint64_t *number :
         {&record.id, &record.origin, &record.renamedTo, &record.shownBy, &record.goneBy})
        *number = reader.u64();
    record.insertedAt = static_cast<std::int64_t>(reader.u64());
    record.described = reader.u16() != 0;
    for (std::string *text : {&record.owner, &record.managementClass, &record.info})
        *text = reader.text();
    if (!reader.ok() || record.id == 0)
        return Error{ErrorKind::damaged, "the record of an object is damaged"};
    return record;
}

NumberedRecord ObjectRecords::recordOf(PieceId id)
{
    return {store_, prefix_ + toHex(id), seal_};
}

Result<ObjectRecords::State> ObjectRecords::read(PieceId id)
{
    NumberedRecord record = recordOf(id);
    ARCA_TRY(const auto latest, record.latest());
    State state;
    state.record.id = id;
    if (!latest)
        return state;
    state.number = latest->number;
    ARCA_TRY(state.record,
             inRecord(record.nameOf(latest->number), decodeObjectRecord(latest->bytes)));
    if (state.record.id != id)
        return Error{ErrorKind::damaged, "the record of the object " + toHex(id) +
                                             " is another one than its place says"};
    return state;
}

Result<void> ObjectRecords::write(const State &next)
{
    return recordOf(next.record.id).write(next.number, encodeObjectRecord(next.record));
}

Result<void> ObjectRecords::remove(PieceId id)
{
    return recordOf(id).remove();
}

} // namespace arca::store
