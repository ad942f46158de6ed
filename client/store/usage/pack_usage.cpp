// Going through the manifests of a node.
#include "client/store/usage/pack_usage.h"

#include "client/store/marks/quarantine.h"
#include "client/store/pieces/manifest_writer.h"
#include "client/store/pieces/stored_manifests.h"
#include "client/store/usage/run_spill.h"

#include <algorithm>

namespace arca::store
{

namespace
{

using Take = std::function<Result<void>(const engine::Run &, bool leaves)>;

/// Some 2 KiB for each pack, more with small blocks.
constexpr std::size_t kPacksAtOnce = 16 * 1024;
/// No pack has more blocks; a manifest that says otherwise is found when it is verified.
constexpr std::size_t kMostBlocks = std::size_t{1} << 22;

void addUse(PackUse &use, const engine::PackId &pack, std::uint32_t first, std::uint32_t count)
{
    BlockUse &blocks = use[pack];
    const std::size_t end = std::size_t{first} + count;
    if (blocks.size() < end)
        blocks.resize(end);
    std::fill(blocks.begin() + first, blocks.begin() + static_cast<std::ptrdiff_t>(end), true);
}

Result<void> takeRuns(const StoredManifest &stored, const SecretKey &key, bool leaves,
                      const Take &take)
{
    ARCA_TRY(const Manifest manifest, readManifest(stored.blob, key));
    ManifestRuns runs(stored.blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return {};
        if (run->blocks == 0)
            continue;
        if (std::size_t{run->firstBlock} + run->blocks > kMostBlocks)
            return Error{ErrorKind::damaged, "a run leads beyond every pack"};
        ARCA_CHECK(take(*run, leaves));
    }
}

/// One pass over the manifests.
Result<void> visitRuns(engine::Domain &domain, const UseQuestion &question, const Take &take)
{
    if (question.beginPass)
        question.beginPass();
    return visitManifests(
        domain.blobs(), domain.nodeKey(), [&](const StoredManifest &stored) -> Result<void> {
            const bool leaves = question.leaves && question.leaves(stored);
            auto taken = takeRuns(stored, domain.manifestKey(), leaves, take);
            // A read that failed in passing must not make a sound manifest a damaged one.
            if (!taken && isUnreadable(taken.error()))
                taken = takeRuns(stored, domain.manifestKey(), leaves, take);
            if (taken)
                return {};
            DamagedManifests *const damaged = question.damaged;
            // What is damaged and leaves needs nothing any more.
            if (leaves && taken.error().kind == ErrorKind::damaged) {
                if (damaged != nullptr)
                    damaged->leaving.insert(stored.blobName);
                return {};
            }
            if (damaged == nullptr || !isUnreadable(taken.error()))
                return inContext(std::move(taken).error(),
                                 "the stored piece in " + stored.blobName);
            damaged->blobNames.insert(stored.blobName);
            // What is not read at all has no list: as long as that lasts it holds every pack.
            Quarantine quarantine(domain);
            ARCA_TRY(const auto held, taken.error().kind == ErrorKind::damaged
                                          ? quarantine.packsHeldFor(stored.blob, damaged->keepLists)
                                          : quarantine.packsNow());
            damaged->heldPacks.insert(held.begin(), held.end());
            return {};
        });
}

Result<ShareUse> shareFrom(RunSpill &spill, std::size_t share, std::size_t shares)
{
    ShareUse use{share, shares, {}, {}};
    ARCA_CHECK(spill.take(share, [&](const SpilledRun &run) {
        addUse(run.leaves ? use.leaving : use.needed, run.pack, run.firstBlock, run.blocks);
    }));
    return use;
}

/// Pieces of many days name the same blocks again and again.
Result<void> compact(RunSpill &spill, std::size_t shares)
{
    for (std::size_t share = 0; share < shares; ++share) {
        ARCA_TRY(const ShareUse use, shareFrom(spill, share, shares));
        spill.clear(share);
        for (const PackUse *some : {&use.needed, &use.leaving})
            for (const auto &[pack, blocks] : *some)
                for (std::size_t from = 0, end = 0; from < blocks.size(); from = end) {
                    const bool used = blocks[from];
                    while (end < blocks.size() && blocks[end] == used)
                        ++end;
                    if (used)
                        ARCA_CHECK(spill.add(share, {pack, static_cast<std::uint32_t>(from),
                                                     static_cast<std::uint32_t>(end - from),
                                                     some == &use.leaving}));
                }
    }
    return {};
}

/// Returns nothing when the runs found no room.
Result<std::unique_ptr<RunSpill>> spillRuns(engine::Domain &domain, const UseQuestion &question,
                                            std::size_t shares)
{
    auto made = RunSpill::make(domain.cache().directory(), shares);
    if (!made)
        return std::unique_ptr<RunSpill>();
    RunSpill &spill = **made;
    std::uint64_t limit = question.mostSpilled;
    bool roomless = false;
    const auto keep = [&](const engine::Run &run, bool leaves) -> Result<void> {
        ARCA_CHECK(
            spill.add(shareOf(run.pack, shares), {run.pack, run.firstBlock, run.blocks, leaves}));
        if (spill.fileBytes() < limit)
            return {};
        ARCA_CHECK(compact(spill, shares));
        limit = std::max(question.mostSpilled, 2 * spill.fileBytes());
        return {};
    };
    auto visited =
        visitRuns(domain, question, [&](const engine::Run &run, bool leaves) -> Result<void> {
            if (question.wanted && !question.wanted(run.pack))
                return {};
            roomless = !keep(run, leaves);
            return roomless ? Error{ErrorKind::stopped, "no room for a temporary file"}
                            : Result<void>();
        });
    if (roomless)
        return std::unique_ptr<RunSpill>();
    ARCA_CHECK(std::move(visited));
    return made;
}

} // namespace

bool ShareUse::has(const engine::PackId &pack) const
{
    return shareOf(pack, shares) == share;
}

Result<void> visitUse(engine::Domain &domain, const UseQuestion &question,
                      const std::function<Result<void>(ShareUse &)> &visit)
{
    const std::size_t shares = question.packs / kPacksAtOnce + 1;
    std::unique_ptr<RunSpill> spill;
    if (shares > 1) {
        ARCA_TRY(spill, spillRuns(domain, question, shares));
    }
    for (std::size_t share = 0; share < shares; ++share) {
        ShareUse use{share, shares, {}, {}};
        if (spill) {
            ARCA_TRY(use, shareFrom(*spill, share, shares));
            spill->clear(share);
        } else {
            ARCA_CHECK(visitRuns(
                domain, question, [&](const engine::Run &run, bool leaves) -> Result<void> {
                    if (use.has(run.pack) && (!question.wanted || question.wanted(run.pack)))
                        addUse(leaves ? use.leaving : use.needed, run.pack, run.firstBlock,
                               run.blocks);
                    return {};
                }));
        }
        ARCA_CHECK(visit(use));
    }
    return {};
}

Result<PackUse> usedBlocks(engine::Domain &domain,
                           const std::function<bool(const engine::PackId &)> &wanted)
{
    PackUse use;
    UseQuestion question;
    question.wanted = wanted;
    ARCA_CHECK(visitUse(domain, question, [&](ShareUse &all) -> Result<void> {
        use = std::move(all.needed);
        return {};
    }));
    return use;
}

std::size_t shareOf(const engine::PackId &id, std::size_t shares)
{
    return (std::to_integer<std::size_t>(id[1]) << 8 | std::to_integer<std::size_t>(id[2])) %
           shares;
}

std::size_t countUsed(const BlockUse &use)
{
    return static_cast<std::size_t>(std::count(use.begin(), use.end(), true));
}

} // namespace arca::store
