// The places that a manifest lies in one after the other, and what the name of one says.
#ifndef KEEL_CLIENT_STORE_PIECES_MANIFEST_PLACE_H
#define KEEL_CLIENT_STORE_PIECES_MANIFEST_PLACE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace arca::store
{

using ChangeId = std::uint64_t; // of a change of several names in one step; 0: none

enum class ManifestPlace { coming, active, inactive, removed, quarantined };

/// Returns the prefix of the blob names of a place, with a slash at its end. `nodeKey`:
/// spaceKeyOf() (node_record.h).
std::string placePrefix(ManifestPlace place, const std::string &nodeKey);

/// Returns the change in the name of a manifest that comes, or of an inactive copy; 0 when it
/// carries none.
ChangeId changeIn(std::string_view blobName);

} // namespace arca::store

#endif
