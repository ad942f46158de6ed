// Giving back the space of blocks that no piece needs any more, while backups and restores run.
//
//   1. compare the notes of what was stored with what is there (inventory.h): what is missing
//              without having been removed stops the run before anything goes
//   2. look    packs that are all or mostly dead once the removed pieces are purged whose grace
//              time is over. More than a stated share that no removal explains stops the run
//   3. mark    them in a record: streams that begin from now on stay off them (see marked_packs.h)
//   4. purge   these removed pieces
//   5. wait    until every claim that was there at the mark has gone. A channel that is slow or
//              stopped holds its claim, a dead one does not; a later run goes on here
//   6. look again at the marked packs, as a stream from before the mark may count on them by now
//   7. sweep   delete what is all dead; then write the live blocks of the others into a next
//              revision, prove it before it gets its name, and delete the one before
//   8. unmark what was deleted or rewritten; the rest stays marked (see marked_packs.h)
//
// Why no block that a piece needs is taken away, whatever others do meanwhile:
//
//   1. A pack is deleted or rewritten only when it is marked, every claim from before the mark is
//      gone, and a look that began after both found no manifest that needs what is taken.
//   2. A manifest that was there when that look began is met by it: manifests move forward only,
//      and the look visits the places in that order (stored_manifests.h).
//   3. A manifest that appears later belongs to a writer that took its claim before it read the
//      marks. If it took the claim before the mark, its claim had to be gone before the look began,
//      and the claim goes only as the manifest appears (or never will): then 2 holds. If it took
//      the claim after the mark, it read the mark, and the manifest refers to no marked pack.
//   4. What brings a removed or renamed manifest back to an earlier place is such a writer, too:
//      claim, marks, and only then the look whether the original is still there
//      (PieceWriter::copyOf and its callers). A writer that cannot refer to the same blocks stores
//      the stream again.
//   5. Between a mark and its sweep only manifests are purged that were removed before the mark. So
//      who opens a piece that shows reads it to its end: with a claim from before the mark by 1,
//      and with a later one because its manifest stays, removed or not, until a later mark.
//
// What is damaged holds up nothing else. The packs that a damaged manifest may need are all those
// that were there when it was first found damaged (quarantine.h); they are kept until it is given
// up. A damaged pack that no piece needs is deleted; one that is needed is left as it is, with what
// of it can be read. Rewriting compares every block with its identity: what is damaged, or lost
// already, stays recorded (damage.h), and never gets another revision without a record.
//
// On a full disk it works with what the store keeps back; a pack that cannot be rewritten even so
// is left for the next run, which the failure of this one tells. Killed anywhere it does no harm,
// and the next run goes on. One at a time for a node.
#ifndef KEEL_CLIENT_STORE_UPKEEP_RECLAIM_H
#define KEEL_CLIENT_STORE_UPKEEP_RECLAIM_H

#include "client/engine/packs/revision_writer.h"
#include "client/store/marks/grace.h"
#include "client/store/marks/marked_packs.h"
#include "client/store/pieces/inventory.h"
#include "client/store/space/node_space.h"
#include "client/store/usage/pack_listing.h"
#include "client/store/usage/pack_sizes.h"
#include "client/store/usage/pack_usage.h"

namespace arca::store
{

struct ReclaimRequest {
    std::int64_t grace = kDefaultGrace; // seconds that removed pieces are kept
    /// Percent of the stored bytes that may go although no removal explains it. When it is not
    /// said: kMaxUnexplained; nothing while the notes of what was stored are damaged or not there;
    /// anything when pieces that are known to be missing are accepted as lost.
    std::optional<unsigned> maxFreed{};
    bool acceptMissing = false; // the missing pieces are lost for good, and noted so
};
constexpr unsigned kMaxUnexplained = 50;

struct ReclaimTotals {
    std::uint64_t purgedPieces = 0;  // removed ones, or to be purged; leftovers are not counted
    std::uint64_t purgedDamaged = 0; // manifests among these that were damaged
    std::uint64_t keptPieces = 0;    // removed ones whose grace time is not over
    std::uint64_t missingPieces = 0; // that were accepted as lost
    std::uint64_t damagedNotes = 0;  // of what was stored: what they say is not known
    bool uncounted = false;          // there are pieces, and no note of what was stored
    std::uint64_t packs = 0;         // looked at
    std::uint64_t packBytes = 0;
    std::uint64_t deadPacks = 0; // deleted, or to be
    std::uint64_t rewrittenPacks = 0;
    std::uint64_t freedBytes = 0; // by both, or to be; what a rewriting frees is an estimate before
    std::uint64_t waitingPacks = 0; // marked, but some claim from before the mark still lives
    std::uint64_t waitingBytes = 0;
    std::vector<std::string> waitingFor;    // the claims: temporary_name.h
    std::set<std::string> damagedManifests; // blobs; what they may need is kept
    std::set<std::string> damagedPacks;     // blobs that pieces need: left for repairing
    std::string damagedMark; // the blob of the mark that could not be read, and was replaced
};

class Reclaim
{
public:
    using Step = std::function<bool(const ReclaimTotals &)>;

    /// For one plan() or one run(). `space` must outlive it.
    explicit Reclaim(NodeSpace &space, const ReclaimRequest &request = {});

