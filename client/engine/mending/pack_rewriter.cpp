// Frame by frame: opened, what is needed of it gathered into new frames.
#include "client/engine/mending/pack_rewriter.h"

#include "client/engine/mending/pack_check.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

using IsNeeded = std::function<bool(std::uint32_t block)>;

class Rewriting
{
public:
    Rewriting(Domain &domain, const OpenPack &pack, const PackIndex &index,
              const IsNeeded &isNeeded, RevisionWriter &writer)
        : domain_(domain), pack_(pack), index_(index), isNeeded_(isNeeded), writer_(writer)
    {
    }

    /// Goes on behind a damaged frame, so that all of them are found at once.
    Result<void> run(std::vector<DamagedPart> &found)
    {
        Result<void> first;
        for (std::uint32_t number = 0; number < index_.frames.size(); ++number) {
            auto copied = copyFrame(number);
            if (!copied && copied.error().kind != ErrorKind::damaged)
                return copied;
            if (copied)
                continue;
            found.push_back({pack_.which().id, pack_.which().revision, DamageKind::frame, number});
            if (first)
                first = std::move(copied);
        }
        return first;
    }

private:
    bool keeps(std::uint32_t block) const
    {
        return !index_.blocks[block].dropped && isNeeded_(block);
    }

    Result<void> copyFrame(std::uint32_t number)
    {
        const FrameEntry &frame = index_.frames[number];
        const std::uint32_t first = std::exchange(next_, next_ + frame.blocks);
        bool needed = false;
        for (std::uint32_t block = first; block < next_; ++block)
            needed = needed || keeps(block);
        if (needed)
            ARCA_CHECK(openFrame(pack_, coder_, number, frame, sealed_, raw_));
        std::size_t offset = 0;
        for (std::uint32_t block = first; block < next_; ++block) {
            const BlockEntry &entry = index_.blocks[block];
            if (!keeps(block)) {
                writer_.drop(entry);
            } else {
                const ByteView content = ByteView(raw_).subspan(offset, entry.length);
                if (!fitsIdentity(domain_.identify(), entry, content))
                    return Error{ErrorKind::damaged, "a block is another one than the index says"};
                ARCA_CHECK(writer_.keep(entry, content));
            }
            offset += entry.dropped ? 0 : entry.length;
        }
        return {};
    }

    Domain &domain_;
    const OpenPack &pack_;
    const PackIndex &index_;
    const IsNeeded &isNeeded_;
    RevisionWriter &writer_;
    FrameCoder coder_;
    Bytes sealed_, raw_;
    std::uint32_t next_ = 0; // the first block of the next frame
};

/// The new revision opens, each of its blocks is the one that its identity says, and none is
/// missing.
Result<void> prove(Domain &domain, const PackIndex &old, const IsNeeded &isNeeded,
                   RevisionWriter &writer)
{
    ARCA_TRY(const auto pack, writer.readBack());
    ARCA_TRY(const PackFindings found, checkPack(domain, *pack, CheckDepth::data, {}));
    if (!found.isSound())
        return Error{ErrorKind::damaged, found.reason};
    ARCA_TRY(const PackIndex now, pack->readIndex());
    bool whole = old.blocks.size() == now.blocks.size();
    for (std::uint32_t block = 0; whole && block < old.blocks.size(); ++block) {
        const BlockEntry &was = old.blocks[block], &is = now.blocks[block];
        whole = was.id == is.id && was.length == is.length &&
                (was.dropped || !is.dropped || !isNeeded(block));
    }
    return whole ? Result<void>()
                 : Error{ErrorKind::damaged, "the new revision lacks blocks of the old one"};
}

} // namespace

Result<RewrittenPack> rewritePack(Domain &domain, OpenPack &pack, const NextRevision &next,
                                  const IsNeeded &isNeeded, std::vector<DamagedPart> &found)
{
    ARCA_TRY(const PackIndex index, pack.readIndex());
    ARCA_TRY(const auto writer, RevisionWriter::begin(domain.packs(), pack, next));
    if (auto copied = Rewriting(domain, pack, index, isNeeded, *writer).run(found); !copied)
        return inContext(std::move(copied).error(), "the pack " + pack.blobName());
    if (auto proven = prove(domain, index, isNeeded, *writer); !proven)
        return inContext(std::move(proven).error(), "rewriting the pack " + pack.blobName());
    ARCA_CHECK(writer->commit());
    RewrittenPack rewritten{writer->which(), writer->storedBytes()};
    for (std::uint32_t block = 0; block < index.blocks.size(); ++block)
        rewritten.gaps = rewritten.gaps || (index.blocks[block].dropped && isNeeded(block));
    return rewritten;
}

} // namespace arca::engine
