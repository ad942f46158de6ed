// Removed pieces: put aside for the grace time, shown, brought back, purged.
//
// A removal links the manifest into removed/ (removed_piece.h) before its old name goes, so it
// takes the space of a name only and works on a full disk. Killed in between it leaves both; then
// the piece still shows, and what lies in removed/ is a leftover that counts for nothing and is
// purged when its time has come. The records of a removed piece stay until it is purged.
//
// An undelete stores the manifest again under a new identifier, as a rename does: a process that is
// late with removing the old one can only ever meet the old one.
#include "client/base/text.h"
#include "client/blob/linking_store.h"
#include "client/store/pieces/inventory.h"
#include "client/store/pieces/manifest_place.h"
#include "client/store/pieces/removed_piece.h"
#include "client/store/space/node_space.h"

#include <algorithm>
#include <utility>

namespace arca::store
{

namespace
{

Error notRemoved(PieceId id)
{
    return {ErrorKind::notFound, "no removed object has the identifier " + toHex(id)};
}

/// What the names of the states of a piece's record begin with (object_record.h).
std::string recordsOf(const std::string &key, PieceId id)
{
    return "objects/" + key + "/" + toHex(id) + "/";
}

/// The names that removed manifests of these pieces have now, by one listing of each directory.
/// `ids` are sorted.
Result<std::vector<RemovedName>> removedNamesOf(blob::BlobStore &store, const std::string &key,
                                                std::span<const PieceId> ids)
{
    blob::ListedDirectory removed(store);
    std::vector<RemovedName> found;
    for (const PieceId id : ids) {
        ARCA_TRY(const auto names, removed.under(removedPrefixOf(key, id)));
        for (const std::string &blobName : names)
            if (const auto name = parseRemovedName(key, blobName))
                found.push_back(*name);
    }
    return found;
}

/// Each once, sorted.
std::vector<PieceId> idsOf(std::span<const RemovedName> names)
{
    std::vector<PieceId> ids;
    for (const RemovedName &name : names)
        ids.push_back(name.id);
    std::ranges::sort(ids);
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

bool isAmong(std::span<const PieceId> sorted, PieceId id)
{
    return std::ranges::binary_search(sorted, id);
}

} // namespace

Result<void> NodeSpace::putAside(Located &located, std::int64_t at)
{
    if (keepsRemoved()) {
        const std::string aside = removedNameOf(key_, {located.info.id, at});
        auto linked = blob::linkOrCopy(store_, located.blobName, *located.blob, aside);
        if (!linked && linked.error().kind != ErrorKind::exists)
            return std::move(linked).error();
        // The try that made the name may have failed before it was durable.
        auto proven = linked ? Result<void>() : store_.sync(aside);
        // Soon the only one, and perhaps left by another process: it must be the piece.
        if (proven)
            proven = proveCopy(aside);
        // A caller takes notFound for a piece that is removed.
        if (!proven && proven.error().kind == ErrorKind::notFound)
            return Error{ErrorKind::io, "the blob " + aside + " is not there although it was put"};
        ARCA_CHECK(std::move(proven));
    }
    return store_.remove(located.blobName, *located.blob);
}

Result<std::vector<RemovedName>> NodeSpace::removedNames(PieceId id)
{
    std::vector<RemovedName> found;
    ARCA_CHECK(store_.list(removedPrefixOf(key_, id), [&](const std::string &blobName) {
        if (const auto name = parseRemovedName(key_, blobName))
            found.push_back(*name);
        return true;
    }));
    std::ranges::sort(found, std::greater<>(), &RemovedName::at);
    return found;
}

Result<bool> NodeSpace::isRemoved(PieceId id)
{
    ARCA_TRY(const auto names, removedNames(id));
    return !names.empty();
}

Result<bool> NodeSpace::isStored(PieceId id, bool unclear)
{
    const auto located = locateAnywhere(id);
    if (located || located.error().kind == ErrorKind::notFound)
        return static_cast<bool>(located);
    return isUnreadable(located.error()) ? Result<bool>(unclear) : located.error();
}

Result<void>
NodeSpace::eachStored(std::span<const PieceId> ids,
                      const std::function<Result<void>(PieceId, Result<Located>)> &visit)
{
    // Each directory is listed in the order in which a piece moves, so one that none of the three
    // has lies nowhere by the last of them. Of whatever they have, the present is asked.
    blob::ListedDirectory coming(store_), active(store_), inactive(store_);
    const auto isAnother = [&](PieceId id, const std::string &name) {
        const auto blob = store_.open(name);
        const auto there = blob ? peekIdentifier(**blob) : Result<PieceId>(blob.error());
        return there && *there != id;
    };
    for (const PieceId id : ids) {
        bool may = false;
        for (auto [listed, prefix] :
             {std::pair(&coming, comingPrefixOf(id)), std::pair(&active, prefixOf(id))}) {
            ARCA_TRY(const auto names, listed->under(prefix));
            for (const std::string &name : names)
                may = may || !isAnother(id, name);
        }
        ARCA_TRY(const auto copies, inactive.under(inactiveNameOf(id)));
        if (may || !copies.empty())
            ARCA_CHECK(visit(id, locateAnywhere(id)));
    }
    return {};
}

Result<std::vector<PieceId>> NodeSpace::storedAmong(std::span<const PieceId> ids, bool unclear)
{
    std::vector<PieceId> stored;
    ARCA_CHECK(eachStored(ids, [&](PieceId id, const Result<Located> &located) -> Result<void> {
        const bool isNowhere = !located && located.error().kind == ErrorKind::notFound;
        if (!located && !isNowhere && !isUnreadable(located.error()))
            return located.error();
        if (located || (!isNowhere && unclear))
            stored.push_back(id);
        return {};
    }));
    return stored;
}

Result<std::optional<RemovedPiece>> NodeSpace::readRemoved(const RemovedName &name,
                                                           std::optional<bool> stored)
{
    const std::string blobName = removedNameOf(key_, name);
    auto blob = store_.open(blobName);
    if (!blob && blob.error().kind == ErrorKind::notFound)
        return std::optional<RemovedPiece>();
    ARCA_TRY(auto opened, std::move(blob));
    ARCA_TRY(Manifest manifest, readOwn(*opened, blobName));
    // A leftover of a removal that was killed, or of a piece that was renamed or brought back. One
    // beside a damaged manifest of its name may be all that is left of the piece, so it is shown.
    if (!stored) {
        ARCA_TRY(stored, isStored(name.id, false));
    }
    ARCA_TRY(const auto state, ObjectRecords(*domain_).read(name.id));
    ARCA_TRY(const bool moved, hasMoved(state.record));
    ARCA_TRY(const bool came, hasCome(state.record));
    if (name.at == 0 || *stored || moved || !came)
        return std::optional<RemovedPiece>();
    state.record.applyTo(manifest.info);
    return std::optional(RemovedPiece{std::move(manifest.info), name.at});
}

Result<void> NodeSpace::visitRemoved(const std::function<bool(const RemovedPiece &)> &visit)
{
    return visitRemovedUnder(placePrefix(ManifestPlace::removed, key_), visit);
}

Result<void> NodeSpace::visitRemovedUnder(const std::string &prefix,
                                          const std::function<bool(const RemovedPiece &)> &visit)
{
    // The directories and the names in them come in no order, so a piece with several names is
    // shown with the one that its last removal gave it.
    std::vector<RemovedName> names;
    ARCA_CHECK(store_.list(prefix, [&](const std::string &blobName) {
        if (const auto name = parseRemovedName(key_, blobName))
            names.push_back(*name);
        return true;
    }));
    std::ranges::sort(names, [](const RemovedName &one, const RemovedName &other) {
        return std::pair(one.id, other.at) < std::pair(other.id, one.at);
    });
    // What is removed from now on was not listed above.
    ARCA_TRY(const auto stored, storedAmong(idsOf(names), false));
    // The last first; one that is damaged does not hide the manifest of an earlier removal.
    std::optional<PieceId> shown;
    for (const RemovedName &name : names) {
        if (shown == name.id)
            continue;
        const auto piece = readRemoved(name, isAmong(stored, name.id));
        if (!piece && !isUnreadable(piece.error()))
            return piece.error();
        if (!piece || !*piece)
            continue;
        shown = name.id;
        if (!visit(**piece))
            break;
    }
    return {};
}

Result<std::vector<RemovedPiece>> NodeSpace::removedOf(const ObjectName &name)
{
    ARCA_TRY(const Sha256 hash, hashOf(name));
    const std::string digits = toHex(ByteView(hash).first(4));
    std::vector<RemovedPiece> found;
    ARCA_CHECK(visitRemovedUnder(placePrefix(ManifestPlace::removed, key_) + digits.substr(0, 2) +
                                     "/" + digits,
                                 [&](const RemovedPiece &piece) {
                                     if (piece.info.description.name == name)
                                         found.push_back(piece);
                                     return true;
                                 }));
    std::ranges::stable_sort(found, [](const RemovedPiece &one, const RemovedPiece &other) {
        return std::pair(one.removedAt, one.info.insertedAt) >
               std::pair(other.removedAt, other.info.insertedAt);
    });
    return found;
}

Result<NodeSpace::Located> NodeSpace::locateRemoved(PieceId id)
{
    ARCA_TRY(const auto names, removedNames(id));
    std::optional<Error> failure;
    for (const RemovedName &name : names) {
        const auto piece = readRemoved(name);
        if (!piece && isUnreadable(piece.error()))
            failure = piece.error();
        else if (!piece)
            return piece.error();
        if (!piece || !*piece)
            continue;
        const std::string blobName = removedNameOf(key_, name);
        ARCA_TRY(auto blob, store_.open(blobName));
        return Located{blobName, std::move(blob), (*piece)->info};
    }
    return failure ? *failure : notRemoved(id);
}

/// A finished piece with the stream of a removed one.
Result<std::unique_ptr<PieceWriter>> NodeSpace::copyRemoved(const Located &removed)
{
    const PieceInfo &info = removed.info;
    Place place;
    if (info.isActive()) {
        ARCA_TRY(place, freePlace(info.description.name));
    } else {
        ARCA_TRY(const Sha256 hash, hashOf(info.description.name));
        ARCA_TRY(place.id, newId(hash));
        place.blobName = inactiveNameOf(place.id);
    }
    auto piece =
        PieceWriter::copyOf(*domain_, *removed.blob, place.blobName, place.id, info.description);
    if (!piece && piece.error().kind == ErrorKind::conflict) {
        ARCA_TRY(auto claim, domain_->beginBlob());
        ARCA_TRY(auto blob, store_.open(removed.blobName));
        ARCA_TRY(const auto reader,
                 PieceReader::open(*domain_, settings_, std::move(claim), std::move(blob)));
        piece = PieceWriter::begin(*domain_, settings_, place.blobName, place.id, info.description);
        if (!piece)
            return piece;
        ARCA_CHECK(copyStream(*reader, **piece));
    }
    if (piece && !info.isActive())
        ARCA_CHECK((*piece)->makeInactive(domain_->manifestKey(), info.inactiveAt));
    return piece;
}

Result<PieceInfo> NodeSpace::undelete(PieceId id)
{
    ARCA_TRY(const Located removed, locateRemoved(id));
    const std::string &space = removed.info.description.name.filespace;
    ARCA_TRY(const auto known, filespace(space));
    if (!known)
        return Error{ErrorKind::noFilespace, "the filespace " + printable(space) +
                                                 " of the object is not registered any more"};
    // One that was killed in its last steps is finished.
    ARCA_TRY(const PieceId before, broughtBack(removed));
    if (before != 0)
        return leadTo(id, before);
    ARCA_TRY(const auto piece, copyRemoved(removed));
    ARCA_TRY(const auto turn, lockChanges());
    // After the claim of the new piece: from here on nothing takes its blocks away.
    ARCA_TRY(const Located still, locateRemoved(id));
    // Another one may have come this far while this one waited, and been killed.
    ARCA_TRY(const PieceId meanwhile, broughtBack(still));
    if (meanwhile != 0)
        return leadTo(id, meanwhile);
    ObjectRecords records(*domain_);
    ARCA_TRY(const auto old, records.read(id));
    ObjectRecord fresh;
    fresh.id = piece->id();
    fresh.origin = old.record.first();
    fresh.insertedAt = removed.info.insertedAt;
    fresh.describe(removed.info.description);
    ARCA_CHECK(records.write({0, fresh}));
    auto committed = commit(*piece, known->registration);
    if (!committed) {
        // One that could not be taken back is finished by the next undelete, by its record.
        const auto there = locateAnywhere(fresh.id);
        if (!there && there.error().kind == ErrorKind::notFound)
            (void)records.remove(fresh.id);
        return std::move(committed).error();
    }
    auto back = leadTo(id, fresh.id);
    return back ? std::move(back)
                : inContext(back.error(), "the object is back, but the last step of that failed");
}

/// The piece that an undelete stored of it before it was killed; 0 when there is none.
Result<PieceId> NodeSpace::broughtBack(const Located &removed, blob::ListedDirectory *inactive)
{
    ObjectRecords records(*domain_);
    ARCA_TRY(const auto old, records.read(removed.info.id));
    const auto isIt = [&](const PieceInfo &piece) -> Result<bool> {
        ARCA_TRY(const auto state, records.read(piece.id));
        return piece.id != removed.info.id && state.record.origin == old.record.first();
    };
    std::vector<PieceInfo> candidates;
    if (removed.info.isActive()) {
        auto found = find(removed.info.description.name);
        if (!found && !isUnreadable(found.error()))
            return std::move(found).error();
        if (found && *found)
            candidates.push_back(std::move(**found));
    } else {
        ARCA_TRY(candidates, inactiveOf(removed.info.description.name, nullptr, inactive));
    }
    for (const PieceInfo &piece : candidates) {
        ARCA_TRY(const bool same, isIt(piece));
        if (same)
            return piece.id;
    }
    return PieceId{0};
}

/// The last step of an undelete. The former manifest stays where it is, hidden by its record, until
/// its time is over: who looks for it under removed/ meanwhile finds it. Killed before, the removed
/// piece shows as well, and the next undelete of it comes back to here.
Result<PieceInfo> NodeSpace::leadTo(PieceId former, PieceId id)
{
    ObjectRecords records(*domain_);
    CommitNote note(*domain_);
    // Who died may have stored it: what it had no time for is done before the removed piece is
    // hidden.
    ARCA_TRY(const Located back, locateAnywhere(id));
    ARCA_CHECK(store_.sync(back.blobName));
    ARCA_CHECK(store_.sync(recordsOf(key_, id)));
    note.write({id});
    ARCA_TRY(auto old, records.read(former));
    old.record.renamedTo = id;
    ARCA_CHECK(records.write(old));
    return find(id);
}

Result<std::vector<PieceId>> NodeSpace::goneWith(std::vector<RemovedName> &names,
                                                 Result<void> &unclear)
{
    std::vector<PieceId> there, left;
    // One that cannot be read elsewhere now may be that very piece, and must not be noted as gone.
    // A piece that is removed meanwhile has its name in removed/ before it loses the other one.
    const auto ids = idsOf(names);
    ARCA_CHECK(eachStored(ids, [&](PieceId id, const Result<Located> &located) -> Result<void> {
        if (!located && located.error().kind == ErrorKind::notFound)
            return {};
        there.push_back(id);
        if (located)
            return {};
        if (!isUnreadable(located.error()))
            return located.error();
        unclear = located.error();
        left.push_back(id);
        return {};
    }));
    std::erase_if(names, [&](const RemovedName &name) { return isAmong(left, name.id); });
    std::vector<std::pair<PieceId, std::int64_t>> going;
    for (const RemovedName &name : names)
        going.emplace_back(name.id, name.at);
    std::ranges::sort(going);
    // Those with a name that is not among `names`.
    std::vector<PieceId> gone;
    std::ranges::set_difference(ids, there, std::back_inserter(gone));
    ARCA_TRY(const auto removed, removedNamesOf(store_, key_, gone));
    std::vector<PieceId> kept;
    for (const RemovedName &name : removed)
        if (!std::ranges::binary_search(going, std::pair(name.id, name.at)))
            kept.push_back(name.id);
    std::erase_if(gone, [&](PieceId id) { return isAmong(kept, id); });
    return gone;
}

Result<std::vector<PieceId>> NodeSpace::removedAmong(std::span<const RemovedName> names)
{
    std::vector<RemovedName> timed;
    std::ranges::copy_if(names, std::back_inserter(timed),
                         [](const RemovedName &name) { return name.at != 0; });
    auto ids = idsOf(timed);
    ARCA_TRY(const auto stored, storedAmong(ids, true));
    std::erase_if(ids, [&](PieceId id) { return isAmong(stored, id) || leadsElsewhere(id); });
    return ids;
}

/// An undelete that was killed before its last step left both, and the records that go with a
/// removed piece are those of the new one, too.
Result<void> NodeSpace::finishUndelete(const RemovedName &name, bool stored,
                                       blob::ListedDirectory &inactive)
{
    const auto piece = readRemoved(name, stored);
    if (!piece)
        return piece.error();
    // Its record, which may lead on, must not be the one before when the manifest is gone.
    if (!*piece)
        return store_.sync(recordsOf(key_, name.id));
    ARCA_TRY(const PieceId back, broughtBack({{}, nullptr, (*piece)->info}, &inactive));
    if (back != 0)
        ARCA_CHECK(leadTo(name.id, back));
    return {};
}

Result<std::uint64_t> NodeSpace::purge(std::span<const RemovedName> names,
                                       std::span<const PieceId> noted)
{
    ARCA_TRY(const auto turn, lockChanges());
    const auto ids = idsOf(names);
    ARCA_TRY(const auto before, storedAmong(ids, false));
    blob::ListedDirectory inactive(store_);
    std::vector<PieceId> finished, timed;
    for (const RemovedName &name : names) {
        // It was elsewhere when what goes was noted, and a change that died has been settled since.
        if (!isAmong(noted, name.id) && !isAmong(before, name.id))
            continue;
        const auto undeleted = finishUndelete(name, isAmong(before, name.id), inactive);
        if (!undeleted && !isUnreadable(undeleted.error()))
            return undeleted.error();
        const std::string blobName = removedNameOf(key_, name);
        if (const auto blob = store_.open(blobName)) {
            auto removed = store_.remove(blobName, **blob);
            if (!removed && removed.error().kind != ErrorKind::notFound)
                return std::move(removed).error();
        } else if (blob.error().kind == ErrorKind::notFound) {
            ARCA_CHECK(store_.sync(blobName)); // before packs or records go
        } else {
            return blob.error();
        }
        if (undeleted) // else the records may still lead to it
            finished.push_back(name.id);
        if (name.at != 0)
            timed.push_back(name.id);
    }
    std::ranges::sort(finished);
    std::ranges::sort(timed);
    // Now that these names are gone: of which pieces nothing is left.
    ARCA_TRY(const auto stored, storedAmong(ids, true));
    std::vector<PieceId> left;
    std::ranges::copy_if(ids, std::back_inserter(left),
                         [&](PieceId id) { return !isAmong(stored, id); });
    ARCA_TRY(const auto others, removedNamesOf(store_, key_, left));
    std::vector<PieceId> kept;
    for (const RemovedName &name : others)
        kept.push_back(name.id);
    std::erase_if(left, [&](PieceId id) { return isAmong(kept, id); });
    // Counted before any record goes: that of a piece takes along those that lead to it.
    const auto pieces = std::ranges::count_if(
        left, [&](PieceId id) { return isAmong(timed, id) && !leadsElsewhere(id); });
    for (const PieceId id : left)
        if (isAmong(finished, id))
            forgetPurged(id);
    return static_cast<std::uint64_t>(pieces);
}

/// A renaming that was not made leaves its marks in the record until they are cleared.
Result<bool> NodeSpace::hasMoved(const ObjectRecord &record)
{
    if (record.renamedTo == 0 || record.goneBy == 0)
        return record.renamedTo != 0;
    return isDone(record.goneBy);
}

Result<bool> NodeSpace::hasCome(const ObjectRecord &record)
{
    return record.shownBy == 0 ? Result<bool>(true) : isDone(record.shownBy);
}

/// Returns true when no removed piece has that identifier: it has another one now, or was never
/// stored.
bool NodeSpace::leadsElsewhere(PieceId id)
{
    const auto state = ObjectRecords(*domain_).read(id);
    if (!state)
        return false;
    const auto moved = hasMoved(state->record), came = hasCome(state->record);
    return (moved && *moved) || (came && !*came);
}

/// Drops the records of a piece of which nothing is left; returns false for one that was renamed or
/// brought back: its records are under its new identifier, and the old one goes on to lead there.
bool NodeSpace::forgetPurged(PieceId id)
{
    const auto state = ObjectRecords(*domain_).read(id);
    const auto moved = state ? hasMoved(state->record) : Result<bool>(false);
    if (state && moved && !*moved)
        forget(id);
    return !state || (moved && !*moved);
}

} // namespace arca::store
