// Removing one damaged blob: see the header.
#include "client/store/blob_removal.h"

#include "client/base/text.h"
#include "client/blob/lock_holder.h"
#include "client/store/inventory.h"
#include "client/store/quarantine.h"
#include "client/store/record_forms.h"
#include "client/store/record_kinds.h"
#include "client/store/stored_manifests.h"

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
    const bool own = slash != std::string::npos &&
                     (blobName.starts_with("classes/") || blobName.starts_with("options/") ||
                      blobName.substr(slash + 1, key.size()) == key);
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

Result<BlobFate> fateOfBlob(NodeSpace &space, const std::string &blobName)
{
    ARCA_TRY(const auto blob, space.domain().blobs().open(blobName));
    return judge(space, blobName, *blob);
}

Result<BlobRemoval> removeBlob(NodeSpace &space, const std::string &blobName)
{
    blob::BlobStore &blobs = space.domain().blobs();
    ARCA_TRY(const auto blob, blobs.open(blobName));
    ARCA_TRY(const BlobFate fate, judge(space, blobName, *blob));
    Quarantine quarantine(space.domain());
    BlobRemoval removal{fate, {}};
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
