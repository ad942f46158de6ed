// Names as digests, 16 bytes each: see the header.
#include "client/store/space/known_places.h"

#include "client/base/bytes.h"
#include "client/base/text.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::size_t kMostProven = 16 * 1024; // several times the objects of a transaction
constexpr std::size_t kMostListed = std::size_t{1} << 21;

} // namespace

std::optional<KnownPlaces::Digest> KnownPlaces::digestOf(std::string_view digits)
{
    const auto bytes = fromHex(digits);
    Digest digest;
    if (!bytes || bytes->size() != digest.size())
        return std::nullopt;
    std::ranges::copy(*bytes, digest.begin());
    return digest;
}

void KnownPlaces::prove(PieceId id, std::string_view hashDigits)
{
    const auto digest = digestOf(hashDigits);
    if (proven_.size() >= kMostProven)
        proven_.clear();
    if (digest)
        proven_.insert_or_assign(id, *digest);
}

std::optional<std::string> KnownPlaces::provenOf(PieceId id) const
{
    const auto found = proven_.find(id);
    return found == proven_.end() ? std::nullopt : std::optional(toHex(ByteView(found->second)));
}

void KnownPlaces::keepListed(const std::string &directory, const std::vector<std::string> &lasts)
{
    std::vector<Digest> digests;
    for (std::string last : lasts) {
        std::erase(last, '.');
        if (const auto digest = digestOf(last))
            digests.push_back(*digest);
    }
    std::ranges::sort(digests);
    if (const auto before = listed_.find(directory); before != listed_.end()) {
        listedInAll_ -= before->second.size();
        listed_.erase(before);
    }
    if (listedInAll_ + digests.size() > kMostListed) {
        listed_.clear();
        listedInAll_ = 0;
    }
    listedInAll_ += digests.size();
    listed_.emplace(directory, std::move(digests));
}

std::vector<std::string> KnownPlaces::listedUnder(const std::string &directory,
                                                  std::string_view digits) const
{
    const auto there = listed_.find(directory);
    const auto begin = fromHex(digits);
    std::vector<std::string> found;
    if (there == listed_.end() || !begin)
        return found;
    const auto beginning = [&](const Digest &digest) {
        return ByteView(digest).first(std::min(begin->size(), digest.size()));
    };
    const auto less = [](ByteView one, ByteView other) {
        return std::ranges::lexicographical_compare(one, other);
    };
    for (const Digest &digest :
         std::ranges::equal_range(there->second, ByteView(*begin), less, beginning))
        found.push_back(toHex(ByteView(digest)));
    return found;
}

} // namespace arca::store
