// Mending a pack: see the header.
#include "client/engine/mending/pack_mender.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

class Mending
{
public:
    Mending(Domain &domain, const BrokenPack &broken, const OpenPack &pack, BlockSearch &search,
            RevisionWriter &writer)
        : domain_(domain), broken_(broken), pack_(pack), search_(search), writer_(writer)
    {
    }

    Result<void> run()
    {
        std::uint32_t block = 0;
        for (std::uint32_t number = 0; number < broken_.index.frames.size(); ++number)
            ARCA_CHECK(copyFrame(number, block));
        return {};
    }

private:
    Result<void> copyFrame(std::uint32_t number, std::uint32_t &block)
    {
        const FrameEntry &frame = broken_.index.frames[number];
        const auto opened = openFrame(pack_, coder_, number, frame, sealed_, raw_);
        // A frame that could be read before must not be dropped because it cannot be now.
        if (!opened && !broken_.frames.contains(number))
            return opened;
        std::size_t offset = 0;
        for (const std::uint32_t end = block + frame.blocks; block < end; ++block) {
            const BlockEntry &entry = broken_.index.blocks[block];
            if (entry.dropped) {
                ARCA_CHECK(put(entry, broken_.missingBlocks.contains(block) ? search_.fetch(entry)
                                                                            : std::nullopt));
                continue;
            }
            std::optional<ByteView> content;
            const auto stored =
                opened ? std::optional(ByteView(raw_).subspan(offset, entry.length)) : std::nullopt;
            if (stored && fitsIdentity(domain_.identify(), entry, *stored))
                content = stored;
            if (!content)
                content = search_.fetch(entry);
            // Better a block that contradicts its identity than none: it is what was sealed. The
            // frame that it goes into is recorded as damaged.
            if (!content)
                content = stored;
            ARCA_CHECK(put(entry, content));
            offset += entry.length;
        }
        return {};
    }

    Result<void> put(const BlockEntry &entry, std::optional<ByteView> content)
    {
        if (content)
            return writer_.keep(entry, *content);
        writer_.drop(entry);
        return {};
    }

    Domain &domain_;
    const BrokenPack &broken_;
    const OpenPack &pack_;
    BlockSearch &search_;
    RevisionWriter &writer_;
    FrameCoder coder_;
    Bytes sealed_, raw_;
};

/// Reads the new revision: every frame of it opens, and it has each block that the one before has
/// or that a copy was found of.
Result<MendedPack> proveRevision(Domain &domain, const BrokenPack &before, const MendPlan &plan,
                                 RevisionWriter &writer)
{
    ARCA_TRY(const auto pack, writer.readBack());
    ARCA_TRY(PackFindings found, checkPack(domain, *pack, CheckDepth::data, {}));
    if (found.isWhole())
        return Error{ErrorKind::damaged, found.reason};
    MendedPack mended{writer.which(), {}, std::move(found.damaged)};
    ARCA_TRY(mended.index, pack->readIndex());
    const PackIndex &old = before.index, &now = mended.index;
    bool whole = old.blocks.size() == now.blocks.size() && found.unreadable.empty();
    std::set<std::uint32_t> wrongFrames; // that open
    std::uint32_t block = 0;
    for (std::uint32_t frame = 0; whole && frame < now.frames.size(); ++frame)
        for (const std::uint32_t end = block + now.frames[frame].blocks; block < end; ++block)
            if (found.wrongBlocks.contains(block))
                wrongFrames.insert(frame);
    whole = whole && wrongFrames.size() == mended.damaged.size() &&
            std::ranges::includes(plan.lost, found.wrongBlocks);
    for (block = 0; whole && block < old.blocks.size(); ++block) {
        const BlockEntry &was = old.blocks[block], &is = now.blocks[block];
        const bool mayGo =
            plan.lost.contains(block) || (was.dropped && !before.missingBlocks.contains(block));
        whole = was.id == is.id && was.length == is.length && (mayGo || !is.dropped);
    }
    if (!whole)
        return Error{ErrorKind::damaged,
                     "the new revision of the pack is not what it should be; the memory or the "
                     "disk of this host may be at fault"};
    return mended;
}

} // namespace

MendPlan planMending(const BrokenPack &pack, BlockSearch &search,
                     const std::function<bool(std::uint32_t)> &isNeeded)
{
    MendPlan plan;
    std::set<std::uint32_t> unreadable;
    std::uint32_t first = 0;
    for (std::uint32_t number = 0; number < pack.index.frames.size(); ++number) {
        const std::uint32_t end = first + pack.index.frames[number].blocks;
        if (pack.unreadable.contains(number))
            for (std::uint32_t block = first; block < end; ++block)
                unreadable.insert(block);
        first = end;
    }
    pack.eachWanted([&](std::uint32_t block) {
        const BlockEntry &entry = pack.index.blocks[block];
        if (!search.fetch(entry)) {
            plan.lost.insert(block);
            plan.losesUnreadable =
                plan.losesUnreadable || (unreadable.contains(block) && isNeeded(block));
        } else if (isNeeded(block)) {
            ++plan.found;
            plan.foundBytes += entry.length;
        }
    });
    return plan;
}

Result<MendedPack> mendPack(Domain &domain, const BrokenPack &broken, const NextRevision &next,
                            const MendPlan &plan, BlockSearch &search)
{
    ARCA_TRY(const auto pack, domain.packs().open(broken.which));
    ARCA_TRY(const auto writer, RevisionWriter::begin(domain.packs(), *pack, next));
    ARCA_CHECK(Mending(domain, broken, *pack, search, *writer).run());
    ARCA_TRY(MendedPack mended, proveRevision(domain, broken, plan, *writer));
    ARCA_CHECK(writer->commit());
    return mended;
}

} // namespace arca::engine
