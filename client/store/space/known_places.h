// What a session remembers of where pieces lie, so that those of many identifiers are found without
// listing a directory for each.
//
//   1. An identifier belongs to one name for ever, so a name that a proven manifest gave says for
//      good where the active piece is, and where it is not.
//   2. A name from a listing is where a piece may be found. What is not among them may be there.
//
// Bounded: what is kept beyond the bound replaces the rest. Belongs to one thread.
#ifndef KEEL_CLIENT_STORE_SPACE_KNOWN_PLACES_H
#define KEEL_CLIENT_STORE_SPACE_KNOWN_PLACES_H

#include "client/store/pieces/piece.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace arca::store
{

class KnownPlaces
{
public:
    /// Remembers the name hash of a piece, as a proven manifest gives it: the 32 digits of its
    /// blob's name. Other digits are ignored.
    void prove(PieceId id, std::string_view hashDigits);
    /// Returns these digits, or nothing when they are not known.
    std::optional<std::string> provenOf(PieceId id) const;

    /// Remembers what a directory was found to have, in place of what it had: last components of
    /// blob names of 32 digits, among which dots are passed over. Others are left out.
    void keepListed(const std::string &directory, const std::vector<std::string> &lasts);
    /// Returns those of them that begin with `digits`, without dots; empty when there is none.
    std::vector<std::string> listedUnder(const std::string &directory,
                                         std::string_view digits) const;

private:
    using Digest = std::array<std::byte, 16>;
    static std::optional<Digest> digestOf(std::string_view digits);

    std::unordered_map<PieceId, Digest> proven_;
    std::unordered_map<std::string, std::vector<Digest>> listed_; // sorted
    std::size_t listedInAll_ = 0;
};

} // namespace arca::store

#endif
