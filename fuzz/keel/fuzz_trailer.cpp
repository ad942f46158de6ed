// What goes in comes back: a stream of the fuzzer's making is stored in blocks of one size and
// restored in blocks of another, and a piece of arbitrary bytes, as somebody else may have written
// it, is restored too.
#include "tools/keel/channel/blocks.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/trailer.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

using Bytes = std::vector<std::byte>;

Bytes store(const Bytes &stream, std::size_t blockSize)
{
    Bytes piece;
    std::size_t taken = 0;
    const auto read = [&](std::span<std::byte> bytes) {
        const std::size_t count = std::min(bytes.size(), stream.size() - taken);
        std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(taken), count, bytes.begin());
        taken += count;
        return count;
    };
    const auto write = [&](std::span<std::byte> block) {
        piece.insert(piece.end(), block.begin(), block.end());
    };
    keel::storeStream(read, write, blockSize);
    return piece;
}

Bytes restore(const Bytes &piece, std::size_t blockSize)
{
    Bytes stream;
    std::size_t delivered = 0;
    const auto read = [&](std::span<std::byte> block) {
        const std::size_t count = std::min(block.size(), piece.size() - delivered);
        std::copy_n(piece.begin() + static_cast<std::ptrdiff_t>(delivered), count, block.begin());
        delivered += count;
        return count > 0;
    };
    const auto write = [&](std::span<const std::byte> bytes) {
        stream.insert(stream.end(), bytes.begin(), bytes.end());
    };
    keel::restoreStream(read, write, blockSize, piece.size());
    return stream;
}

void require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Ends the stream, where a record would lie, in one that is right for it: the hardest case to tell
/// apart.
void imitate(Bytes &stream, std::size_t blockSize)
{
    if (stream.size() < 2 * blockSize)
        return;
    stream.resize(stream.size() / blockSize * blockSize);
    const auto record =
        keel::encodeTrailer({static_cast<std::uint32_t>(blockSize), stream.size() - blockSize - 1});
    std::copy(record.begin(), record.end(), stream.end() - keel::kTrailerRecordSize);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr std::size_t kHead = 5;
    if (size <= kHead)
        return 0;
    const std::size_t stored = keel::kSectorSize * (data[0] % 5 + 1U);
    const std::size_t restored = keel::kSectorSize * (data[1] % 5 + 1U);
    // A few bytes of the fuzzer make a stream of many blocks.
    Bytes stream(std::size_t{data[3]} * 256 % 8192 + data[4]);
    for (std::size_t i = 0; i < stream.size(); ++i)
        stream[i] = std::byte{data[kHead + i % (size - kHead)]};
    if (data[2] & 1)
        imitate(stream, stored);
    require(restore(store(stream, stored), restored) == stream);

    // Of a foreign piece whole sectors can be relied on, and nothing is invented.
    stream.resize(stream.size() / keel::kSectorSize * keel::kSectorSize);
    const Bytes foreign = restore(stream, restored);
    require(foreign.size() <= stream.size() &&
            std::equal(foreign.begin(), foreign.end(), stream.begin()));
    return 0;
}
