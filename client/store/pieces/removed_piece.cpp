// Names of removed manifests: see the header.
#include "client/store/pieces/removed_piece.h"

#include "client/base/text.h"
#include "client/store/pieces/manifest_place.h"

namespace arca::store
{

std::string removedPrefixOf(const std::string &nodeKey, PieceId id)
{
    const std::string digits = toHex(id);
    return placePrefix(ManifestPlace::removed, nodeKey) + digits.substr(0, 2) + "/" + digits + "-";
}

std::string removedNameOf(const std::string &nodeKey, const RemovedName &name)
{
    return removedPrefixOf(nodeKey, name.id) + toHex(static_cast<PieceId>(name.at));
}

std::optional<RemovedName> parseRemovedName(const std::string &nodeKey, const std::string &blobName)
{
    const std::string_view last = std::string_view(blobName).substr(blobName.rfind('/') + 1);
    constexpr std::size_t kDigits = 16;
    if (last.size() != 2 * kDigits + 1)
        return std::nullopt;
    const auto id = fromHex(last.substr(0, kDigits)), at = fromHex(last.substr(kDigits + 1));
    if (!id || !at)
        return std::nullopt;
    RemovedName name;
    for (const std::byte digit : *id)
        name.id = name.id << 8 | std::to_integer<PieceId>(digit);
    std::uint64_t seconds = 0;
    for (const std::byte digit : *at)
        seconds = seconds << 8 | std::to_integer<std::uint64_t>(digit);
    name.at = static_cast<std::int64_t>(seconds);
    if (name.at < 0 || removedNameOf(nodeKey, name) != blobName)
        return std::nullopt;
    return name;
}

} // namespace arca::store
