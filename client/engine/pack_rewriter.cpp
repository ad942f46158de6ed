// Frame by frame: opened, what is needed of it gathered into new frames.
#include "client/engine/pack_rewriter.h"

#include "client/engine/pack_check.h"
#include "client/engine/revision_writer.h"

namespace arca::engine
{

Result<std::uint64_t> rewritePack(const PackStore &packs, OpenPack &pack,
                                  const std::function<bool(std::uint32_t block)> &isNeeded)
{
    ARCA_TRY(const PackIndex index, pack.readIndex());
    ARCA_TRY(const auto writer, RevisionWriter::begin(packs, pack));
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
                ARCA_CHECK(writer->keep(entry, ByteView(raw).subspan(offset, length)));
            else
                writer->drop(entry);
            offset += length;
        }
    }
    ARCA_CHECK(writer->commit());
    return writer->storedBytes();
}

} // namespace arca::engine
