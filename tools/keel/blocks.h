// A stream of bytes as the blocks of a piece, and back.
//
// Both directions go once through the data, forwards, in constant memory, and call the functions
// that they are given for everything that reaches outside; what those throw passes through.
#ifndef KEEL_TOOLS_KEEL_BLOCKS_H
#define KEEL_TOOLS_KEEL_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace keel
{

/// Fills the span as far as the stream reaches and returns how much that was; less than asked for
/// is the end.
using ReadBytes = std::function<std::size_t(std::span<std::byte>)>;
using WriteBytes = std::function<void(std::span<const std::byte>)>;

/// Reads one block; false when the one before was the last. The last may fill a whole number of
/// sectors less than a block and leave the rest of the span untouched: the agent does not say how
/// much it delivered.
using ReadBlock = std::function<bool(std::span<std::byte>)>;
using WriteBlock = std::function<void(std::span<std::byte>)>;

/// Stores all of the stream in blocks of that size, with a trailer where it needs one, and returns
/// its length.
std::uint64_t storeStream(const ReadBytes &read, const WriteBlock &write, std::size_t blockSize);

/// Gives the stream of a piece back and returns its length. blockSize need not be that of the
/// backup; Failure when it is so much smaller that more was written than the stream holds (the text
/// names the right one).
std::uint64_t restoreStream(const ReadBlock &read, const WriteBytes &write, std::size_t blockSize);

} // namespace keel

#endif
