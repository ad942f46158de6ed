// Checking a pack: see the header.
#include "client/engine/pack_check.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

/// `damaged` when a block of an opened frame is another one than the index says.
Result<void> compareBlocks(const BlockHasher &identify, const BlockEntry *block,
                           const FrameEntry &frame, ByteView raw)
{
    std::size_t offset = 0;
    for (std::uint32_t i = 0; i < frame.blocks; ++i, ++block) {
        if (block->dropped)
            continue;
        const ByteView content = raw.subspan(offset, block->length);
        offset += block->length;
        // Blocks that were stored without looking for duplicates have no identity.
        if (block->id != BlockId{} && identify(content) != block->id)
            return Error{ErrorKind::damaged, "a block is another one than the index says"};
    }
    return {};
}

} // namespace

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
    PackFindings findings;
    const auto note = [&](DamageKind kind, std::uint32_t frame, const std::string &reason) {
        if (findings.damaged.empty())
            findings.reason = reason;
        findings.damaged.push_back({pack.id, pack.revision, kind, frame});
    };
    auto opened = domain.packs().open(pack);
    auto index = opened ? (*opened)->readIndex() : Result<PackIndex>(opened.error());
    if (!index && index.error().kind == ErrorKind::damaged) {
        note(DamageKind::whole, 0, index.error().text);
        return findings;
    }
    if (!index)
        return index.error();
    if (depth == CheckDepth::structure)
        return findings;

    (*opened)->readAhead();
    FrameCoder coder;
    Bytes sealed, raw;
    const BlockEntry *block = index->blocks.data();
    for (std::uint32_t number = 0; number < index->frames.size(); ++number) {
        const FrameEntry &frame = index->frames[number];
        auto good = openFrame(**opened, coder, number, frame, sealed, raw);
        if (good)
            good = compareBlocks(domain.identify(), block, frame, raw);
        block += frame.blocks;
        if (!good && good.error().kind != ErrorKind::damaged && good.error().kind != ErrorKind::io)
            return std::move(good).error();
        if (!good && good.error().kind == ErrorKind::io)
            findings.unreadable.insert(number);
        if (!good)
            note(DamageKind::frame, number, good.error().text);
        if (progress)
            progress(sealed.size());
    }
    return findings;
}

} // namespace arca::engine
