// The order of verifying, what is checked of each blob, and when a run ends.
#include "client/store/upkeep/verify.h"

#include "client/base/text.h"
#include "client/engine/mending/pack_check.h"
#include "client/engine/restoring/restore_plan.h"
#include "client/store/changes/object_record.h"
#include "client/store/keys/node_record.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/listing/remembered_name.h"
#include "client/store/log/activity_reader.h"
#include "client/store/marks/damage.h"
#include "client/store/marks/quarantine.h"
#include "client/store/nodes/access.h"
#include "client/store/pieces/inventory.h"
#include "client/store/pieces/manifest_writer.h"
#include "client/store/upkeep/record_kinds.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <set>

namespace arca::store
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMissingNamed = 100;
constexpr std::size_t kReadBytes = std::size_t{1} << 20;
constexpr auto kSaveEvery = std::chrono::seconds(10);

Error damaged(const std::string &what)
{
    return {ErrorKind::damaged, what};
}

/// What lies under a part of the names, which goes through the same checks.
struct Section {
    std::string prefix;
    Checked what;
    bool divided; // into 256 directories, because there may be many
};

/// In the order of checking, so that the last name that was checked says how far a round is.
/// Manifests come in the order in which they move (stored_manifests.h), so that a round meets each.
std::vector<Section> sectionsOf(const std::string &nodeKey, const std::string &nameKey)
{
    return {
        {"access/" + nodeKey + "/", Checked::record, false},
        {"changes/" + nodeKey + "/", Checked::record, false},
        {"classes/", Checked::record, false},
        {"damage/" + nodeKey + "/", Checked::record, false},
        {"filespaces/" + nodeKey + "/", Checked::record, false},
        {"grants/" + nodeKey + "/", Checked::record, false},
        {"groups/" + nodeKey + "/", Checked::record, false},
        {"inventory/" + nodeKey + "/", Checked::record, false},
        {"keys/", Checked::record, false},
        {"log/", Checked::record, false},
        {"nodes/" + nameKey + "/", Checked::record, false},
        {"objects/" + nodeKey + "/", Checked::record, false},
        {"options/", Checked::record, false},
        {"outcomes/" + nodeKey + "/", Checked::record, false},
        {"packs/" + nodeKey + "/", Checked::pack, true},
        {"reclaim/" + nodeKey + "/", Checked::record, false},
        {"coming/" + nodeKey + "/", Checked::piece, true},
        {"pieces/" + nodeKey + "/", Checked::piece, true},
        {"inactive/" + nodeKey + "/", Checked::piece, true},
        {"removed/" + nodeKey + "/", Checked::piece, true},
        {"quarantine/" + nodeKey + "/", Checked::piece, false},
    };
}

/// Whether a name begins with one of the directories of a divided section.
bool liesInPart(std::string_view rest)
{
    return rest.size() > 3 && rest[2] == '/' &&
           rest.substr(0, 2).find_first_not_of("0123456789abcdef") == rest.npos;
}

class Verification
{
public:
    Verification(NodeSpace &space, const VerifyRequest &request, const VerifyWatcher &watcher)
        : space_(space), blobs_(space.domain().blobs()), packs_(space.domain().packs()),
          damage_(space.domain()), quarantine_(space.domain()), request_(request), watcher_(watcher)
    {
    }

    Result<VerifyOutcome> run();

private:
    enum class Went { on, out }; // out: of the time or the number that the run may take

    VerifyRound &round() { return request_.readData ? state_.data : state_.structure; }
    Result<void> compareStock();
    Result<std::uint64_t> count();
    void tellStrays();
    Result<Went> checkSections();
    Result<Went> checkUnder(const Section &section, const std::string &directory);
    Result<Went> checkOne(const std::string &blobName, Checked what);
    Went tellQuarantined(const std::string &blobName);
    Result<void> checkRecord(const std::string &blobName);
    Result<void> checkLog(const std::string &blobName);
    Result<void> checkNode(ByteView bytes);
    bool isOwn(const RecordForm &form, const std::string &blobName) const;
    Result<void> checkFilespace(const std::string &blobName, Bytes stored);
    Result<void> checkRule(const std::string &blobName);
    Result<void> checkDamage(const std::string &blobName, ByteView bytes);
    Result<void> checkPack(const std::string &blobName);
    void record(const engine::DamagedPart &part, const std::string &reason);
    static std::string reasonOf(const engine::PackFindings &found);
    Result<void> checkPiece(const std::string &blobName);
    Result<void> checkFilespaceOf(const Manifest &manifest);
    Result<void> checkRuns(blob::BlobReader &blob, const Manifest &manifest);
    Result<void> readStream(blob::BlobReader &blob, const Manifest &manifest);

