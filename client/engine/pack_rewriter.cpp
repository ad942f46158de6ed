// Frame by frame: opened, what is needed of it gathered into new frames.
#include "client/engine/pack_rewriter.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

/// New frames on their way into the new revision. A frame is closed only when a block that is
/// needed does not fit, so that dropped blocks behind the last needed one belong to it.
class Gatherer
{
public:
    Gatherer(PackWriter &writer, const Aead &cipher, const PackId &id)
        : writer_(writer), cipher_(cipher), id_(id)
    {
    }

    Result<void> keep(BlockEntry entry, ByteView block)
    {
        if (!raw_.empty() && raw_.size() + block.size() > kFrameBytes)
            ARCA_CHECK(flush());
        raw_.insert(raw_.end(), block.begin(), block.end());
        blocks_.push_back(entry);
        return {};
    }
    void drop(BlockEntry entry)
    {
        entry.dropped = true;
        blocks_.push_back(entry);
    }
    Result<void> flush()
    {
        ARCA_CHECK(coder_.seal(settings_, cipher_, id_, number_++, raw_, sealed_));
        ARCA_CHECK(writer_.append(sealed_, blocks_));
        raw_.clear();
        blocks_.clear();
        return {};
    }

private:
    PackWriter &writer_;
    const Aead &cipher_;
    PackId id_;
    Settings settings_;
    FrameCoder coder_;
    SealedFrame sealed_;
    Bytes raw_;
    std::vector<BlockEntry> blocks_;
    std::uint32_t number_ = 0;
};

Result<void> openFrame(OpenPack &pack, FrameCoder &coder, std::uint32_t number,
                       const FrameEntry &entry, Bytes &sealed, Bytes &raw)
{
    sealed.resize(entry.storedBytes);
    raw.resize(entry.rawBytes);
    ARCA_TRY(const std::size_t got, pack.read(entry.offset, sealed));
    if (got != sealed.size())
        return Error{ErrorKind::damaged, "it was cut while it was read"};
    return coder.open(pack.cipher(), pack.which().id, number, entry, sealed, raw);
}

} // namespace

Result<std::uint64_t> rewritePack(const PackStore &packs, OpenPack &pack,
                                  const std::function<bool(std::uint32_t block)> &isNeeded)
{
    const PackName next{pack.which().id, pack.which().revision + 1};
    ARCA_TRY(const PackIndex index, pack.readIndex());
    ARCA_TRY(const PackHeader header, PackStore::newHeader(next.id, pack.cipher().cipher()));
    ARCA_TRY(const Aead cipher, packCipher(packs.packKey(), header));
    ARCA_TRY(const auto writer, packs.begin(next, header));
    Gatherer gatherer(*writer, cipher, next.id);
    FrameCoder coder;
    Bytes sealed;
    Bytes raw;
    std::uint32_t block = 0;
    for (std::uint32_t number = 0; number < index.frames.size(); ++number) {
        const FrameEntry &frame = index.frames[number];
        const std::uint32_t end = block + frame.blocks;
        bool needed = false;
        for (std::uint32_t i = block; i < end; ++i)
            needed = needed || (!index.blocks[i].dropped && isNeeded(i));
        if (needed)
            if (auto opened = openFrame(pack, coder, number, frame, sealed, raw); !opened)
                return inContext(std::move(opened).error(), "the pack " + pack.blobName());
        std::size_t offset = 0;
        for (; block < end; ++block) {
            const BlockEntry &entry = index.blocks[block];
            const std::size_t length = entry.dropped ? 0 : entry.length;
            if (!entry.dropped && isNeeded(block))
                ARCA_CHECK(gatherer.keep(entry, ByteView(raw).subspan(offset, length)));
            else
                gatherer.drop(entry);
            offset += length;
        }
    }
    ARCA_CHECK(gatherer.flush());
    ARCA_CHECK(writer->commit());
    return writer->storedBytes();
}

} // namespace arca::engine
