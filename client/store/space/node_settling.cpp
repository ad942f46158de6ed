// Settling changes: what was decided of them, and finishing or undoing what a process left. Why
// each step is safe, however late it comes, is told in change_plan.h.
#include "client/base/text.h"
#include "client/store/changes/coming_piece.h"
#include "client/store/pieces/manifest_place.h"
#include "client/store/records/record_forms.h"
#include "client/store/space/node_space.h"

#include <algorithm>
#include <ctime>

namespace arca::store
{

namespace
{

constexpr std::string_view kPlan = ".plan", kDone = ".done";

/// Whoever took it away before may have died before that was durable.
Result<void> removeIfThere(blob::BlobStore &store, const std::string &name)
{
    auto opened = store.open(name);
    auto removed = opened ? store.remove(name, **opened) : Result<void>(opened.error());
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return store.sync(name);
    return removed;
}

Result<bool> isThere(blob::BlobStore &store, const std::string &name)
{
    const auto opened = store.open(name);
    if (!opened && opened.error().kind != ErrorKind::notFound)
        return opened.error();
    return static_cast<bool>(opened);
}

bool names(const std::vector<PieceId> &ids, PieceId id)
{
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

/// The record of a piece, as another process may have written it (object_record.h).
Result<void> syncRecord(blob::BlobStore &store, const std::string &key, PieceId id)
{
    return store.sync("objects/" + key + "/" + toHex(id) + "/");
}

/// Keeps the first failure while the rest is tried.
void note(Result<void> &first, Result<void> step)
{
    if (!step && first)
        first = std::move(step);
}

} // namespace

std::string NodeSpace::changeName(ChangeId change, std::string_view suffix) const
{
    return "changes/" + key_ + "/" + toHex(change) + std::string(suffix);
}

Result<void> NodeSpace::putPlan(const ChangePlan &plan)
{
    return putRecord(changeName(plan.id, kPlan), encodeChangePlan(plan));
}

Result<Decision> NodeSpace::decide(const ChangePlan &plan, Decision wanted)
{
    // A mark without an outcome is a decision of a release that knows no outcomes.
    ARCA_TRY(const bool marked, hasMark(plan.id));
    ARCA_TRY(const Decision decided,
             Outcomes(*domain_).decide(plan, marked ? Decision::done : wanted));
    if (decided == Decision::done && !namesCarryChanges() && !marked) {
        auto put = putRecord(changeName(plan.id, kDone),
                             frameRecord(form::changeDone.kind, form::changeDone.newest, {}));
        if (!put && put.error().kind != ErrorKind::exists)
            return std::move(put).error();
    }
    return decided;
}

Result<bool> NodeSpace::hasMark(ChangeId change)
{
    return namesCarryChanges() ? Result<bool>(false) : isThere(store_, changeName(change, kDone));
}

Result<bool> NodeSpace::isDone(ChangeId change)
{
    ARCA_TRY(const auto outcome, Outcomes(*domain_).find(change));
    return outcome ? Result<bool>(outcome->decision == Decision::done) : hasMark(change);
}

Result<bool> NodeSpace::wasStored(PieceId id, bool waited)
{
    ARCA_TRY(const auto state, ObjectRecords(*domain_).read(id));
    if (state.record.shownBy != 0)
        return isDone(state.record.shownBy);
    // The record of a change that was given up goes, that of one that is done stays.
    return !waited || state.number != 0;
}

/// Whether the copy that a change made of a piece is the piece now. When neither plan nor outcome
/// is there, the change is settled.
Result<bool> NodeSpace::holdsCopy(ChangeId change)
{
    for (int look = 0; look < 2; ++look) {
        ARCA_TRY(const auto outcome, Outcomes(*domain_).find(change));
        if (outcome)
            return outcome->decision == Decision::done;
        if (look == 0) {
            ARCA_TRY(const bool planned, isThere(store_, changeName(change, kPlan)));
            if (planned)
                return false;
        }
    }
    return true;
}

Result<std::vector<std::string>> NodeSpace::changeNames(std::string_view suffix) const
{
    std::vector<std::string> found;
    ARCA_CHECK(store_.list("changes/" + key_ + "/", [&](const std::string &name) {
        if (name.ends_with(suffix))
            found.push_back(name);
        return true;
    }));
    return found;
}

Result<ChangePlan> NodeSpace::readPlan(const std::string &name) const
{
    ARCA_TRY(Bytes stored, blob::readWhole(store_, name, kMaxRecordBytes));
    ARCA_TRY(const auto opened, inRecord(name, RecordSeal(*domain_).open(name, std::move(stored))));
    ARCA_TRY(ChangePlan plan, inRecord(name, decodeChangePlan(opened.record)));
    if (name != changeName(plan.id, kPlan))
        return Error{ErrorKind::damaged, "the plan in " + name + " is another one"};
    return plan;
}

namespace
{

/// A plan that is gone was settled since the listing, and what is stored says all. One that cannot
/// be read and was not decided hides nothing: what comes with it is judged by its own record.
bool isPassedOver(const Error &error)
{
    return error.kind == ErrorKind::notFound || isUnreadable(error);
}

} // namespace

/// A plan that cannot be read must not hold up every piece of the node. Once the change is decided,
/// its outcome says the same.
Result<ChangePlan> NodeSpace::planOf(const std::string &name) const
{
    auto plan = readPlan(name);
    if (plan || !isUnreadable(plan.error()))
        return plan;
    const std::size_t from = name.rfind('/') + 1;
    const auto digits = fromHex(std::string_view(name).substr(from, name.rfind('.') - from));
    if (!digits || digits->size() != sizeof(ChangeId))
        return plan;
    ChangeId change = 0;
    for (const std::byte byte : *digits)
        change = change << 8 | std::to_integer<ChangeId>(byte);
    auto outcome = Outcomes(*domain_).find(change);
    return outcome && *outcome ? std::move((*outcome)->plan) : std::move(plan);
}

Result<ChangePlan> NodeSpace::planOfChange(ChangeId change) const
{
    return planOf(changeName(change, kPlan));
}

Result<std::set<PieceId>> NodeSpace::beingChanged()
{
    std::set<PieceId> ids;
    ARCA_TRY(const auto plans, changeNames(kPlan));
    for (const std::string &name : plans) {
        const auto plan = planOf(name);
        if (!plan && isPassedOver(plan.error()))
            continue;
        ARCA_CHECK(plan);
        for (const auto *some : {&plan->coming, &plan->going, &plan->leaving})
            ids.insert(some->begin(), some->end());
    }
    return ids;
}

Result<NodeSpace::Planned> NodeSpace::plannedFor(PieceId id)
{
    Planned planned;
    ARCA_TRY(const auto plans, changeNames(kPlan));
    for (const std::string &name : plans) {
        auto plan = planOf(name);
        if (!plan && isPassedOver(plan.error()))
            continue;
        ARCA_CHECK(plan);
        const bool goes = names(plan->going, id), leaves = names(plan->leaving, id);
        if (!goes && !leaves)
            continue;
        ARCA_TRY(const bool done, isDone(plan->id));
        // The outcome may be missing only because the change was settled since; if the plan is gone
        // too, start again.
        if (!done && !store_.open(name))
            return plannedFor(id);
        // A copy that carries its change in its name is judged by that.
        const bool copyIsEarly = leaves && !done && !namesCarryChanges();
        planned.hidesActive = planned.hidesActive || done;
        planned.hidesInactive = planned.hidesInactive || (done && goes) || copyIsEarly;
    }
    return planned;
}

Result<std::unique_ptr<blob::BlobLock>> NodeSpace::lockChanges()
{
    ARCA_TRY(auto turn, store_.lock("change-" + key_, "changing pieces"));
    // A leftover change that cannot be settled now keeps its present visibility; the next holder of
    // this lock retries.
    (void)settleUnderLock();
    return turn;
}

void NodeSpace::settleChanges()
{
    bool some = false;
    (void)store_.list("changes/" + key_ + "/", [&](const std::string &) {
        some = true;
        return false;
    });
    if (!some)
        return;
    const auto turn = store_.tryLock("change-" + key_, "settling changes");
    if (turn && *turn)
        (void)settleUnderLock();
}

/// Settles every change that it finds; one that cannot be settled is in no other one's way.
Result<void> NodeSpace::settleUnderLock()
{
    Result<void> first;
    ARCA_TRY(const auto plans, changeNames(kPlan));
    for (const std::string &name : plans)
        note(first, settle(name));
    if (namesCarryChanges())
        return first;
    // Their plans went before them.
    ARCA_TRY(const auto marks, changeNames(kDone));
    for (const std::string &name : marks) {
        const std::string plan = name.substr(0, name.size() - kDone.size()) + std::string(kPlan);
        if (!store_.open(plan))
            note(first, removeIfThere(store_, name));
    }
    return first;
}

Result<void> NodeSpace::settle(const std::string &planName)
{
    const auto plan = planOf(planName);
    if (!plan && plan.error().kind == ErrorKind::notFound)
        return {}; // another process was faster
    ARCA_CHECK(plan);
    ARCA_TRY(const Decision decided, decide(*plan, Decision::undone));
    return decided == Decision::done ? finishChange(*plan) : undoChange(*plan, Maker::other);
}

/// What goes with a change leaves all active places first, and then the inactive ones, whose
/// directories are so listed once for all of it.
Result<void> NodeSpace::finishGoing(const ChangePlan &plan)
{
    ObjectRecords records(*domain_);
    std::vector<PieceId> going = plan.going, moved;
    std::ranges::sort(going);
    const std::int64_t now = std::time(nullptr);
    for (const PieceId id : going) {
        ARCA_TRY(auto state, records.read(id));
        const bool renamed = state.record.renamedTo != 0 &&
                             (state.record.goneBy == 0 || state.record.goneBy == plan.id);
        if (state.record.renamedTo != 0 && !renamed) {
            // Left by a renaming that was undone: taken for one, the piece would be gone for good.
            state.record.renamedTo = 0;
            state.record.goneBy = 0;
            ARCA_CHECK(records.write(state));
            ARCA_TRY(state, records.read(id));
        }
        if (renamed)
            moved.push_back(id);
        // What was renamed lives on under its new name: the old manifest is not for bringing back.
        ARCA_CHECK(removeActive(id, renamed ? 0 : now));
    }
    blob::ListedDirectory inactive(store_);
    for (const PieceId id : going) {
        const bool renamed = names(moved, id);
        ARCA_CHECK(removeCopies(id, renamed ? 0 : now, inactive));
        if (!renamed && !keepsRemoved())
            forget(id);
        if (!renamed)
            continue;
        ARCA_TRY(auto state, records.read(id));
        if (state.record.goneBy == plan.id) {
            state.record.goneBy = 0;
            ARCA_CHECK(records.write(state));
        } else {
            ARCA_CHECK(syncRecord(store_, key_, id));
        }
    }
    return {};
}

/// Plan and outcome go last, and only when every step of the change survives a loss of power: one
/// that was found done already may be the work of a process that died before its sync.
Result<void> NodeSpace::finishChange(const ChangePlan &plan)
{
    ObjectRecords records(*domain_);
    ARCA_CHECK(finishGoing(plan));
    for (const PieceId id : plan.leaving)
        ARCA_CHECK(leaveActivePlace(id, copyNameOf(id, plan.id)));
    for (const PieceId id : plan.coming) {
        // Its place is free now, if it comes in the place of another one.
        ARCA_CHECK(bringIn(id, plan.id));
        if (replacesOne(plan, id))
            ARCA_CHECK(store_.sync(comingPrefixOf(id)));
        ARCA_TRY(auto state, records.read(id));
        if (state.record.shownBy != plan.id) {
            ARCA_CHECK(syncRecord(store_, key_, id));
            continue;
        }
        // Written, never removed: a process that does this late would take away what came since.
        state.record.shownBy = 0;
        ARCA_CHECK(records.write(state));
    }
    ARCA_CHECK(removeIfThere(store_, changeName(plan.id, kPlan)));
    if (namesCarryChanges() && !plan.leaving.empty())
        return {}; // the copies go by the outcome
    ARCA_CHECK(Outcomes(*domain_).forget(plan.id));
    return namesCarryChanges() ? Result<void>() : removeIfThere(store_, changeName(plan.id, kDone));
}

/// The last step of making a piece inactive: only with its copy proven.
Result<void> NodeSpace::leaveActivePlace(PieceId id, const std::string &copyName)
{
    auto active = locate(id, Unclear::another);
    if (active)
        ARCA_CHECK(proveCopy(copyName));
    const bool isFound = static_cast<bool>(active);
    // There are two active places after a death between the last steps of an earlier change.
    for (int attempt = 0; active; active = locate(id, Unclear::another)) {
        if (++attempt > kMaxPlaces)
            return Error{ErrorKind::io, "the blob " + active->blobName + " cannot be removed"};
        ARCA_TRY(const bool brought, bringInIfDone(active->blobName));
        auto removed = brought ? Result<void>() : store_.remove(active->blobName, *active->blob);
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return removed;
    }
    if (active.error().kind != ErrorKind::notFound)
        return active.error();
    return isFound ? Result<void>() : store_.sync(prefixOf(id));
}

/// `maker`: who undoes. The maker itself will publish nothing more, so that its records may go.
Result<void> NodeSpace::undoChange(const ChangePlan &plan, Maker maker)
{
    ObjectRecords records(*domain_);
    for (const PieceId id : plan.coming) {
        ARCA_CHECK(takeBack(id, plan.id));
        ARCA_TRY(const auto state, records.read(id));
        if (maker == Maker::self && state.record.shownBy == plan.id)
            ARCA_CHECK(records.remove(id));
    }
    for (const PieceId id : plan.going) {
        ARCA_TRY(auto state, records.read(id));
        if (state.record.goneBy != plan.id)
            continue;
        state.record.goneBy = 0;
        state.record.renamedTo = 0;
        ARCA_CHECK(records.write(state));
    }
    for (const PieceId id : plan.leaving)
        ARCA_CHECK(dropCopy(id, plan.id));
    return removeIfThere(store_, changeName(plan.id, kPlan));
}

/// Removes the manifest of a piece that came with a change that is undone. Its record says so
/// before the manifest is there; without it there is nothing.
Result<void> NodeSpace::takeBack(PieceId id, ChangeId change)
{
    // By the change in its name, also when it cannot be read.
    ARCA_TRY(const auto coming, comingUnder(prefixOf(id)));
    for (const std::string &name : coming)
        if (changeIn(name) == change)
            ARCA_CHECK(removeIfThere(store_, name));
    ARCA_TRY(const auto state, ObjectRecords(*domain_).read(id));
    if (state.record.shownBy != change)
        return {};
    auto located = locate(id, Unclear::another);
    if (!located && located.error().kind == ErrorKind::notFound)
        return store_.sync(prefixOf(id)); // its record, which hides it, may go
    if (!located)
        return located.error();
    auto removed = store_.remove(located->blobName, *located->blob);
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return {};
    return removed;
}

/// Removes the copy that a change made of a piece, when the change is undone.
Result<void> NodeSpace::dropCopy(PieceId id, ChangeId change)
{
    // Whatever became of the outcome since: the only copy is never taken away.
    const auto active = locate(id, Unclear::another);
    if (!active && active.error().kind == ErrorKind::notFound)
        return {};
    if (!active)
        return active.error();
    return removeIfThere(store_, copyNameOf(id, change));
}

Result<void> NodeSpace::tidyOutcomes()
{
    if (!namesCarryChanges())
        return {};
    ARCA_TRY(const auto turn, lockChanges());
    ARCA_TRY(const auto kept, Outcomes(*domain_).list());
    Result<void> first;
    for (const ChangeOutcome &outcome : kept)
        note(first, outcome.decision == Decision::done ? forgetIfUnused(outcome.plan)
                                                       : clearUndone(outcome.plan));
    return first;
}

/// Forgets the outcome of a change that is settled when none of its copies is there.
Result<void> NodeSpace::forgetIfUnused(const ChangePlan &plan)
{
    ARCA_TRY(bool used, isThere(store_, changeName(plan.id, kPlan)));
    for (std::size_t i = 0; i < plan.leaving.size() && !used; ++i) {
        ARCA_TRY(used, isThere(store_, copyNameOf(plan.leaving[i], plan.id)));
    }
    if (used)
        return {};
    ARCA_CHECK(store_.sync(changeName(plan.id, kPlan)));
    for (const PieceId id : plan.leaving)
        ARCA_CHECK(store_.sync(copyNameOf(id, plan.id)));
    return Outcomes(*domain_).forget(plan.id);
}

/// What a late maker published of a change that was undone before.
Result<void> NodeSpace::clearUndone(const ChangePlan &plan)
{
    Result<void> first;
    for (const PieceId id : plan.leaving)
        note(first, dropCopy(id, plan.id));
    for (const PieceId id : plan.coming)
        note(first, takeBack(id, plan.id));
    return first;
}

} // namespace arca::store
