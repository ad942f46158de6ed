// The steps of a repair, as the header numbers them.
#include "client/store/upkeep/repair.h"

#include "client/blob/lock_holder.h"
#include "client/engine/mending/pack_mender.h"
#include "client/store/marks/damage.h"
#include "client/store/marks/marked_packs.h"
#include "client/store/usage/pack_usage.h"

#include <algorithm>

namespace arca::store
{

namespace
{

using engine::BrokenPack;
using engine::DamagedPart;
using engine::DamageKind;
using engine::PackId;
using engine::PackName;

class Repair
{
public:
    Repair(NodeSpace &space, bool dryRun, const RepairWatcher &watcher)
        : space_(space), domain_(space.domain()), blobs_(domain_.blobs()), packs_(domain_.packs()),
          records_(domain_), dryRun_(dryRun), watcher_(watcher)
    {
    }
    Result<RepairOutcome> run();

private:
    Result<void> look(const PackId &id);
    Result<void> settleRecords(const PackName &pack, const engine::PackFindings &found);
    Result<void> passOver(const PackName &pack, const Error &failure);
    Result<void> forget(const DamagedPart &part);
    Result<void> loadUse();
    bool isNeeded(const PackId &id, std::uint32_t block) const;
    bool isNeeded(const PackId &id) const;
    Result<BrokenPack> load(const PackName &pack) const;
    Result<void> mendAll();
    Result<void> mendSome(std::vector<BrokenPack> some);
    Result<bool> isFree(const std::vector<const BrokenPack *> &some);
    Result<Mark> markThese(CurrentMark current, const std::vector<const BrokenPack *> &some);
    Result<void> stillMarked();
    /// A new revision that is written and proven.
    struct Mended {
        PackName fresh;
        bool partly = false; // it lacks needed blocks, or has some that are not what was stored
    };
    Result<void> unmark(const std::vector<Mended> &mended);
    engine::MendPlan planFor(const BrokenPack &pack, engine::BlockSearch &search) const;
    void countPlan(const BrokenPack &pack, const engine::MendPlan &plan);
    Result<Mended> mend(const BrokenPack &pack, const engine::MendPlan &plan,
                        engine::BlockSearch &search);
    Result<void> conclude(const Mended &mended);
    Result<void> removeBefore(const PackName &newest);
    Result<void> nameLost();
    void tell(const PackName &pack, const std::string &what);
    bool goesOn() const { return !watcher_.goOn || watcher_.goOn(); }

    NodeSpace &space_;
    engine::Domain &domain_;
    blob::BlobStore &blobs_;
    const engine::PackStore &packs_;
    DamageRecords records_;
    const bool dryRun_;
    const RepairWatcher &watcher_;
    RepairOutcome outcome_;

