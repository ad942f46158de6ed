// See blocks.h.
#include "tools/keel/channel/blocks.h"

#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/trailer.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <fmt/format.h>

namespace keel
{

std::uint64_t storeStream(const ReadBytes &read, const WriteBlock &write, std::size_t blockSize)
{
    std::vector<std::byte> buffer(blockSize);
    const std::span<std::byte> block(buffer);
    const auto end = block.last<kTrailerRecordSize>();
    std::uint64_t length = 0;
    bool needsTrailer = true; // so is the empty stream
    for (;;) {
        const std::size_t count = read(block);
        if (count == 0)
            break;
        length += count;
        std::ranges::fill(block.subspan(count), std::byte{0});
        needsTrailer = count < blockSize || imitatesTrailer(end);
        write(block);
        if (count < blockSize)
            break;
    }
    if (needsTrailer) {
        std::ranges::fill(block, std::byte{0});
        std::ranges::copy(encodeTrailer({static_cast<std::uint32_t>(blockSize), length}),
                          end.begin());
        write(block);
    }
    return length;
}

namespace
{

/// Finds out how much of a block was filled, which the agent does not report: every sector gets a
/// random mark at its beginning, and a sector that still has it was not written to.
class SectorMarks
{
public:
    SectorMarks()
    {
        std::random_device random;
        for (auto &word : mark_)
            word = random();
    }

    void put(std::span<std::byte> block) const
    {
        for (std::size_t at = 0; at < block.size(); at += kSectorSize)
            std::memcpy(&block[at], mark_, sizeof mark_);
    }

    [[nodiscard]] std::size_t filled(std::span<const std::byte> block) const
    {
        std::size_t size = block.size();
        while (size > 0 && std::memcmp(&block[size - kSectorSize], mark_, sizeof mark_) == 0)
            size -= kSectorSize;
        return size;
    }

private:
    std::random_device::result_type mark_[4];
};

/// Trailer and padding are less than two blocks of the backup, whose size nothing tells before the
/// trailer does.
constexpr std::uint64_t kHeldBytes = 2 * kMostBlockSize;

/// The last blocks that were read, in a ring: a trailer and the padding before it are recognised
/// only when the piece ends, so that much must not have been written out by then.
class HeldBlocks
{
public:
    HeldBlocks(std::size_t blockSize, std::uint64_t pieceLength)
        : blockSize_(blockSize), slots_(slotsFor(blockSize, std::min(kHeldBytes, pieceLength))),
          buffer_(std::make_unique_for_overwrite<std::byte[]>(blockSize * slots_))
    {
    }

    [[nodiscard]] bool full() const { return held_ == slots_; }
    [[nodiscard]] std::size_t held() const { return held_; }
    std::span<std::byte> room() { return slot(held_); }
    void keep() { ++held_; }
    std::span<std::byte> oldest() { return slot(0); }
    std::span<std::byte> newest() { return slot(held_ - 1); }
    void dropOldest()
    {
        first_ = (first_ + 1) % slots_;
        --held_;
    }

private:
    /// One slot for a block that `bytes` end in, and one that is free for the next.
    static std::size_t slotsFor(std::size_t blockSize, std::uint64_t bytes)
    {
        return static_cast<std::size_t>(bytes / blockSize) + 2;
    }

    std::span<std::byte> slot(std::size_t index)
    {
        return {&buffer_[(first_ + index) % slots_ * blockSize_], blockSize_};
    }

    const std::size_t blockSize_;
    const std::size_t slots_;
    const std::unique_ptr<std::byte[]> buffer_; // costs memory only as far as it is filled
    std::size_t first_ = 0;
    std::size_t held_ = 0;
};

/// Returns the length of the piece's stream. `newest` is the filled part of the last block.
std::uint64_t streamLength(std::span<const std::byte> newest, std::uint64_t pieceLength,
                           std::uint64_t written)
{
    if (newest.size() < kTrailerRecordSize)
        return pieceLength;
    const auto trailer = decodeTrailer(newest.last<kTrailerRecordSize>(), pieceLength);
    if (!trailer)
        return pieceLength;
    if (trailer->streamLength < written) {
        throw Failure(
            fmt::format("the piece was stored in blocks of {0} bytes and cannot be restored "
                        "in these; use --block-size {0}",
                        trailer->blockSize));
    }
    return trailer->streamLength;
}

} // namespace

std::uint64_t restoreStream(const ReadBlock &read, const WriteBytes &write, std::size_t blockSize,
                            std::optional<std::uint64_t> storedLength)
{
    const SectorMarks marks;
    HeldBlocks blocks(blockSize, storedLength.value_or(kHeldBytes));
    const std::uint64_t sure = std::max(storedLength.value_or(0), kHeldBytes) - kHeldBytes;
    std::uint64_t written = 0;
    for (;;) {
        if (blocks.full() || (blocks.held() > 1 && written + blockSize <= sure)) {
            write(blocks.oldest());
            written += blockSize;
            blocks.dropOldest();
        }
        marks.put(blocks.room());
        if (!read(blocks.room()))
            break;
        blocks.keep();
    }
    if (blocks.held() == 0)
        return written;

    const auto newest = blocks.newest().first(marks.filled(blocks.newest()));
    const std::uint64_t pieceLength = written + (blocks.held() - 1) * blockSize + newest.size();
    const std::uint64_t length = streamLength(newest, pieceLength, written);
    while (written < length) {
        const auto count = std::min<std::uint64_t>(length - written, blockSize);
        write(blocks.oldest().first(static_cast<std::size_t>(count)));
        written += count;
        blocks.dropOldest();
    }
    return length;
}

} // namespace keel
