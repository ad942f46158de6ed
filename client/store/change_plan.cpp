// The stored form of a change: see the header.
#include "client/store/change_plan.h"

#include "client/store/record_forms.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::changePlan.kind;
constexpr std::uint32_t kVersion = form::changePlan.newest;

} // namespace

Bytes encodeChangePlan(const ChangePlan &plan)
{
    ByteWriter payload;
    payload.u64(plan.id);
    for (const auto *ids : {&plan.coming, &plan.going, &plan.leaving})
        payload.u32(static_cast<std::uint32_t>(ids->size()));
    for (const auto *ids : {&plan.coming, &plan.going, &plan.leaving})
        for (const PieceId id : *ids)
            payload.u64(id);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<ChangePlan> decodeChangePlan(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion));
    ByteReader reader(payload);
    ChangePlan plan;
    plan.id = reader.u64();
    const std::uint32_t coming = reader.u32(), going = reader.u32();
    const std::uint32_t leaving = ByteReader(record.subspan(8)).u32() >= 2 ? reader.u32() : 0;
    for (std::uint32_t i = 0; i < coming && reader.ok(); ++i)
        plan.coming.push_back(reader.u64());
    for (std::uint32_t i = 0; i < going && reader.ok(); ++i)
        plan.going.push_back(reader.u64());
    for (std::uint32_t i = 0; i < leaving && reader.ok(); ++i)
        plan.leaving.push_back(reader.u64());
    if (!reader.ok() || reader.remaining() != 0 || plan.id == 0)
        return Error{ErrorKind::damaged, "the plan of a change is damaged"};
    return plan;
}

} // namespace arca::store
