// See trailer.h.
#include "tools/keel/channel/trailer.h"

#include "tools/keel/channel/failure.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace keel
{

namespace
{

constexpr std::string_view kMagic = "KEEL stream end\n";
constexpr std::uint32_t kVersion = 1;

constexpr std::size_t kVersionAt = 16;
constexpr std::size_t kBlockSizeAt = 20;
constexpr std::size_t kLengthAt = 24;
constexpr std::size_t kChecksumAt = 56;

template <typename Number> void put(TrailerRecord &record, std::size_t offset, Number value)
{
    for (std::size_t i = 0; i < sizeof value; ++i)
        record[offset + i] = static_cast<std::byte>(value >> (8 * i) & 0xff);
}

template <typename Number>
Number get(std::span<const std::byte, kTrailerRecordSize> record, std::size_t offset)
{
    Number value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value |= static_cast<Number>(static_cast<Number>(record[offset + i]) << (8 * i));
    return value;
}

std::uint64_t checksum(std::span<const std::byte> bytes)
{
    std::uint64_t sum = 0xcbf29ce484222325U;
    for (std::byte byte : bytes)
        sum = (sum ^ std::to_integer<std::uint64_t>(byte)) * 0x100000001b3U;
    return sum;
}

/// Returns true when keel can have written a piece of that length with this trailer.
bool fits(const Trailer &trailer, std::uint64_t pieceLength)
{
    const std::uint64_t size = trailer.blockSize;
    if (size == 0 || size % kSectorSize != 0 || trailer.streamLength > pieceLength)
        return false;
    const std::uint64_t blocks = trailer.streamLength / size + (trailer.streamLength % size != 0);
    return pieceLength % size == 0 && pieceLength / size == blocks + 1;
}

} // namespace

TrailerRecord encodeTrailer(const Trailer &trailer)
{
    TrailerRecord record{};
    std::memcpy(record.data(), kMagic.data(), kMagic.size());
    put(record, kVersionAt, kVersion);
    put(record, kBlockSizeAt, trailer.blockSize);
    put(record, kLengthAt, trailer.streamLength);
    put(record, kChecksumAt, checksum(std::span(record).first<kChecksumAt>()));
    return record;
}

bool imitatesTrailer(std::span<const std::byte, kTrailerRecordSize> end)
{
    return std::memcmp(end.data(), kMagic.data(), kMagic.size()) == 0;
}

std::optional<Trailer> decodeTrailer(std::span<const std::byte, kTrailerRecordSize> end,
                                     std::uint64_t pieceLength)
{
    if (!imitatesTrailer(end) ||
        get<std::uint64_t>(end, kChecksumAt) != checksum(end.first<kChecksumAt>()))
        return std::nullopt;
    const Trailer trailer{get<std::uint32_t>(end, kBlockSizeAt),
                          get<std::uint64_t>(end, kLengthAt)};
    if (!fits(trailer, pieceLength))
        return std::nullopt;
    if (get<std::uint32_t>(end, kVersionAt) != kVersion)
        throw Failure("the piece was stored by a newer keel; restore it with that one");
    return trailer;
}

} // namespace keel
