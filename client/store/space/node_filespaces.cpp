// A node's filespaces: registering, describing, deleting.
//
// A filespace is deleted by one new state of its record, and from then on nothing in it shows. Its
// pieces are removed afterwards, at the latest before it is registered again. A commit looks at the
// filespace and at the node once its piece is published: a registration that is not the one it
// began under takes the piece back, so that no deletion takes a piece that was acknowledged after
// it.
#include "client/base/text.h"
#include "client/store/changes/coming_piece.h"
#include "client/store/keys/node_record.h"
#include "client/store/pieces/inventory.h"
#include "client/store/pieces/stored_manifests.h"
#include "client/store/space/node_space.h"

#include <array>
#include <new>

namespace arca::store
{

namespace
{

constexpr int kMaxAttempts = 1000;
constexpr std::size_t kHashBytesInNames = 16;
constexpr std::size_t kKeptBytes = std::size_t{256} << 10;
constexpr std::uint32_t kNeverCountedTo = 0x8000'0000;

Error unregistered(const std::string &name, ErrorKind kind)
{
    return {kind, "the filespace " + printable(name) + " is not registered"};
}

} // namespace

Result<std::string> NodeSpace::filespacePlace(const std::string &name) const
{
    ARCA_TRY(const Sha256 hash, sha256({viewOf("filespace"), viewOf(node_), viewOf(name)}));
    return "filespaces/" + key_ + "/" + toHex(ByteView(hash).first(kHashBytesInNames));
}

Result<NumberedRecord> NodeSpace::filespaceRecord(const std::string &name)
{
    ARCA_TRY(const std::string place, filespacePlace(name));
    return NumberedRecord(store_, place, RecordSeal(*domain_).lenient());
}

Result<NodeSpace::FilespaceState> NodeSpace::readFilespace(const std::string &name)
{
    ARCA_TRY(NumberedRecord record, filespaceRecord(name));
    FilespaceState state{std::move(record), 0, std::nullopt};
    const auto known = [&]() -> Result<std::optional<Filespace>> {
        ARCA_TRY(auto latest, state.record.latest());
        if (!latest) {
            // The listing met a registration that had removed the states before.
            ARCA_TRY(latest, state.record.latest());
        }
        if (!latest)
            return std::optional<Filespace>();
        state.number = latest->number; // what is written next is a change of what was read here
        ARCA_TRY(Filespace found, decodeFilespaceState(*latest, RecordSeal(*domain_)));
        if (found.node != node_ || found.name != name)
            return Error{ErrorKind::damaged, "it is another one than its place says"};
        return std::optional(std::move(found));
    }();
    if (!known && known.error().kind != ErrorKind::damaged)
        return known.error();
    if (!known) {
        ARCA_TRY(state.number, state.record.newestNumber());
    }
    state.filespace = known ? *known : standIn(name, state.number);
    return state;
}

/// In the place of a record that is damaged, which says no more than that there was one: without it
/// no piece of the filespace could be reached. The next change writes a state that can be read.
/// Verifying names the damaged one.
Filespace NodeSpace::standIn(const std::string &name, std::uint32_t number) const
{
    Filespace filespace;
    filespace.node = node_;
    filespace.name = name;
    filespace.registration = kNeverCountedTo + number;
    return filespace;
}

Result<std::optional<Filespace>> NodeSpace::filespace(const std::string &name)
{
    ARCA_TRY(FilespaceState state, readFilespace(name));
    if (state.filespace && state.filespace->deleted)
        return std::optional<Filespace>();
    return std::move(state.filespace);
}

Result<bool> NodeSpace::everHadFilespace(const std::string &name)
{
    ARCA_TRY(const FilespaceState state, readFilespace(name));
    return state.filespace.has_value();
}

Result<void> NodeSpace::registerFilespace(const Filespace &filespace)
{
    const Error known{ErrorKind::exists,
                      "the filespace " + printable(filespace.name) + " is registered already"};
    ARCA_TRY(FilespaceState before, readFilespace(filespace.name));
    if (before.filespace && !before.filespace->deleted) {
        ARCA_CHECK(keepRegistration(before));
        return known;
    }
    ARCA_CHECK(expectNode());
    Filespace own = filespace;
    own.node = node_;
    std::unique_ptr<blob::BlobLock> turn;
    if (before.filespace) {
        // Held until it is registered, or what others store in it could be taken for leftovers.
        ARCA_TRY(turn, lockChanges());
        ARCA_CHECK(emptyFilespace(own.name));
        own.registration = before.filespace->registration + 1;
    }
    // The state before says that it is deleted, which must not hold again when this one is lost.
    auto written = before.record.end(before.number, encodeFilespace(own));
    if (!written && written.error().kind == ErrorKind::conflict)
        return known;
    ARCA_CHECK(std::move(written));
    auto still = expectNode();
    if (!still)
        takeBackIfNodeIsGone(before.record, before.number + 1);
    return still;
}

/// Who registered it may have died before the state was durable, and before what said that it is
/// deleted was gone. Once in a session: later states of a registration follow this one.
Result<void> NodeSpace::keepRegistration(FilespaceState &state)
{
    const std::pair key(state.filespace->name, state.filespace->registration);
    if (kept_.contains(key))
        return {};
    auto synced = store_.sync(state.record.nameOf(state.number));
    // Superseded meanwhile, by one that is durable.
    if (!synced && synced.error().kind != ErrorKind::notFound)
        return synced;
    if (state.filespace->registration < kNeverCountedTo) // no stand-in
        (void)state.record.removeUpTo(state.number - 1);
    kept_.insert(key);
    return {};
}

/// A removal that may still be given up has left the state of the node before it, and what was
/// stored here would be lost with the record.
void NodeSpace::takeBackIfNodeIsGone(NumberedRecord &record, std::uint32_t number)
{
    const auto key = nodeKey(node_);
    if (!key)
        return;
    NumberedRecord node(store_, "nodes/" + *key);
    const auto newest = node.newestNumber();
    if (!newest || *newest == 0)
        return;
    const auto before = store_.open(node.nameOf(*newest - 1));
    if (before || before.error().kind != ErrorKind::notFound)
        return;
    // Given up, it has a later state before the others go.
    const auto now = node.newestNumber();
    if (now && *now == *newest && !expectNode())
        (void)record.removeUpTo(number);
}

Result<void> NodeSpace::updateFilespace(const std::string &name,
                                        const std::function<void(Filespace &)> &change)
{
    for (int attempt = 0;; ++attempt) {
        ARCA_TRY(FilespaceState state, readFilespace(name));
        if (!state.filespace || state.filespace->deleted)
            return unregistered(name, ErrorKind::notFound);
        change(*state.filespace);
        auto written = state.record.write(state.number, encodeFilespace(*state.filespace));
        // Many channels may finish at the same moment; each conflict means that another one got on.
        if (written || written.error().kind != ErrorKind::conflict || attempt == kMaxAttempts)
            return written;
    }
}

/// A late one must not delete what was registered since.
Result<void> NodeSpace::markDeleted(const std::string &name, std::uint32_t registration)
{
    for (int attempt = 0;; ++attempt) {
        ARCA_TRY(FilespaceState state, readFilespace(name));
        if (!state.filespace || state.filespace->deleted ||
            state.filespace->registration != registration)
            return unregistered(name, ErrorKind::notFound);
        state.filespace->deleted = true;
        auto written = state.record.write(state.number, encodeFilespace(*state.filespace));
        if (written || written.error().kind != ErrorKind::conflict || attempt == kMaxAttempts)
            return written;
    }
}

Result<void> NodeSpace::deleteFilespace(const std::string &name, std::optional<std::uint32_t> only)
{
    if (!only) {
        ARCA_TRY(const auto known, filespace(name));
        only = known ? known->registration : 0;
    }
    ARCA_TRY(const auto turn, lockChanges());
    const auto deleted = blob::withReserve(store_, [&] { return markDeleted(name, *only); });
    if (!deleted && deleted.error().kind != ErrorKind::notFound)
        return deleted;
    // Deleted already, or just now. What cannot be freed now is found again, and shows nowhere.
    (void)blob::withReserve(store_, [&] { return emptyFilespace(name); });
    return deleted;
}

/// Under the lock of changes, of a filespace that is deleted.
Result<void> NodeSpace::emptyFilespace(const std::string &name)
{
    ARCA_TRY(const FilespaceState state, readFilespace(name));
    if (!state.filespace || !state.filespace->deleted)
        return {};
    Result<void> all;
    // Removed pieces of it stay where they are.
    ARCA_CHECK(visitManifests(store_, key_, [&](const StoredManifest &stored) -> Result<void> {
        if (stored.place == ManifestPlace::removed)
            return {};
        auto manifest = readOwn(stored.blob, stored.blobName);
        auto done = manifest ? Result<void>() : Result<void>(manifest.error());
        if (manifest && manifest->info.description.name.filespace == name)
            done = takeFromFilespace(stored, manifest->info, state.filespace->registration);
        if (!done && isUnreadable(done.error()))
            done = passOver(stored, done.error());
        if (!done && isUnreadable(done.error())) { // the others can be taken
            all = std::move(done);
            return {};
        }
        return done;
    }));
    return all;
}

/// What cannot be read may be of that filespace, and would show in a later registration of it when
/// it can be read again. A damaged one goes to the quarantine; what failed in passing is an error.
Result<void> NodeSpace::passOver(const StoredManifest &stored, const Error &failure)
{
    if (stored.place == ManifestPlace::quarantined)
        return {};
    const auto blob = store_.open(stored.blobName);
    if (!blob)
        return blob.error().kind == ErrorKind::notFound ? Result<void>() : blob.error();
    ARCA_TRY(const bool aside, setAsideIfDamaged(**blob, stored.blobName));
    return aside ? Result<void>()
                 : inContext(failure, "what may be a piece of a deleted filespace cannot be read");
}

Result<std::optional<std::uint32_t>> NodeSpace::deletedRegistration(const std::string &name)
{
    ARCA_TRY(const FilespaceState now, readFilespace(name));
    return now.filespace && now.filespace->deleted ? std::optional(now.filespace->registration)
                                                   : std::nullopt;
}

Result<bool> NodeSpace::isDeleted(const std::string &name, std::uint32_t registration)
{
    ARCA_TRY(const auto deleted, deletedRegistration(name));
    return deleted == registration;
}

/// A piece that is open already when the filespace is looked at, and is deleted as it was, came
/// before the filespace can be registered again: what is stored after that, perhaps under the same
/// name, is never taken, however long this process slept.
///
/// What came with a change that is not made is no removed piece. The change is undone first, so
/// that its maker, wherever it is by now, does not acknowledge what goes here: it looks at the
/// filespace after everything is published, and so does this.
Result<void> NodeSpace::takeFromFilespace(const StoredManifest &stored, const PieceInfo &info,
                                          std::uint32_t registration)
{
    auto blob = store_.open(stored.blobName);
    if (!blob)
        return blob.error().kind == ErrorKind::notFound ? Result<void>() : blob.error();
    ARCA_TRY(const PieceId id, peekIdentifier(**blob));
    if (id != info.id)
        return {}; // another one came under its name
    ARCA_TRY(const bool deleted, isDeleted(info.description.name.filespace, registration));
    if (!deleted)
        return {};
    const auto came = decideComing(info.id, stored.blobName);
    if (!came) // a damaged plan cannot be made: it shows nowhere, and is left to be looked into
        return came.error().kind == ErrorKind::damaged ? Result<void>() : came.error();
    Located located{stored.blobName, std::move(blob).value(), info};
    auto removed = *came ? removeStored(located) : store_.remove(located.blobName, *located.blob);
    if (!removed && removed.error().kind != ErrorKind::notFound)
        return removed;
    return {};
}

Result<bool> NodeSpace::decideComing(PieceId id, const std::string &blobName)
{
    ARCA_TRY(const auto state, ObjectRecords(*domain_).read(id));
    const ChangeId change = state.record.shownBy != 0 ? state.record.shownBy
                            : isComingName(blobName)  ? changeIn(blobName)
                                                      : 0;
    if (change == 0)
        return true;
    ARCA_TRY(const bool done, isDone(change));
    if (done)
        return true;
    auto plan = planOfChange(change);
    if (!plan && plan.error().kind == ErrorKind::notFound) {
        // Settled meanwhile: done, then the outcome or the record says so, or undone.
        ARCA_TRY(const auto now, ObjectRecords(*domain_).read(id));
        return now.record.shownBy != change ? Result<bool>(now.number != 0) : isDone(change);
    }
    ARCA_CHECK(plan);
    ARCA_TRY(const Decision decided, decide(*plan, Decision::undone));
    if (decided == Decision::done)
        return true;
    // The outcome may have been "done", and forgotten since the plan was read. Before that the
    // record said so.
    ARCA_TRY(const auto now, ObjectRecords(*domain_).read(id));
    return state.record.shownBy == change && now.number != 0 && now.record.shownBy != change;
}

Result<void> NodeSpace::expectFilespaces(std::span<const Sent> pieces)
{
    for (const Sent &sent : pieces)
        ARCA_CHECK(expectRegistered(sent.piece->name().filespace, sent.registration));
    return {};
}

Result<void> NodeSpace::expectRegistered(const std::string &name, std::uint32_t registration)
{
    ARCA_TRY(FilespaceState now, readFilespace(name));
    if (!now.filespace || now.filespace->deleted || now.filespace->registration != registration)
        return Error{ErrorKind::noFilespace,
                     "the filespace " + printable(name) + " was deleted meanwhile"};
    return keepRegistration(now);
}

Result<void> NodeSpace::expectNode()
{
    ARCA_TRY(const std::string key, nodeKey(node_));
    NumberedRecord record(store_, "nodes/" + key);
    const auto latest = record.latest();
    if (!latest && latest.error().kind != ErrorKind::damaged)
        return latest.error();
    if (!latest || !*latest)
        return {}; // a removal leaves a record that can be read
    const auto now = decodeNodeRecord((*latest)->bytes);
    if (now && (now->removed || now->incarnation != incarnation_))
        return Error{ErrorKind::noFilespace, "the node " + printable(node_) +
                                                 " was removed meanwhile, and keeps nothing more"};
    return {};
}

Result<void> NodeSpace::commit(PieceWriter &piece, std::uint32_t registration)
{
    CommitNote note(*domain_);
    std::vector<PieceId> came{piece.id()};
    const PutPiece put{piece.name(), piece.blobName(), piece.id()};
    // Once the piece shows, what follows may find no memory. The piece is taken back then, and some
    // memory is kept for that.
    auto kept = std::make_unique<std::array<std::byte, kKeptBytes>>();
    // Of a piece that is acknowledged to no one. `places`: where it may be. Its record, if it has
    // one, is the caller's: it may lead to those of a removed piece.
    const auto takeBack = [&](const Error &failure, int places) {
        auto located = locateAnywhere(put.id);
        for (; located && places > 0; located = locateAnywhere(put.id), --places)
            (void)store_.remove(located->blobName, *located->blob);
        // Who deleted the filespace may have put it there.
        if (const auto removed = removedNames(put.id))
            for (const RemovedName &name : *removed)
                if (const auto blob = store_.open(removedNameOf(key_, name)))
                    (void)store_.remove(removedNameOf(key_, name), **blob);
        if (!located && located.error().kind == ErrorKind::notFound)
            return failure;
        return inContext(failure, "whether the object " + printable(put.name.joined()) +
                                      " was stored is not known, as it could not be taken back; "
                                      "look whether it is there before it is stored again");
    };
    try {
        if (const auto made = piece.commit(); !made)
            return made.error().kind == ErrorKind::exists ? made.error()
                                                          : takeBack(made.error(), 1);
        if (const auto claimed = claimName(put, 0); !claimed) {
            giveNameBack(put);
            return takeBack(claimed.error(), 0);
        }
        if (const auto now = expectRegistered(put.name.filespace, registration); !now)
            return takeBack(now.error(), 3); // coming/, pieces/, inactive/
        if (const auto still = expectNode(); !still)
            return takeBack(still.error(), 3);
    } catch (const std::bad_alloc &) {
        kept.reset();
        giveNameBack(put);
        throw;
    }
    note.write(std::move(came));
    return {};
}

} // namespace arca::store
