// How a run of reclaiming reads, writes and waits for the marks (marked_packs.h), and how packs
// that were marked without need come free.
#include "client/blob/linking_store.h"
#include "client/engine/mending/pack_rewriter.h"
#include "client/store/marks/damage.h"
#include "client/store/upkeep/reclaim.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace arca::store
{

Result<Mark> Reclaim::readMark(ReclaimTotals &totals)
{
    ARCA_TRY(CurrentMark current, markToChange(domain_));
    markNumber_ = current.number;
    totals.damagedMark = current.unreadable;
    return std::move(current.mark);
}

/// The state after the one that was read or written last. A run that lost its lock to another one
/// meets that one's state here, and ends.
Result<void> Reclaim::writeMark(const Mark &mark)
{
    NumberedRecord record = markRecord(domain_);
    ARCA_CHECK(blob::withReserve(domain_.blobs(),
                                 [&] { return record.write(markNumber_, encodeMark(mark)); }));
    ++markNumber_;
    return {};
}

Result<std::set<std::string>> Reclaim::stillLiving(const Mark &mark)
{
    ARCA_TRY(const std::set<std::string> now, domain_.blobs().livingWriters(domain_.nodeKey()));
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
    for (const auto &[id, marked] : mark.packs) {
        ++totals.waitingPacks;
        if (const auto pack = domain_.packs().open(id))
            totals.waitingBytes += (*pack)->size();
    }
}

Result<Mark> Reclaim::markPacks(Mark mark)
{
    mark.claims.reset();
    ARCA_CHECK(writeMark(mark));
    // Only now: a stream that begins after this sees the mark.
    ARCA_TRY(mark.claims, domain_.blobs().livingWriters(domain_.nodeKey()));
    if (!mark.claims->empty())
        ARCA_CHECK(writeMark(mark));
    return mark;
}

/// A run that another one has overtaken ends here: it may still write what it was about to, and the
/// next mark waits for it; see marked_packs.h.
Result<void> Reclaim::stillMarked()
{
    ARCA_TRY(const std::uint32_t newest, markRecord(domain_).newestNumber());
    if (newest == markNumber_)
        return {};
    return Error{ErrorKind::conflict,
                 "another process has reclaimed or repaired packs of this node meanwhile"};
}

/// Sweeps when no claim from before the mark is left, and unmarks the packs of which no marked
/// revision is left. Returns false when there is nothing more to do for now.
Result<bool> Reclaim::settle(Mark &mark, const Step &step, ReclaimTotals &totals)
{
    // A lock may be lost while its holder sleeps. Without its name in tmp/ a claim can never become
    // a piece, however late its writer wakes.
    ARCA_CHECK(domain_.blobs().removeLeftovers());
    ARCA_TRY(auto living, stillLiving(mark));
    if (!living.empty()) {
        wait(mark, std::move(living), totals);
        return false;
    }
    const std::size_t marked = mark.packs.size();
    auto goOn = sweep(mark, step, totals);
    mark.inPlaceOfDamaged = mark.inPlaceOfDamaged && !mark.packs.empty();
    if (mark.packs.size() == marked)
        return goOn;
    // Also when it failed for some: what was rewritten would stay marked for no reason.
    auto written = writeMark(mark);
    if (goOn)
        ARCA_CHECK(std::move(written));
    return goOn;
}

engine::NextRevision Reclaim::nextOf(const engine::PackId &id, const Sweep &sweep)
{
    return {sweep.marked(id) + 1, [this] { return stillMarked(); }};
}

/// Of packs that were marked only because all were: those of which one revision is left.
Result<void> Reclaim::renameNeeded(Sweep &sweep)
{
    for (const auto &[id, marked] : sweep.mark.packs) {
        if (!sweep.goOn || sweep.settled.contains(id))
            continue;
        ARCA_TRY(const auto revisions, domain_.packs().revisionsOf(id));
        if (revisions.size() != 1 || *revisions.begin() > marked)
            continue;
        auto renamed = giveNextName({id, *revisions.begin()}, sweep);
        if (!renamed)
            ARCA_CHECK(passOver(id, std::move(renamed).error(), sweep));
    }
    return {};
}

/// The next revision is the same blob, or a copy where a blob cannot have two names. What is
/// recorded as damaged of it is recorded of the next revision first.
Result<void> Reclaim::giveNextName(const engine::PackName &pack, Sweep &sweep)
{
    const engine::PackName next{pack.id, sweep.marked(pack.id) + 1};
    const std::string from = domain_.packs().blobNameOf(pack);
    DamageRecords records(domain_);
    for (const engine::DamagedPart &part : known_.all())
        if (part.pack == pack.id && part.revision == pack.revision)
            ARCA_CHECK(records.note({pack.id, next.revision, part.kind, part.frame},
                                    "reclaiming: recorded of " + from + ", the same blob"));
    bool linked = false;
    if (auto *const linking = dynamic_cast<blob::LinkingStore *>(&domain_.blobs())) {
        ARCA_TRY(const auto blob, domain_.blobs().open(from));
        ARCA_TRY(linked, linking->link(from, *blob, domain_.packs().blobNameOf(next)));
    }
    if (!linked) {
        ARCA_TRY(const auto opened, domain_.packs().open(pack));
        std::vector<engine::DamagedPart> found;
        ARCA_CHECK(engine::rewritePack(
            domain_, *opened, nextOf(pack.id, sweep), [](std::uint32_t) { return true; }, found));
    }
    ARCA_CHECK(deleteRevisions(pack.id, sweep.marked(pack.id)));
    sweep.settled.insert(pack.id);
    return {};
}

} // namespace arca::store
