// What becomes of a node's pieces once they are stored: which of them show, their attributes, their
// removal.
#include "client/base/text.h"
#include "client/store/changes/coming_piece.h"
#include "client/store/marks/quarantine.h"
#include "client/store/pieces/manifest_place.h"
#include "client/store/space/node_space.h"

#include <algorithm>
#include <ctime>

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

Result<std::optional<ObjectRecord>> NodeSpace::recordIfShown(const PieceInfo &found,
                                                             const std::string &blobName)
{
    const PieceId id = found.id;
    if (const ChangeId change = found.isActive() ? 0 : changeIn(blobName); change != 0) {
        ARCA_TRY(const bool holds, holdsCopy(change));
        if (!holds)
            return std::optional<ObjectRecord>();
    }
    if (found.isActive() && namesCarryChanges()) {
        ARCA_TRY(const bool hidden, isReplaced(id, blobName));
        if (hidden)
            return std::optional<ObjectRecord>();
    }
    ARCA_TRY(const Planned planned, plannedFor(id));
    if (found.isActive() ? planned.hidesActive : planned.hidesInactive)
        return std::optional<ObjectRecord>();
    ObjectRecords records(*domain_);
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

/// Where a piece is found by an identifier that it had before, both must have been stored as the
/// same one first.
Result<void> NodeSpace::expectSame(PieceId asked, PieceId found, const ObjectRecord &record)
{
    if (asked == found)
        return {};
    ARCA_TRY(const auto before, ObjectRecords(*domain_).read(asked));
    if (before.record.first() != record.first())
        return Error{ErrorKind::damaged, "the records of the object " + toHex(asked) +
                                             " lead to another one, " + toHex(found)};
    return {};
}

Result<NodeSpace::Located> NodeSpace::locateShown(PieceId asked)
{
    PieceId id = asked;
    Error failure = unknownId(asked);
    for (int names = 0; names < kMaxNames && id != 0; ++names) {
        auto located = locateAnywhere(id);
        // What cannot be read may be another piece, and the one asked for may have another name.
        if (!located && isUnreadable(located.error()))
            failure = located.error();
        else if (!located && located.error().kind != ErrorKind::notFound)
            return located;
        if (located) {
            ARCA_TRY(auto record, recordIfShown(located->info, located->blobName));
            if (!record && located->info.isActive()) {
                // By a change that is done, but not settled yet.
                if (auto other = locateInactive(id)) {
                    ARCA_TRY(record, recordIfShown(other->info, other->blobName));
                    located = std::move(other);
                }
            }
            ARCA_TRY(const auto known, filespace(located->info.description.name.filespace));
            if (record && known) {
                ARCA_CHECK(expectSame(asked, id, *record));
                record->applyTo(located->info);
                return located;
            }
        }
        ARCA_TRY(const auto state, ObjectRecords(*domain_).read(id));
        id = state.record.renamedTo;
        if (state.record.goneBy != 0) {
            ARCA_TRY(const bool gone, isDone(state.record.goneBy));
            if (!gone)
                break;
        }
    }
    return failure;
}

/// Whether the name of a blob is in use, by another piece than those that are replaced. What the
/// dead left under it does not count.
Result<bool> NodeSpace::isTaken(const std::string &blobName, std::span<const PieceId> replaced)
{
    ARCA_TRY(const auto coming, comingUnder(blobName));
    for (const std::string &name : coming) {
        ARCA_TRY(const bool done, isDone(changeIn(name)));
        if (done)
            return true;
    }
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
        const auto aside = setAside(blobName, **blob);
        if (!aside && aside.error().kind == ErrorKind::notFound)
            return isTaken(blobName, replaced); // it went, or another one came into its place
        ARCA_CHECK(aside);
        return false;
    }
    if (!manifest)
        return true; // by what this release cannot read, or not now
    ARCA_TRY(const auto shown, recordIfShown(manifest->info, blobName));
    if (shown)
        return !namesCarryChanges() ||
               std::ranges::find(replaced, manifest->info.id) == replaced.end();
    ARCA_CHECK(lockChanges());
    ARCA_TRY(const bool removed, removeIfUndone(blobName));
    return !removed;
}

/// Also true when the name leads nowhere any more.
Result<bool> NodeSpace::removeIfUndone(const std::string &blobName)
{
    auto blob = store_.open(blobName);
    if (!blob && blob.error().kind == ErrorKind::notFound)
        return true;
    if (!blob)
        return blob.error();
    ARCA_TRY(Manifest manifest, readOwn(**blob, blobName));
    ARCA_TRY(const auto state, ObjectRecords(*domain_).read(manifest.info.id));
    ARCA_TRY(const bool moved, hasMoved(state.record));
    if (moved) {
        Located left{blobName, std::move(*blob), std::move(manifest.info)};
        auto aside = putAside(left, 0);
        if (!aside && aside.error().kind == ErrorKind::notFound)
            return false;
        ARCA_CHECK(aside);
        return true;
    }
    if (state.record.shownBy == 0)
        return false;
    ARCA_TRY(const auto outcome, Outcomes(*domain_).find(state.record.shownBy));
    if (!outcome || outcome->decision != Decision::undone)
        return false;
    // Its maker published it late. Another one that came into its place meanwhile stays.
    auto removed = store_.remove(blobName, **blob);
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return false;
    ARCA_CHECK(removed);
    return true;
}

