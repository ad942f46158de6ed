// Mending a pack: see the header.
#include "client/engine/pack_mender.h"

#include "client/engine/revision_writer.h"

namespace arca::engine
{

namespace
{

/// Of an opened frame the block as it is stored; nothing when that is not what its identity says.
std::optional<ByteView> storedBlock(Domain &domain, const BlockEntry &entry, ByteView raw,
                                    std::size_t offset)
{
    const ByteView content = raw.subspan(offset, entry.length);
    if (entry.id != BlockId{} && domain.identify()(content) != entry.id)
        return std::nullopt;
    return content;
}

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
            if (opened)
                content = storedBlock(domain_, entry, raw_, offset);
            if (!content)
                content = search_.fetch(entry);
            // Better a block that its identity does not fit than none: it is what was sealed.
            if (!content && opened)
                content = ByteView(raw_).subspan(offset, entry.length);
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

/// Every frame of it opens, and it has each block that the one before has and that can be read.
Result<void> proveRevision(Domain &domain, const BrokenPack &before, const PackName &which)
{
    ARCA_TRY(const PackFindings found, checkPack(domain, which, CheckDepth::data, {}));
    for (const DamagedPart &part : found.damaged)
        if (part.kind != DamageKind::frame)
            return Error{ErrorKind::damaged, found.reason};
    ARCA_TRY(const auto pack, domain.packs().open(which));
    ARCA_TRY(const PackIndex index, pack->readIndex());
    bool whole = index.blocks.size() == before.index.blocks.size() && found.unreadable.empty();
    FrameCoder coder;
    Bytes sealed, raw;
    for (std::uint32_t number = 0; whole && number < index.frames.size(); ++number)
        whole =
            static_cast<bool>(openFrame(*pack, coder, number, index.frames[number], sealed, raw));
    std::uint32_t block = 0;
    for (std::uint32_t number = 0; whole && number < before.index.frames.size(); ++number)
        for (const std::uint32_t end = block + before.index.frames[number].blocks; block < end;
             ++block) {
            const BlockEntry &old = before.index.blocks[block], &now = index.blocks[block];
            const bool mayGo = old.dropped || before.frames.contains(number);
            whole =
                whole && old.id == now.id && old.length == now.length && (mayGo || !now.dropped);
        }
    if (!whole)
        return Error{ErrorKind::damaged,
                     "the new revision of the pack is not what it should be; the memory or the "
                     "disk of this host may be at fault"};
    return {};
}

void removeRevision(const Domain &domain, const PackName &which)
{
    const std::string name = domain.packs().blobNameOf(which);
    if (const auto opened = domain.blobs().open(name))
        (void)domain.blobs().remove(name, **opened);
}

} // namespace

MendPlan planMending(const BrokenPack &pack, BlockSearch &search)
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
        if (search.fetch(entry)) {
            ++plan.found;
            plan.foundBytes += entry.length;
            return;
        }
        plan.lost.insert(block);
        plan.losesUnreadable = plan.losesUnreadable || unreadable.contains(block);
    });
    return plan;
}

Result<PackName> mendPack(Domain &domain, const BrokenPack &broken, BlockSearch &search)
{
    ARCA_TRY(const auto pack, domain.packs().open(broken.which));
    ARCA_TRY(const auto writer, RevisionWriter::begin(domain.packs(), *pack));
    ARCA_CHECK(Mending(domain, broken, *pack, search, *writer).run());
    ARCA_CHECK(writer->commit());
    if (auto proven = proveRevision(domain, broken, writer->which()); !proven) {
        removeRevision(domain, writer->which());
        return std::move(proven).error();
    }
    return writer->which();
}

} // namespace arca::engine
