// Deciding what becomes of a change: see the header.
#include "client/store/changes/change_outcome.h"

#include "client/base/text.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::outcome.kind;
constexpr std::uint32_t kVersion = form::outcome.newest;

} // namespace

Bytes encodeChangeOutcome(const ChangeOutcome &outcome)
{
    ByteWriter payload;
    payload.u16(static_cast<std::uint16_t>(outcome.decision));
    appendPlan(payload, outcome.plan);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<ChangeOutcome> decodeChangeOutcome(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion));
    ByteReader reader(payload);
    ChangeOutcome outcome;
    const std::uint16_t decision = reader.u16();
    outcome.decision = static_cast<Decision>(decision);
    outcome.plan = takePlan(reader);
    if (!reader.ok() || reader.remaining() != 0 || outcome.plan.id == 0 ||
        (decision != 1 && decision != 2))
        return Error{ErrorKind::damaged, "the outcome of a change is damaged"};
    return outcome;
}

std::string Outcomes::nameOf(ChangeId change) const
{
    return prefix_ + toHex(change);
}

Result<Decision> Outcomes::decide(const ChangePlan &plan, Decision wanted)
{
    const std::string name = nameOf(plan.id);
    ARCA_TRY(const Bytes sealed, seal_.seal(name, encodeChangeOutcome({wanted, plan})));
    const auto put = blob::putWhole(store_, name, sealed);
    if (put)
        return wanted;
    // Also when it failed in another way: the name may be there, of this process or of another one,
    // and then it is decided.
    ARCA_TRY(const auto found, find(plan.id));
    if (!found)
        return put.error();
    ARCA_CHECK(store_.sync(name));
    return found->decision;
}

Result<std::optional<ChangeOutcome>> Outcomes::find(ChangeId change)
{
    const std::string name = nameOf(change);
    auto stored = blob::readWhole(store_, name, kMaxRecordBytes);
    if (!stored && stored.error().kind == ErrorKind::notFound)
        return std::optional<ChangeOutcome>();
    ARCA_CHECK(stored);
    ARCA_TRY(const auto opened, seal_.open(name, std::move(stored).value()));
    ARCA_TRY(ChangeOutcome outcome, inRecord(name, decodeChangeOutcome(opened.record)));
    if (outcome.plan.id != change)
        return Error{ErrorKind::damaged, "the outcome in " + name + " is another change's"};
    return std::optional(std::move(outcome));
}

Result<std::vector<ChangeOutcome>> Outcomes::list()
{
    std::vector<ChangeId> changes;
    ARCA_CHECK(store_.list(prefix_, [&](const std::string &name) {
        const auto digits = fromHex(std::string_view(name).substr(prefix_.size()));
        ChangeId change = 0;
        for (const std::byte digit : digits ? *digits : Bytes())
            change = change << 8 | std::to_integer<ChangeId>(digit);
        changes.push_back(change);
        return true;
    }));
    std::vector<ChangeOutcome> outcomes;
    for (const ChangeId change : changes) {
        auto found = find(change);
        if (!found && !isUnreadable(found.error()))
            return std::move(found).error();
        if (found && *found)
            outcomes.push_back(std::move(**found));
    }
    return outcomes;
}

Result<void> Outcomes::forget(ChangeId change)
{
    auto opened = store_.open(nameOf(change));
    auto removed =
        opened ? store_.remove(nameOf(change), **opened) : Result<void>(std::move(opened).error());
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return {};
    return removed;
}

} // namespace arca::store
