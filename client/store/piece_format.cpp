// Encoding and bounded parsing of a piece's header and trailer: the layout is drawn in the header
// file.
#include "client/store/piece_format.h"

#include <algorithm>
#include <bit>

namespace arca::store
{

namespace
{

constexpr std::string_view kHeaderMagic = "ARCAPIEC";
constexpr std::string_view kTrailerMagic = "ARCATAIL";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kLengthOffset = 12;

Error damaged(const char *what)
{
    return {ErrorKind::damaged, what};
}

} // namespace

std::uint64_t segmentSeed(PieceId id, std::uint64_t index)
{
    // Odd multiplier: different indexes never share a seed within a piece.
    return id + index * 0x9e3779b97f4a7c15ULL;
}

Bytes encodeHeader(PieceHeader &header)
{
    const PieceDescription &piece = header.description;
    ByteWriter writer;
    writer.raw(viewOf(kHeaderMagic));
    writer.u32(kVersion);
    writer.u32(0);
    writer.u64(header.id);
    writer.u64(piece.sizeEstimate);
    writer.u32(header.segmentBytes);
    writer.u32(piece.copyGroup);
    writer.u16(piece.name.type);
    for (const std::string *text :
         {&piece.node, &piece.name.filespace, &piece.name.highLevel, &piece.name.lowLevel,
          &piece.owner, &piece.managementClass, &piece.info})
        writer.text(*text);
    header.length = static_cast<std::uint32_t>(writer.size() + sizeof header.checksum);
    writer.patchU32(kLengthOffset, header.length);
    header.checksum = checksum64(writer.view());
    writer.u64(header.checksum);
    return writer.take();
}

Result<PieceHeader> parseHeader(ByteView bytes)
{
    ByteReader prefix(bytes);
    const bool ours = textOf(prefix.raw(kHeaderMagic.size())) == kHeaderMagic;
    const std::uint32_t version = prefix.u32();
    PieceHeader header;
    header.length = prefix.u32();
    if (!prefix.ok() || !ours)
        return damaged("it does not begin as a piece does");
    if (version > kVersion)
        return Error{ErrorKind::newerFormat, "it was written by a newer release"};
    if (header.length < kMinHeaderBytes || header.length > std::min(bytes.size(), kMaxHeaderBytes))
        return damaged("its header has an impossible length");

    const ByteView covered = bytes.first(header.length - sizeof header.checksum);
    header.checksum = ByteReader(bytes.subspan(covered.size())).u64();
    if (header.checksum != checksum64(covered))
        return damaged("the checksum of its header differs");

    ByteReader reader(covered.subspan(kLengthOffset + 4));
    PieceDescription &piece = header.description;
    header.id = reader.u64();
    piece.sizeEstimate = reader.u64();
    header.segmentBytes = reader.u32();
    piece.copyGroup = reader.u32();
    piece.name.type = reader.u16();
    for (std::string *text :
         {&piece.node, &piece.name.filespace, &piece.name.highLevel, &piece.name.lowLevel,
          &piece.owner, &piece.managementClass, &piece.info})
        *text = reader.text();
    if (!reader.ok() || reader.remaining() != 0 || version != kVersion || header.id == 0 ||
        !std::has_single_bit(header.segmentBytes) || header.segmentBytes > kMaxSegmentBytes)
        return damaged("its header makes no sense");
    return header;
}

Bytes encodeTrailer(const PieceTrailer &trailer)
{
    ByteWriter writer;
    writer.raw(viewOf(kTrailerMagic));
    writer.u64(trailer.id);
    writer.u64(trailer.streamBytes);
    writer.raw(trailer.digest);
    writer.u64(static_cast<std::uint64_t>(trailer.insertedAt));
    writer.u64(trailer.segments);
    writer.u64(trailer.headerChecksum);
    writer.u64(checksum64(writer.view()));
    return writer.take();
}

Result<PieceTrailer> parseTrailer(ByteView bytes)
{
    if (bytes.size() != kTrailerBytes)
        return damaged("it is shorter than its frame");
    ByteReader reader(bytes);
    PieceTrailer trailer;
    const bool ours = textOf(reader.raw(kTrailerMagic.size())) == kTrailerMagic;
    trailer.id = reader.u64();
    trailer.streamBytes = reader.u64();
    const ByteView digest = reader.raw(trailer.digest.size());
    std::copy(digest.begin(), digest.end(), trailer.digest.begin());
    trailer.insertedAt = static_cast<std::int64_t>(reader.u64());
    trailer.segments = reader.u64();
    trailer.headerChecksum = reader.u64();
    if (!ours || reader.u64() != checksum64(bytes.first(kTrailerBytes - 8)))
        return damaged("it does not end as a piece does");
    return trailer;
}

Result<PieceFrame> readFrame(blob::BlobReader &blob)
{
    const std::uint64_t size = blob.size();
    Bytes head(static_cast<std::size_t>(std::min<std::uint64_t>(size, kMaxHeaderBytes)));
    ARCA_TRY(const std::size_t headBytes, blob.read(0, head));
    ARCA_TRY(PieceHeader header, parseHeader(ByteView(head).first(headBytes)));

    if (size < header.length + kTrailerBytes)
        return damaged("it is shorter than its frame");
    Bytes tail(kTrailerBytes);
    ARCA_TRY(const std::size_t tailBytes, blob.read(size - kTrailerBytes, tail));
    ARCA_TRY(const PieceTrailer trailer, parseTrailer(ByteView(tail).first(tailBytes)));

    // Subtracting from the true length cannot overflow, whatever the trailer claims.
    const std::uint64_t body = size - header.length - kTrailerBytes;
    const std::uint64_t n = trailer.streamBytes;
    const std::uint64_t segments = n / header.segmentBytes + (n % header.segmentBytes != 0);
    if (trailer.id != header.id || trailer.headerChecksum != header.checksum ||
        trailer.segments != segments || n > body || body - n != segments * kSegmentCheckBytes)
        return damaged("its parts do not belong together");
    return PieceFrame{std::move(header), trailer};
}

PieceInfo PieceFrame::info(std::uint64_t blobBytes) const
{
    return {header.id,
            header.description,
            {trailer.streamBytes, blobBytes, trailer.digest},
            trailer.insertedAt};
}

} // namespace arca::store
