// Packs, to and from bytes.
#include "client/engine/packs/pack_format.h"

#include "client/base/crypto/hash.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

constexpr std::string_view kHeaderMagic = "ARCAPACK";
constexpr std::string_view kTrailerMagic = "ARCAPEND";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kCheckBytes = 8;
constexpr std::size_t kFrameEntryBytes = 24;
constexpr std::size_t kBlockEntryBytes = 20;
constexpr std::uint32_t kDropped = std::uint32_t{1} << 31;

Error damaged(const char *what)
{
    return {ErrorKind::damaged, what};
}

std::uint64_t checksumOf(ByteView header, ByteView trailerStart)
{
    return checksum64(trailerStart, checksum64(header));
}

/// Whether the frames lie one after the other, hold all the blocks, and end where the index begins.
bool isSound(const PackIndex &index, const PackTrailer &trailer)
{
    std::uint64_t offset = kPackHeaderBytes;
    std::size_t block = 0;
    for (const FrameEntry &frame : index.frames) {
        if (frame.offset != offset || frame.storedBytes < kTagBytes ||
            frame.rawBytes > kMaxFrameBytes || frame.storedBytes > kMaxFrameBytes + kTagBytes ||
            frame.blocks > index.blocks.size() - block)
            return false;
        std::uint64_t raw = 0;
        for (const std::size_t end = block + frame.blocks; block < end; ++block)
            raw += index.blocks[block].dropped ? 0 : index.blocks[block].length;
        if (raw != frame.rawBytes ||
            (frame.method == FrameMethod::plain && frame.storedBytes != raw + kTagBytes))
            return false;
        offset += frame.storedBytes;
    }
    return block == index.blocks.size() && offset == trailer.indexOffset;
}

} // namespace

PackId successorOf(const PackId &id)
{
    PackId next = id;
    for (std::size_t i = 12; i < next.size(); ++i) {
        next[i] = static_cast<std::byte>(std::to_integer<unsigned>(next[i]) + 1);
        if (next[i] != std::byte{0})
            break;
    }
    return next;
}

Bytes encodePackHeader(const PackHeader &header)
{
    ByteWriter writer;
    writer.raw(viewOf(kHeaderMagic));
    writer.u32(kVersion);
    writer.u32(static_cast<std::uint32_t>(header.cipher));
    writer.raw(header.id);
    writer.raw(header.salt);
    return writer.take();
}

Result<PackHeader> parsePackHeader(ByteView bytes)
{
    ByteReader reader(bytes);
    const bool ours = textOf(reader.raw(kHeaderMagic.size())) == kHeaderMagic;
    const std::uint32_t version = reader.u32();
    const std::uint32_t cipher = reader.u32();
    const ByteView id = reader.raw(sizeof(PackId));
    const ByteView salt = reader.raw(kPackSaltBytes);
    if (!reader.ok() || reader.remaining() != 0 || !ours)
        return damaged("it does not begin as a pack does");
    if (version != kVersion || cipher > static_cast<std::uint32_t>(Cipher::aes256))
        return damaged("its header makes no sense");
    PackHeader header;
    header.cipher = static_cast<Cipher>(cipher);
    std::copy(id.begin(), id.end(), header.id.begin());
    std::copy(salt.begin(), salt.end(), header.salt.begin());
    return header;
}

Bytes encodePackTrailer(const PackHeader &header, const PackTrailer &trailer)
{
    ByteWriter writer;
    writer.raw(viewOf(kTrailerMagic));
    writer.u64(trailer.indexOffset);
    writer.u32(trailer.indexBytes);
    writer.u32(trailer.frames);
    writer.u32(trailer.blocks);
    writer.u32(0);
    writer.raw(header.id);
    writer.u64(0);
    writer.u64(checksumOf(encodePackHeader(header), writer.view()));
    return writer.take();
}