    engine::DamagedParts damaged_;                 // as it is now
    std::map<PackId, engine::PackFindings> found_; // of those whose index can be read
    std::vector<PackName> whole_;                  // whose index cannot be read
    std::vector<PackName> broken_;                 // whose index can be read
    std::optional<PackUse> use_;                   // nothing: a damaged manifest may need anything
    LostBlocks lost_;
    Mark mark_; // by which packs are mended now
    std::uint32_t markNumber_ = 0;
};

Result<RepairOutcome> Repair::run()
{
    ARCA_CHECK(bringBackReadable(space_, dryRun_, [&](const SetAside &aside) {
        outcome_.broughtBack += aside.now.empty() ? 0 : 1;
        if (watcher_.setAside)
            watcher_.setAside(aside);
    }));
    ARCA_TRY(const engine::DamagedParts known, records_.all());
    std::set<PackId> ids;
    for (const DamagedPart &part : known.all())
        ids.insert(part.pack);
    for (const PackId &id : ids) {
        if (!goesOn())
            return Error{ErrorKind::stopped, "the repair was stopped"};
        ARCA_CHECK(look(id));
    }
    ARCA_CHECK(loadUse());
    ARCA_CHECK(mendAll());
    ARCA_CHECK(nameLost());
    return outcome_;
}

void Repair::tell(const PackName &pack, const std::string &what)
{
    if (watcher_.pack)
        watcher_.pack(packs_.blobNameOf(pack), what);
}

/// It stays as it is, and holds up no other pack.
Result<void> Repair::passOver(const PackName &pack, const Error &failure)
{
    // `exists`: another process that acts by the same mark has written the next revision.
    if (!isUnreadable(failure) && failure.kind != ErrorKind::full &&
        failure.kind != ErrorKind::exists)
        return failure;
    ++outcome_.stuckPacks;
    tell(pack, "stays as it is, as something failed: " + failure.text);
    return {};
}

Result<void> Repair::forget(const DamagedPart &part)
{
    ++outcome_.healed;
    return dryRun_ ? Result<void>() : records_.remove(part);
}

/// Reads the pack and brings its records up to date.
Result<void> Repair::look(const PackId &id)
{
    const auto revision = packs_.revisionToRead(id);
    const PackName pack{id, revision.value_or(0)};
    engine::PackFindings found;
    if (revision) {
        auto checked = engine::checkPack(domain_, pack, engine::CheckDepth::data, {});
        if (!checked)
            return passOver(pack, checked.error());
        found = std::move(checked).value();
    }
    ARCA_CHECK(settleRecords(pack, found));
    if (!revision)
        return {}; // the pieces that need it are named as damaged by verifying
    for (const DamagedPart &part : found.damaged)
        damaged_.add(part);
    outcome_.damagedPacks += found.isSound() ? 0 : 1;
    (found.isWhole() ? whole_ : broken_).push_back(pack);
    found_[id] = std::move(found);
    return {};
}

Result<void> Repair::settleRecords(const PackName &pack, const engine::PackFindings &found)
{
    if (!dryRun_)
        for (const DamagedPart &part : found.damaged)
            ARCA_CHECK(records_.note(part, "repairing: " + found.reason));
    ARCA_TRY(const auto revisions, packs_.revisionsOf(pack.id));
    ARCA_TRY(const engine::DamagedParts known, records_.all());
    for (const DamagedPart &part : known.all()) {
        if (part.pack != pack.id)
            continue;
        const bool gone = !revisions.contains(part.revision);
        if (gone && !dryRun_)
            ARCA_CHECK(
                records_.passOnGaps(packs_, part, "repairing: a revision before lacked them"));
        const bool right = part.revision == pack.revision && part.kind != DamageKind::gaps &&
                           std::ranges::count(found.damaged, part) == 0;
        if (gone || right)
            ARCA_CHECK(forget(part));
    }
    return {};
}

/// With a damaged manifest nobody can tell what is needed: then everything is.
Result<void> Repair::loadUse()
{
    std::set<PackId> ids;
    for (const auto *some : {&whole_, &broken_})
        for (const PackName &pack : *some)
            ids.insert(pack.id);
    auto use = usedBlocks(domain_, [&](const PackId &id) { return ids.contains(id); });
    use_.reset();
    if (use)
        use_ = std::move(use).value();
    else if (!isUnreadable(use.error()))
        return std::move(use).error();
    return {};
}

bool Repair::isNeeded(const PackId &id, std::uint32_t block) const
{
    if (!use_)
        return true;
    const auto pack = use_->find(id);
    return pack != use_->end() && block < pack->second.size() && pack->second[block];
}

bool Repair::isNeeded(const PackId &id) const
{
    if (!use_)
        return true;
    const auto pack = use_->find(id);
    return pack != use_->end() && countUsed(pack->second) != 0;
}

Result<BrokenPack> Repair::load(const PackName &pack) const
{
    ARCA_TRY(const auto opened, packs_.open(pack));
    BrokenPack broken;
    broken.which = pack;
    ARCA_TRY(broken.index, opened->readIndex());
    for (std::uint32_t number = 0; number < broken.index.frames.size(); ++number)
        if (damaged_.hasFrame(pack, number))
            broken.frames.insert(number);
    if (const auto found = found_.find(pack.id); found != found_.end()) {
        broken.unreadable = found->second.unreadable;
        broken.wrongBlocks = found->second.wrongBlocks;
    }
    // Without knowing what is needed, blocks that were rightly dropped cannot be told from missing
    // ones; they wait until the damaged manifest is dealt with.
    if (use_)
        for (std::uint32_t block = 0; block < broken.index.blocks.size(); ++block)
            if (broken.index.blocks[block].dropped && isNeeded(pack.id, block))
                broken.missingBlocks.insert(block);
    return broken;
}

/// As many packs at a time as the search has room for.
Result<void> Repair::mendAll()
{
    std::vector<BrokenPack> some;
    std::size_t wanted = 0;
    for (const PackName &pack : broken_) {
        auto loaded = load(pack);
        if (!loaded) {
            ARCA_CHECK(passOver(pack, loaded.error()));
            continue;
        }
        BrokenPack broken = std::move(loaded).value();
        std::size_t its = 0;
        broken.eachWanted([&](std::uint32_t) { ++its; });
        if (its == 0) { // nothing is missing any more
            const DamagedPart gaps{pack.id, pack.revision, DamageKind::gaps, 0};
            if (use_ && blobs_.open(records_.nameOf(gaps)))
                ARCA_CHECK(forget(gaps));
            continue;
        }
        if (!some.empty() && wanted + its > engine::BlockSearch::kMaxWanted) {
            ARCA_CHECK(mendSome(std::exchange(some, {})));
            wanted = 0;
        }
        wanted += its;
        some.push_back(std::move(broken));
    }
    return some.empty() ? Result<void>() : mendSome(std::move(some));
}

/// What can be done for a pack, by what pieces need now.
engine::MendPlan Repair::planFor(const BrokenPack &pack, engine::BlockSearch &search) const
{
    return engine::planMending(pack, search,
                               [&](std::uint32_t block) { return isNeeded(pack.which.id, block); });
}

void Repair::countPlan(const BrokenPack &pack, const engine::MendPlan &plan)
{
    for (const std::uint32_t block : plan.lost) {
        if (!isNeeded(pack.which.id, block))
            continue;
        lost_.add(pack.which.id, block);
        ++outcome_.lostBlocks;
    }
    if (plan.losesUnreadable)
        tell(pack.which, "cannot be read now; it stays as it is");
    if (!plan.isWorthIt())
        return;
    outcome_.foundBlocks += plan.found;
    outcome_.foundBytes += plan.foundBytes;
    outcome_.mendedPacks += dryRun_ ? 1 : 0;
}

Result<void> Repair::mendSome(std::vector<BrokenPack> some)
{
    engine::BlockSearch search(domain_, damaged_);
    for (const BrokenPack &pack : some)
        pack.eachWanted([&](std::uint32_t block) { search.want(pack.index.blocks[block]); });
    ARCA_CHECK(search.run(watcher_.goOn));
    std::vector<const BrokenPack *> worthIt;
    for (const BrokenPack &pack : some) {
        const engine::MendPlan plan = planFor(pack, search);
        countPlan(pack, plan);
        if (plan.isWorthIt())
            worthIt.push_back(&pack);
    }
    if (dryRun_ || worthIt.empty())
        return {};
    ARCA_TRY(const bool free, isFree(worthIt));
    if (!free)
        return {};
    // A stream from before the mark may have come to need more of them.
    ARCA_CHECK(loadUse());
    // All are written before any old revision goes: one may have the only copy for another.
    std::vector<Mended> mended;
    for (const BrokenPack *pack : worthIt) {
        if (!goesOn())
            return Error{ErrorKind::stopped, "the repair was stopped"};
        const engine::MendPlan plan = planFor(*pack, search);
        if (!plan.isWorthIt())
            continue;
        auto fresh = mend(*pack, plan, search);
        if (fresh)
            mended.push_back(std::move(fresh).value());
        else
            ARCA_CHECK(passOver(pack->which, fresh.error()));
    }
    for (const Mended &pack : mended)
        ARCA_CHECK(conclude(pack));
    return unmark(mended);
}

/// Marks the packs as they are now, with all their revisions.
Result<Mark> Repair::markThese(CurrentMark current, const std::vector<const BrokenPack *> &some)
{
    Mark mark = std::move(current.mark);
    ARCA_CHECK(limitToPresent(mark, packs_));
    for (const BrokenPack *pack : some) {
        ARCA_TRY(const auto revisions, packs_.revisionsOf(pack->which.id));
        for (const std::uint32_t revision : revisions)
            mark.add(pack->which.id, revision);
    }
    if (mark.packs.size() > kMaxMarkedPacks)
        return Error{ErrorKind::conflict,
                     "too many packs are marked already; run arca reclaim first"};
    NumberedRecord record = markRecord(domain_);
    mark.claims.reset();
    ARCA_CHECK(record.write(current.number, encodeMark(mark)));
    markNumber_ = current.number + 1;
    // Only now: whatever begins after this sees the mark.
    ARCA_TRY(mark.claims, blobs_.livingWriters(domain_.nodeKey()));
    if (mark.claims->empty())
        return mark;
    ARCA_CHECK(record.write(markNumber_, encodeMark(mark)));
    ++markNumber_;
    return mark;
}

/// Marks the packs, unless they are marked already. Returns true when no stream from before the
/// mark lives any more.
Result<bool> Repair::isFree(const std::vector<const BrokenPack *> &some)
{
    ARCA_TRY(CurrentMark current, markToChange(domain_));
    const Mark &before = current.mark;
    bool marked = before.claims && !before.lacksRevisions();
    for (const BrokenPack *pack : some) {
        const auto known = before.packs.find(pack->which.id);
        ARCA_TRY(const auto revisions, packs_.revisionsOf(pack->which.id));
        marked = marked && known != before.packs.end() && !revisions.empty() &&
                 *revisions.rbegin() <= known->second;
    }
    markNumber_ = current.number;
    if (marked) {
        mark_ = std::move(current.mark);
    } else {
        ARCA_TRY(mark_, markThese(std::move(current), some));
    }
    ARCA_TRY(const std::set<std::string> now, blobs_.livingWriters(domain_.nodeKey()));
    std::vector<std::string> left;
    std::ranges::set_intersection(*mark_.claims, now, std::back_inserter(left));
    if (left.empty())
        return true;
    outcome_.waitingPacks += some.size();
    outcome_.waitingFor = std::move(left);
    return false;
}

Result<void> Repair::stillMarked()
{
    ARCA_TRY(const std::uint32_t newest, markRecord(domain_).newestNumber());
    if (newest == markNumber_)
        return {};
    return Error{ErrorKind::conflict,
                 "another process has repaired or reclaimed packs of this node meanwhile"};
}

/// Of the others a marked revision is still there, so they stay marked (marked_packs.h).
Result<void> Repair::unmark(const std::vector<Mended> &mended)
{
    ARCA_TRY(CurrentMark current, markToChange(domain_));
    for (const Mended &pack : mended)
        if (const auto marked = current.mark.packs.find(pack.fresh.id);
            marked != current.mark.packs.end() && marked->second < pack.fresh.revision)
            current.mark.packs.erase(marked);
    return markRecord(domain_).write(current.number, encodeMark(current.mark));
}

/// What is wrong with the new revision is recorded before the old one goes: whatever happens then,
/// streams stay off it, and the next run knows of it.
Result<Repair::Mended> Repair::mend(const BrokenPack &pack, const engine::MendPlan &plan,
                                    engine::BlockSearch &search)
{
    const auto marked = mark_.packs.find(pack.which.id);
    if (marked == mark_.packs.end())
        return Error{ErrorKind::damaged, "it was deleted meanwhile"};
    const engine::NextRevision next{marked->second + 1, [this] { return stillMarked(); }};
    ARCA_TRY(engine::MendedPack fresh, engine::mendPack(domain_, pack, next, plan, search));
    bool gaps = false;
    for (std::uint32_t block = 0; block < fresh.index.blocks.size(); ++block)
        gaps = gaps || (fresh.index.blocks[block].dropped && isNeeded(pack.which.id, block));
    if (gaps)
        fresh.damaged.push_back({fresh.which.id, fresh.which.revision, DamageKind::gaps, 0});
    for (const DamagedPart &part : fresh.damaged)
        ARCA_CHECK(records_.note(part, "repairing: no pack has the blocks as they were"));
    return Mended{fresh.which, !fresh.damaged.empty()};
}

Result<void> Repair::conclude(const Mended &mended)
{
    const PackName &fresh = mended.fresh;
    ARCA_CHECK(removeBefore(fresh));
    ++outcome_.mendedPacks;
    tell(fresh, mended.partly ? "mended in part" : "mended");
    ARCA_TRY(const engine::DamagedParts known, records_.all());
    for (const DamagedPart &part : known.all())
        if (part.pack == fresh.id && part.revision < fresh.revision)
            ARCA_CHECK(records_.remove(part));
    return {};
}

Result<void> Repair::removeBefore(const PackName &newest)
{
    ARCA_TRY(const auto revisions, packs_.revisionsOf(newest.id));
    for (const std::uint32_t revision : revisions) {
        if (revision >= newest.revision)
            continue;
        const std::string name = packs_.blobNameOf({newest.id, revision});
        const auto opened = blobs_.open(name);
        auto removed = opened ? blobs_.remove(name, **opened) : Result<void>(opened.error());
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return removed;
    }
    return {};
}

Result<void> Repair::nameLost()
{
    for (const PackName &pack : whole_) {
        if (!isNeeded(pack.id)) {
            tell(pack, "damaged, and no piece needs it: arca reclaim removes it");
            continue;
        }
        ++outcome_.lostPacks;
        lost_.addAll(pack.id);
        tell(pack, "its header, index or trailer is damaged, so no block of it can be found");
    }
    return visitLostPieces(space_, lost_, [&](const LostPiece &piece) {
        ++outcome_.lostPieces;
        if (watcher_.lostPiece)
            watcher_.lostPiece(piece);
    });
}

} // namespace

Result<RepairOutcome> repair(NodeSpace &space, bool dryRun, const RepairWatcher &watcher)
{
    std::unique_ptr<blob::BlobLock> turn;
    if (!dryRun) {
        const std::string key = space.domain().nodeKey();
        ARCA_TRY(turn, space.domain().blobs().tryLock("reclaim-" + key, "repairing"));
        if (!turn)
            return Error{ErrorKind::conflict,
                         "packs of this node are held by " +
                             blob::holderOf(space.domain().blobs(), "reclaim-" + key) +
                             "; try again when that is over"};
        ARCA_CHECK(space.domain().blobs().removeLeftovers());
    }
    return Repair(space, dryRun, watcher).run();
}

} // namespace arca::store
