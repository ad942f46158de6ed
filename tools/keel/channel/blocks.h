// A stream of bytes as the blocks of a piece, and back.
//
// Both directions read the data once, forwards, in bounded memory (one block; in restoreStream as
// much of the stream's end as padding and trailer can take, up to 128 MiB, and two blocks), and
// call the functions that they are given for all input and output. What those throw passes through;
// what was written by then stays written.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_BLOCKS_H
#define KEEL_TOOLS_KEEL_CHANNEL_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace keel
{

/// Fills the span as far as the stream reaches and returns the number of bytes; fewer than asked
/// for is the end.
using ReadBytes = std::function<std::size_t(std::span<std::byte>)>;
using WriteBytes = std::function<void(std::span<const std::byte>)>;

/// Reads one block; returns false when the block before was the last. The last block may fill fewer
/// sectors than the span has, a whole number of them, and leave the rest of the span untouched: the
/// agent does not report how much it delivered.
using ReadBlock = std::function<bool(std::span<std::byte>)>;
using WriteBlock = std::function<void(std::span<std::byte>)>;

/// Stores all of the stream in blocks of that size, a multiple of kSectorSize, with a trailer where
/// it needs one (trailer.h), and returns the stream's length in bytes.
std::uint64_t storeStream(const ReadBytes &read, const WriteBlock &write, std::size_t blockSize);

/// Writes the stream of a piece, without padding and trailer, and returns its length in bytes.
/// blockSize need not be that of the backup, but the piece must be a whole number of such blocks.
/// With its length as it is stored, nothing is held back before the end is near. Throws Failure
/// when a newer keel stored the piece.
std::uint64_t restoreStream(const ReadBlock &read, const WriteBytes &write, std::size_t blockSize,
                            std::optional<std::uint64_t> storedLength = std::nullopt);

} // namespace keel

#endif
