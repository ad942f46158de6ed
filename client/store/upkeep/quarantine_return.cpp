// From the quarantine to the plain name: see the header.
#include "client/store/upkeep/quarantine_return.h"

#include "client/base/text.h"
#include "client/store/changes/change_outcome.h"
#include "client/store/changes/coming_piece.h"
#include "client/store/marks/marked_packs.h"
#include "client/store/marks/quarantine.h"
#include "client/store/pieces/inventory.h"

#include <algorithm>
#include <ctime>
#include <optional>

namespace arca::store
{

namespace
{

constexpr std::size_t kCopyBytes = std::size_t{1} << 20;

class Return
{
public:
    Return(NodeSpace &space, bool dryRun)
        : space_(space), domain_(space.domain()), blobs_(domain_.blobs()), quarantine_(domain_),
          dryRun_(dryRun)
    {
    }

    /// Returns nothing when it cannot be read, is none that was set aside by its place, or left the
    /// quarantine meanwhile without this repair.
    Result<std::optional<SetAside>> bringBack(const std::string &blobName);

private:
    std::string plainNameOf(const std::string &blobName) const;
    Result<Manifest> readAll(blob::BlobReader &blob, const std::string &plain,
                             std::set<engine::PackId> &packs) const;
    Result<std::string> whyItStays(const Manifest &manifest, const std::set<engine::PackId> &packs,
                                   const Mark &mark, const std::string &blobName) const;
    /// What became of a piece since it was set aside.
    struct Since {
        bool elsewhere = false; // it is in another place, or lives on under another identifier
        bool gone = false;      // it is noted as gone for good
        std::string blobName;   // that it is in, if it has the same identifier
        std::string reason;     // why it is not brought back; empty: it is nowhere
    };
    Result<Since> sinceThen(PieceId id, const std::string &but);
    Result<void> lookThrough(PieceId id, const std::string &prefix, bool inactive,
                             const std::string &but, Since &since);
    Result<bool> hasMoved(PieceId id);
    Result<void> drop(blob::BlobReader &blob, PieceId id, const Since &since, SetAside &aside);
    Result<void> write(blob::BlobReader &blob, const Manifest &manifest, SetAside &aside);
    Result<void> writeActive(blob::BlobReader &blob, const Manifest &manifest, SetAside &aside);
    Result<void> writeAs(blob::BlobReader &blob, const Manifest &manifest, bool inactive,
                         const std::string &name);
    std::unique_ptr<blob::BlobWriter> &copyFor(bool inactive)
    {
        return inactive ? inactiveCopy_ : copy_;
    }
    Result<bool> isThere(const std::string &name, PieceId id) const;