    /// Returns what a run would do now, and fails where it would refuse; changes nothing in the
    /// repository and takes no lock.
    Result<ReclaimTotals> plan();
    /// Returns with waitingPacks set when claims hold it up; run it again later. `step` is told
    /// after each pack; false ends the run early, and cleanly. Errors: conflict when another one is
    /// at work for this node; damaged when pieces, or the record of their filespace, are missing,
    /// or more would be freed than removals explain: then nothing was freed but by an earlier run's
    /// mark. After others (conflict, too, when another run overtook this one) some may be freed;
    /// the next run goes on.
    Result<ReclaimTotals> run(const Step &step = {});

private:
    struct Candidate {
        engine::PackId id{};
        std::uint64_t bytes = 0;
        std::uint64_t freed = 0;       // about
        std::uint64_t unexplained = 0; // of it: no piece that is purged needed it
        bool dead = false;
        std::uint32_t newest = 0; // revision to be marked
    };
    Result<void> compareStock(bool accept, ReclaimTotals &totals);
    Result<void> expectFilespaces(const Stock &stock);
    struct Sweep {
        const Step &step;
        ReclaimTotals &totals;
        const Mark &mark;                   // as the sweep began
        std::set<engine::PackId> spaceless; // no room to rewrite them
        std::set<engine::PackId> settled;   // none of their marked revisions is left
        Result<void> noRoom, failure;       // the first of each kind that did not end it
        bool goOn = true;

        std::uint32_t marked(const engine::PackId &id) const { return mark.packs.at(id); }
    };
    Result<std::vector<Candidate>> look(ReclaimTotals &totals);
    Result<std::optional<Candidate>> judge(const engine::PackId &id, const BlockUse &use,
                                           const BlockUse &purged, ReclaimTotals &totals);
    Result<std::optional<Candidate>> judgeDamaged(const engine::PackId &id, bool dead,
                                                  bool explained, ReclaimTotals &totals);
    Result<std::optional<Candidate>> judgeRevisions(const engine::OpenPack &read);
    Result<void> judgeOne(const engine::PackId &id, const ShareUse &use, ReclaimTotals &totals,
                          std::vector<Candidate> &found);
    bool staysUnopened(const engine::PackId &id, std::size_t used, ReclaimTotals &totals);
    Result<std::unique_ptr<engine::OpenPack>> openPack(const engine::PackId &id);
    bool isOver(const RemovedName &name) const;
    bool leaves(const StoredManifest &stored);
    unsigned mostUnexplained() const;
    Result<void> expectExplained(std::span<const Candidate> found,
                                 const ReclaimTotals &totals) const;
    Result<bool> settleFound(Mark &mark, const Step &step, ReclaimTotals &totals);
    Result<std::uint64_t> countPurged();
    std::uint64_t countDamaged(std::span<const RemovedName> names) const;
    Result<void> purge(ReclaimTotals &totals);
    Result<std::set<std::string>> stillLiving(const Mark &mark);
    Result<Mark> markPacks(Mark mark);
    Result<void> stillMarked();
    engine::NextRevision nextOf(const engine::PackId &id, const Sweep &sweep);
    Result<bool> settle(Mark &mark, const Step &step, ReclaimTotals &totals);
    Result<bool> sweep(Mark &mark, const Step &step, ReclaimTotals &totals);
    Result<void> sweepSome(const std::set<engine::PackId> &packs, Sweep &sweep);
    Result<void> sweepShare(std::span<const engine::PackId> packs, PackUse &use, Sweep &sweep);
    Result<void> passOver(const engine::PackId &id, Error failure, Sweep &sweep);
    Result<void> shrink(const engine::PackId &id, const BlockUse &use, Sweep &sweep);
    Result<void> keepNewest(const engine::PackId &id, const BlockUse &use, Sweep &sweep);
    Result<void> renameNeeded(Sweep &sweep);
    Result<void> giveNextName(const engine::PackName &pack, Sweep &sweep);
    Result<void> noteGaps(const engine::PackName &pack);
    Result<void> forgetDamage(const engine::PackName &pack);
    Result<std::uint64_t> deleteRevisions(const engine::PackId &id, std::uint32_t newest);
    bool hasMarked(const engine::PackId &id, std::uint32_t marked) const;
    Result<bool> needsDamaged(const engine::OpenPack &pack, const BlockUse &use);
    Result<void> rewrite(const engine::PackId &id, const BlockUse &use, Sweep &sweep);
    Result<void> writeMark(const Mark &mark);
    Result<Mark> readMark(ReclaimTotals &totals);
    void wait(const Mark &mark, std::set<std::string> living, ReclaimTotals &totals);

    NodeSpace &space_;
    engine::Domain &domain_;
    Inventory inventory_;
    bool notesAreWhole_ = true, missingAreAccepted_ = false; // by the last compareStock()
    const ReclaimRequest request_;
    const std::int64_t now_;         // as the run began
    std::vector<RemovedName> over_;  // under removed/, and their time is over
    std::vector<RemovedName> kept_;  // under removed/, and it is not
    PackListing listing_;            // of the look, or of the sweep
    std::optional<PackSizes> sizes_; // during the look
    engine::DamagedParts known_;     // as the sweep began
    DamagedManifests damaged_;
    std::uint32_t markNumber_ = 0; // of the mark that this run read or wrote last
};

} // namespace arca::store

#endif
