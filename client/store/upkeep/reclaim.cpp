// The steps of a run, as the header numbers them.
#include "client/store/upkeep/reclaim.h"

#include "client/base/text.h"
#include "client/blob/lock_holder.h"
#include "client/store/pieces/stored_manifests.h"

#include <algorithm>
#include <ctime>
#include <tuple>
#include <utility>

namespace arca::store
{

namespace
{

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
    totals.uncounted = stock.uncounted;
    notesAreWhole_ = stock.damaged.empty() && !stock.uncounted;
    missingAreAccepted_ = request_.acceptMissing && !stock.missing.empty();
    ARCA_CHECK(expectFilespaces(stock));
    if (accept && stock.uncounted)
        ARCA_CHECK(inventory_.noteFound());
    if (stock.missing.empty())
        return {};
    totals.missingPieces = stock.missing.size();
    if (accept)
        return inventory_.noteWent(stock.missing);
    if (request_.acceptMissing)
        return {};
    return Error{
        ErrorKind::damaged,
        countText(stock.missing.size(), "piece") + " of the node " + printable(space_.node()) +
            " that " + (stock.missing.size() == 1 ? "was" : "were") +
            " stored and never purged cannot be found (the first: " + toHex(stock.missing.front()) +
            "), so nothing was freed; bring the missing files of the repository back, or "
            "run arca reclaim --accept-missing " +
            printable(space_.node()) + " if the pieces are lost for good"};
}

/// Pieces of a filespace whose record is gone show nowhere, although their manifests are there.
Result<void> Reclaim::expectFilespaces(const Stock &stock)
{
    for (const std::string &name : stock.filespaces) {
        const auto known = space_.everHadFilespace(name);
        if (!known && isUnreadable(known.error()))
            continue; // what is damaged holds up nothing else
        ARCA_CHECK(known);
        if (!*known)
            return Error{ErrorKind::damaged, "nothing was freed: " + lostFilespaceText(name)};
    }
    return {};
}

/// Without a grace time no clock is asked: that of who removed the piece may have been ahead.
bool Reclaim::isOver(const RemovedName &name) const
{
    return request_.grace == 0 || name.at == 0 ||
           (name.at <= now_ && now_ - name.at >= request_.grace);
}

bool Reclaim::leaves(const StoredManifest &stored)
{
    if (stored.place != ManifestPlace::removed)
        return false;
    const auto name = parseRemovedName(domain_.nodeKey(), stored.blobName);
    if (!name)
        return false;
    if (!isOver(*name)) {
        kept_.push_back(*name);
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
    const std::size_t used = countUsed(use);
    if (staysUnopened(id, used, totals))
        return std::optional<Candidate>();
    auto opened = openPack(id);
    if (!opened && opened.error().kind == ErrorKind::notFound)
        return std::optional<Candidate>(); // deleted since the listing
    const bool isHeld = damaged_.heldPacks.contains(id);
    if (!opened && isUnreadable(opened.error()))
        return judgeDamaged(id, used == 0 && !isHeld, countUsed(purged) != 0, totals);
    ARCA_TRY(const auto pack, std::move(opened));
    ++totals.packs;
    totals.packBytes += pack->size();
    if (sizes_)
        sizes_->keep({pack->which(), pack->blocks() / 2 + 1, pack->size()});
    if (isHeld)
        return std::optional<Candidate>();
    Candidate candidate{id, pack->size(), pack->size(), 0, used == 0, 0};
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
    if (!candidate.dead && listing_.revisionsOf(id).size() > 1)
        return judgeRevisions(*pack);
    if (used > pack->blocks() / 2)
        return std::optional<Candidate>();
    auto read = pack->readIndex();
    if (!read && isUnreadable(read.error())) {
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
    std::uint32_t held = 0;
    bool gaps = false;
    for (std::size_t i = 0; i < index.blocks.size(); ++i) {
        const std::uint64_t length = index.blocks[i].dropped ? 0 : index.blocks[i].length;
        held += index.blocks[i].dropped ? 0 : 1;
        gaps = gaps || (index.blocks[i].dropped && i < use.size() && use[i]);
        stored += length;
        live += i < use.size() && use[i] ? length : 0;
    }
    if (sizes_ && !gaps)
        sizes_->isEnough(held); // all that a rewriting left
    if (live > stored / 2)
        return std::optional<Candidate>();
    candidate.freed =
        pack->size() / 1000 * ((stored - live) * 1000 / std::max<std::uint64_t>(stored, 1));
    return explain(&index);
}

/// Returns true, and counts the pack, when it stays whatever is in it, as this host remembers how
/// many needed blocks are enough for that. Where it cannot be opened now, verifying tells.
bool Reclaim::staysUnopened(const engine::PackId &id, std::size_t used, ReclaimTotals &totals)
{
    const auto revisions = listing_.revisionsOf(id);
    const auto size =
        sizes_ && revisions.size() == 1 ? sizes_->of(revisions.front()) : std::nullopt;
    if (!size || (used < size->enough && !damaged_.heldPacks.contains(id)))
        return false;
    ++totals.packs;
    totals.packBytes += size->bytes;
    sizes_->keep(*size);
    return true;
}

/// The revisions that a run or a repair which was killed left beside the one that is read.
Result<std::optional<Reclaim::Candidate>> Reclaim::judgeRevisions(const engine::OpenPack &read)
{
    Candidate candidate{read.which().id, read.size(), 0, 0, false, 0};
    for (const engine::PackName &revision : listing_.revisionsOf(candidate.id))
        if (revision.revision != read.which().revision)
            if (const auto blob = domain_.blobs().open(domain_.packs().blobNameOf(revision)))
                candidate.freed += (*blob)->size();
    return std::optional(candidate);
}

/// The revision that PackStore::open() leads to, without listing its directory again.
Result<std::unique_ptr<engine::OpenPack>> Reclaim::openPack(const engine::PackId &id)
{
    const auto revisions = listing_.revisionsOf(id);
    if (!revisions.empty()) {
        auto opened = domain_.packs().open(revisions.front().revision == 1 ? revisions.front()
                                                                           : revisions.back());
        if (opened || opened.error().kind != ErrorKind::notFound)
            return opened;
    }
    return domain_.packs().open(id);
}

/// A pack that cannot be opened is all dead or stays.
Result<std::optional<Reclaim::Candidate>>
Reclaim::judgeDamaged(const engine::PackId &id, bool dead, bool explained, ReclaimTotals &totals)
{
    std::uint64_t bytes = 0;
    for (const engine::PackName &revision : listing_.revisionsOf(id)) {
        const std::string name = domain_.packs().blobNameOf(revision);
        if (const auto blob = domain_.blobs().open(name))
            bytes += (*blob)->size();
        if (!dead)
            totals.damagedPacks.insert(name);
    }
    ++totals.packs;
    totals.packBytes += bytes;
    if (!dead)
        return std::optional<Candidate>();
    return std::optional(Candidate{id, bytes, bytes, explained ? 0 : bytes, true, 0});
}

Result<std::vector<Reclaim::Candidate>> Reclaim::look(ReclaimTotals &totals)
{
    ARCA_TRY(listing_, PackListing::of(domain_.packs()));
    sizes_ = PackSizes::load(domain_.cache().directory(), domain_.nodeKey());
    std::vector<Candidate> found;
    UseQuestion question;
    question.packs = listing_.size();
    question.damaged = &damaged_;
    question.leaves = [&](const StoredManifest &stored) { return leaves(stored); };
    question.beginPass = [&] {
        over_.clear();
        kept_.clear();
    };
    ARCA_CHECK(visitUse(domain_, question, [&](const ShareUse &use) {
        Result<void> judged;
        listing_.eachPack([&](const engine::PackId &id) {
            if (judged && use.has(id))
                judged = judgeOne(id, use, totals, found);
        });
        return judged;
    }));
    sizes_->save(domain_.cache().directory(), domain_.nodeKey());
    sizes_.reset();
    return found;
}

Result<void> Reclaim::judgeOne(const engine::PackId &id, const ShareUse &use, ReclaimTotals &totals,
                               std::vector<Candidate> &found)
{
    static const BlockUse kNone;
    const auto in = [&](const PackUse &some) -> const BlockUse & {
        const auto known = some.find(id);
        return known == some.end() ? kNone : known->second;
    };
    ARCA_TRY(auto candidate, judge(id, in(use.needed), in(use.leaving), totals));
    if (!candidate)
        return {};
    // Of several revisions the newest stays when the pack is needed.
    const auto revisions = listing_.revisionsOf(id);
    const bool staysNewest = !candidate->dead && revisions.size() > 1;
    candidate->newest = revisions[revisions.size() - (staysNewest ? 2 : 1)].revision;
    found.push_back(*candidate);
    return {};
}

/// Where it is not known what there should be, every manifest may be one of those that got lost.
unsigned Reclaim::mostUnexplained() const
{
    constexpr unsigned kAnything = 100;
    if (request_.maxFreed)
        return *request_.maxFreed;
    if (!notesAreWhole_)
        return 0;
    return missingAreAccepted_ ? kAnything : kMaxUnexplained;
}

/// Streams that were never finished leave packs that no removal explains, and so does a set of
/// manifests that got lost together with its notes.
Result<void> Reclaim::expectExplained(std::span<const Candidate> found,
                                      const ReclaimTotals &totals) const
{
    std::uint64_t unexplained = 0;
    for (const Candidate &candidate : found)
        unexplained += candidate.unexplained;
    const unsigned most = mostUnexplained();
    if (!inventory_.isKept() || totals.packBytes == 0 ||
        unexplained * 100 <= totals.packBytes * most)
        return {};
    const std::uint64_t percent =
        std::min<std::uint64_t>(unexplained * 100 / totals.packBytes + 1, 100);
    return Error{ErrorKind::damaged,
                 "this would free " + std::to_string(percent) + " percent of what the node " +
                     printable(space_.node()) +
                     " has stored without a removal that explains it, more than the " +
                     std::to_string(most) + " that are allowed" +
                     (notesAreWhole_ ? ""
                                     : " while the notes of what was stored are damaged or not "
                                       "there") +
                     ", so none of that was freed; see whether pieces are missing "
                     "(arca ls), and allow it with --max-freed " +
                     std::to_string(percent)};
}

/// Returns how many removed pieces purge() would take away. One with a name whose time is not over
/// stays with that.
Result<std::uint64_t> Reclaim::countPurged()
{
    Result<void> unclear;
    ARCA_TRY(const std::vector<PieceId> going, space_.goneWith(over_, unclear));
    std::vector<RemovedName> names;
    for (const RemovedName &name : over_)
        if (std::ranges::binary_search(going, name.id))
            names.push_back(name);
    ARCA_TRY(const auto removed, space_.removedAmong(names));
    return removed.size();
}

std::uint64_t Reclaim::countDamaged(std::span<const RemovedName> names) const
{
    return static_cast<std::uint64_t>(std::ranges::count_if(names, [&](const RemovedName &name) {
        return name.at != 0 && damaged_.leaving.contains(removedNameOf(domain_.nodeKey(), name));
    }));
}

Result<void> Reclaim::purge(ReclaimTotals &totals)
{
    if (over_.empty())
        return {};
    // What was removed must not be where it was before once it is purged.
    ARCA_CHECK(syncVisited(domain_.blobs(), domain_.nodeKey()));
    // A piece whose removal was killed in between still shows, and is not noted as gone.
    Result<void> unclear;
    ARCA_TRY(std::vector<PieceId> went, space_.goneWith(over_, unclear));
    std::ranges::sort(went);
    ARCA_CHECK(inventory_.noteWent(went));
    // What is no removed piece goes first: the record that says so goes with the piece it leads to,
    // and without it the manifest would count as one.
    ARCA_TRY(const std::vector<PieceId> removed, space_.removedAmong(over_));
    std::ranges::sort(over_, {}, [&](const RemovedName &name) {
        const bool is = name.at != 0 && std::ranges::binary_search(removed, name.id);
        return std::tuple(is, name.id, name.at);
    });
    // Few enough that others do not wait for long.
    constexpr std::size_t kAtOnce = 256;
    for (std::span<const RemovedName> left = over_; !left.empty();) {
        const auto some = left.first(std::min(left.size(), kAtOnce));
        ARCA_TRY(const std::uint64_t pieces,
                 blob::withReserve(domain_.blobs(), [&] { return space_.purge(some, went); }));
        totals.purgedPieces += pieces;
        totals.purgedDamaged += countDamaged(some);
        left = left.subspan(some.size());
    }
    over_.clear();
    // What is damaged is named already, and holds up nothing else.
    return damaged_.blobNames.empty() ? unclear : Result<void>();
}

Result<ReclaimTotals> Reclaim::plan()
{
    ReclaimTotals totals;
    damaged_.keepLists = false;
    ARCA_CHECK(compareStock(false, totals));
    ARCA_TRY(const Mark mark, readMark(totals));
    ARCA_TRY(const auto living, stillLiving(mark));
    ARCA_TRY(const auto found, look(totals));
    ARCA_CHECK(expectExplained(found, totals));
    ARCA_TRY(totals.purgedPieces, countPurged());
    totals.purgedDamaged = countDamaged(over_);
    ARCA_TRY(const auto kept, space_.removedAmong(kept_));
    totals.keptPieces = kept.size();
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

/// Settles the mark that was found. Before anything is freed by it the same is asked as of what
/// this run marks.
Result<bool> Reclaim::settleFound(Mark &mark, const Step &step, ReclaimTotals &totals)
{
    if (!mark.packs.empty()) {
        ReclaimTotals seen;
        ARCA_TRY(auto found, look(seen));
        // The run that marked these packs asked about them, and may have purged what explains them
        // since. About those that stand for a damaged mark nothing was asked.
        if (!mark.inPlaceOfDamaged)
            std::erase_if(found, [&](const Candidate &one) { return mark.packs.contains(one.id); });
        ARCA_CHECK(expectExplained(found, seen));
    }
    if (!totals.damagedMark.empty() || mark.lacksRevisions()) {
        // What the one before said may be about to happen still, by a process that sleeps.
        ARCA_CHECK(limitToPresent(mark, domain_.packs()));
        ARCA_TRY(mark, markPacks(std::move(mark)));
    }
    return mark.packs.empty() ? Result<bool>(true) : settle(mark, step, totals);
}

Result<ReclaimTotals> Reclaim::run(const Step &step)
{
    ARCA_TRY(const auto turn,
             domain_.blobs().tryLock("reclaim-" + domain_.nodeKey(), "reclaiming"));
    if (!turn)
        return Error{ErrorKind::conflict,
                     "packs of this node are held by " +
                         blob::holderOf(domain_.blobs(), "reclaim-" + domain_.nodeKey()) +
                         "; try again when that is over"};
    ARCA_CHECK(domain_.blobs().removeLeftovers());
    space_.settleChanges();
    ReclaimTotals totals;
    ARCA_CHECK(compareStock(request_.acceptMissing, totals));
    ARCA_TRY(Mark mark, readMark(totals));
    ARCA_TRY(bool goOn, settleFound(mark, step, totals));
    for (bool first = true; goOn; first = false) {
        ReclaimTotals seen;
        ARCA_TRY(const auto found, look(seen));
        totals.packs = seen.packs;
        totals.packBytes = seen.packBytes;
        totals.damagedPacks.merge(seen.damagedPacks);
        // Once it has begun to free, nothing that is found can be a set of manifests that got lost.
        if (first)
            ARCA_CHECK(expectExplained(found, seen));
        if (!found.empty()) {
            for (const Candidate &one :
                 std::span(found).first(std::min(found.size(), kMaxMarkedPacks)))
                if (mark.packs.size() < kMaxMarkedPacks)
                    mark.add(one.id, one.newest);
            ARCA_TRY(mark, markPacks(std::move(mark)));
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
    ARCA_TRY(const auto kept, space_.removedAmong(kept_));
    totals.keptPieces = kept.size();
    totals.damagedManifests = damaged_.blobNames;
    return totals;
}

} // namespace arca::store
