// Blocks of a revision that is gone, from the next one: see the header.
#include "client/engine/restoring/later_revision.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

/// One frame, opened; the last one is kept, as the next block is mostly in it, too.
class Frames
{
public:
    Frames(const PackLayout &layout, FrameCoder &coder) : layout_(layout), coder_(coder) {}

    Result<ByteView> open(std::uint32_t frame)
    {
        if (frame == opened_)
            return ByteView(raw_);
        const FrameEntry &entry = layout_.frames[frame];
        const OpenPack &pack = *layout_.pack;
        Bytes sealed(entry.storedBytes);
        ARCA_TRY(const std::size_t got, pack.read(entry.offset, sealed));
        if (got != sealed.size())
            return Error{ErrorKind::damaged, "the pack " + pack.blobName() + ": it was cut"};
        raw_.resize(entry.rawBytes);
        opened_.reset();
        auto done = coder_.open(pack.cipher(), pack.which().id, frame, entry, sealed, raw_);
        if (!done)
            return inContext(std::move(done).error(), "the pack " + pack.blobName());
        opened_ = frame;
        return ByteView(raw_);
    }

private:
    const PackLayout &layout_;
    FrameCoder &coder_;
    std::optional<std::uint32_t> opened_;
    Bytes raw_;
};

} // namespace

Result<std::shared_ptr<PackLayout>> LaterRevisions::newestOf(const PackLayout &gone)
{
    const std::lock_guard hold(mutex_);
    if (!newest_ || newest_->id() != gone.id()) {
        ARCA_TRY(newest_, openLayout(packs_, gone.id()));
    }
    if (newest_->identities != gone.identities)
        return Error{ErrorKind::damaged, "the pack " + newest_->pack->blobName() +
                                             " has other blocks than the revision before"};
    return newest_;
}

Result<void> LaterRevisions::read(const PackLayout &gone, std::uint32_t frame, std::uint32_t offset,
                                  std::uint64_t length, FrameCoder &coder,
                                  const std::function<void(std::uint32_t, ByteView)> &take)
{
    ARCA_TRY(const auto newest, newestOf(gone));
    Frames frames(*newest, coder);
    const std::uint64_t end = offset + length;
    for (std::uint32_t block = gone.firstBlock[frame]; block < gone.endOf(frame); ++block) {
        const std::uint32_t first = gone.blockOffset[block];
        const std::uint32_t bytes = gone.lengthOf(block, frame);
        const std::uint32_t from = std::max(first, offset);
        const auto to = static_cast<std::uint32_t>(std::min<std::uint64_t>(first + bytes, end));
        if (from >= to)
            continue;
        const std::uint32_t now = newest->frameOf(block);
        if (newest->lengthOf(block, now) != bytes)
            return Error{ErrorKind::damaged, "a block that is needed was dropped from the pack " +
                                                 newest->pack->blobName()};
        ARCA_TRY(const ByteView raw, frames.open(now));
        take(from, raw.subspan(newest->blockOffset[block] + (from - first), to - from));
    }
    return {};
}

} // namespace arca::engine
