// The trailer: how keel remembers the true length of a stream that is not a whole number of blocks.
//
// The agent takes whole blocks only. A stream of n bytes in blocks of B bytes is stored as
//
//     |<----------- stream, n bytes ----------->| zeros |<---- trailer block, B bytes ---->|
//     | block 0 | block 1 | ... | last block of stream  | zeros        | record, 64 bytes  |
//
// and the record, at the very end of the piece, is (numbers little-endian)
//
//      0          16         20         24               32                      56           64
//     | magic     | version  | B        | n              | zeros                 | checksum   |
//
//     magic      "KEEL stream end\n"
//     version    1
//     checksum   FNV-1a, 64 bits, of the 56 bytes before it
//
// A trailer is stored when n is not a multiple of B, when n is 0 (so that no piece is empty), and
// when the last 64 bytes of the stream begin with the magic: then the reader takes off our trailer
// and leaves the stream's own bytes alone. A piece without a trailer is the stream itself, so a
// piece that the database wrote comes back as it is.
//
// The record lies at the end, not at the beginning of its block, so that it is found whatever the
// size of the blocks that the piece is read in.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_TRAILER_H
#define KEEL_TOOLS_KEEL_CHANNEL_TRAILER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace keel
{

constexpr std::size_t kTrailerRecordSize = 64;

/// Every block size is a multiple of this, and at least one.
constexpr std::size_t kSectorSize = 512;

/// No piece is stored in larger blocks.
constexpr std::size_t kMostBlockSize = std::size_t{64} << 20;

struct Trailer {
    std::uint32_t blockSize = 0;
    std::uint64_t streamLength = 0;
};

using TrailerRecord = std::array<std::byte, kTrailerRecordSize>;

/// Returns the record; any values are encoded.
[[nodiscard]] TrailerRecord encodeTrailer(const Trailer &trailer);

/// Returns true when a stream with this end needs a trailer even when it fills its last block.
[[nodiscard]] bool imitatesTrailer(std::span<const std::byte, kTrailerRecordSize> end);

/// Returns the trailer of a piece of pieceLength bytes that ends in these 64; nothing when they are
/// not a sound record that fits a piece of that length: then they belong to the stream. Throws
/// Failure for a record of a later version.
[[nodiscard]] std::optional<Trailer>
decodeTrailer(std::span<const std::byte, kTrailerRecordSize> end, std::uint64_t pieceLength);

} // namespace keel

#endif
