// What becomes of a node's pieces once they are stored: which of them show, their attributes, their
// removal.
#include "client/base/text.h"
#include "client/store/node_space.h"
#include "client/store/quarantine.h"

namespace arca::store
{

namespace
{

constexpr int kMaxNames = 1000; // that a piece had one after the other, far more than anybody gives

Error unknownId(PieceId id)
{
    return {ErrorKind::notFound, "no object has the identifier " + toHex(id)};
}

} // namespace

Result<std::optional<ObjectRecord>> NodeSpace::recordIfShown(const PieceInfo &found)
{
    const PieceId id = found.id;
    ARCA_TRY(const Planned planned, plannedFor(id));
    if (found.isActive() ? planned.hidesActive : planned.hidesInactive)
        return std::optional<ObjectRecord>();
    ObjectRecords records(store_, key_);
    for (;;) {
        ARCA_TRY(const auto state, records.read(id));
        const ObjectRecord &record = state.record;
        if (record.goneBy != 0) {
            ARCA_TRY(const bool gone, isDone(record.goneBy));
            if (gone)
                return std::optional<ObjectRecord>();
        } else if (record.renamedTo != 0) {
            return std::optional<ObjectRecord>();
        }
        if (record.shownBy == 0)
            return std::optional(record);
        ARCA_TRY(const bool shown, isDone(record.shownBy));
        if (shown)
            return std::optional(record);
        // A change's mark goes once the records need it no more: then this one has changed.
        ARCA_TRY(const auto now, records.read(id));
        if (now.number == state.number)
            return std::optional<ObjectRecord>();
    }
}

Result<NodeSpace::Located> NodeSpace::locateShown(PieceId asked)
{
    PieceId id = asked;
    for (int names = 0; names < kMaxNames && id != 0; ++names) {
        // In this order: a piece is in its inactive place before it leaves the other one.
        auto located = locate(id);
        if (!located && located.error().kind == ErrorKind::notFound)
            located = locateInactive(id);
        if (!located && located.error().kind != ErrorKind::notFound)
            return located;
        if (located) {
            ARCA_TRY(auto record, recordIfShown(located->info));
            if (!record && located->info.isActive()) {
                // By a change that is done, but not settled yet.
                if (auto other = locateInactive(id)) {
                    ARCA_TRY(record, recordIfShown(other->info));
                    located = std::move(other);
                }
            }
            ARCA_TRY(const auto known, filespace(located->info.description.name.filespace));
            if (record && known) {
                record->applyTo(located->info);
                return located;
            }
        }
        ARCA_TRY(const auto state, ObjectRecords(store_, key_).read(id));
        id = state.record.renamedTo;
        if (state.record.goneBy != 0) {
            ARCA_TRY(const bool gone, isDone(state.record.goneBy));
            if (!gone)
                break;
        }
    }
    return unknownId(asked);
}

/// Whether the name of a blob is in use. What the dead left under it is not.
Result<bool> NodeSpace::isTaken(const std::string &blobName)
{
    const auto blob = store_.open(blobName);
    if (!blob && blob.error().kind == ErrorKind::notFound)
        return false;
    if (!blob)
        return blob.error();
    auto manifest = readOwn(**blob, blobName);
    // A read that failed in passing must not make a sound manifest a damaged one.
    if (!manifest && manifest.error().kind == ErrorKind::damaged)
        manifest = readOwn(**blob, blobName);
    if (!manifest && manifest.error().kind == ErrorKind::damaged) {
        // It cannot be restored, and its name must not be lost with it.
        ARCA_CHECK(Quarantine(*domain_).setAside(blobName));
        return false;
    }
    if (!manifest)
        return true; // by what this release cannot read, or not now
    ARCA_TRY(const auto shown, recordIfShown(manifest->info));
    if (shown)
        return true;
    ARCA_CHECK(lockChanges());
    const auto left = store_.open(blobName);
    if (!left && left.error().kind != ErrorKind::notFound)
        return left.error();
    return static_cast<bool>(left);
}

Result<std::string> NodeSpace::setAside(const ObjectName &name)
{
    ARCA_TRY(const Sha256 hash, hashOf(name));
    const std::string blobName = blobNameOf(hash);
    ARCA_TRY(const auto blob, store_.open(blobName));
    const auto manifest = readOwn(*blob, blobName);
    if (manifest)
        return Error{ErrorKind::exists, "the object " + printable(name.joined()) + " can be read"};
    if (manifest.error().kind != ErrorKind::damaged)
        return manifest.error();
    return blob::withReserve(store_, [&] { return Quarantine(*domain_).setAside(blobName); });
}

Result<void> NodeSpace::remove(PieceId id)
{
    ARCA_TRY(const auto turn, lockChanges());
    ARCA_TRY(Located located, locateShown(id));
    auto removed = blob::withReserve(store_, [&] { return removeStored(located); });
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return unknownId(id);
    return removed;
}

Result<void> NodeSpace::removeEverywhere(PieceId id)
{
    // The active place first: what is left of an inactive piece must not come to be active.
    for (const auto look : {&NodeSpace::locate, &NodeSpace::locateInactive}) {
        auto located = (this->*look)(id);
        if (!located && located.error().kind == ErrorKind::notFound)
            continue;
        if (!located)
            return std::move(located).error();
        auto removed = store_.remove(located->blobName, *located->blob);
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return removed;
    }
    return {};
}

/// The piece first: a record without a piece is harmless.
Result<void> NodeSpace::removeStored(Located &located)
{
    if (!located.info.isActive())
        ARCA_CHECK(removeEverywhere(located.info.id));
    else
        ARCA_CHECK(store_.remove(located.blobName, *located.blob));
    forget(located.info.id);
    return {};
}

void NodeSpace::forget(PieceId id)
{
    ObjectRecords records(store_, key_);
    const auto last = records.read(id);
    // Under every identifier that it had.
    PieceId old = last ? last->record.origin : 0;
    for (int names = 0; names < kMaxNames && old != 0 && old != id; ++names) {
        const auto state = records.read(old);
        const PieceId next = state ? state->record.renamedTo : 0;
        (void)records.remove(old);
        old = next;
    }
    (void)records.remove(id);
    groups().forget(last ? last->record.first() : id);
}

Result<PieceId> NodeSpace::firstId(PieceId id)
{
    ARCA_TRY(const Located located, locateShown(id));
    ARCA_TRY(const auto state, ObjectRecords(store_, key_).read(located.info.id));
    return state.record.first();
}

Result<void> NodeSpace::update(const ObjectName &name,
                               const std::function<void(PieceDescription &)> &change)
{
    ARCA_TRY(const auto turn, lockChanges());
    ARCA_TRY(auto found, find(name));
    if (!found)
        return Error{ErrorKind::notFound, "there is no object " + printable(name.joined())};
    ObjectRecords records(store_, key_);
    ARCA_TRY(auto state, records.read(found->id));
    change(found->description);
    state.record.describe(found->description);
    return records.write(state);
}

} // namespace arca::store