/// Errors: exists when it is not damaged.
Result<std::unique_ptr<blob::BlobReader>> NodeSpace::openDamaged(const std::string &blobName)
{
    ARCA_TRY(auto blob, store_.open(blobName));
    const auto manifest = readOwn(*blob, blobName);
    if (manifest)
        return Error{ErrorKind::exists, "the stored piece in " + blobName + " can be read"};
    if (manifest.error().kind != ErrorKind::damaged)
        return manifest.error();
    return blob;
}

Result<void> NodeSpace::expectDamaged(const ObjectName &name)
{
    ARCA_TRY(const Sha256 hash, hashOf(name));
    ARCA_CHECK(openDamaged(blobNameOf(hash)));
    return {};
}

Result<std::string> NodeSpace::setAside(const ObjectName &name)
{
    ARCA_TRY(const Sha256 hash, hashOf(name));
    const std::string blobName = blobNameOf(hash);
    ARCA_TRY(const auto blob, openDamaged(blobName));
    return setAside(blobName, *blob);
}

Result<std::string> NodeSpace::setAside(const std::string &blobName, blob::BlobReader &judged)
{
    ARCA_TRY(const auto turn, lockChanges());
    return blob::withReserve(store_,
                             [&] { return Quarantine(*domain_).setAside(blobName, judged); });
}

Result<void> NodeSpace::remove(PieceId id)
{
    ARCA_TRY(const auto turn, lockChanges());
    ARCA_TRY(Located located, locateShown(id));
    // As in a change of several: not under a name that it got since it was chosen.
    if (located.info.id != id)
        return unknownId(id);
    auto removed = blob::withReserve(store_, [&] { return removeStored(located); });
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return unknownId(id);
    return removed;
}

/// The active places first: what is left of an inactive piece must not come to be active.
Result<void> NodeSpace::removeEverywhere(PieceId id, std::int64_t at)
{
    ARCA_CHECK(removeActive(id, at));
    blob::ListedDirectory inactive(store_);
    return removeCopies(id, at, inactive);
}

Result<void> NodeSpace::putAsideIfThere(PieceId id, std::int64_t at, const std::string &name,
                                        std::unique_ptr<blob::BlobReader> blob)
{
    Located located{name, std::move(blob), {}};
    located.info.id = id;
    auto removed = putAside(located, at);
    return !removed && removed.error().kind == ErrorKind::notFound ? Result<void>() : removed;
}

Result<void> NodeSpace::removeActive(PieceId id, std::int64_t at)
{
    // There are two places after a death between the last steps of a change.
    auto active = locate(id, Unclear::another);
    const bool isFound = static_cast<bool>(active);
    for (int attempt = 0; active; active = locate(id, Unclear::another)) {
        if (++attempt > kMaxPlaces)
            return Error{ErrorKind::io, "the blob " + active->blobName + " cannot be removed"};
        ARCA_TRY(const bool brought, bringInIfDone(active->blobName));
        if (!brought)
            ARCA_CHECK(putAsideIfThere(id, at, active->blobName, std::move(active->blob)));
    }
    if (active.error().kind != ErrorKind::notFound)
        return active.error();
    // What another process took away may not be durable yet.
    return isFound ? Result<void>() : store_.sync(prefixOf(id));
}

/// Every blob in the inactive place of the piece, whether it shows or not.
Result<void> NodeSpace::removeCopies(PieceId id, std::int64_t at, blob::ListedDirectory &inactive)
{
    ARCA_TRY(const auto copies, inactive.under(inactiveNameOf(id)));
    if (copies.empty())
        return store_.sync(inactiveNameOf(id));
    for (const std::string &name : copies) {
        auto blob = store_.open(name);
        if (!blob && blob.error().kind == ErrorKind::notFound)
            continue;
        if (!blob)
            return blob.error();
        ARCA_CHECK(putAsideIfThere(id, at, name, std::move(blob).value()));
    }
    return {};
}

/// The piece first: a record without a piece is harmless. The records of one that can be brought
/// back stay until it is purged.
Result<void> NodeSpace::removeStored(Located &located)
{
    if (!located.info.isActive() || isComingName(located.blobName))
        ARCA_CHECK(removeEverywhere(located.info.id, std::time(nullptr)));
    else
        ARCA_CHECK(putAside(located, std::time(nullptr)));
    if (!keepsRemoved())
        forget(located.info.id);
    return {};
}

void NodeSpace::forget(PieceId id)
{
    ObjectRecords records(*domain_);
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

Result<PieceId> NodeSpace::firstId(PieceId id, bool unreadable)
{
    const auto located = locateShown(id);
    if (!located && !(unreadable && isUnreadable(located.error())))
        return located.error();
    ARCA_TRY(const auto state, ObjectRecords(*domain_).read(located ? located->info.id : id));
    return state.record.first();
}

Result<void> NodeSpace::update(const ObjectName &name, std::optional<PieceId> only,
                               const std::function<void(PieceDescription &)> &change)
{
    ARCA_TRY(const auto turn, lockChanges());
    ARCA_TRY(auto found, find(name));
    if (!found)
        return Error{ErrorKind::notFound, "there is no object " + printable(name.joined())};
    if (only && found->id != *only)
        return Error{ErrorKind::notFound,
                     "another object has the name " + printable(name.joined()) + " by now"};
    ObjectRecords records(*domain_);
    ARCA_TRY(auto state, records.read(found->id));
    change(found->description);
    state.record.describe(found->description);
    return records.write(state);
}

} // namespace arca::store
