// The file of the sizes of packs: see the header.
#include "client/store/usage/pack_sizes.h"

#include "client/store/records/record.h"
#include "client/store/usage/cache_file.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = "ARCAPSIZ";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kEntryBytes = sizeof(engine::PackId) + 4 + 4 + 8;
constexpr std::size_t kMaxBytes = (std::size_t{1} << 22) * kEntryBytes; // of 128 TiB of packs

std::string fileOf(const std::string &nodeKey)
{
    return "packs-" + nodeKey;
}

} // namespace

bool PackSize::isBefore(const PackSize &other) const
{
    return std::tie(which.id, which.revision) < std::tie(other.which.id, other.which.revision);
}

Bytes encodePackSizes(std::span<const PackSize> sizes)
{
    ByteWriter payload;
    for (const PackSize &size : sizes) {
        payload.raw(size.which.id);
        payload.u32(size.which.revision);
        payload.u32(size.enough);
        payload.u64(size.bytes);
    }
    return frameRecord(kKind, kVersion, payload.view());
}

std::vector<PackSize> parsePackSizes(ByteView bytes)
{
    const auto payload = unframeRecord(bytes, kKind, kVersion);
    std::vector<PackSize> sizes;
    if (!payload || payload->size() % kEntryBytes != 0)
        return sizes;
    sizes.reserve(payload->size() / kEntryBytes);
    for (ByteReader reader(*payload); reader.remaining() != 0;) {
        PackSize size;
        const ByteView id = reader.raw(size.which.id.size());
        std::copy(id.begin(), id.end(), size.which.id.begin());
        size.which.revision = reader.u32();
        size.enough = reader.u32();
        size.bytes = reader.u64();
        if (!sizes.empty() && !sizes.back().isBefore(size))
            return {};
        sizes.push_back(size);
    }
    return sizes;
}

PackSizes PackSizes::load(const std::string &directory, const std::string &nodeKey)
{
    PackSizes sizes;
    sizes.known_ = parsePackSizes(readCacheFile(directory, fileOf(nodeKey), kMaxBytes));
    return sizes;
}

std::optional<PackSize> PackSizes::of(const engine::PackName &which) const
{
    const PackSize wanted{which};
    const auto found =
        std::ranges::lower_bound(known_, wanted, [](const PackSize &one, const PackSize &other) {
            return one.isBefore(other);
        });
    return found == known_.end() || wanted.isBefore(*found) ? std::nullopt : std::optional(*found);
}

void PackSizes::save(const std::string &directory, const std::string &nodeKey)
{
    const auto isBefore = [](const PackSize &one, const PackSize &other) {
        return one.isBefore(other);
    };
    std::ranges::sort(kept_, isBefore);
    if (kept_ != known_ && kept_.size() * kEntryBytes < kMaxBytes)
        replaceCacheFile(directory, fileOf(nodeKey), encodePackSizes(kept_));
    known_ = std::exchange(kept_, {});
}

} // namespace arca::store