Result<PackTrailer> parsePackTrailer(ByteView headerBytes, ByteView trailerBytes,
                                     std::uint64_t packBytes)
{
    if (trailerBytes.size() != kPackTrailerBytes)
        return damaged("it is shorter than its frame");
    ByteReader reader(trailerBytes);
    const bool ours = textOf(reader.raw(kTrailerMagic.size())) == kTrailerMagic;
    PackTrailer trailer;
    trailer.indexOffset = reader.u64();
    trailer.indexBytes = reader.u32();
    trailer.frames = reader.u32();
    trailer.blocks = reader.u32();
    const bool padded = reader.u32() == 0;
    const ByteView id = reader.raw(sizeof(PackId));
    if (!ours || !padded || !std::equal(id.begin(), id.end(), headerBytes.begin() + 16) ||
        reader.u64() != 0 ||
        reader.u64() !=
            checksumOf(headerBytes, trailerBytes.first(kPackTrailerBytes - kCheckBytes)))
        return damaged("it does not end as a pack does");
    if (packBytes < kPackHeaderBytes + kPackTrailerBytes ||
        trailer.indexBytes > packBytes - kPackHeaderBytes - kPackTrailerBytes ||
        trailer.indexBytes > kMaxPackIndexBytes || trailer.indexBytes < kTagBytes ||
        trailer.indexOffset != packBytes - kPackTrailerBytes - trailer.indexBytes)
        return damaged("its parts do not belong together");
    return trailer;
}

Bytes encodePackIndex(const PackIndex &index)
{
    ByteWriter writer;
    writer.u32(static_cast<std::uint32_t>(index.frames.size()));
    writer.u32(static_cast<std::uint32_t>(index.blocks.size()));
    for (const FrameEntry &frame : index.frames) {
        writer.u64(frame.offset);
        writer.u32(frame.storedBytes);
        writer.u32(frame.rawBytes);
        writer.u32(static_cast<std::uint32_t>(frame.method));
        writer.u32(frame.blocks);
    }
    for (const BlockEntry &block : index.blocks) {
        writer.raw(block.id);
        writer.u32(block.length | (block.dropped ? kDropped : 0));
    }
    return writer.take();
}

Result<PackIndex> parsePackIndex(ByteView bytes, const PackTrailer &trailer)
{
    ByteReader reader(bytes);
    const std::uint32_t frames = reader.u32();
    const std::uint32_t blocks = reader.u32();
    if (!reader.ok() || frames != trailer.frames || blocks != trailer.blocks ||
        reader.remaining() !=
            frames * std::uint64_t{kFrameEntryBytes} + blocks * std::uint64_t{kBlockEntryBytes})
        return damaged("its index has an impossible length");
    PackIndex index;
    index.frames.resize(frames);
    for (FrameEntry &frame : index.frames) {
        frame.offset = reader.u64();
        frame.storedBytes = reader.u32();
        frame.rawBytes = reader.u32();
        const std::uint32_t method = reader.u32();
        if (method > static_cast<std::uint32_t>(FrameMethod::zstd))
            return damaged("a frame is compressed in an unknown way");
        frame.method = static_cast<FrameMethod>(method);
        frame.blocks = reader.u32();
    }
    index.blocks.resize(blocks);
    for (BlockEntry &block : index.blocks) {
        const ByteView id = reader.raw(sizeof(BlockId));
        std::copy(id.begin(), id.end(), block.id.begin());
        const std::uint32_t length = reader.u32();
        block.length = length & ~kDropped;
        block.dropped = (length & kDropped) != 0;
    }
    if (!isSound(index, trailer))
        return damaged("its index makes no sense");
    return index;
}

Result<Aead> packCipher(ByteView packKey, const PackHeader &header)
{
    ByteWriter context;
    context.raw(header.id);
    context.raw(header.salt);
    ARCA_TRY(Sha256 key, hmacSha256(packKey, context.view()));
    Aead cipher(header.cipher, key);
    wipe(key);
    return cipher;
}

Bytes frameAssociated(const PackId &id, std::uint32_t number, std::uint32_t rawBytes,
                      FrameMethod method)
{
    ByteWriter writer;
    writer.raw(id);
    writer.u32(number);
    writer.u32(rawBytes);
    writer.u32(static_cast<std::uint32_t>(method));
    return writer.take();
}

Bytes indexAssociated(ByteView headerBytes, ByteView trailerBytes)
{
    ByteWriter writer;
    writer.raw(headerBytes);
    writer.raw(trailerBytes.first(kPackTrailerBytes - kCheckBytes));
    return writer.take();
}

} // namespace arca::engine