    bool isOut() const { return request_.maxDuration.count() != 0 && Clock::now() >= end_; }
    bool isGone(const std::string &blobName);
    void note(const std::string &blobName, Checked what, std::string reason);
    std::string nameOf(const std::string &blobName, Checked what);
    void tellProgress();
    void endRound();
    void save();

    NodeSpace &space_;
    blob::BlobStore &blobs_;
    const engine::PackStore &packs_;
    DamageRecords damage_;
    const Quarantine quarantine_;
    const VerifyRequest request_;
    const VerifyWatcher &watcher_;
    std::vector<Section> sections_;
    std::map<std::string, Checked> strays_;
    VerifyState state_;
    VerifyOutcome outcome_;
    VerifyProgress progress_;
    std::set<std::string> lostFilespaces_; // that were told
    bool cutShort_ = false;                // the time ran out within a piece
    Clock::time_point end_;
    Clock::time_point saved_ = Clock::now();
};

Result<VerifyOutcome> Verification::run()
{
    end_ = Clock::now() + request_.maxDuration;
    ARCA_TRY(const std::string nameKey, nodeKey(space_.node()));
    sections_ = sectionsOf(space_.domain().nodeKey(), nameKey);
    state_ = loadVerifyState(space_.domain().cache().directory(), space_.domain().nodeKey());
    if (!request_.isPartial() || round().began == 0) {
        const std::int64_t proven = round().proven;
        round() = VerifyRound{std::time(nullptr), proven, 0, {}};
    }
    ARCA_CHECK(compareStock());
    ARCA_TRY(const std::uint64_t blobs, count());
    progress_.planned = (blobs * request_.percent + 99) / 100;
    if (round().last.empty())
        tellStrays();
    ARCA_TRY(const Went went, checkSections());
    if (went == Went::on)
        endRound();
    if (outcome_.hurt() != 0 || outcome_.uncounted)
        state_.structure.proven = state_.data.proven = 0;
    save();
    outcome_.roundEnded = went == Went::on;
    outcome_.bytesRead = progress_.bytes;
    outcome_.round = round();
    return outcome_;
}

/// What should be there and is not lies under no name that could be checked.
Result<void> Verification::compareStock()
{
    ARCA_TRY(const auto claims, blobs_.livingWriters());
    Inventory inventory(space_.domain());
    ARCA_TRY(const Stock stock, inventory.check());
    outcome_.missing = stock.missing.size();
    for (std::size_t i = 0; i < std::min(stock.missing.size(), kMissingNamed) && watcher_.hurt; ++i)
        watcher_.hurt({Checked::piece, toHex(stock.missing[i]),
                       "it was stored and never purged, and is not there any more"});
    outcome_.uncounted = stock.uncounted;
    bool packs = false;
    if (stock.found == 0 && claims.empty())
        ARCA_CHECK(packs_.list([&](const engine::PackName &) { return !(packs = true); }));
    outcome_.onlyPacks = packs;
    // A round of several runs counts them once.
    if (round().hurt == 0)
        round().hurt = outcome_.missing + (packs ? 1 : 0);
    return {};
}

Result<std::uint64_t> Verification::count()
{
    std::uint64_t blobs = 0;
    for (const Section &section : sections_)
        ARCA_CHECK(blobs_.list(section.prefix, [&](const std::string &name) {
            ++blobs;
            if (section.divided &&
                !liesInPart(std::string_view(name).substr(section.prefix.size())))
                strays_.emplace(name, section.what);
            return true;
        }));
    ARCA_CHECK(blobs_.list("log/", [&](const std::string &name) {
        if (name.find('/', 4) == name.npos)
            strays_.emplace(name, Checked::record); // in a day's place
        return true;
    }));
    return blobs;
}

