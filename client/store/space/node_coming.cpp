// Pieces that come in the place of others: why each step is safe is told in coming_piece.h.
#include "client/base/text.h"
#include "client/blob/linking_store.h"
#include "client/store/changes/coming_piece.h"
#include "client/store/marks/quarantine.h"
#include "client/store/space/node_space.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::string_view kComing = "coming/", kActive = "pieces/";
constexpr int kMaxAttempts = 1000; // each is one that another process got in the way of

/// Whether an operation on a blob, or its absence, leaves it gone.
Result<void> fineIfGone(Result<void> done)
{
    return !done && done.error().kind == ErrorKind::notFound ? Result<void>() : done;
}

/// Removes the blob that lies at a name, if it is that piece.
Result<void> removeIfItIs(blob::BlobStore &store, const std::string &name, PieceId id)
{
    const auto blob = store.open(name);
    if (!blob)
        return fineIfGone(blob.error());
    ARCA_TRY(const PieceId there, peekIdentifier(**blob));
    return there == id ? fineIfGone(store.remove(name, **blob)) : Result<void>();
}

Error nameTaken(const ObjectName &name)
{
    return {ErrorKind::exists, "the object " + printable(name.joined()) + " exists already"};
}

} // namespace

bool isComingName(const std::string &blobName)
{
    return blobName.starts_with(kComing);
}

bool waitsForChange(const std::string &blobName)
{
    return isComingName(blobName) && changeIn(blobName) != 0;
}

std::string comingNameOf(const std::string &activeName, ChangeId change)
{
    return std::string(kComing) + activeName.substr(kActive.size()) + "." + toHex(change);
}

std::string activeNameOf(const std::string &comingName)
{
    const std::size_t end = comingName.rfind('.');
    return std::string(kActive) + comingName.substr(kComing.size(), end - kComing.size());
}

std::string NodeSpace::comingPrefixOf(PieceId id) const
{
    return std::string(kComing) + prefixOf(id).substr(kActive.size());
}

/// The blobs in coming/ of a name pieces/.../<name hash>, or of the beginning of one.
Result<std::vector<std::string>> NodeSpace::comingUnder(const std::string &activeName)
{
    std::vector<std::string> found;
    ARCA_CHECK(store_.list(std::string(kComing) + activeName.substr(kActive.size()),
                           [&](const std::string &name) {
                               if (waitsForChange(name))
                                   found.push_back(name);
                               return true;
                           }));
    return found;
}

/// Whether a piece at its place in pieces/ has lost its name to one in coming/.
Result<bool> NodeSpace::isReplaced(PieceId id, const std::string &activeName)
{
    ARCA_TRY(const auto coming, comingUnder(activeName));
    for (const std::string &name : coming) {
        ARCA_TRY(const bool done, isDone(changeIn(name)));
        if (!done)
            continue;
        const auto blob = store_.open(name);
        if (!blob && blob.error().kind == ErrorKind::notFound)
            continue; // at its place by now, so this one is not
        if (!blob)
            return blob.error();
        // Killed between its last two steps a piece is in both places.
        const auto there = peekIdentifier(**blob);
        if (!there || *there != id)
            return true;
    }
    return false;
}

Result<std::optional<PieceInfo>> NodeSpace::findAt(const std::string &blobName)
{
    const auto blob = store_.open(blobName);
    if (!blob && blob.error().kind == ErrorKind::notFound)
        return std::optional<PieceInfo>();
    if (!blob)
        return blob.error();
    return readShown(**blob, blobName);
}

/// The piece of a name that shows, wherever it is just being moved from.
Result<std::optional<PieceInfo>> NodeSpace::findNamed(const std::string &activeName)
{
    ARCA_TRY(auto found, findAt(activeName));
    if (found)
        return found;
    ARCA_TRY(const auto coming, comingUnder(activeName));
    for (const std::string &name : coming) {
        ARCA_TRY(const bool done, isDone(changeIn(name)));
        if (!done)
            continue;
        ARCA_TRY(found, findAt(name));
        if (found)
            return found;
    }
    return findAt(activeName);
}

