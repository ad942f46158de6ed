// The sweep of a run of reclaiming: what is done with the marked packs once no claim from before
// the mark is left.
#include "client/engine/mending/pack_check.h"
#include "client/engine/mending/pack_rewriter.h"
#include "client/store/marks/damage.h"
#include "client/store/pieces/stored_manifests.h"
#include "client/store/upkeep/reclaim.h"

#include <algorithm>

namespace arca::store
{

/// Judges the marked packs again. Leaves those in `mark` that must stay marked. Returns false when
/// it was told to stop.
Result<bool> Reclaim::sweep(Mark &mark, const Step &step, ReclaimTotals &totals)
{
    ARCA_TRY(listing_, PackListing::of(domain_.packs()));
    ARCA_TRY(known_, DamageRecords(domain_).all());
    Sweep sweep{step, totals, mark, {}, {}, {}, {}};
    ARCA_CHECK(sweepSome(mark.packIds(), sweep));
    // The dead packs of later shares made room.
    if (sweep.goOn && !sweep.spaceless.empty()) {
        sweep.noRoom = {};
        ARCA_CHECK(sweepSome(std::exchange(sweep.spaceless, {}), sweep));
    }
    if (mark.inPlaceOfDamaged)
        ARCA_CHECK(renameNeeded(sweep));
    std::erase_if(mark.packs, [&](const auto &pack) {
        return sweep.settled.contains(pack.first) || !hasMarked(pack.first, pack.second);
    });
    if (sweep.goOn) {
        ARCA_CHECK(std::move(sweep.failure));
        ARCA_CHECK(std::move(sweep.noRoom));
    }
    return sweep.goOn;
}

Result<void> Reclaim::sweepSome(const std::set<engine::PackId> &packs, Sweep &sweep)
{
    UseQuestion question;
    question.packs = packs.size();
    question.wanted = [&](const engine::PackId &id) { return packs.contains(id); };
    question.damaged = &damaged_;
    return visitUse(domain_, question, [&](ShareUse &use) -> Result<void> {
        std::vector<engine::PackId> some;
        for (const engine::PackId &id : packs)
            if (use.has(id))
                some.push_back(id);
        return sweepShare(some, use.needed, sweep);
    });
}

/// The dead ones first, because they free space for the others.
Result<void> Reclaim::sweepShare(std::span<const engine::PackId> packs, PackUse &use, Sweep &sweep)
{
    // A pack that no manifest needs: none may come back without its packs.
    if (!packs.empty())
        ARCA_CHECK(syncVisited(domain_.blobs(), domain_.nodeKey()));
    std::vector<engine::PackId> others;
    for (const engine::PackId &id : packs) {
        if (!sweep.goOn)
            return {};
        if (!hasMarked(id, sweep.marked(id)))
            continue;
        ReclaimTotals ignored;
        ARCA_TRY(const auto candidate, judge(id, use[id], {}, ignored));
        if (!candidate)
            continue;
        if (!candidate->dead) {
            others.push_back(id);
            continue;
        }
        ARCA_TRY(const std::uint64_t freed, deleteRevisions(id, sweep.marked(id)));
        sweep.settled.insert(id);
        sweep.totals.freedBytes += freed;
        // Else a later revision is there, for the next look.
        if (listing_.revisionsOf(id).back().revision <= sweep.marked(id)) {
            domain_.hints().forget(id);
            ++sweep.totals.deadPacks;
        }
        sweep.goOn = !sweep.step || sweep.step(sweep.totals);
    }
    for (const engine::PackId &id : others) {
        if (!sweep.goOn)
            return {};
        auto shrunk =
            blob::withReserve(domain_.blobs(), [&] { return shrink(id, use[id], sweep); });
        if (!shrunk)
            ARCA_CHECK(passOver(id, std::move(shrunk).error(), sweep));
        sweep.goOn = !sweep.step || sweep.step(sweep.totals);
    }
    return {};
}

/// What fails for one pack, which is as it was, holds up no other one.
Result<void> Reclaim::passOver(const engine::PackId &id, Error failure, Sweep &sweep)
{
    if (failure.kind == ErrorKind::damaged) {
        sweep.totals.damagedPacks.insert(
            domain_.packs().blobNameOf({id, domain_.packs().revisionToRead(id).value_or(1)}));
        return {};
    }
    // Another run that acts by the same mark has written the next revision.
    if (failure.kind == ErrorKind::exists)
        return {};
    if (failure.kind != ErrorKind::full && failure.kind != ErrorKind::io)
        return failure;
    if (failure.kind == ErrorKind::full)
        sweep.spaceless.insert(id);
    Result<void> &first = failure.kind == ErrorKind::full ? sweep.noRoom : sweep.failure;
    if (first)
        first = std::move(failure);
    return {};
}

/// Of a pack that is needed.
Result<void> Reclaim::shrink(const engine::PackId &id, const BlockUse &use, Sweep &sweep)
{
    return listing_.revisionsOf(id).size() > 1 ? keepNewest(id, use, sweep)
                                               : rewrite(id, use, sweep);
}

/// A run, or a repair, that was killed left revisions before the newest. They are deleted only when
/// the newest has every needed block that any of them has, each as its identity says.
Result<void> Reclaim::keepNewest(const engine::PackId &id, const BlockUse &use, Sweep &sweep)
{
    const auto revisions = listing_.revisionsOf(id);
    const engine::PackName newest = revisions.back();
    ARCA_TRY(const auto found, engine::checkPack(domain_, newest, engine::CheckDepth::data, {}));
    if (!found.isSound())
        return Error{ErrorKind::damaged, found.reason};
    ARCA_TRY(const auto pack, domain_.packs().open(newest));
    ARCA_TRY(const engine::PackIndex now, pack->readIndex());
    bool gaps = false;
    for (std::uint32_t block = 0; block < now.blocks.size(); ++block)
        gaps = gaps || (now.blocks[block].dropped && block < use.size() && use[block]);
    for (const engine::PackName &revision : revisions.first(revisions.size() - 1)) {
        const auto old = domain_.packs().open(revision);
        const auto index = old ? (*old)->readIndex() : Result<engine::PackIndex>(old.error());
        for (std::uint32_t block = 0; gaps && index && block < now.blocks.size(); ++block)
            if (now.blocks[block].dropped && block < use.size() && use[block] &&
                !index->blocks.at(block).dropped)
                return Error{ErrorKind::damaged, "an older revision has blocks that it lacks"};
    }
    if (gaps)
        ARCA_CHECK(noteGaps(newest));
    // Who wrote it may have died before its name was durable.
    ARCA_CHECK(domain_.blobs().sync(domain_.packs().blobNameOf(newest)));
    const std::uint32_t marked = sweep.marked(id);
    ARCA_TRY(const std::uint64_t freed, deleteRevisions(id, std::min(marked, newest.revision - 1)));
    sweep.totals.freedBytes += freed;
    if (newest.revision > marked)
        sweep.settled.insert(id);
    return {};
}

Result<void> Reclaim::noteGaps(const engine::PackName &pack)
{
    return DamageRecords(domain_).note(
        {pack.id, pack.revision, engine::DamageKind::gaps, 0},
        "reclaiming: blocks that pieces need were dropped by a repair before");
}

/// What is known or found to be damaged of it, and needed, leaves the pack as it is, for repairing.
Result<void> Reclaim::rewrite(const engine::PackId &id, const BlockUse &use, Sweep &sweep)
{
    ReclaimTotals &totals = sweep.totals;
    ARCA_TRY(const auto pack, openPack(id));
    if (pack->which().revision > sweep.marked(id))
        return {}; // another run has rewritten it since the listing
    const auto isNeeded = [&](std::uint32_t block) { return block < use.size() && use[block]; };
    DamageRecords records(domain_);
    ARCA_TRY(const bool known, needsDamaged(*pack, use));
    if (known) {
        totals.damagedPacks.insert(pack->blobName());
        return {};
    }
    std::vector<engine::DamagedPart> found;
    const auto rewritten = engine::rewritePack(domain_, *pack, nextOf(id, sweep), isNeeded, found);
    for (const engine::DamagedPart &part : found)
        ARCA_CHECK(records.note(part, "reclaiming: " + rewritten.error().text));
    ARCA_CHECK(rewritten);
    // Before the revision goes whose gaps are recorded.
    if (rewritten->gaps)
        ARCA_CHECK(noteGaps(rewritten->which));
    ARCA_TRY(const std::uint64_t freed, deleteRevisions(id, sweep.marked(id)));
    sweep.settled.insert(id);
    ++totals.rewrittenPacks;
    totals.freedBytes += freed - std::min(freed, rewritten->storedBytes);
    return {};
}

/// Returns true when a frame that is recorded as damaged has blocks that are needed.
Result<bool> Reclaim::needsDamaged(const engine::OpenPack &pack, const BlockUse &use)
{
    ARCA_TRY(const engine::DamagedParts known, DamageRecords(domain_).of(pack.which()));
    if (known.all().empty())
        return false;
    ARCA_TRY(const engine::PackIndex index, pack.readIndex());
    std::uint32_t block = 0;
    for (std::uint32_t number = 0; number < index.frames.size(); ++number)
        for (const std::uint32_t end = block + index.frames[number].blocks; block < end; ++block)
            if (block < use.size() && use[block] && known.hasFrame(pack.which(), number))
                return true;
    return false;
}

/// Of a revision that is gone.
Result<void> Reclaim::forgetDamage(const engine::PackName &pack)
{
    const engine::DamagedPart first{pack.id, pack.revision, engine::DamageKind::frame, 0};
    for (auto part = known_.all().lower_bound(first);
         part != known_.all().end() && part->pack == pack.id && part->revision == pack.revision;
         ++part)
        ARCA_CHECK(DamageRecords(domain_).remove(*part));
    return {};
}

bool Reclaim::hasMarked(const engine::PackId &id, std::uint32_t marked) const
{
    const auto revisions = listing_.revisionsOf(id);
    return !revisions.empty() && revisions.front().revision <= marked;
}

/// Deletes the revisions up to `newest`, the oldest first, and returns the bytes that were freed.
Result<std::uint64_t> Reclaim::deleteRevisions(const engine::PackId &id, std::uint32_t newest)
{
    std::uint64_t freed = 0;
    for (const engine::PackName &revision : listing_.revisionsOf(id)) {
        if (revision.revision > newest)
            break;
        const std::string name = domain_.packs().blobNameOf(revision);
        auto blob = domain_.blobs().open(name);
        if (!blob && blob.error().kind == ErrorKind::notFound)
            continue;
        ARCA_TRY(const auto opened, std::move(blob));
        auto removed = domain_.blobs().remove(name, *opened);
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return std::move(removed).error();
        freed += removed ? opened->size() : 0;
        ARCA_CHECK(forgetDamage(revision));
    }
    return freed;
}

} // namespace arca::store
