// What is known of a piece: the words that the writer, the reader and the repository share.
#ifndef KEEL_CLIENT_STORE_PIECES_PIECE_H
#define KEEL_CLIENT_STORE_PIECES_PIECE_H

#include "client/base/crypto/aead.h"
#include "client/base/crypto/hash.h"

#include <cstdint>
#include <string>

namespace arca::store
{

using PieceId =
    std::uint64_t; // never 0; a piece that is stored again under its name has another one

/// Compared to the byte, in the case it has.
struct ObjectName {
    std::string filespace;
    std::string highLevel;
    std::string lowLevel;
    std::uint16_t type = 1;

    bool operator==(const ObjectName &) const = default;
    std::string joined() const { return filespace + highLevel + lowLevel; }
};

/// What the writer says of a piece.
struct PieceDescription {
    std::string node;
    ObjectName name;
    std::string owner;
    std::string managementClass;
    std::string info;               // the application's own
    std::uint64_t sizeEstimate = 0; // bytes
    std::uint32_t copyGroup = 0;

    bool operator==(const PieceDescription &) const = default;
};

/// What the stream turned out to be.
struct PieceTotals {
    std::uint64_t streamBytes = 0;
    std::uint64_t zeroBytes = 0;     // of whole blocks of zeros, which are not stored
    std::uint64_t newBytes = 0;      // of blocks that had to be stored
    std::uint64_t storedBytes = 0;   // what they came to, compressed and sealed
    std::uint64_t manifestBytes = 0; // of the manifest itself
    Digest128 digest{};
    bool deduplicated = false; // duplicates were looked for
    bool compressed = false;
    Cipher cipher = Cipher::none;
};

struct PieceInfo {
    PieceId id = 0;
    PieceDescription description;
    PieceTotals totals;
    std::int64_t insertedAt = 0; // seconds since 1970, UTC
    std::int64_t inactiveAt = 0; // when it was made inactive; 0: it is active

    bool isActive() const { return inactiveAt == 0; }
};

} // namespace arca::store

#endif
