// Changes of several names in one step: committing, removing and making pieces inactive together,
// renaming. How they are kept whole is told in change_plan.h.
#include "client/base/text.h"
#include "client/store/node_space.h"
#include "client/store/record_forms.h"

#include <algorithm>
#include <ctime>

namespace arca::store
{

namespace
{

constexpr std::string_view kPlan = ".plan", kDone = ".done";
constexpr std::size_t kCopyBytes = std::size_t{1} << 20;

Result<void> removeBlob(blob::BlobStore &store, const std::string &name)
{
    auto opened = store.open(name);
    auto removed = opened ? store.remove(name, **opened) : Result<void>(opened.error());
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return {};
    return removed;
}

Result<ChangeId> newChangeId()
{
    Bytes random(sizeof(ChangeId));
    ChangeId id = 0;
    while (id == 0) {
        ARCA_CHECK(fillRandom(random));
        id = ByteReader(random).u64();
    }
    return id;
}

bool names(const std::vector<PieceId> &ids, PieceId id)
{
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

bool saysMore(const ObjectRecord &record)
{
    return record.described || record.origin != 0 || record.insertedAt != 0;
}

Result<void> copyStream(PieceReader &from, PieceWriter &to)
{
    Bytes buffer(kCopyBytes);
    while (!from.atEnd()) {
        ARCA_TRY(const std::size_t got, from.read(buffer));
        ARCA_CHECK(to.append(ByteView(buffer).first(got)));
    }
    ARCA_CHECK(to.finish());
    return {};
}

} // namespace

std::string NodeSpace::changeName(ChangeId change, std::string_view suffix) const
{
    return "changes/" + key_ + "/" + toHex(change) + std::string(suffix);
}

Result<bool> NodeSpace::isDone(ChangeId change)
{
    const auto mark = store_.open(changeName(change, kDone));
    if (!mark && mark.error().kind != ErrorKind::notFound)
        return mark.error();
    return static_cast<bool>(mark);
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
    ARCA_TRY(const Bytes record, blob::readWhole(store_, name, kMaxRecordBytes));
    ARCA_TRY(ChangePlan plan, decodeChangePlan(record));
    if (name != changeName(plan.id, kPlan))
        return Error{ErrorKind::damaged, "the plan in " + name + " is another one"};
    return plan;
}

Result<std::set<PieceId>> NodeSpace::beingChanged()
{
    std::set<PieceId> ids;
    ARCA_TRY(const auto plans, changeNames(kPlan));
    for (const std::string &name : plans) {
        const auto plan = readPlan(name);
        if (!plan && plan.error().kind == ErrorKind::notFound)
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
        auto plan = readPlan(name);
        if (!plan && plan.error().kind == ErrorKind::notFound)
            continue; // settled since the listing, and what is stored says all
        ARCA_CHECK(plan);
        const bool goes = names(plan->going, id), leaves = names(plan->leaving, id);
        if (!goes && !leaves)
            continue;
        ARCA_TRY(const bool done, isDone(plan->id));
        // Without its plan a mark that is gone says nothing.
        if (!done && !store_.open(name))
            return plannedFor(id);
        planned.hidesActive = planned.hidesActive || done;
        planned.hidesInactive = planned.hidesInactive || (done ? goes : leaves);
    }
    return planned;
}

Result<std::unique_ptr<blob::BlobLock>> NodeSpace::lockChanges()
{
    ARCA_TRY(auto turn, store_.lock("change-" + key_));
    // What cannot be settled now shows as it is, and is found again by the next one.
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
    const auto turn = store_.tryLock("change-" + key_);
    if (turn && *turn)
        (void)settleUnderLock();
}

Result<void> NodeSpace::settleUnderLock()
{
    ARCA_TRY(const auto plans, changeNames(kPlan));
    for (const std::string &name : plans) {
        ARCA_TRY(const ChangePlan plan, readPlan(name));
        ARCA_TRY(const bool done, isDone(plan.id));
        ARCA_CHECK(done ? finishChange(plan) : undoChange(plan));
    }
    // Their plans went before them.
    ARCA_TRY(const auto marks, changeNames(kDone));
    for (const std::string &name : marks)
        ARCA_CHECK(removeBlob(store_, name));
    return {};
}

Result<void> NodeSpace::finishChange(const ChangePlan &plan)
{
    ObjectRecords records(store_, key_);
    for (const PieceId id : plan.going) {
        ARCA_CHECK(removeEverywhere(id));
        ARCA_TRY(auto state, records.read(id));
        if (state.record.renamedTo == 0) {
            forget(id);
        } else if (state.record.goneBy == plan.id) {
            state.record.goneBy = 0;
            ARCA_CHECK(records.write(state));
        }
    }
    for (const PieceId id : plan.coming) {
        ARCA_TRY(auto state, records.read(id));
        if (state.record.shownBy != plan.id)
            continue;
        state.record.shownBy = 0;
        ARCA_CHECK(saysMore(state.record) ? records.write(state) : records.remove(id));
    }
    for (const PieceId id : plan.leaving) {
        auto active = locate(id);
        if (!active && active.error().kind != ErrorKind::notFound)
            return std::move(active).error();
        if (active)
            ARCA_CHECK(store_.remove(active->blobName, *active->blob));
    }
    ARCA_CHECK(removeBlob(store_, changeName(plan.id, kPlan)));
    return removeBlob(store_, changeName(plan.id, kDone));
}

Result<void> NodeSpace::undoChange(const ChangePlan &plan)
{
    ObjectRecords records(store_, key_);
    for (const PieceId id : plan.coming) {
        ARCA_TRY(const auto state, records.read(id));
        if (state.record.shownBy != plan.id)
            continue; // it was not stored yet: its record comes first
        auto located = locate(id);
        if (!located && located.error().kind != ErrorKind::notFound)
            return std::move(located).error();
        if (located)
            ARCA_CHECK(store_.remove(located->blobName, *located->blob));
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
    for (const PieceId id : plan.leaving) {
        // The copy, never the only one.
        const auto active = locate(id);
        if (!active && active.error().kind != ErrorKind::notFound)
            return active.error();
        if (active)
            ARCA_CHECK(removeBlob(store_, inactiveNameOf(id)));
    }
    return removeBlob(store_, changeName(plan.id, kPlan));
}

/// The steps up to the mark. `renamed`: the one piece that comes is the one that goes.
Result<void> NodeSpace::prepareChange(const ChangePlan &plan, std::span<const Sent> pieces,
                                      bool renamed)
{
    ObjectRecords records(store_, key_);
    ARCA_CHECK(blob::putWhole(store_, changeName(plan.id, kPlan), encodeChangePlan(plan)));
    ObjectRecord fresh;
    if (renamed) {
        const PieceId id = plan.going.front();
        ARCA_TRY(const Located located, locateShown(id));
        ARCA_TRY(auto state, records.read(id));
        fresh.origin = state.record.first();
        fresh.insertedAt = located.info.insertedAt;
        fresh.describe(located.info.description);
        state.record.renamedTo = plan.coming.front();
        state.record.goneBy = plan.id;
        ARCA_CHECK(records.write(state));
    }
    for (const PieceId id : plan.leaving)
        ARCA_CHECK(copyToInactive(id));
    fresh.shownBy = plan.id;
    for (const PieceId id : plan.coming) {
        fresh.id = id;
        ARCA_CHECK(records.write({0, fresh}));
    }
    for (const Sent &sent : pieces) {
        ARCA_TRY(const auto known, filespace(sent.piece->name().filespace));
        if (!known || known->registration != sent.registration)
            return Error{ErrorKind::noFilespace, "the filespace " +
                                                     printable(sent.piece->name().filespace) +
                                                     " was deleted meanwhile"};
        ARCA_CHECK(sent.piece->commit());
    }
    return blob::putWhole(store_, changeName(plan.id, kDone),
                          frameRecord(form::changeDone.kind, form::changeDone.newest, {}));
}

Result<void> NodeSpace::copyToInactive(PieceId id)
{
    ARCA_TRY(const Located located, locate(id));
    ARCA_TRY(const auto copy, store_.begin());
    Bytes buffer(kCopyBytes);
    for (std::uint64_t offset = 0; offset < located.blob->size();) {
        ARCA_TRY(const std::size_t got, located.blob->read(offset, buffer));
        if (got == 0)
            return Error{ErrorKind::damaged, "the blob " + located.blobName + " was cut"};
        ARCA_CHECK(copy->append(ByteView(buffer).first(got)));
        offset += got;
    }
    ARCA_TRY(const Bytes note, encodeInactiveNote(domain_->manifestKey(), id, std::time(nullptr)));
    ARCA_CHECK(copy->append(note));
    ARCA_CHECK(copy->commit(inactiveNameOf(id)));
    return proveCopy(inactiveNameOf(id));
}

/// A copy that is soon the only one must be the piece, whatever the disk or the memory made of what
/// was read.
Result<void> NodeSpace::proveCopy(const std::string &blobName)
{
    ARCA_TRY(const auto blob, store_.open(blobName));
    ARCA_TRY(const Manifest manifest, readManifest(*blob, domain_->manifestKey()));
    ManifestRuns runs(*blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return {};
    }
}

Result<void> NodeSpace::change(const Step &step, bool renamed)
{
    ARCA_TRY(const auto turn, lockChanges());
    // An old plan that names a piece, too, would hide it.
    if (!step.deactivations.empty())
        ARCA_CHECK(settleUnderLock());
    ChangePlan plan;
    ARCA_TRY(plan.id, newChangeId());
    for (const Sent &sent : step.pieces)
        plan.coming.push_back(sent.piece->id());
    for (const PieceId id : step.removals) {
        ARCA_TRY(const Located located, locateShown(id));
        // Whoever names a piece to rename it means it under that name, not where it went since.
        if (renamed && located.info.id != id)
            return Error{ErrorKind::notFound, "the object was renamed meanwhile"};
        plan.going.push_back(located.info.id);
    }
    for (const PieceId id : step.deactivations) {
        ARCA_TRY(const Located located, locateShown(id));
        if (!located.info.isActive())
            return Error{ErrorKind::notFound, "the object was made inactive meanwhile"};
        // What goes as well, goes.
        if (!names(plan.going, located.info.id) && !names(plan.leaving, located.info.id))
            plan.leaving.push_back(located.info.id);
    }
    auto prepared = prepareChange(plan, step.pieces, renamed);
    if (!prepared) {
        // The mark first, should it be there against all odds: without it nothing shows.
        (void)removeBlob(store_, changeName(plan.id, kDone));
        (void)undoChange(plan);
        return prepared;
    }
    (void)finishChange(plan);
    return {};
}

Result<void> NodeSpace::commitTogether(const Step &step)
{
    if (step.pieces.empty())
        return blob::withReserve(store_, [&] { return change(step, false); });
    return change(step, false);
}

Result<std::unique_ptr<PieceWriter>> NodeSpace::copyPiece(PieceId id, PieceDescription description)
{
    description.node = node_;
    ARCA_TRY(const Place place, freePlace(description.name));
    ARCA_TRY(const Located original, locateShown(id));
    auto copy =
        PieceWriter::copyOf(*domain_, *original.blob, place.blobName, place.id, description);
    if (copy || copy.error().kind != ErrorKind::conflict)
        return copy;
    ARCA_TRY(auto piece, beginPiece(std::move(description)));
    ARCA_TRY(const auto reader, openPiece(id));
    ARCA_CHECK(copyStream(*reader, *piece));
    return piece;
}

Result<void> NodeSpace::rename(const ObjectName &from, const ObjectName &to)
{
    ARCA_TRY(const auto found, find(from));
    ARCA_TRY(const auto known, filespace(to.filespace));
    if (!found || !known)
        return Error{ErrorKind::notFound, "there is no object " + printable(from.joined())};
    PieceDescription description = found->description;
    description.name = to;
    ARCA_TRY(const auto piece, copyPiece(found->id, std::move(description)));
    const Sent sent{piece.get(), known->registration};
    return change({std::span(&sent, 1), std::span(&found->id, 1), {}}, true);
}

} // namespace arca::store
