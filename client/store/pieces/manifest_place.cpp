// See the header.
#include "client/store/pieces/manifest_place.h"

#include "client/base/text.h"

namespace arca::store
{

std::string placePrefix(ManifestPlace place, const std::string &nodeKey)
{
    const char *const room = place == ManifestPlace::coming     ? "coming/"
                             : place == ManifestPlace::active   ? "pieces/"
                             : place == ManifestPlace::inactive ? "inactive/"
                             : place == ManifestPlace::removed  ? "removed/"
                                                                : "quarantine/";
    return room + nodeKey + "/";
}

ChangeId changeIn(std::string_view blobName)
{
    const auto dot = blobName.rfind('.');
    const auto digits =
        fromHex(dot == std::string_view::npos ? std::string_view() : blobName.substr(dot + 1));
    ChangeId change = 0;
    if (digits && digits->size() == sizeof(ChangeId))
        for (const std::byte digit : *digits)
            change = change << 8 | std::to_integer<ChangeId>(digit);
    return change;
}

} // namespace arca::store
