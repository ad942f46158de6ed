// The proofs of records, packs and pieces.
#include "client/store/upkeep/blob_proof.h"

#include "client/engine/restoring/restore_plan.h"
#include "client/engine/restoring/stream_reader.h"
#include "client/store/changes/object_record.h"
#include "client/store/keys/node_record.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/log/activity_reader.h"
#include "client/store/nodes/access.h"
#include "client/store/pieces/manifest_writer.h"
#include "client/store/upkeep/record_kinds.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::size_t kReadBytes = std::size_t{1} << 20;

Error damaged(const std::string &what)
{
    return {ErrorKind::damaged, what};
}

std::string reasonOf(const engine::PackFindings &found)
{
    if (found.damaged.size() == 1)
        return partText(found.damaged.front()) + ": " + found.reason;
    return std::to_string(found.damaged.size()) + " frames, the first is " +
           partText(found.damaged.front()) + ": " + found.reason;
}

} // namespace

Result<void> BlobProof::prove(const std::string &blobName, Checked what)
{
    cutShort_ = false;
    switch (what) {
    case Checked::record:
        return proveRecord(blobName);
    case Checked::pack:
        return provePack(blobName);
    case Checked::piece:
        break;
    }
    return provePiece(blobName);
}

Result<void> BlobProof::proveRecord(const std::string &blobName)
{
    if (blobName.starts_with("log/"))
        return proveLog(blobName);
    ARCA_TRY(Bytes stored, blob::readWhole(blobs_, blobName, maxRecordBytesAt(blobName)));
    if (isOwn(form::filespace, blobName))
        ARCA_CHECK(proveFilespace(blobName, stored));
    ARCA_TRY(const Bytes bytes, recordAt(space_.domain(), blobName, std::move(stored), shared_));
    const RecordKind *const kind = recordKindAt(blobName);
    if (kind == nullptr)
        return damaged("no record has such a name");
    ARCA_CHECK(kind->check(bytes));
    if (kind->form.place == form::node.place)
        return proveNode(bytes);
    if (isOwn(form::access, blobName))
        return proveRule(blobName);
    return kind->form.place == form::damage.place ? proveDamage(blobName, bytes) : Result<void>();
}

/// Lines of other nodes, and of one that had the name before, are sealed for them: of these only
/// the form can be checked.
Result<void> BlobProof::proveLog(const std::string &blobName)
{
    ARCA_TRY(const LogSeal seal, LogSeal::of(space_.dataKey(), space_.incarnation()));
    ARCA_TRY(const std::size_t unreadable, unreadableLines(blobs_, blobName, space_.node(), seal));
    if (unreadable == 0)
        return {};
    return damaged(std::to_string(unreadable) + (unreadable == 1 ? " line" : " lines") +
                   " of the activity log in it cannot be read; arca log --prune deletes old ones");
}

/// What only the node itself can tell of its record, and what every node needs to be recovered.
Result<void> BlobProof::proveNode(ByteView bytes)
{
    ARCA_TRY(const NodeRecord record, decodeNodeRecord(bytes));
    if (record.removed)
        return {};
    ARCA_TRY(const bool proven, isProven(record, space_.dataKey()));
    if (!proven)
        return damaged(unprovenText(space_.node()));
    const auto recovery = recoveryHalf(blobs_); // damage of it is named by its own blob
    if (recovery && !*recovery)
        return damaged("the public half of the recovery key is not there (keys/recovery), so no "
                       "node can be registered; bring it back from a copy of the repository");
    return {};
}

bool BlobProof::isOwn(const RecordForm &form, const std::string &blobName) const
{
    return blobName.starts_with(std::string(form.place) + space_.domain().nodeKey() + "/");
}

/// Without the key a state may say of a filespace only that it is deleted.
Result<void> BlobProof::proveFilespace(const std::string &blobName, Bytes stored)
{
    const RecordSeal seal(space_.domain());
    ARCA_TRY(auto opened, seal.lenient().open(blobName, std::move(stored)));
    const auto state = decodeFilespaceState({0, std::move(opened.record), opened.proven}, seal);
    return state ? Result<void>() : state.error();
}

/// Only the node has the key to the mark of a rule.
Result<void> BlobProof::proveRule(const std::string &blobName)
{
    ARCA_TRY(AccessRules rules, AccessRules::of(blobs_, space_.node(), space_.incarnation()));
    std::vector<std::string> damagedRules;
    ARCA_CHECK(rules.list(space_.dataKey(), &damagedRules));
    return std::ranges::count(damagedRules, blobName) == 0
               ? Result<void>()
               : damaged("this node did not make it, and it grants nothing; arca rm --blob removes "
                         "it");
}

/// A record of damage goes when what it is about is gone. Gaps pass on to the next revision, which
/// has no more blocks than the one before.
Result<void> BlobProof::proveDamage(const std::string &blobName, ByteView bytes)
{
    ARCA_TRY(const DamageRecord record, decodeDamage(bytes));
    if (damage_.partIn(blobName) != record.part)
        return damaged("it is another one than its place says");
    const auto pack = blobs_.open(packs_.blobNameOf({record.part.pack, record.part.revision}));
    if (pack || pack.error().kind != ErrorKind::notFound)
        return {};
    const auto passed = damage_.passOnGaps(packs_, record.part, record.found);
    if (passed && damage_.remove(record.part))
        report_.healed(); // else the next run tries again
    return {};
}

