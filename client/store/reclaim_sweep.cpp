// The sweep of a run of reclaiming: what of the marked packs goes, once nobody from before the mark
// lives.
#include "client/engine/pack_check.h"
#include "client/engine/pack_rewriter.h"
#include "client/store/damage.h"
#include "client/store/reclaim.h"

#include <algorithm>
#include <limits>

namespace arca::store
{

/// The marked packs, judged again. Leaves those in `mark` that must stay marked. Answers false when
/// it was told to stop.
Result<bool> Reclaim::sweep(Mark &mark, const Step &step, ReclaimTotals &totals)
{
    ARCA_TRY(listing_, PackListing::of(domain_.packs()));
    ARCA_TRY(known_, DamageRecords(domain_).all());
    Sweep sweep{step, totals, {}, {}, {}, {}};
    ARCA_CHECK(sweepSome(mark.packs, sweep));
    // The dead packs of later shares made room.
    if (sweep.goOn && !sweep.spaceless.empty()) {
        sweep.noRoom = {};
        ARCA_CHECK(sweepSome(std::exchange(sweep.spaceless, {}), sweep));
    }
    std::erase_if(mark.packs, [&](const engine::PackId &id) {
        return sweep.settled.contains(id) || listing_.revisionsOf(id).empty();
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
    std::vector<engine::PackId> others;
    for (const engine::PackId &id : packs) {
        if (!sweep.goOn)
            return {};
        ReclaimTotals ignored;
        ARCA_TRY(const auto candidate, judge(id, use[id], {}, ignored));
        if (!candidate)
            continue;
        if (!candidate->dead) {
            others.push_back(id);
            continue;
        }
        ARCA_CHECK(deletePack(id, std::numeric_limits<std::uint32_t>::max()));
        domain_.hints().forget(id);
        sweep.settled.insert(id);
        ++sweep.totals.deadPacks;
        sweep.totals.freedBytes += candidate->bytes;
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
    return listing_.revisionsOf(id).size() > 1 ? keepNewest(id, use, sweep.totals)
                                               : rewrite(id, use, sweep);
}

/// A run, or a repair, that was killed left revisions before the newest. They go only when that one
/// has every needed block that any of them has, each as its identity says.
Result<void> Reclaim::keepNewest(const engine::PackId &id, const BlockUse &use,
                                 ReclaimTotals &totals)
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
    std::uint64_t freed = 0;
    for (const engine::PackName &revision : revisions.first(revisions.size() - 1)) {
        const auto old = domain_.packs().open(revision);
        const auto index = old ? (*old)->readIndex() : Result<engine::PackIndex>(old.error());
        freed += old ? (*old)->size() : 0;
        for (std::uint32_t block = 0; gaps && index && block < now.blocks.size(); ++block)
            if (now.blocks[block].dropped && block < use.size() && use[block] &&
                !index->blocks.at(block).dropped)
                return Error{ErrorKind::damaged, "an older revision has blocks that it lacks"};
    }
    if (gaps)
        ARCA_CHECK(noteGaps(newest));
    ARCA_CHECK(deletePack(id, newest.revision));
    totals.freedBytes += freed;
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
    const auto isNeeded = [&](std::uint32_t block) { return block < use.size() && use[block]; };
    DamageRecords records(domain_);
    ARCA_TRY(const bool known, needsDamaged(*pack, use));
    if (known) {
        totals.damagedPacks.insert(pack->blobName());
        return {};
    }
    std::vector<engine::DamagedPart> found;
    const auto rewritten = engine::rewritePack(domain_, *pack, isNeeded, found);
    for (const engine::DamagedPart &part : found)
        ARCA_CHECK(records.note(part, "reclaiming: " + rewritten.error().text));
    ARCA_CHECK(rewritten);
    // Before the revision goes whose gaps are recorded.
    if (rewritten->gaps)
        ARCA_CHECK(noteGaps(rewritten->which));
    ARCA_CHECK(deletePack(id, rewritten->which.revision));
    sweep.settled.insert(id);
    ++totals.rewrittenPacks;
    totals.freedBytes += pack->size() - std::min(pack->size(), rewritten->storedBytes);
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

/// Every revision before that one.
Result<void> Reclaim::deletePack(const engine::PackId &id, std::uint32_t beforeRevision)
{
    for (const engine::PackName &revision : listing_.revisionsOf(id)) {
        if (revision.revision >= beforeRevision)
            continue;
        const std::string name = domain_.packs().blobNameOf(revision);
        auto blob = domain_.blobs().open(name);
        if (!blob && blob.error().kind == ErrorKind::notFound)
            continue;
        ARCA_TRY(const auto opened, std::move(blob));
        auto removed = domain_.blobs().remove(name, *opened);
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return removed;
        ARCA_CHECK(forgetDamage(revision));
    }
    return {};
}

} // namespace arca::store
