// Changes of several names in one step: committing and removing pieces together, renaming. How they
// are kept whole is told in change_plan.h.
#include "client/base/text.h"
#include "client/store/node_space.h"

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
    std::vector<std::string> names;
    ARCA_CHECK(store_.list("changes/" + key_ + "/", [&](const std::string &name) {
        names.push_back(name);
        return true;
    }));
    for (const std::string &name : names) {
        if (!name.ends_with(kPlan))
            continue;
        ARCA_TRY(const Bytes record, blob::readWhole(store_, name, kMaxRecordBytes));
        ARCA_TRY(const ChangePlan plan, decodeChangePlan(record));
        if (name != changeName(plan.id, kPlan))
            return Error{ErrorKind::damaged, "the plan in " + name + " is another one"};
        ARCA_TRY(const bool done, isDone(plan.id));
        ARCA_CHECK(done ? finishChange(plan) : undoChange(plan));
    }
    // Their plans went before them.
    for (const std::string &name : names)
        if (name.ends_with(kDone))
            ARCA_CHECK(removeBlob(store_, name));
    return {};
}

Result<void> NodeSpace::finishChange(const ChangePlan &plan)
{
    ObjectRecords records(store_, key_);
    for (const PieceId id : plan.going) {
        auto located = locate(id);
        if (!located && located.error().kind != ErrorKind::notFound)
            return std::move(located).error();
        if (located)
            ARCA_CHECK(store_.remove(located->blobName, *located->blob));
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
    return removeBlob(store_, changeName(plan.id, kPlan));
}

/// The steps up to the mark. `renamed`: the one piece that comes is the one that goes.
Result<void> NodeSpace::prepareChange(const ChangePlan &plan, std::span<const Sent> pieces,
                                      bool renamed)
{
    ObjectRecords records(store_, key_);
    ARCA_CHECK(blob::putWhole(store_, changeName(plan.id, kPlan), encodeChangePlan(plan)));
    ObjectRecord fresh;
    for (const PieceId id : plan.going) {
        ARCA_TRY(const Located located, locateShown(id));
        ARCA_TRY(auto state, records.read(id));
        if (renamed) {
            fresh.origin = state.record.first();
            fresh.insertedAt = located.info.insertedAt;
            fresh.describe(located.info.description);
            state.record.renamedTo = plan.coming.front();
        }
        state.record.goneBy = plan.id;
        ARCA_CHECK(records.write(state));
    }
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
    return blob::putWhole(store_, changeName(plan.id, kDone), frameRecord("ARCADONE", 1, {}));
}

Result<void> NodeSpace::change(std::span<const Sent> pieces, std::span<const PieceId> removals,
                               bool renamed)
{
    ARCA_TRY(const auto turn, lockChanges());
    ChangePlan plan;
    ARCA_TRY(plan.id, newChangeId());
    for (const Sent &sent : pieces)
        plan.coming.push_back(sent.piece->id());
    for (const PieceId id : removals) {
        ARCA_TRY(const Located located, locateShown(id));
        // Whoever names a piece to rename it means it under that name, not where it went since.
        if (renamed && located.info.id != id)
            return Error{ErrorKind::notFound, "the object was renamed meanwhile"};
        plan.going.push_back(located.info.id);
    }
    auto prepared = prepareChange(plan, pieces, renamed);
    if (!prepared) {
        // The mark first, should it be there against all odds: without it nothing shows.
        (void)removeBlob(store_, changeName(plan.id, kDone));
        (void)undoChange(plan);
        return prepared;
    }
    (void)finishChange(plan);
    return {};
}

Result<void> NodeSpace::commitTogether(std::span<const Sent> pieces,
                                       std::span<const PieceId> removals)
{
    return change(pieces, removals, false);
}

Result<void> NodeSpace::rename(const ObjectName &from, const ObjectName &to)
{
    ARCA_TRY(const auto found, find(from));
    ARCA_TRY(const auto known, filespace(to.filespace));
    if (!found || !known)
        return Error{ErrorKind::notFound, "there is no object " + printable(from.joined())};
    PieceDescription description = found->description;
    description.name = to;
    ARCA_TRY(const auto piece, beginPiece(std::move(description)));
    ARCA_TRY(const auto reader, openPiece(found->id));
    ARCA_CHECK(copyStream(*reader, *piece));
    const Sent sent{piece.get(), known->registration};
    return change(std::span(&sent, 1), std::span(&found->id, 1), true);
}

} // namespace arca::store