/// Records of damage go for what was looked at and is right. Returns how many frames were found
/// damaged before and not looked at now.
Result<std::size_t> BlobProof::settleKnown(const engine::PackName &pack,
                                           const engine::PackFindings &found)
{
    ARCA_TRY(const engine::DamagedParts known, damage_.of(pack));
    std::size_t before = 0;
    for (const engine::DamagedPart &part : known.all()) {
        const bool again = std::ranges::count(found.damaged, part) != 0;
        const bool looked =
            part.kind == engine::DamageKind::whole ||
            (part.kind == engine::DamageKind::frame && readData_ && !found.isWhole());
        if (looked && !again && damage_.remove(part))
            report_.healed();
        before += !looked && part.kind == engine::DamageKind::frame ? 1 : 0;
    }
    return before;
}

Result<void> BlobProof::provePack(const std::string &blobName)
{
    const auto which = packs_.nameFrom(blobName);
    if (!which || packs_.blobNameOf(*which) != blobName)
        return damaged("no pack has such a name");
    const auto depth = readData_ ? engine::CheckDepth::data : engine::CheckDepth::structure;
    ARCA_TRY(const engine::PackFindings found,
             engine::checkPack(space_.domain(), *which, depth,
                               [&](std::size_t bytes) { report_.read(bytes); }));
    ARCA_CHECK(blobs_.open(blobName)); // what was removed meanwhile is no damage
    for (const engine::DamagedPart &part : found.damaged)
        record(part, found.reason);
    ARCA_TRY(const std::size_t before, settleKnown(*which, found));
    if (!found.isSound())
        return damaged(reasonOf(found));
    if (before != 0)
        return damaged(std::to_string(before) + (before == 1 ? " frame was" : " frames were") +
                       " found damaged before; --read-data looks again, arca repair mends");
    return {};
}

/// As well as it can be done: where nothing can be written, what is damaged is only named. Counts
/// what had no record: a part that an earlier run recorded, or this one when it read the pack, is
/// met again here.
void BlobProof::record(const engine::DamagedPart &part, const std::string &reason)
{
    if (blobs_.open(damage_.nameOf(part)))
        return;
    if (damage_.note(part, "verifying: " + reason))
        report_.recorded();
}

Result<void> BlobProof::provePiece(const std::string &blobName)
{
    // As for a restore: what is found while the claim is held stays until it goes. Without one,
    // where nothing can be written, nothing is taken away either.
    auto claim = space_.domain().beginBlob();
    if (!claim && claim.error().kind != ErrorKind::readOnly &&
        claim.error().kind != ErrorKind::denied && claim.error().kind != ErrorKind::full)
        return std::move(claim).error();
    ARCA_TRY(const auto blob, blobs_.open(blobName));
    ARCA_TRY(const Manifest manifest, space_.readOwn(*blob, blobName));
    // What a restore looks at besides: the records of the piece and of its filespace.
    if (parseRemovedName(space_.domain().nodeKey(), blobName))
        ARCA_CHECK(ObjectRecords(space_.domain()).read(manifest.info.id));
    else
        ARCA_CHECK(space_.readShown(*blob, blobName));
    ARCA_CHECK(proveFilespaceOf(manifest));
    return readData_ ? proveStream(*blob, manifest) : proveRuns(*blob, manifest);
}

/// Without the record the piece shows nowhere.
Result<void> BlobProof::proveFilespaceOf(const Manifest &manifest)
{
    const std::string &name = manifest.info.description.name.filespace;
    ARCA_TRY(const bool known, space_.everHadFilespace(name));
    if (!known)
        report_.lostFilespace(name);
    return {};
}

Result<void> BlobProof::proveRuns(blob::BlobReader &blob, const Manifest &manifest)
{
    ManifestRuns runs(blob, manifest);
    engine::RestorePlan plan(packs_, runs);
    std::uint64_t left = manifest.info.totals.streamBytes;
    for (;;) {
        auto next = plan.next();
        if (!next && plan.damage())
            record(*plan.damage(), next.error().text);
        ARCA_TRY(const auto extent, std::move(next));
        if (!extent)
            break;
        if (extent->length > left)
            return damaged("its stream is longer than it was");
        left -= extent->length;
    }
    if (left != 0)
        return damaged("its stream ends early");
    return {};
}

Result<void> BlobProof::proveStream(blob::BlobReader &blob, const Manifest &manifest)
{
    const PieceTotals &totals = manifest.info.totals;
    ManifestRuns runs(blob, manifest);
    ARCA_TRY(const auto stream, engine::StreamReader::begin(packs_, space_.settings(), runs));
    Bytes buffer(kReadBytes);
    StreamDigest digest;
    std::uint64_t length = 0;
    for (std::size_t got = buffer.size(); got == buffer.size();) {
        auto more = stream->read(buffer);
        if (!more && more.error().kind == ErrorKind::damaged)
            for (const engine::DamagedPart &part : stream->damage())
                record(part, more.error().text);
        ARCA_TRY(got, std::move(more));
        digest.update(ByteView(buffer).first(got));
        length += got;
        if (length > totals.streamBytes)
            return damaged("its stream is longer than it was");
        report_.read(got);
        cutShort_ = isOut_();
        if (cutShort_)
            return {};
    }
    if (length != totals.streamBytes)
        return damaged("its stream ends early");
    if (digest.value() != totals.digest)
        return damaged("the digest of the whole differs");
    return {};
}

} // namespace arca::store
