// Groups of pieces: see the header.
#include "client/store/space/group.h"

#include "client/base/text.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::group.kind;
constexpr std::uint32_t kVersion = form::group.newest;
constexpr int kMaxAttempts = 100;

} // namespace

Bytes encodeGroup(const Group &group)
{
    ByteWriter payload;
    payload.u64(group.leader);
    payload.u16(group.deleted ? 1 : 0);
    payload.text(group.tag);
    payload.u32(static_cast<std::uint32_t>(group.members.size()));
    for (const PieceId member : group.members)
        payload.u64(member);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<Group> decodeGroup(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion));
    ByteReader reader(payload);
    Group group;
    group.leader = reader.u64();
    group.deleted = reader.u16() != 0;
    group.tag = reader.text();
    const std::uint32_t members = reader.u32();
    for (std::uint32_t i = 0; i < members && reader.ok(); ++i)
        group.members.push_back(reader.u64());
    if (!reader.ok() || group.leader == 0 || members > kMaxGroupMembers)
        return Error{ErrorKind::damaged, "the record of a group is damaged"};
    return group;
}

NumberedRecord Groups::recordOf(PieceId leader)
{
    return {store_, prefix_ + toHex(leader), seal_};
}

/// A leader without a record leads none, as one whose group was deleted.
Result<Groups::State> Groups::read(PieceId leader)
{
    State state;
    state.group.deleted = true;
    NumberedRecord record = recordOf(leader);
    ARCA_TRY(const auto latest, record.latest());
    if (!latest)
        return state;
    state.number = latest->number;
    ARCA_TRY(state.group, inRecord(record.nameOf(latest->number), decodeGroup(latest->bytes)));
    if (state.group.leader != leader)
        return Error{ErrorKind::damaged, "the record of the group of " + toHex(leader) +
                                             " is another one than its place says"};
    return state;
}

Result<Group> Groups::find(PieceId leader)
{
    ARCA_TRY(State state, read(leader));
    if (state.group.deleted)
        return Error{ErrorKind::notFound, "the object " + toHex(leader) + " leads no group"};
    return std::move(state.group);
}

Result<void> Groups::make(const Group &group)
{
    const Error known{ErrorKind::exists,
                      "the object " + toHex(group.leader) + " leads a group already"};
    ARCA_TRY(const State before, read(group.leader));
    if (!before.group.deleted)
        return known;
    auto written = recordOf(group.leader).write(before.number, encodeGroup(group));
    if (!written && written.error().kind == ErrorKind::conflict)
        return known;
    return written;
}

Result<void> Groups::change(PieceId leader, const std::function<Result<void>(Group &)> &change)
{
    for (int attempt = 0;; ++attempt) {
        ARCA_TRY(State state, read(leader));
        if (state.group.deleted)
            return Error{ErrorKind::notFound, "the object " + toHex(leader) + " leads no group"};
        ARCA_CHECK(change(state.group));
        auto written = recordOf(leader).write(state.number, encodeGroup(state.group));
        if (written || written.error().kind != ErrorKind::conflict || attempt == kMaxAttempts)
            return written;
    }
}

} // namespace arca::store
