// Removing one damaged blob: see the header.
#include "client/store/upkeep/blob_removal.h"

#include "client/base/text.h"
#include "client/blob/lock_holder.h"
#include "client/store/marks/quarantine.h"
#include "client/store/nodes/policy.h"
#include "client/store/pieces/inventory.h"
#include "client/store/pieces/stored_manifests.h"
#include "client/store/records/defaults.h"
#include "client/store/records/record_forms.h"
#include "client/store/upkeep/record_kinds.h"

namespace arca::store
{

namespace
{

bool isManifestPlace(const std::string &blobName, const std::string &nodeKey)
{
    for (const ManifestPlace place : {ManifestPlace::coming, ManifestPlace::active,
                                      ManifestPlace::inactive, ManifestPlace::removed})
        if (blobName.starts_with(placePrefix(place, nodeKey)))
            return true;
    return false;
}

Error refusal(const std::string &blobName, const std::string &why)
{
    return {ErrorKind::badArgument, "the blob " + printable(blobName, 400) + " " + why};
}

/// Every run of it, too.
Result<void> readManifestWhole(NodeSpace &space, const std::string &blobName,
                               blob::BlobReader &blob)
{
    ARCA_TRY(const Manifest manifest, space.readOwn(blob, blobName));
    ManifestRuns runs(blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return {};
    }
}

/// Without its outcome a change whose plan is there would be decided again, perhaps the other way.
Result<void> expectSettled(NodeSpace &space, const std::string &blobName)
{
    if (!blobName.starts_with(form::outcome.place))
        return {};
    const std::string plan = "changes/" + space.domain().nodeKey() +
                             blobName.substr(blobName.rfind('/')) +
                             std::string(form::changePlan.suffix);
    const auto there = space.domain().blobs().open(plan);
    if (!there && there.error().kind == ErrorKind::notFound)
        return {};
    return refusal(blobName, "says how the change in " + plan +
                                 " ends, which is not settled yet; keep it, and bring a sound copy "
                                 "of it back");
}

/// What is wrong with it; success when nothing is.
Result<void> checkBlob(NodeSpace &space, const std::string &blobName, blob::BlobReader &blob)
{
    const std::string &key = space.domain().nodeKey();
    if (isManifestPlace(blobName, key))
        return readManifestWhole(space, blobName, blob);
    if (blobName.starts_with("packs/"))
        return refusal(blobName, "is a pack: arca repair mends it, and arca reclaim removes it "
                                 "when no piece needs it");
    // The state before it would hold again, and streams count on what a run is taking away.
    if (blobName.starts_with(form::mark.place))
        return refusal(blobName, "says which packs are marked: arca reclaim replaces it when it is "
                                 "damaged");
    const auto slash = blobName.find('/');
    const bool own = blobName == form::defaults.place ||
                     (slash != std::string::npos &&
                      (blobName.starts_with("classes/") || blobName.starts_with("options/") ||
                       blobName.substr(slash + 1, key.size()) == key));
    // The keys of the node and of the repository can be made again by nothing.
    if (!own || blobName.starts_with("nodes/"))
        return refusal(blobName, "is none that this node may remove");
    const RecordKind *const kind = recordKindAt(blobName);
    if (kind == nullptr)
        return Error{ErrorKind::damaged, "no record has such a name"};
    ARCA_CHECK(expectSettled(space, blobName));
    ARCA_TRY(Bytes stored, blob::readWhole(blob, blobName, maxRecordBytesAt(blobName)));
    ARCA_TRY(const Bytes bytes, recordAt(space.domain(), blobName, std::move(stored)));
    return kind->check(bytes);
}

/// The blobs of the states before this one of a numbered record, and of the last after it; empty
/// where there is none.
struct OtherStates {
    std::string before, last;
};

Result<OtherStates> otherStates(NodeSpace &space, const std::string &blobName)
{
    OtherStates others;
    const std::string place = blobName.substr(0, blobName.rfind('/') + 1);
    ARCA_CHECK(space.domain().blobs().list(place, [&](const std::string &name) {
        if (name < blobName && name > others.before)
            others.before = name;
        if (name > blobName && name > others.last)
            others.last = name;
        return true;
    }));
    return others;
}

bool isNumbered(const RecordForm &kind)
{
    for (const RecordForm *one :
         {&form::filespace, &form::managementClass, &form::group, &form::object, &form::graceTime})
        if (kind.place == one->place)
            return true;
    return false;
}

/// Visits the pieces of the node as they show, but for the state of their filespaces.
Result<void> visitShown(NodeSpace &space, const std::function<Result<void>(const PieceInfo &)> &see)
{
    return visitManifests(space.domain().blobs(), space.domain().nodeKey(),
                          [&](const StoredManifest &stored) -> Result<void> {
                              if (stored.place == ManifestPlace::removed)
                                  return {};
                              const auto shown = space.readShown(stored.blob, stored.blobName);
                              if (!shown && !isUnreadable(shown.error()))
                                  return shown.error();
                              return shown && *shown ? see(**shown) : Result<void>();
                          });
}

std::string piecesText(std::uint64_t count, const char *one, const char *several)
{
    return count == 1 ? std::string("1 piece ") + one
                      : std::to_string(count) + " pieces " + several;
}

Result<void> fillFilespace(NodeSpace &space, const std::string &place, BlobRemoval &removal)
{
    std::string known;
    ARCA_CHECK(visitShown(space, [&](const PieceInfo &piece) -> Result<void> {
        const std::string &name = piece.description.name.filespace;
        ARCA_TRY(const std::string its, space.filespacePlace(name));
        if (its == place) {
            known = name;
            ++removal.pieces;
        }
        return {};
    }));
    removal.goesWith = "the filespace" + (known.empty() ? "" : " " + printable(known, 400)) +
                       " is not registered any more";
    if (removal.pieces != 0)
        removal.goesWith += ", and " + piecesText(removal.pieces, "in it is", "in it are") +
                            " neither shown nor restored until it is registered again, as the "
                            "next backup into it does";
    return {};
}

Result<void> fillClass(NodeSpace &space, const std::string &place, BlobRemoval &removal)
{
    ARCA_CHECK(visitShown(space, [&](const PieceInfo &piece) -> Result<void> {
        ARCA_TRY(const std::string its, Policy::placeOf(piece.description.managementClass));
        removal.pieces += its == place ? 1 : 0;
        return {};
    }));
    ARCA_TRY(const std::string standard, Policy::placeOf(kDefaultClass));
    ARCA_TRY(const bool noted, areDefaultsNoted(space.domain().blobs()));
    removal.goesWith = place == standard && noted
                           ? "STANDARD is lost then: nothing bound to it expires until arca class "
                             "change STANDARD says again what it keeps"
                       : place == standard
                           ? "STANDARD is as it was when the repository was made"
                           : "the class is not defined any more, and what is bound to it never "
                             "expires";
    removal.goesWith +=
        "; " + piecesText(removal.pieces, "of this node is", "of this node are") + " bound to it";
    return {};
}

/// Says what a damaged record takes along, and counts the pieces that it concerns.
Result<void> fillGoesWith(NodeSpace &space, const RecordForm &kind, const std::string &blobName,
                          BlobRemoval &removal)
{
    struct Known {
        std::string_view place;
        const char *goesWith;
    };
    constexpr Known kKnown[] = {
        {form::access.place, "the node that it admitted may not read by it any more"},
        {form::changePlan.place, "each piece of its change stays as the piece's own record says"},
        {form::damage.place, "backups may count on that part of a pack until arca verify "
                             "--read-data finds it again"},
        {form::grant.place, "the node that it was made for may not read by that rule any more"},
        {form::group.place, "its pieces stay, and belong to no group"},
        {form::object.place, "what became of its piece since it was stored is forgotten: name "
                             "changes, owner, class and information"},
        {form::outcome.place, "how a change that is settled had ended is forgotten"},
        {form::heldPacks.place, "every pack is kept until the manifest beside it is given up"},
        {form::note.place, "pieces that it alone names are not missed when they get lost"},
        {form::defaults.place, "records from the repository's beginning are not missed when they "
                               "get lost, until arca init is run again"},
    };
    OtherStates others;
    if (isNumbered(kind)) {
        ARCA_TRY(others, otherStates(space, blobName));
    }
    if (!others.last.empty()) {
        removal.goesWith = "nothing else changes, as " + others.last + " has taken its place";
        return {};
    }
    if (!others.before.empty()) {
        removal.goesWith = "what " + others.before + " says holds again";
        return {};
    }
    const std::string place = blobName.substr(0, blobName.rfind('/'));
    if (kind.place == form::filespace.place)
        return fillFilespace(space, place, removal);
    if (kind.place == form::managementClass.place)
        return fillClass(space, place, removal);
    if (kind.place == form::graceTime.place) {
        ARCA_TRY(const bool noted, areDefaultsNoted(space.domain().blobs()));
        removal.goesWith = noted ? "no removed piece is purged by its time until arca grace sets "
                                   "the time again"
                                 : "removed pieces are kept for the 7 days of a new repository";
        return {};
    }
    for (const Known &known : kKnown)
        if (known.place == kind.place)
            removal.goesWith = known.goesWith;
    return {};
}

/// What removing it comes to, judged by the blob that `blob` reads and by no other of its name.
Result<BlobFate> judge(NodeSpace &space, const std::string &blobName, blob::BlobReader &blob)
{
    if (Quarantine(space.domain()).isManifest(blobName))
        return BlobFate::deleted;
    const auto checked = checkBlob(space, blobName, blob);
    if (checked)
        return refusal(blobName, "is not damaged");
    if (checked.error().kind != ErrorKind::damaged)
        return checked.error();
    return isManifestPlace(blobName, space.domain().nodeKey()) ? BlobFate::setAside
                                                               : BlobFate::deleted;
}

} // namespace

Result<BlobRemoval> fateOfBlob(NodeSpace &space, const std::string &blobName)
{
    ARCA_TRY(const auto blob, space.domain().blobs().open(blobName));
    BlobRemoval removal;
    ARCA_TRY(removal.fate, judge(space, blobName, *blob));
    const RecordKind *const kind =
        removal.fate == BlobFate::deleted ? recordKindAt(blobName) : nullptr;
    if (kind != nullptr)
        ARCA_CHECK(fillGoesWith(space, kind->form, blobName, removal));
    return removal;
}

Result<BlobRemoval> removeBlob(NodeSpace &space, const std::string &blobName)
{
    blob::BlobStore &blobs = space.domain().blobs();
    ARCA_TRY(const auto blob, blobs.open(blobName));
    ARCA_TRY(const BlobFate fate, judge(space, blobName, *blob));
    Quarantine quarantine(space.domain());
    BlobRemoval removal;
    removal.fate = fate;
    if (fate == BlobFate::setAside) {
        ARCA_TRY(removal.now, space.setAside(blobName, *blob));
        return removal;
    }
    if (quarantine.isManifest(blobName)) {
        const std::string lock = "reclaim-" + space.domain().nodeKey();
        ARCA_TRY(const auto turn, blobs.tryLock(lock, "giving up a damaged piece"));
        if (!turn)
            return Error{ErrorKind::conflict, "packs of this node are held by " +
                                                  blob::holderOf(blobs, lock) +
                                                  "; try again when that is over"};
        ARCA_CHECK(blob::withReserve(
            blobs, [&] { return Inventory(space.domain()).noteGivenUp(blobName); }));
        ARCA_CHECK(quarantine.giveUp(blobName));
        return removal;
    }
    ARCA_CHECK(blobs.remove(blobName, *blob));
    return removal;
}

} // namespace arca::store
