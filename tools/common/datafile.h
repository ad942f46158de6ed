// Streams that look like a backup piece of a database's data files: blocks of 8 KiB that compress,
// repeat and change from day to day as those do. The same settings give the same bytes, on any
// thread and any machine.
//
// A block has a header of 20 bytes (type, 0xA2, address, change number, sequence, flag, checksum),
// transaction slots, a row directory, free space, rows from the bottom up, and a tail of 4 bytes.
// Some blocks are index leaves, some opaque, some were never used. The 16-bit XOR over the whole
// block is 0, so a damaged block can be recognised.
//
// On each day a block changes with the probability `rate`: its change number, a transaction slot, 1
// to 4 rows and the checksum move, the rest stays. Extents come into use in the middle, so that all
// that follows shifts by whole blocks.
#ifndef KEEL_TOOLS_COMMON_DATAFILE_H
#define KEEL_TOOLS_COMMON_DATAFILE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tools
{

constexpr std::size_t kDatafileBlock = 8192;

struct DatafileSettings {
    // A cluster, files or burst of 0 counts as 1.
    std::uint64_t bytes = std::uint64_t{1} << 30; ///< on day 0, without the header block; of whole
                                                  ///< blocks, the rest is dropped
    std::uint64_t seed = 1;
    std::uint32_t day = 0;
    double rate = 3.0;               ///< per cent of the blocks that change in a day
    std::uint32_t cluster = 1;       ///< blocks that change together
    double empty = 15.0;             ///< per cent of the blocks that were not used on day 0
    std::uint64_t inserts = 4;       ///< extents that come into use in a day; above 64 some repeat
    std::uint64_t insertBlocks = 61; ///< blocks of such an extent
    std::uint32_t files = 1;         ///< that the stream interleaves, each day in another order
    std::uint32_t burst = 32;        ///< blocks of a file at a time
    bool header = true;              ///< a block at the beginning that says what this is
};

class Datafile
{
public:
    /// Lays the stream out, which takes 16 bytes of memory for each block. Nothing is made yet.
    explicit Datafile(const DatafileSettings &settings);

    /// Returns the number of blocks of the stream, the header block included.
    [[nodiscard]] std::uint64_t blocks() const
    {
        return layout_.size() + (settings_.header ? 1 : 0);
    }

    /// Fills `block` with the block of that number, which is less than blocks(). Any thread,
    /// several at once.
    void make(std::uint64_t number, std::span<std::byte, kDatafileBlock> block) const;

private:
    /// A block of the stream: its identity, which does not depend on its place, its file, and the
    /// day on which it came into use.
    struct Place {
        std::uint64_t id;
        std::uint32_t file, born;
    };
    [[nodiscard]] std::vector<Place> placesOf(std::uint32_t file) const;
    void layOut();
    [[nodiscard]] bool changes(std::uint64_t id, std::uint32_t day) const;
    void makeHeader(std::uint8_t *block) const;
    void makeBlock(std::uint8_t *block, const Place &place) const;

    DatafileSettings settings_;
    std::vector<Place> layout_;
};

/// Returns true when a block's checksum and marks are those of such a stream; all zeros pass, too.
[[nodiscard]] bool isSoundDatafileBlock(std::span<const std::byte, kDatafileBlock> block);

} // namespace tools

#endif