    NodeSpace &space_;
    engine::Domain &domain_;
    blob::BlobStore &blobs_;
    Quarantine quarantine_;
    const bool dryRun_;
    // What is published was the claim before the marks were read. Were it another file, the run
    // that takes the claim for dead would not keep this from being published.
    std::unique_ptr<blob::BlobWriter> copy_, inactiveCopy_;
    std::string published_; // the last name that this process put the piece under itself
};

/// The digest is followed by a dot, the place, a dash and the last part of the name that it had.
/// What waited in coming/ would be found there by no change any more.
std::string Return::plainNameOf(const std::string &blobName) const
{
    const auto dot = blobName.find('.', quarantine_.prefix().size());
    const auto dash = blobName.find('-', dot == std::string::npos ? 0 : dot);
    if (dot == std::string::npos || dash == std::string::npos)
        return {};
    const std::string last = blobName.substr(dash + 1);
    const std::string name = blobName.substr(dot + 1, dash - dot - 1) + "/" + domain_.nodeKey() +
                             "/" + last.substr(0, 2) + "/" + last;
    return isComingName(name) ? activeNameOf(name) : name;
}

/// Every run of it, too; `packs` receives what it needs.
Result<Manifest> Return::readAll(blob::BlobReader &blob, const std::string &plain,
                                 std::set<engine::PackId> &packs) const
{
    ARCA_TRY(Manifest manifest, space_.readOwn(blob, plain));
    ManifestRuns runs(blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return manifest;
        if (run->blocks != 0)
            packs.insert(run->pack);
    }
}

Result<std::optional<SetAside>> Return::bringBack(const std::string &blobName)
{
    const std::string plain = plainNameOf(blobName);
    // The claims come first, then the marks.
    if (!dryRun_) {
        ARCA_TRY(copy_, domain_.beginBlob());
        ARCA_TRY(inactiveCopy_, domain_.beginBlob());
    }
    ARCA_TRY(const CurrentMark current, currentMark(domain_));
    const auto blob = blobs_.open(blobName);
    std::set<engine::PackId> packs;
    const auto manifest = blob ? readAll(**blob, plain, packs) : Result<Manifest>(blob.error());
    if (!manifest &&
        (isUnreadable(manifest.error()) || manifest.error().kind == ErrorKind::notFound))
        return std::optional<SetAside>();
    ARCA_CHECK(manifest);
    SetAside aside{blobName, manifest->info.description.name.joined(), plain, {}};
    std::unique_ptr<blob::BlobLock> turn;
    if (!dryRun_) {
        ARCA_TRY(turn, space_.lockChanges());
    }
    ARCA_TRY(const Since since, sinceThen(manifest->info.id, {}));
    if (since.elsewhere) {
        ARCA_CHECK(drop(**blob, manifest->info.id, since, aside));
    } else {
        aside.reason = since.reason;
        if (aside.reason.empty()) {
            ARCA_TRY(aside.reason, whyItStays(*manifest, packs, current.mark, blobName));
        }
        if (aside.reason.empty() && !dryRun_)
            ARCA_CHECK(write(**blob, *manifest, aside));
    }
    if (aside.reason.empty())
        return std::optional(std::move(aside));
    aside.now.clear();
    if (aside.dropped)
        return std::optional(std::move(aside));
    // Another repair may have ended it meanwhile: then it does not stay, and that one reported it.
    const auto still = blobs_.open(blobName);
    if (!still && still.error().kind == ErrorKind::notFound)
        return std::optional<SetAside>();
    return std::optional(std::move(aside));
}

/// Adds what lies under a prefix that is of this piece alone; `but` is passed over.
Result<void> Return::lookThrough(PieceId id, const std::string &prefix, bool inactive,
                                 const std::string &but, Since &since)
{
    std::vector<std::string> names;
    ARCA_CHECK(blobs_.list(prefix, [&](const std::string &name) {
        if (name != but)
            names.push_back(name);
        return true;
    }));
    for (const std::string &name : names) {
        const auto blob = blobs_.open(name);
        if (!blob && blob.error().kind == ErrorKind::notFound)
            continue; // in the next place by now
        if (blob && inactive) {
            const auto shown = space_.readShown(**blob, name);
            if (shown && !*shown)
                continue; // of a change that is not done
        }
        const auto there = isThere(name, id);
        if (!there && !isUnreadable(there.error()))
            return there.error();
        if (there && *there) {
            since = {true, false, name,
                     inactive ? "it is an inactive piece already"
                              : "it is among the removed pieces already"};
            return {};
        }
        since.reason = "it may be in " + name + ", too, which cannot be read";
    }
    return {};
}

Result<bool> Return::hasMoved(PieceId id)
{
    ARCA_TRY(const auto state, ObjectRecords(domain_).read(id));
    if (state.record.renamedTo == 0 || state.record.goneBy == 0)
        return state.record.renamedTo != 0;
    ARCA_TRY(const auto outcome, Outcomes(domain_).find(state.record.goneBy));
    return outcome && outcome->decision == Decision::done;
}

/// Not whether it is active, which claiming its name tells. A piece is in its next place before it
/// leaves the one before, and noted as gone before it leaves the last: so in this order.
Result<Return::Since> Return::sinceThen(PieceId id, const std::string &but)
{
    const std::string digits = toHex(id), &key = domain_.nodeKey();
    Since since;
    ARCA_CHECK(lookThrough(
        id, placePrefix(ManifestPlace::inactive, key) + digits.substr(0, 2) + "/" + digits, true,
        but, since));
    if (since.elsewhere)
        return since;
    ARCA_TRY(const bool moved, hasMoved(id));
    if (moved)
        return Since{true, false, {}, "it has another identifier by now"};
    ARCA_CHECK(lookThrough(id, removedPrefixOf(key, id), false, but, since));
    if (since.elsewhere)
        return since;
    ARCA_TRY(since.gone, Inventory(domain_).hasGone(id));
    // Of several damaged manifests of one name the wrong one may have been noted as given up.
    if (since.gone)
        since.reason = "it is noted as purged, or given up; arca rm --blob gives this up, too";
    return since;
}

/// Takes out of the quarantine what is elsewhere.
Result<void> Return::drop(blob::BlobReader &blob, PieceId id, const Since &since, SetAside &aside)
{
    aside.dropped = true;
    aside.reason = since.reason;
    if (dryRun_)
        return {};
    if (!since.blobName.empty())
        ARCA_CHECK(blobs_.sync(since.blobName));
    auto left = quarantine_.giveUp(aside.blobName);
    if (!left && left.error().kind != ErrorKind::notFound)
        return left;
    // As in write().
    ARCA_TRY(const Since now, sinceThen(id, {}));
    return now.elsewhere || now.gone ? Result<void>() : quarantine_.keep(aside.blobName, blob);
}

/// Empty when nothing keeps it.
Result<std::string> Return::whyItStays(const Manifest &manifest,
                                       const std::set<engine::PackId> &packs, const Mark &mark,
                                       const std::string &blobName) const
{
    const std::string &filespace = manifest.info.description.name.filespace;
    ARCA_TRY(const auto known, space_.filespace(filespace));
    if (!known)
        return "its filespace " + printable(filespace) + " is not registered any more";
    const bool waited = blobName.find(".coming-") != std::string::npos;
    ARCA_TRY(const bool stored, space_.wasStored(manifest.info.id, waited));
    if (!stored)
        return std::string("the transaction that it came with was not committed");
    if (std::ranges::any_of(packs, [&](const auto &pack) { return mark.packs.contains(pack); }))
        return std::string("packs that it needs are being reclaimed; run it again after arca "
                           "reclaim");
    return std::string();
}

Result<void> Return::write(blob::BlobReader &blob, const Manifest &manifest, SetAside &aside)
{
    const PieceId id = manifest.info.id;
    if (aside.now.starts_with("pieces/")) {
        ARCA_CHECK(writeActive(blob, manifest, aside));
    } else if (const auto written = writeAs(blob, manifest, false, aside.now); !written) {
        if (written.error().kind != ErrorKind::exists)
            return written;
        aside.reason = "another blob has its name by now, " + aside.now;
    }
    if (!aside.reason.empty())
        return {};
    if (published_ == aside.now) {
        // Another repair may have brought it back before, and it went on from there meanwhile.
        ARCA_TRY(const Since since, sinceThen(id, aside.now));
        aside.reason = since.reason;
        if (!since.reason.empty())
            space_.giveNameBack({manifest.info.description.name, aside.now, id});
        if (!since.reason.empty())
            return since.elsewhere ? drop(blob, id, since, aside) : Result<void>();
    }
    auto left = quarantine_.giveUp(aside.blobName);
    if (!left && left.error().kind != ErrorKind::notFound)
        return left;
    // A process that found it damaged may have counted on what left the quarantine just now.
    ARCA_TRY(const bool there, isThere(aside.now, id));
    return there ? Result<void>() : quarantine_.keep(aside.blobName, blob);
}

Result<void> Return::writeActive(blob::BlobReader &blob, const Manifest &manifest, SetAside &aside)
{
    const PieceInfo &info = manifest.info;
    const NodeSpace::PutPiece piece{info.description.name, aside.now, info.id};
    const auto written = writeAs(blob, manifest, false, aside.now);
    const auto claimed = written ? space_.claimName(piece, 0) : written;
    if (claimed)
        return {};
    const ErrorKind lost = claimed.error().kind;
    if (lost != ErrorKind::exists && lost != ErrorKind::conflict)
        return claimed;
    aside.reason = "another blob has its name by now, " + aside.now;
    if (lost == ErrorKind::conflict || !space_.keepsRemoved())
        return {};
    const std::string digits = toHex(info.id);
    const std::string inactive =
        "inactive/" + domain_.nodeKey() + "/" + digits.substr(0, 2) + "/" + digits;
    const bool isMine = published_ == aside.now;
    const auto kept = writeAs(blob, manifest, true, inactive);
    if (!kept && kept.error().kind == ErrorKind::exists)
        return {};
    ARCA_CHECK(kept);
    if (isMine)
        space_.giveNameBack(piece);
    aside.now = inactive;
    aside.reason.clear();
    return {};
}

/// Fine when the piece is there already. Errors: exists when another one is.
Result<void> Return::writeAs(blob::BlobReader &blob, const Manifest &manifest, bool inactive,
                             const std::string &name)
{
    blob::BlobWriter *const copy = copyFor(inactive).get();
    Bytes buffer(kCopyBytes);
    for (std::uint64_t offset = 0; offset < blob.size();) {
        ARCA_TRY(const std::size_t got, blob.read(offset, buffer));
        if (got == 0)
            return Error{ErrorKind::io, "a blob of the quarantine was cut while it was read"};
        ARCA_CHECK(copy->append(ByteView(buffer).first(got)));
        offset += got;
    }
    if (inactive) {
        ARCA_TRY(const Bytes note,
                 encodeInactiveNote(domain_.manifestKey(), manifest.info.id, std::time(nullptr)));
        ARCA_CHECK(copy->append(note));
    }
    const auto committed = copy->commit(name);
    if (!committed && committed.error().kind != ErrorKind::exists)
        return committed;
    if (committed)
        published_ = name;
    ARCA_TRY(const bool there, isThere(name, manifest.info.id));
    if (!there)
        return Error{ErrorKind::exists, "the name " + name + " is in use"};
    return blobs_.sync(name);
}

/// As what was written is soon the only one, it is read whole.
Result<bool> Return::isThere(const std::string &name, PieceId id) const
{
    const auto blob = blobs_.open(name);
    if (!blob && blob.error().kind != ErrorKind::notFound)
        return blob.error();
    std::set<engine::PackId> packs;
    const auto manifest = blob ? readAll(**blob, name, packs) : Result<Manifest>(blob.error());
    return manifest && manifest->info.id == id;
}

} // namespace

Result<void> bringBackReadable(NodeSpace &space, bool dryRun,
                               const std::function<void(const SetAside &)> &visit)
{
    const Quarantine quarantine(space.domain());
    std::vector<std::string> names;
    ARCA_CHECK(space.domain().blobs().list(quarantine.prefix(), [&](const std::string &name) {
        if (quarantine.isManifest(name))
            names.push_back(name);
        return true;
    }));
    for (const std::string &name : names) {
        ARCA_TRY(const auto aside, Return(space, dryRun).bringBack(name));
        if (aside)
            visit(*aside);
    }
    return {};
}

} // namespace arca::store