/// Whether a piece that comes waits in coming/: when a piece goes, or becomes inactive, that may
/// have its name. The upper half of an identifier says that.
bool NodeSpace::replacesOne(const ChangePlan &plan, PieceId id) const
{
    const auto mayHaveIt = [&](PieceId old) { return old >> 32 == id >> 32; };
    return namesCarryChanges() && (std::ranges::any_of(plan.going, mayHaveIt) ||
                                   std::ranges::any_of(plan.leaving, mayHaveIt));
}

Result<void> NodeSpace::putComing(const ChangePlan &plan, PieceWriter &piece)
{
    return piece.commitAs(comingNameOf(piece.blobName(), plan.id));
}

/// Whether the change of a blob in coming/ is done. From then on it is decided.
Result<bool> NodeSpace::yieldsTo(const std::string &comingName)
{
    const ChangeId change = changeIn(comingName);
    auto plan = planOfChange(change);
    const bool lacksPlan = !plan && (plan.error().kind == ErrorKind::notFound ||
                                     plan.error().kind == ErrorKind::damaged);
    if (!plan && !lacksPlan)
        return std::move(plan).error();
    if (const auto waits = store_.open(comingName); !plan && !waits) {
        ARCA_CHECK(fineIfGone(waits.error()));
        return false; // settled since
    }
    // What is decided says all; a plan is only remembered with it.
    ARCA_TRY(const Decision decided,
             decide(plan ? *plan : ChangePlan{change, {}, {}, {}}, Decision::undone));
    if (decided == Decision::done)
        return true;
    const auto left = store_.open(comingName);
    ARCA_CHECK(fineIfGone(left ? store_.remove(comingName, **left) : Result<void>(left.error())));
    return false;
}

/// Undoes the changes that bring another piece under a name. `exists` when one of them is done.
Result<void> NodeSpace::undoOthers(const ObjectName &name, const std::string &activeName,
                                   ChangeId own)
{
    ARCA_TRY(const auto coming, comingUnder(activeName));
    for (const std::string &other : coming) {
        if (changeIn(other) == own)
            continue;
        ARCA_TRY(const bool lost, yieldsTo(other));
        if (lost)
            return nameTaken(name);
    }
    return {};
}

Result<void> NodeSpace::claimName(const PutPiece &piece, ChangeId own)
{
    if (!piece.activeName.starts_with(kActive) || !namesCarryChanges())
        return {};
    ARCA_CHECK(undoOthers(piece.name, piece.activeName, own));
    const auto blob = store_.open(piece.activeName);
    if (!blob && blob.error().kind == ErrorKind::notFound)
        return Error{ErrorKind::conflict, "another process took the object " +
                                              printable(piece.name.joined()) +
                                              " away while it was committed; make it again"};
    if (!blob)
        return blob.error();
    ARCA_TRY(const PieceId there, peekIdentifier(**blob));
    return there == piece.id ? Result<void>() : nameTaken(piece.name);
}

/// After a piece was put in coming/: whether what has its name now gives way to it.
Result<void> NodeSpace::claimNameOfOld(const PieceWriter &piece, const ChangePlan &plan)
{
    const std::string &activeName = piece.blobName();
    ARCA_CHECK(undoOthers(piece.name(), activeName, plan.id));
    for (int look = 0; look < kMaxAttempts; ++look) {
        const auto blob = store_.open(activeName);
        if (!blob)
            return fineIfGone(blob.error());
        ARCA_TRY(const PieceId there, peekIdentifier(**blob));
        for (const auto *old : {&plan.going, &plan.leaving})
            if (std::find(old->begin(), old->end(), there) != old->end())
                return {};
        // What a change left there that is undone holds no name.
        ARCA_TRY(const bool removed, removeIfUndone(activeName));
        if (!removed)
            break;
    }
    return nameTaken(piece.name());
}

void NodeSpace::giveNameBack(const PutPiece &piece)
{
    (void)removeIfItIs(store_, piece.activeName, piece.id);
}

/// Moves a damaged piece out of coming/, where its name would lead to it for ever.
Result<bool> NodeSpace::setAsideIfDamaged(blob::BlobReader &blob, const std::string &blobName)
{
    // A read that failed in passing must not make a sound manifest a damaged one.
    for (int look = 0; look < 2; ++look) {
        const auto manifest = readOwn(blob, blobName);
        if (manifest || manifest.error().kind != ErrorKind::damaged)
            return manifest ? Result<bool>(false) : manifest.error();
    }
    const auto moved = Quarantine(*domain_).setAside(blobName, blob);
    if (!moved)
        ARCA_CHECK(fineIfGone(moved.error()));
    return true;
}

