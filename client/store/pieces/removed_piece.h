// Where the manifest of a removed piece lies until it is purged: it can be brought back until then.
//
//   removed/<node key>/<xx>/<identifier: 16 digits>-<time: 16 digits>
//
// xx are the first two digits of the identifier. The time is when the piece was removed, seconds
// since 1970, UTC; 0: it may be purged at once. The blob is the manifest as it lay under pieces/ or
// inactive/, so its sealed identifier tells whether it is in its place.
#ifndef KEEL_CLIENT_STORE_PIECES_REMOVED_PIECE_H
#define KEEL_CLIENT_STORE_PIECES_REMOVED_PIECE_H

#include "client/store/pieces/piece.h"

#include <optional>
#include <string>

namespace arca::store
{

struct RemovedName {
    PieceId id = 0;
    std::int64_t at = 0;
};

/// A removed piece as it was, with its attributes.
struct RemovedPiece {
    PieceInfo info;
    std::int64_t removedAt = 0;
};

/// Returns what the names of all removed manifests of a piece begin with; each removal gives one.
std::string removedPrefixOf(const std::string &nodeKey, PieceId id);
std::string removedNameOf(const std::string &nodeKey, const RemovedName &name);
/// Returns nothing when the blob name is none that removedNameOf() gives.
std::optional<RemovedName> parseRemovedName(const std::string &nodeKey,
                                            const std::string &blobName);

} // namespace arca::store

#endif
