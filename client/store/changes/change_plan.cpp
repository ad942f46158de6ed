// The stored form of a change: see the header.
#include "client/store/changes/change_plan.h"

#include "client/base/text.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::changePlan.kind;
constexpr std::uint32_t kVersion = form::changePlan.newest;

} // namespace

void appendPlan(ByteWriter &payload, const ChangePlan &plan)
{
    payload.u64(plan.id);
    for (const auto *ids : {&plan.coming, &plan.going, &plan.leaving})
        payload.u32(static_cast<std::uint32_t>(ids->size()));
    for (const auto *ids : {&plan.coming, &plan.going, &plan.leaving})
        for (const PieceId id : *ids)
            payload.u64(id);
}

ChangePlan takePlan(ByteReader &reader, PlanForm form)
{
    ChangePlan plan;
    plan.id = reader.u64();
    std::uint32_t counts[3] = {};
    for (std::size_t i = 0; i < (form == PlanForm::withLeaving ? 3U : 2U); ++i)
        counts[i] = reader.u32();
    std::vector<PieceId> *const lists[] = {&plan.coming, &plan.going, &plan.leaving};
    for (std::size_t list = 0; list < 3; ++list)
        for (std::uint32_t i = 0; i < counts[list] && reader.ok(); ++i)
            lists[list]->push_back(reader.u64());
    return plan;
}

Bytes encodeChangePlan(const ChangePlan &plan)
{
    ByteWriter payload;
    appendPlan(payload, plan);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<ChangePlan> decodeChangePlan(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion));
    ByteReader reader(payload);
    const bool first = ByteReader(record.subspan(8)).u32() == 1;
    ChangePlan plan = takePlan(reader, first ? PlanForm::first : PlanForm::withLeaving);
    if (!reader.ok() || reader.remaining() != 0 || plan.id == 0)
        return Error{ErrorKind::damaged, "the plan of a change is damaged"};
    return plan;
}

} // namespace arca::store