/// What lies at the place of a piece in coming/ whose change is done goes.
Result<void> NodeSpace::clearPlaceOf(PieceId id, const std::string &comingName)
{
    const std::string activeName = activeNameOf(comingName);
    const auto blob = store_.open(activeName);
    if (!blob)
        return fineIfGone(blob.error());
    ARCA_TRY(const bool moved, setAsideIfDamaged(**blob, activeName));
    if (moved)
        return {};
    ARCA_TRY(const PieceId there, peekIdentifier(**blob));
    // Judged before this look: see coming_piece.h.
    const auto waits = store_.open(comingName);
    if (!waits || there == id)
        return waits ? Result<void>() : fineIfGone(waits.error());
    return fineIfGone(store_.remove(activeName, **blob));
}

/// The last steps of a change that brings a piece in the place of another one, which has left it.
Result<void> NodeSpace::bringIn(const std::string &comingName)
{
    const std::string activeName = activeNameOf(comingName);
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        const auto waiting = store_.open(comingName);
        if (!waiting)
            return fineIfGone(waiting.error());
        ARCA_TRY(const bool damaged, setAsideIfDamaged(**waiting, comingName));
        if (damaged)
            return {};
        auto linked = blob::linkOrCopy(store_, comingName, **waiting, activeName);
        if (!linked && linked.error().kind == ErrorKind::notFound)
            continue;
        if (!linked && linked.error().kind != ErrorKind::exists)
            return std::move(linked).error();
        ARCA_TRY(const PieceId id, peekIdentifier(**waiting));
        if (linked && *linked == blob::SecondName::copied)
            ARCA_CHECK(takeBackIfLate(id, comingName));
        const auto there = store_.open(activeName);
        const auto found = there ? peekIdentifier(**there) : Result<PieceId>(there.error());
        if (!found || *found != id) {
            ARCA_CHECK(clearPlaceOf(id, comingName));
            continue;
        }
        // The try that made the name may have failed before it was durable.
        ARCA_CHECK(store_.sync(activeName));
        // Soon the only one, and a copy where blobs cannot have two names.
        ARCA_CHECK(proveCopy(activeName));
        return fineIfGone(store_.remove(comingName, **waiting));
    }
    return Error{ErrorKind::conflict, "the place of the blob " + comingName + " is never free"};
}

/// Returns true when a piece that was brought in has been removed, made inactive or purged since.
Result<bool> NodeSpace::hasLeftItsName(PieceId id)
{
    ARCA_TRY(const auto removed, removedNames(id));
    if (!removed.empty())
        return true;
    const auto inactive = locateInactive(id);
    if (!inactive && inactive.error().kind != ErrorKind::notFound)
        return inactive.error();
    ARCA_TRY(const auto state, ObjectRecords(*domain_).read(id));
    return inactive || state.number == 0; // a piece that came with a change has a record
}

/// A copy that was put at H after its piece had left coming/ was put too late, if the piece has
/// left H, too. Else another process found the copy and took it for the piece.
Result<void> NodeSpace::takeBackIfLate(PieceId id, const std::string &comingName)
{
    if (const auto waits = store_.open(comingName);
        waits || waits.error().kind != ErrorKind::notFound)
        return waits ? Result<void>() : waits.error();
    ARCA_TRY(const bool left, hasLeftItsName(id));
    return left ? removeIfItIs(store_, activeNameOf(comingName), id) : Result<void>();
}

/// Before a piece in coming/ is taken from its active places: see coming_piece.h.
Result<bool> NodeSpace::bringInIfDone(const std::string &blobName)
{
    if (!isComingName(blobName))
        return false;
    ARCA_TRY(bool done, isDone(changeIn(blobName)));
    if (done) {
        ARCA_TRY(done, yieldsTo(blobName)); // durably
    }
    if (done)
        ARCA_CHECK(bringIn(blobName));
    return done;
}

Result<void> NodeSpace::bringIn(PieceId id, ChangeId change)
{
    ARCA_TRY(const auto coming, comingUnder(prefixOf(id)));
    for (const std::string &name : coming)
        if (changeIn(name) == change)
            ARCA_CHECK(bringIn(name));
    return {};
}

} // namespace arca::store
