// Runs to extents.
#include "client/engine/restoring/restore_plan.h"

#include <algorithm>
#include <sys/resource.h>

namespace arca::engine
{

namespace
{

/// Open packs whose layout is kept: a file and some 60 KiB each. A piece that is stored every day
/// for months needs nearly as many at once, and one that comes and goes is read again and again.
/// But most of the files that the process may open are the database's.
std::size_t maxLayouts()
{
    constexpr rlim_t kLeast = 16;
    constexpr rlim_t kMost = 128;
    rlimit files;
    if (getrlimit(RLIMIT_NOFILE, &files) != 0)
        return kLeast;
    return static_cast<std::size_t>(std::clamp(files.rlim_cur / 8, kLeast, kMost));
}

Error damaged(const std::string &what)
{
    return {ErrorKind::damaged, what};
}

std::shared_ptr<PackLayout> layOut(std::unique_ptr<OpenPack> pack, PackIndex index)
{
    auto layout = std::make_shared<PackLayout>();
    layout->pack = std::move(pack);
    layout->frames = std::move(index.frames);
    layout->blockOffset.reserve(index.blocks.size());
    StreamDigest identities;
    for (const BlockEntry &entry : index.blocks)
        identities.update(entry.id);
    layout->identities = identities.value();
    std::uint32_t block = 0;
    for (const FrameEntry &frame : layout->frames) {
        layout->firstBlock.push_back(block);
        std::uint32_t offset = 0;
        for (const std::uint32_t end = block + frame.blocks; block < end; ++block) {
            const BlockEntry &entry = index.blocks[block];
            layout->blockOffset.push_back(offset);
            offset += entry.dropped ? 0 : entry.length;
        }
    }
    return layout;
}

} // namespace

std::uint32_t PackLayout::frameOf(std::uint32_t block) const
{
    const auto after = std::upper_bound(firstBlock.begin(), firstBlock.end(), block);
    return static_cast<std::uint32_t>(after - firstBlock.begin()) - 1;
}

std::uint32_t PackLayout::lengthOf(std::uint32_t block, std::uint32_t frame) const
{
    const bool isLast = block + 1 == endOf(frame);
    return (isLast ? frames[frame].rawBytes : blockOffset[block + 1]) - blockOffset[block];
}

Result<std::shared_ptr<PackLayout>> openLayout(const PackStore &packs, const PackId &id,
                                               std::optional<DamagedPart> *part)
{
    auto opened = packs.open(id);
    if (!opened && opened.error().kind == ErrorKind::notFound)
        return damaged("the pack " + packs.blobNameOf({id, 1}) + " is missing");
    auto index = opened ? (*opened)->readIndex() : Result<PackIndex>(opened.error());
    if (!index && index.error().kind == ErrorKind::damaged && part != nullptr)
        *part = DamagedPart{
            id, opened ? (*opened)->which().revision : packs.revisionToRead(id).value_or(1),
            DamageKind::whole, 0};
    ARCA_TRY(PackIndex known, std::move(index));
    return layOut(std::move(opened).value(), std::move(known));
}

RestorePlan::RestorePlan(const PackStore &packs, RunSource &runs)
    : packs_(packs), runs_(runs), maxLayouts_(maxLayouts())
{
}

Result<std::shared_ptr<PackLayout>> RestorePlan::layoutOf(const PackId &id)
{
    auto known = layouts_.find(id);
    if (known == layouts_.end()) {
        ARCA_TRY(auto layout, open(id));
        makeRoom();
        known = layouts_.emplace(id, std::move(layout)).first;
    }
    known->second->used = ++clock_;
    return known->second;
}

Result<std::shared_ptr<PackLayout>> RestorePlan::open(const PackId &id)
{
    // The frames of one that is still in use are known by it.
    if (const auto other = others_.extract(id); !other.empty())
        if (auto layout = other.mapped().lock())
            return layout;
    return openLayout(packs_, id, &damage_);
}

void RestorePlan::makeRoom()
{
    if (layouts_.size() < maxLayouts_)
        return;
    const auto oldest =
        std::min_element(layouts_.begin(), layouts_.end(), [](const auto &a, const auto &b) {
            return a.second->used < b.second->used;
        });
    oldest->second->pack->close();
    if (others_.size() >= maxLayouts_)
        std::erase_if(others_, [](const auto &other) { return other.second.expired(); });
    others_.insert_or_assign(oldest->first, oldest->second);
    layouts_.erase(oldest);
}

Result<std::optional<Extent>> RestorePlan::next()
{
    if (run_ == Run{}) {
        ARCA_TRY(const std::optional<Run> run, runs_.next());
        if (!run)
            return std::optional<Extent>();
        run_ = *run;
        current_.reset();
    }
    if (run_.blocks == 0) {
        Extent zeros;
        zeros.length = run_.zeroBytes;
        run_ = Run{};
        return std::optional<Extent>(std::move(zeros));
    }
    if (!current_) {
        ARCA_TRY(current_, layoutOf(run_.pack));
    }
    const PackLayout &layout = *current_;
    if (run_.firstBlock >= layout.blockOffset.size() ||
        run_.blocks > layout.blockOffset.size() - run_.firstBlock)
        return damaged("a run leads beyond the pack " + layout.pack->blobName());

    Extent extent;
    extent.pack = current_;
    extent.frame = layout.frameOf(run_.firstBlock);
    extent.offset = layout.blockOffset[run_.firstBlock];
    while (run_.blocks != 0 && run_.firstBlock < layout.endOf(extent.frame)) {
        const std::uint32_t length = layout.lengthOf(run_.firstBlock, extent.frame);
        if (length == 0) {
            damage_ = DamagedPart{layout.id(), layout.pack->which().revision, DamageKind::gaps, 0};
            return damaged("a block that is needed was dropped from the pack " +
                           layout.pack->blobName());
        }
        extent.length += length;
        ++run_.firstBlock;
        --run_.blocks;
    }
    if (run_.blocks == 0)
        run_ = Run{};
    return std::optional<Extent>(std::move(extent));
}

} // namespace arca::engine
