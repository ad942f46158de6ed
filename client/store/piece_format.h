// The bytes of a stored piece: one blob of header, segments and trailer. All numbers little-endian.
//
//   header    offset  size
//                  0     8  "ARCAPIEC"
//                  8     4  version, 1
//                 12     4  length h of the header, its checksum included
//                 16     8  identifier of the piece
//                 24     8  size estimate
//                 32     4  segment size s, a power of two
//                 36     4  copy group
//                 40     2  object type
//                 42     -  node, filespace, high-level name, low-level name, owner, management
//                           class, information: each a 16-bit length and as many bytes
//                h-8     8  XXH3-64 of the header before
//
//   segment k            s bytes of the stream (the last: what is left, at least 1), then
//                     8  XXH3-64 of those bytes, seeded with segmentSeed(identifier, k)
//
//   trailer        0     8  "ARCATAIL"
//   (72 bytes,     8     8  identifier of the piece
//   ends the      16     8  length n of the stream
//   blob)         24    16  XXH3-128 of the stream, canonical (big-endian) form
//                 40     8  time of insertion, seconds since 1970, UTC
//                 48     8  number of segments: n / s, rounded up
//                 56     8  checksum of the header (so that the two belong together)
//                 64     8  XXH3-64 of the trailer before
//
// So the length of the blob is h + n + 8 * segments + 72, exactly. A segment's seed keeps segments
// from changing places within a piece or between pieces unnoticed.
#ifndef KEEL_CLIENT_STORE_PIECE_FORMAT_H
#define KEEL_CLIENT_STORE_PIECE_FORMAT_H

#include "client/blob/blob_store.h"
#include "client/store/piece.h"

namespace arca::store
{

constexpr std::size_t kSegmentBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxSegmentBytes = std::size_t{16}
                                         << 20; // a bound on what a reader allocates
constexpr std::size_t kSegmentCheckBytes = 8;
constexpr std::size_t kMinHeaderBytes = 64;
constexpr std::size_t kMaxHeaderBytes = 16 * 1024;
constexpr std::size_t kTrailerBytes = 72;

struct PieceHeader {
    PieceId id = 0;
    PieceDescription description;
    std::uint32_t segmentBytes = kSegmentBytes;
    std::uint32_t length = 0;   // of the encoded header
    std::uint64_t checksum = 0; // of the encoded header
};

struct PieceTrailer {
    PieceId id = 0;
    std::uint64_t streamBytes = 0;
    Digest128 digest{};
    std::int64_t insertedAt = 0;
    std::uint64_t segments = 0;
    std::uint64_t headerChecksum = 0;
};

std::uint64_t segmentSeed(PieceId id, std::uint64_t index);

/// Fills in header.length and header.checksum.
Bytes encodeHeader(PieceHeader &header);
Bytes encodeTrailer(const PieceTrailer &trailer);

/// From the first bytes of a blob, at least the whole header if the blob has that many; any bytes
/// may come. `damaged`, `newerFormat`.
Result<PieceHeader> parseHeader(ByteView bytes);
Result<PieceTrailer> parseTrailer(ByteView bytes);

/// Header and trailer of a blob, checked against each other and against its length.
struct PieceFrame {
    PieceHeader header;
    PieceTrailer trailer;

    PieceInfo info(std::uint64_t blobBytes) const;
};
Result<PieceFrame> readFrame(blob::BlobReader &blob);

} // namespace arca::store

#endif
