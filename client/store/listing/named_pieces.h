// Pieces that are named to the letter: their blobs are found by the hash of the name, however many
// other pieces the node has.
#ifndef KEEL_CLIENT_STORE_LISTING_NAMED_PIECES_H
#define KEEL_CLIENT_STORE_LISTING_NAMED_PIECES_H

#include "client/store/space/node_space.h"

namespace arca::store
{

/// Returns the names that three patterns, as matchesPattern has them, can stand for: one for each
/// registered filespace that fits (an empty pattern: all), always in the same order; of a filespace
/// to the letter that one, registered or not. Nothing when the high or the low level is not to the
/// letter, and also when the record of a filespace cannot be read.
Result<std::optional<std::vector<ObjectName>>> literalNames(NodeSpace &space,
                                                            const std::string &filespace,
                                                            const std::string &highLevel,
                                                            const std::string &lowLevel);

struct Versions {
    std::vector<PieceInfo> pieces; // in the order of insertion
    std::vector<std::string> hurt; // what could not be read, in a sentence each
};

/// Returns all pieces of that name (the type is not compared), active and inactive, as they were at
/// one moment, whether or not their filespace is registered. Nothing when they are more than
/// 10,000.
Result<std::optional<Versions>> versionsOf(NodeSpace &space, const ObjectName &name);

} // namespace arca::store

#endif