/// What lies where no pack and no manifest can, above all a symbolic link in a directory's place:
/// what was behind it cannot be read.
void Verification::tellStrays()
{
    for (const auto &[name, what] : strays_) {
        const auto opened = blobs_.open(name);
        if (opened || opened.error().kind != ErrorKind::notFound)
            note(name, what,
                 opened ? "nothing of the repository has such a name" : opened.error().text);
    }
}

Result<Verification::Went> Verification::checkSections()
{
    // Where the round is. One that is in no section begins with the first.
    const auto reached = std::find_if(sections_.begin(), sections_.end(), [&](const Section &one) {
        return round().last.starts_with(one.prefix);
    });
    if (reached == sections_.end())
        round().last.clear();
    for (auto at = reached == sections_.end() ? sections_.begin() : reached; at != sections_.end();
         ++at) {
        const Section &section = *at;
        for (unsigned part = 0; part < (section.divided ? 256U : 1U); ++part) {
            const auto digits = static_cast<std::byte>(part);
            const std::string directory =
                section.divided ? toHex(ByteView(&digits, 1)) + "/" : std::string();
            if (strays_.contains(section.prefix + directory.substr(0, 2)))
                continue; // no directory
            ARCA_TRY(const Went went, checkUnder(section, directory));
            if (went == Went::out)
                return went;
        }
    }
    return Went::on;
}

Result<Verification::Went> Verification::checkUnder(const Section &section,
                                                    const std::string &directory)
{
    std::vector<std::string> names;
    ARCA_CHECK(blobs_.list(section.prefix + directory, [&](const std::string &name) {
        if (name.starts_with(quarantine_.prefix()) && !quarantine_.isManifest(name))
            return true; // what a manifest there may need
        // Names of sections that come later are not compared.
        if (!round().last.starts_with(section.prefix) || name > round().last)
            names.push_back(name);
        return true;
    }));
    std::sort(names.begin(), names.end());
    for (const std::string &name : names) {
        ARCA_TRY(const Went went, checkOne(name, section.what));
        if (went == Went::out)
            return went;
    }
    return Went::on;
}

Result<Verification::Went> Verification::checkOne(const std::string &blobName, Checked what)
{
    // What is begun first is finished, or a piece that takes longer than a run would never be.
    const bool first = progress_.done == 0;
    if (!first && (isOut() || (request_.percent < 100 && progress_.done >= progress_.planned)))
        return Went::out;
    if (quarantine_.isManifest(blobName))
        return tellQuarantined(blobName);
    const auto check = what == Checked::record ? &Verification::checkRecord
                       : what == Checked::pack ? &Verification::checkPack
                                               : &Verification::checkPiece;
    const auto checked = (this->*check)(blobName);
    if (cutShort_)
        return Went::out;
    if (!checked && !isGone(blobName))
        note(blobName, what,
             what == Checked::record && recordKindAt(blobName) != nullptr
                 ? aboutRecord(checked.error(), blobName).text
                 : checked.error().text);
    ++(what == Checked::record ? outcome_.records
       : what == Checked::pack ? outcome_.packs
                               : outcome_.pieces);
    ++progress_.done;
    round().last = blobName;
    tellProgress();
    if (Clock::now() - saved_ >= kSaveEvery)
        save();
    return Went::on;
}

/// A piece that was acknowledged, and is not there for a restore.
Verification::Went Verification::tellQuarantined(const std::string &blobName)
{
    if (isGone(blobName))
        return Went::on;
    ++outcome_.quarantined;
    ++round().hurt;
    if (watcher_.hurt)
        watcher_.hurt({Checked::piece, nameOf(blobName, Checked::piece),
                       "it is damaged and was set aside; arca repair brings it back when it can be "
                       "read after all, arca rm --blob gives it up"});
    ++progress_.done;
    round().last = blobName;
    return Went::on;
}

/// Lines of other nodes, and of one that had the name before, are sealed for them: of these only
/// the form can be checked.
Result<void> Verification::checkLog(const std::string &blobName)
{
    ARCA_TRY(const LogSeal seal, LogSeal::of(space_.dataKey()));
    ARCA_TRY(const std::size_t unreadable, unreadableLines(blobs_, blobName, space_.node(), seal));
    if (unreadable == 0)
        return {};
    return damaged(std::to_string(unreadable) + (unreadable == 1 ? " line" : " lines") +
                   " of the activity log in it cannot be read; arca log --prune deletes old ones");
}

