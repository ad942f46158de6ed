// Cutting by blocks and by content.
#include "client/engine/writing/cutter.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace arca::engine
{

namespace
{

constexpr std::size_t kMinContentCut = 2048;
constexpr std::size_t kMeanContentCut = 8192;
constexpr std::size_t kMaxContentCut = 32768;

/// One pseudo-random number for each value of a byte (splitmix64).
constexpr std::array<std::uint64_t, 256> makeGear()
{
    std::array<std::uint64_t, 256> gear{};
    std::uint64_t state = 0x6b65656c61726361ULL;
    for (std::uint64_t &value : gear) {
        state += 0x9e3779b97f4a7c15ULL;
        std::uint64_t mixed = state;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9ULL;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebULL;
        value = mixed ^ (mixed >> 31);
    }
    return gear;
}
constexpr auto kGear = makeGear();

/// The upper bits depend on the last 64 bytes. Harder before the mean than after it, so that most
/// cuts lie near it.
constexpr std::uint64_t kBeforeMean = 0xfffeULL << 48; // 15 bits
constexpr std::uint64_t kAfterMean = 0xffe0ULL << 48;  // 11 bits

/// The length of the first cut; 0 when the bytes end before it.
std::size_t contentCut(ByteView bytes)
{
    std::uint64_t hash = 0;
    const std::size_t end = std::min(bytes.size(), kMaxContentCut);
    const std::size_t mean = std::min(end, kMeanContentCut);
    std::size_t at = std::min(end, kMinContentCut - 64);
    for (; at < std::min(end, kMinContentCut); ++at)
        hash = (hash << 1) + kGear[std::to_integer<std::uint8_t>(bytes[at])];
    for (; at < mean; ++at) {
        hash = (hash << 1) + kGear[std::to_integer<std::uint8_t>(bytes[at])];
        if ((hash & kBeforeMean) == 0)
            return at + 1;
    }
    for (; at < end; ++at) {
        hash = (hash << 1) + kGear[std::to_integer<std::uint8_t>(bytes[at])];
        if ((hash & kAfterMean) == 0)
            return at + 1;
    }
    return end == kMaxContentCut ? end : 0;
}

/// How many of the bytes have the most frequent value other than 0.
std::size_t mostFrequent(const std::array<std::uint16_t, 256> &counts)
{
    return *std::max_element(counts.begin() + 1, counts.end());
}

} // namespace

bool isZero(ByteView bytes)
{
    return bytes.empty() || (bytes[0] == std::byte{0} &&
                             std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

/// Every database block begins with its type and a format number, so in one of the first bytes most
/// blocks agree on a value. Text, programs and compressed data do not do that at a fixed distance.
Cutter::Mode Cutter::modeFor(ByteView fresh) const
{
    constexpr std::size_t kLookedAt = 4;
    constexpr std::size_t kEnough = 8;
    std::array<std::array<std::uint16_t, 256>, kLookedAt> counts{};
    std::size_t blocks = 0;
    for (std::size_t at = 0; at + blockSize_ <= fresh.size(); at += blockSize_) {
        if (isZero(fresh.subspan(at, blockSize_)))
            continue;
        ++blocks;
        for (std::size_t i = 0; i < kLookedAt; ++i)
            ++counts[i][std::to_integer<std::uint8_t>(fresh[at + i])];
    }
    if (blocks < kEnough)
        return mode_ == Mode::undecided ? Mode::blocks : mode_;
    const bool agreed = std::any_of(counts.begin(), counts.end(), [&](const auto &one) {
        return mostFrequent(one) * 4 >= blocks * 3;
    });
    return agreed ? Mode::blocks : Mode::content;
}

void Cutter::cut(Chunk &chunk)
{
    const ByteView fresh = ByteView(chunk.storage).subspan(chunk.begin, chunk.end - chunk.begin);
    const Mode before = mode_;
    mode_ = deduplicating_ ? modeFor(fresh) : Mode::blocks;
    chunk.begin -= left_.size();
    std::copy(left_.begin(), left_.end(),
              chunk.storage.begin() + static_cast<std::ptrdiff_t>(chunk.begin));
    if (mode_ == Mode::blocks && before == Mode::content && !left_.empty()) {
        // Blocks are counted from the beginning of the stream, which chunks keep to.
        chunk.cuts.push_back({static_cast<std::uint32_t>(chunk.begin),
                              static_cast<std::uint32_t>(left_.size()),
                              false,
                              {}});
        chunk.begin += left_.size();
    }
    left_.clear();
    if (mode_ == Mode::content)
        cutByContent(chunk);
    else
        cutEvery(deduplicating_ ? blockSize_ : kMaxCutBytes, chunk);
}

void Cutter::cutEvery(std::size_t length, Chunk &chunk)
{
    while (chunk.begin < chunk.end) {
        const std::size_t part = std::min(length, chunk.end - chunk.begin);
        const ByteView block = ByteView(chunk.storage).subspan(chunk.begin, part);
        chunk.cuts.push_back({static_cast<std::uint32_t>(chunk.begin),
                              static_cast<std::uint32_t>(part),
                              isZero(block),
                              {}});
        chunk.begin += part;
    }
}

void Cutter::cutByContent(Chunk &chunk)
{
    for (;;) {
        const ByteView rest = ByteView(chunk.storage).subspan(chunk.begin, chunk.end - chunk.begin);
        std::size_t part = contentCut(rest);
        if (part == 0 && !chunk.last) {
            left_.assign(rest.begin(), rest.end());
            return;
        }
        if (part == 0)
            part = rest.size();
        if (part == 0)
            return;
        chunk.cuts.push_back({static_cast<std::uint32_t>(chunk.begin),
                              static_cast<std::uint32_t>(part),
                              isZero(rest.first(part)),
                              {}});
        chunk.begin += part;
    }
}

} // namespace arca::engine
