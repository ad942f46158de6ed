// The steps of a run, as the header numbers them.
#include "client/store/reclaim.h"

#include "client/base/text.h"
#include "client/engine/pack_rewriter.h"

#include <algorithm>
#include <ctime>
#include <limits>

namespace arca::store
{

namespace
{

/// The use of so many packs at once: some 2 KiB each, more with small blocks.
constexpr std::size_t kPacksAtOnce = 16 * 1024;

std::size_t shareOf(const engine::PackId &id, std::size_t shares)
{
    return (std::to_integer<std::size_t>(id[1]) << 8 | std::to_integer<std::size_t>(id[2])) %
           shares;
}

std::size_t countUnexplained(const engine::PackIndex *index, std::size_t blocks,
                             const BlockUse &use, const BlockUse &purged, std::size_t &unused)
{
    std::size_t unexplained = 0;
    for (std::size_t i = 0; i < blocks; ++i) {
        if ((i < use.size() && use[i]) || (index && index->blocks[i].dropped))
            continue;
        ++unused;
        unexplained += i < purged.size() && purged[i] ? 0 : 1;
    }
    return unexplained;
}

std::string countText(std::uint64_t count, const char *what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

Reclaim::Reclaim(NodeSpace &space, const ReclaimRequest &request)
    : space_(space), domain_(space.domain()), inventory_(space.domain()), request_(request),
      now_(std::time(nullptr))
{
}

/// What was stored, never removed, and is not there stops everything: what the missing manifests
/// need is not known.
Result<void> Reclaim::compareStock(bool accept, ReclaimTotals &totals)
{
    if (!inventory_.isKept())
        return {};
    ARCA_TRY(const Stock stock, inventory_.check());
    totals.damagedNotes = stock.damaged.size();
    if (stock.missing.empty())
        return {};
    totals.missingPieces = stock.missing.size();
    if (accept)
        return inventory_.noteWent(stock.missing);
    if (request_.acceptMissing)
        return {};
    return Error{ErrorKind::damaged,
                 countText(stock.missing.size(), "piece") + " of the node " +
                     printable(space_.node()) + " that " +
                     (stock.missing.size() == 1 ? "was" : "were") +
                     " stored and never removed cannot be found (the first: " +
                     toHex(stock.missing.front()) +
                     "), so nothing was freed; bring the missing files of the repository back, or "
                     "run arca reclaim --accept-missing " +
                     printable(space_.node()) + " if the pieces are lost for good"};
}

bool Reclaim::isOver(const RemovedName &name) const
{
    return name.at == 0 || (name.at <= now_ && now_ - name.at >= request_.grace);
}

bool Reclaim::leaves(const StoredManifest &stored, ReclaimTotals &totals)
{
    if (stored.place != ManifestPlace::removed)
        return false;
    const auto name = parseRemovedName(domain_.nodeKey(), stored.blobName);
    if (!name)
        return false;
    if (!isOver(*name)) {
        ++totals.keptPieces;
        return false;
    }
    over_.push_back(*name);
    return true;
}

/// Whether a pack is worth it: when half of it or more would be freed.
Result<std::optional<Reclaim::Candidate>> Reclaim::judge(const engine::PackId &id,
                                                         const BlockUse &use,
                                                         const BlockUse &purged,
                                                         ReclaimTotals &totals)
{
    auto opened = domain_.packs().open(id);
    if (!opened && opened.error().kind == ErrorKind::notFound)
        return std::optional<Candidate>(); // deleted since the listing
    const std::size_t used = countUsed(use);
    const bool isHeld = damaged_.heldPacks.contains(id);
    if (!opened && opened.error().kind == ErrorKind::damaged)
        return judgeDamaged(id, used == 0 && !isHeld, countUsed(purged) != 0, totals);
    ARCA_TRY(const auto pack, std::move(opened));
    ++totals.packs;
    totals.packBytes += pack->size();
    if (isHeld)
        return std::optional<Candidate>();
    Candidate candidate{id, pack->size(), pack->size(), 0, used == 0};
    const auto explain = [&](const engine::PackIndex *index) {
        std::size_t unused = 0;
        const std::size_t unexplained =
            countUnexplained(index, pack->blocks(), use, purged, unused);
        candidate.unexplained = unused == 0 ? 0 : candidate.freed / unused * unexplained;
        return std::optional<Candidate>(candidate);
    };
    // Only a pack that was rewritten has blocks that were dropped before.
    if (candidate.dead && pack->which().revision == 1)
        return explain(nullptr);
    if (used > pack->blocks() / 2)
        return std::optional<Candidate>();
    auto read = pack->readIndex();
    if (!read && read.error().kind == ErrorKind::damaged) {
        if (candidate.dead)
            return explain(nullptr);
        totals.damagedPacks.insert(pack->blobName());
        return std::optional<Candidate>();
    }
    ARCA_TRY(const engine::PackIndex index, std::move(read));
    if (candidate.dead)
        return explain(&index);
    std::uint64_t stored = 0;
    std::uint64_t live = 0;
    for (std::size_t i = 0; i < index.blocks.size(); ++i) {
        const std::uint64_t length = index.blocks[i].dropped ? 0 : index.blocks[i].length;
        stored += length;
        live += i < use.size() && use[i] ? length : 0;
    }
    if (live > stored / 2)
        return std::optional<Candidate>();
    candidate.freed =
        pack->size() / 1000 * ((stored - live) * 1000 / std::max<std::uint64_t>(stored, 1));
    return explain(&index);
}

/// A pack that cannot be opened is all dead or stays.
Result<std::optional<Reclaim::Candidate>>
Reclaim::judgeDamaged(const engine::PackId &id, bool dead, bool explained, ReclaimTotals &totals)
{
    std::uint64_t bytes = 0;
    ARCA_TRY(const auto revisions, domain_.packs().revisionsOf(id));
    for (const std::uint32_t revision : revisions) {
        const std::string name = domain_.packs().blobNameOf({id, revision});
        if (const auto blob = domain_.blobs().open(name))
            bytes += (*blob)->size();
        if (!dead)
            totals.damagedPacks.insert(name);
    }
    ++totals.packs;
    totals.packBytes += bytes;
    if (!dead)
        return std::optional<Candidate>();
    return std::optional(Candidate{id, bytes, bytes, explained ? 0 : bytes, true});
}

Result<std::vector<Reclaim::Candidate>> Reclaim::look(ReclaimTotals &totals)
{
    std::set<engine::PackId> packs;
    ARCA_CHECK(domain_.packs().list([&](const engine::PackName &pack) {
        packs.insert(pack.id);
        return true;
    }));
    std::vector<Candidate> found;
    const std::size_t shares = packs.size() / kPacksAtOnce + 1;
    for (std::size_t share = 0; share < shares; ++share) {
        over_.clear();
        totals.keptPieces = 0;
        Leaving leaving{[&](const StoredManifest &stored) { return leaves(stored, totals); }, {}};
        ARCA_TRY(PackUse use,
                 usedBlocks(
                     domain_,
                     [&](const engine::PackId &id) { return shareOf(id, shares) == share; },
                     &leaving, &damaged_));
        // Also what earlier looks of this run found, which is purged by now.
        for (auto &[id, blocks] : leaving.use)
            explained_[id] = std::move(blocks);
        for (const engine::PackId &id : packs) {
            if (shareOf(id, shares) != share)
                continue;
            ARCA_TRY(const auto candidate, judge(id, use[id], explained_[id], totals));
            if (candidate)
                found.push_back(*candidate);
        }
    }
    totals.purgedPieces = over_.size();
    return found;
}

/// Streams that were never finished leave packs that no removal explains, and so does a set of
/// manifests that got lost together with its notes.
Result<void> Reclaim::expectExplained(std::span<const Candidate> found,
                                      const ReclaimTotals &totals) const
{
    std::uint64_t unexplained = 0;
    for (const Candidate &candidate : found)
        unexplained += candidate.unexplained;
    if (!inventory_.isKept() || request_.acceptMissing || totals.packBytes == 0 ||
        unexplained * 100 <= totals.packBytes * request_.maxFreed)
        return {};
    const std::uint64_t percent =
        std::min<std::uint64_t>(unexplained * 100 / totals.packBytes + 1, 100);
    return Error{ErrorKind::damaged,
                 "this would free " + std::to_string(percent) + " percent of what the node " +
                     printable(space_.node()) +
                     " has stored without a removal that explains it, more than the " +
                     std::to_string(request_.maxFreed) +
                     " that are allowed, so nothing was freed; see whether pieces are missing "
                     "(arca ls), and allow it with --max-freed " +
                     std::to_string(percent)};
}

Result<void> Reclaim::purge(ReclaimTotals &totals)
{
    if (over_.empty())
        return {};
    std::vector<PieceId> went;
    for (const RemovedName &name : over_)
        went.push_back(name.id);
    ARCA_CHECK(inventory_.noteWent(std::move(went)));
    constexpr std::size_t kAtOnce = 64;
    for (std::span<const RemovedName> left = over_; !left.empty();) {
        const auto some = left.first(std::min(left.size(), kAtOnce));
        ARCA_CHECK(blob::withReserve(domain_.blobs(), [&] { return space_.purge(some); }));
        totals.purgedPieces += some.size();
        left = left.subspan(some.size());
    }
    over_.clear();
    return {};
}

Result<Mark> Reclaim::currentMark()
{
    ARCA_TRY(const auto state, markRecord(domain_).latest());
    if (!state)
        return Mark{};
    return parseMark(state->bytes);
}

/// Nobody else writes the record while the lock is held.
Result<void> Reclaim::writeMark(const Mark &mark)
{
    NumberedRecord record = markRecord(domain_);
    return blob::withReserve(domain_.blobs(), [&]() -> Result<void> {
        ARCA_TRY(const auto state, record.latest());
        return record.write(state ? state->number : 0, encodeMark(mark));
    });
}

Result<std::set<std::string>> Reclaim::stillLiving(const Mark &mark)
{
    ARCA_TRY(const std::set<std::string> now, domain_.blobs().livingWriters());
    if (!mark.claims)
        return now;
    std::set<std::string> left;
    std::set_intersection(mark.claims->begin(), mark.claims->end(), now.begin(), now.end(),
                          std::inserter(left, left.end()));
    return left;
}

void Reclaim::wait(const Mark &mark, std::set<std::string> living, ReclaimTotals &totals)
{
    totals.waitingFor.assign(living.begin(), living.end());
    for (const engine::PackId &id : mark.packs) {
        ++totals.waitingPacks;
        if (const auto pack = domain_.packs().open(id))
            totals.waitingBytes += (*pack)->size();
    }
}

Result<ReclaimTotals> Reclaim::plan()
{
    ReclaimTotals totals;
    damaged_.keepLists = false;
    ARCA_CHECK(compareStock(false, totals));
    ARCA_TRY(const Mark mark, currentMark());
    ARCA_TRY(const auto living, stillLiving(mark));
    ARCA_TRY(const auto found, look(totals));
    ARCA_CHECK(expectExplained(found, totals));
    for (const Candidate &candidate : found) {
        if (!living.empty()) {
            ++totals.waitingPacks;
            totals.waitingBytes += candidate.freed;
            continue;
        }
        ++(candidate.dead ? totals.deadPacks : totals.rewrittenPacks);
        totals.freedBytes += candidate.freed;
    }
    if (totals.waitingPacks != 0)
        totals.waitingFor.assign(living.begin(), living.end());
    totals.damagedManifests = damaged_.blobNames;
    return totals;
}

Result<ReclaimTotals> Reclaim::run(const Step &step)
{
    ARCA_TRY(const auto turn,
             domain_.blobs().tryLock("reclaim-" + domain_.nodeKey(), "reclaiming"));
    if (!turn)
        return Error{ErrorKind::conflict, "space of this node is being reclaimed already"};
    ARCA_CHECK(domain_.blobs().removeLeftovers());
    space_.settleChanges();
    ARCA_CHECK(deleteOldRevisions());
    ReclaimTotals totals;
    ARCA_CHECK(compareStock(request_.acceptMissing, totals));
    ARCA_TRY(Mark mark, currentMark());
    bool goOn = true;
    if (!mark.packs.empty()) {
        ARCA_TRY(goOn, settle(mark, step, totals));
    }
    for (bool first = true; goOn; first = false) {
        ReclaimTotals seen;
        ARCA_TRY(const auto found, look(seen));
        totals.packs = seen.packs;
        totals.packBytes = seen.packBytes;
        totals.damagedPacks.merge(seen.damagedPacks);
        totals.keptPieces = seen.keptPieces;
        // Once it has begun to free, nothing that is found can be a set of manifests that got lost.
        if (first)
            ARCA_CHECK(expectExplained(found, seen));
        if (!found.empty()) {
            ARCA_TRY(mark, markPacks(found));
        }
        ARCA_CHECK(purge(totals));
        if (found.empty())
            break;
        ARCA_TRY(goOn, settle(mark, step, totals));
        goOn = goOn && found.size() > kMaxMarkedPacks;
    }
    // Many notes do no harm, and the next run tries again.
    (void)inventory_.compact();
    domain_.blobs().keepReserve();
    totals.damagedManifests = damaged_.blobNames;
    return totals;
}

Result<Mark> Reclaim::markPacks(std::span<const Candidate> found)
{
    Mark mark;
    for (const Candidate &candidate : found.first(std::min(found.size(), kMaxMarkedPacks)))
        mark.packs.insert(candidate.id);
    ARCA_CHECK(writeMark(mark));
    // Only now: whoever begins after this sees the mark.
    ARCA_TRY(mark.claims, domain_.blobs().livingWriters());
    if (!mark.claims->empty())
        ARCA_CHECK(writeMark(mark));
    return mark;
}

/// Sweeps and unmarks, if nobody from before the mark lives; false when there is nothing more to do
/// for now.
Result<bool> Reclaim::settle(const Mark &mark, const Step &step, ReclaimTotals &totals)
{
    ARCA_TRY(auto living, stillLiving(mark));
    if (!living.empty()) {
        wait(mark, std::move(living), totals);
        return false;
    }
    ARCA_TRY(const bool goOn, sweep(mark, step, totals));
    if (goOn)
        ARCA_CHECK(writeMark(Mark{}));
    return goOn;
}

/// A run that was killed may have left the revision before the newest.
Result<void> Reclaim::deleteOldRevisions()
{
    std::map<engine::PackId, std::uint32_t> newest;
    std::set<engine::PackId> several;
    ARCA_CHECK(domain_.packs().list([&](const engine::PackName &pack) {
        std::uint32_t &revision = newest[pack.id];
        if (revision != 0)
            several.insert(pack.id);
        revision = std::max(revision, pack.revision);
        return true;
    }));
    for (const engine::PackId &id : several) {
        const auto pack = domain_.packs().open(engine::PackName{id, newest[id]});
        // The one before is better than one that cannot be read.
        if (pack && (*pack)->readIndex())
            ARCA_CHECK(deletePack(id, newest[id]));
    }
    return {};
}

/// The marked packs, judged anew; the dead ones first, because they free space for the others.
/// Answers false when it was told to stop.
Result<bool> Reclaim::sweep(const Mark &mark, const Step &step, ReclaimTotals &totals)
{
    ARCA_TRY(PackUse use,
             usedBlocks(
                 domain_, [&](const engine::PackId &id) { return mark.packs.contains(id); },
                 nullptr, &damaged_));
    std::vector<engine::PackId> mostlyDead;
    for (const engine::PackId &id : mark.packs) {
        ReclaimTotals ignored;
        ARCA_TRY(const auto candidate, judge(id, use[id], {}, ignored));
        if (!candidate)
            continue;
        if (!candidate->dead) {
            mostlyDead.push_back(id);
            continue;
        }
        ARCA_CHECK(deletePack(id, std::numeric_limits<std::uint32_t>::max()));
        domain_.hints().forget(id);
        ++totals.deadPacks;
        totals.freedBytes += candidate->bytes;
        if (step && !step(totals))
            return false;
    }
    Result<void> spaceless;
    for (const engine::PackId &id : mostlyDead) {
        auto rewritten =
            blob::withReserve(domain_.blobs(), [&] { return rewrite(id, use[id], totals); });
        if (!rewritten && rewritten.error().kind == ErrorKind::full) {
            spaceless = std::move(rewritten); // a smaller one may still find its place
            continue;
        }
        if (!rewritten && rewritten.error().kind == ErrorKind::damaged) {
            totals.damagedPacks.insert(
                domain_.packs().blobNameOf({id, domain_.packs().revisionToRead(id).value_or(1)}));
            continue; // nothing was written, and the pack is as it was
        }
        ARCA_CHECK(std::move(rewritten));
        if (step && !step(totals))
            return false;
    }
    ARCA_CHECK(std::move(spaceless));
    return true;
}

Result<void> Reclaim::rewrite(const engine::PackId &id, const BlockUse &use, ReclaimTotals &totals)
{
    ARCA_TRY(const auto pack, domain_.packs().open(id));
    ARCA_TRY(const std::uint64_t after,
             engine::rewritePack(domain_.packs(), *pack, [&](std::uint32_t block) {
                 return block < use.size() && use[block];
             }));
    ARCA_CHECK(deletePack(id, pack->which().revision + 1));
    ++totals.rewrittenPacks;
    totals.freedBytes += pack->size() - std::min(pack->size(), after);
    return {};
}

/// Every revision before that one.
Result<void> Reclaim::deletePack(const engine::PackId &id, std::uint32_t beforeRevision)
{
    ARCA_TRY(const auto revisions, domain_.packs().revisionsOf(id));
    for (const std::uint32_t revision : revisions) {
        if (revision >= beforeRevision)
            continue;
        const std::string name = domain_.packs().blobNameOf({id, revision});
        auto blob = domain_.blobs().open(name);
        if (!blob && blob.error().kind == ErrorKind::notFound)
            continue;
        ARCA_TRY(const auto opened, std::move(blob));
        auto removed = domain_.blobs().remove(name, *opened);
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return removed;
    }
    return {};
}

} // namespace arca::store