/// What only the node itself can tell of its record, and what every node needs to be recovered.
Result<void> Verification::checkNode(ByteView bytes)
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

Result<void> Verification::checkRecord(const std::string &blobName)
{
    if (blobName.starts_with("log/"))
        return checkLog(blobName);
    ARCA_TRY(Bytes stored, blob::readWhole(blobs_, blobName, maxRecordBytesAt(blobName)));
    if (isOwn(form::filespace, blobName))
        ARCA_CHECK(checkFilespace(blobName, stored));
    ARCA_TRY(const Bytes bytes,
             recordAt(space_.domain(), blobName, std::move(stored), request_.shared));
    const RecordKind *const kind = recordKindAt(blobName);
    if (kind == nullptr)
        return damaged("no record has such a name");
    ARCA_CHECK(kind->check(bytes));
    if (kind->form.place == form::node.place)
        return checkNode(bytes);
    if (kind->form.place == form::access.place)
        return checkRule(blobName);
    return kind->form.place == form::damage.place ? checkDamage(blobName, bytes) : Result<void>();
}

bool Verification::isOwn(const RecordForm &form, const std::string &blobName) const
{
    return blobName.starts_with(std::string(form.place) + space_.domain().nodeKey() + "/");
}

/// Nobody without the key may say anything of a filespace but that it is deleted.
Result<void> Verification::checkFilespace(const std::string &blobName, Bytes stored)
{
    const RecordSeal seal(space_.domain());
    ARCA_TRY(auto opened, seal.lenient().open(blobName, std::move(stored)));
    return decodeFilespaceState({0, std::move(opened.record), opened.proven}, seal)
               ? Result<void>()
               : damaged("this node did not write it, or its bytes are not what was written");
}

