// Checking a pack: see the header.
#include "client/engine/mending/pack_check.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

/// `damaged` when a block of an opened frame, whose blocks begin with number `first`, is another
/// one than the index says. Adds the numbers of such blocks to `wrong`.
Result<void> compareBlocks(const BlockHasher &identify, const PackIndex &index, std::uint32_t first,
                           const FrameEntry &frame, ByteView raw, std::set<std::uint32_t> &wrong)
{
    Result<void> compared;
    std::size_t offset = 0;
    for (std::uint32_t number = first; number < first + frame.blocks; ++number) {
        const BlockEntry &block = index.blocks[number];
        if (block.dropped)
            continue;
        const ByteView content = raw.subspan(offset, block.length);
        offset += block.length;
        if (fitsIdentity(identify, block, content))
            continue;
        wrong.insert(number);
        compared = Error{ErrorKind::damaged, "a block is another one than the index says"};
    }
    return compared;
}

PackFindings wholeDamaged(const PackName &pack, const Error &why)
{
    PackFindings findings;
    findings.damaged.push_back({pack.id, pack.revision, DamageKind::whole, 0});
    findings.reason = why.text;
    return findings;
}

} // namespace

bool fitsIdentity(const BlockHasher &identify, const BlockEntry &block, ByteView content)
{
    // Blocks that were stored without looking for duplicates have no identity.
    return block.id == BlockId{} || identify(content) == block.id;
}

Result<void> openFrame(const OpenPack &pack, FrameCoder &coder, std::uint32_t number,
                       const FrameEntry &entry, Bytes &sealed, Bytes &raw)
{
    sealed.resize(entry.storedBytes);
    raw.resize(entry.rawBytes);
    ARCA_TRY(const std::size_t got, pack.read(entry.offset, sealed));
    if (got != sealed.size()) // the index, which lies behind it, was there when it was opened
        return Error{ErrorKind::io, "it was cut while it was read"};
    return coder.open(pack.cipher(), pack.which().id, number, entry, sealed, raw);
}

Result<PackFindings> checkPack(Domain &domain, const PackName &pack, CheckDepth depth,
                               const std::function<void(std::size_t)> &progress)
{
    const auto opened = domain.packs().open(pack);
    if (opened)
        return checkPack(domain, **opened, depth, progress);
    if (opened.error().kind == ErrorKind::damaged)
        return wholeDamaged(pack, opened.error());
    return opened.error();
}

Result<PackFindings> checkPack(Domain &domain, const OpenPack &pack, CheckDepth depth,
                               const std::function<void(std::size_t)> &progress)
{
    const PackName &which = pack.which();
    const auto index = pack.readIndex();
    if (!index && index.error().kind == ErrorKind::damaged)
        return wholeDamaged(which, index.error());
    if (!index)
        return index.error();
    PackFindings findings;
    if (depth == CheckDepth::structure)
        return findings;

    pack.readAhead();
    FrameCoder coder;
    Bytes sealed, raw;
    std::uint32_t first = 0;
    for (std::uint32_t number = 0; number < index->frames.size(); ++number) {
        const FrameEntry &frame = index->frames[number];
        auto good = openFrame(pack, coder, number, frame, sealed, raw);
        if (good)
            good =
                compareBlocks(domain.identify(), *index, first, frame, raw, findings.wrongBlocks);
        first += frame.blocks;
        if (!good && good.error().kind != ErrorKind::damaged && good.error().kind != ErrorKind::io)
            return std::move(good).error();
        if (!good && good.error().kind == ErrorKind::io)
            findings.unreadable.insert(number);
        if (!good && findings.damaged.empty())
            findings.reason = good.error().text;
        if (!good)
            findings.damaged.push_back({which.id, which.revision, DamageKind::frame, number});
        if (progress)
            progress(sealed.size());
    }
    return findings;
}

} // namespace arca::engine