/// The mark of a rule is the node's, which nobody else can look at.
Result<void> Verification::checkRule(const std::string &blobName)
{
    if (!isOwn(form::access, blobName))
        return {};
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
Result<void> Verification::checkDamage(const std::string &blobName, ByteView bytes)
{
    ARCA_TRY(const DamageRecord record, decodeDamage(bytes));
    if (damage_.partIn(blobName) != record.part)
        return damaged("it is another one than its place says");
    const auto pack = blobs_.open(packs_.blobNameOf({record.part.pack, record.part.revision}));
    if (pack || pack.error().kind != ErrorKind::notFound)
        return {};
    const auto passed = damage_.passOnGaps(packs_, record.part, record.found);
    if (passed && damage_.remove(record.part))
        ++outcome_.healed; // else the next run tries again
    return {};
}

Result<void> Verification::checkPack(const std::string &blobName)
{
    const auto which = packs_.nameFrom(blobName);
    if (!which || packs_.blobNameOf(*which) != blobName)
        return damaged("no pack has such a name");
    ARCA_TRY(const engine::PackFindings found,
             engine::checkPack(space_.domain(), *which,
                               request_.readData ? engine::CheckDepth::data
                                                 : engine::CheckDepth::structure,
                               [&](std::size_t bytes) {
                                   progress_.bytes += bytes;
                                   tellProgress();
                               }));
    ARCA_CHECK(blobs_.open(blobName)); // what was removed meanwhile is no damage
    for (const engine::DamagedPart &part : found.damaged)
        record(part, found.reason);
    ARCA_TRY(const engine::DamagedParts known, damage_.of(*which));
    std::size_t before = 0;
    for (const engine::DamagedPart &part : known.all()) {
        const bool again = std::ranges::count(found.damaged, part) != 0;
        const bool looked =
            part.kind == engine::DamageKind::whole ||
            (part.kind == engine::DamageKind::frame && request_.readData && !found.isWhole());
        if (looked && !again && damage_.remove(part))
            ++outcome_.healed;
        before += !looked && part.kind == engine::DamageKind::frame ? 1 : 0;
    }
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
void Verification::record(const engine::DamagedPart &part, const std::string &reason)
{
    if (blobs_.open(damage_.nameOf(part)))
        return;
    if (damage_.note(part, "verifying: " + reason))
        ++outcome_.recorded;
}

std::string Verification::reasonOf(const engine::PackFindings &found)
{
    if (found.damaged.size() == 1)
        return partText(found.damaged.front()) + ": " + found.reason;
    return std::to_string(found.damaged.size()) + " frames, the first is " +
           partText(found.damaged.front()) + ": " + found.reason;
}

Result<void> Verification::checkPiece(const std::string &blobName)
{
    // As for a restore: what is found while the claim is held stays until it goes. Without one,
    // where nothing can be written, nothing is taken away either.
    auto claim = blobs_.begin();
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
    ARCA_CHECK(checkFilespaceOf(manifest));
    return request_.readData ? readStream(*blob, manifest) : checkRuns(*blob, manifest);
}

/// Without the record the piece shows nowhere. Told once: it may be the same for a million pieces.
Result<void> Verification::checkFilespaceOf(const Manifest &manifest)
{
    const std::string &name = manifest.info.description.name.filespace;
    ARCA_TRY(const bool known, space_.everHadFilespace(name));
    if (!known && lostFilespaces_.insert(name).second) {
        ++outcome_.hurtRecords;
        ++round().hurt;
        if (watcher_.hurt)
            watcher_.hurt({Checked::record, name, lostFilespaceText(name)});
    }
    return {};
}

Result<void> Verification::checkRuns(blob::BlobReader &blob, const Manifest &manifest)
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

Result<void> Verification::readStream(blob::BlobReader &blob, const Manifest &manifest)
{
    const PieceTotals &totals = manifest.info.totals;
    const bool first = progress_.done == 0;
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
        progress_.bytes += got;
        tellProgress();
        cutShort_ = !first && isOut();
        if (cutShort_)
            return {};
    }
    if (length != totals.streamBytes)
        return damaged("its stream ends early");
    if (digest.value() != totals.digest)
        return damaged("the digest of the whole differs");
    return {};
}

/// Whatever was wrong with a blob that is not there any more is no fault.
bool Verification::isGone(const std::string &blobName)
{
    const auto blob = blobs_.open(blobName);
    return !blob && blob.error().kind == ErrorKind::notFound;
}

void Verification::note(const std::string &blobName, Checked what, std::string reason)
{
    ++(what == Checked::record ? outcome_.hurtRecords
       : what == Checked::pack ? outcome_.hurtPacks
                               : outcome_.hurtPieces);
    ++round().hurt;
    // Some reasons begin with where it was, which the name says already.
    if (const auto at = reason.find(blobName + ": "); at != std::string::npos && at < 32)
        reason.erase(0, at + blobName.size() + 2);
    if (watcher_.hurt)
        watcher_.hurt({what, nameOf(blobName, what), std::move(reason)});
}

std::string Verification::nameOf(const std::string &blobName, Checked what)
{
    if (what != Checked::piece)
        return blobName;
    if (const auto blob = blobs_.open(blobName)) {
        const auto description = readDescription(**blob, space_.domain().manifestKey());
        if (description)
            return description->name.joined();
    }
    const std::string remembered = rememberedName(space_, blobName);
    return remembered.empty() ? blobName : remembered + " (" + blobName + ")";
}

void Verification::tellProgress()
{
    if (watcher_.progress)
        watcher_.progress(progress_);
}

void Verification::endRound()
{
    VerifyRound &ended = round();
    if (ended.hurt == 0 && outcome_.hurt() == 0 && !outcome_.uncounted)
        ended.proven = ended.began;
    // Whoever reads everything has seen the structure, too.
    if (request_.readData)
        state_.structure.proven = std::max(state_.structure.proven, ended.proven);
    ended.began = 0; // and what was hurt stays to be told until the next round begins
    ended.last.clear();
}

void Verification::save()
{
    saved_ = Clock::now();
    saveVerifyState(space_.domain().cache().directory(), space_.domain().nodeKey(), state_);
}

} // namespace

Result<VerifyOutcome> verify(NodeSpace &space, const VerifyRequest &request,
                             const VerifyWatcher &watcher)
{
    return Verification(space, request, watcher).run();
}

} // namespace arca::store
