// Pieces that are named to the letter: see the header.
#include "client/store/listing/named_pieces.h"

#include "client/base/text.h"

#include <algorithm>
#include <tuple>

namespace arca::store
{

namespace
{

constexpr std::size_t kMostVersions = 10'000; // held at a time; a name has a handful
constexpr int kMaxLooks = 100;

bool isLiteral(const std::string &pattern)
{
    return !pattern.empty() && pattern.find_first_of("*?") == std::string::npos;
}

bool isNamed(const PieceInfo &piece, const ObjectName &name)
{
    const ObjectName &said = piece.description.name;
    return std::tie(said.filespace, said.highLevel, said.lowLevel) ==
           std::tie(name.filespace, name.highLevel, name.lowLevel);
}

/// What is gone since its name was found is no piece; what cannot be read is told.
void take(Result<std::optional<PieceInfo>> found, const ObjectName &name, Versions &versions)
{
    if (!found && found.error().kind != ErrorKind::notFound)
        versions.hurt.push_back(std::move(found).error().text);
    else if (found && *found && isNamed(**found, name))
        versions.pieces.push_back(std::move(**found));
}

Result<std::optional<PieceInfo>> readInactive(NodeSpace &space, const std::string &blobName)
{
    ARCA_TRY(const auto blob, space.domain().blobs().open(blobName));
    return space.readShown(*blob, blobName);
}

/// Whether one of them was active when the first was looked at and inactive when the others were:
/// then another may have come into its place meanwhile.
bool changedMeanwhile(const Versions &versions)
{
    return std::ranges::any_of(versions.pieces, [&](const PieceInfo &piece) {
        return piece.isActive() &&
               std::ranges::count(versions.pieces, piece.id, &PieceInfo::id) > 1;
    });
}

} // namespace

Result<std::optional<std::vector<ObjectName>>> literalNames(NodeSpace &space,
                                                            const std::string &filespace,
                                                            const std::string &highLevel,
                                                            const std::string &lowLevel)
{
    using Names = std::optional<std::vector<ObjectName>>;
    if (!isLiteral(highLevel) || !isLiteral(lowLevel))
        return Names();
    if (isLiteral(filespace))
        return Names({{filespace, highLevel, lowLevel}});
    const auto known =
        filespacesOf(space.domain().blobs(), space.domain().nodeKey(), RecordSeal(space.domain()));
    // A record that is hurt is in the way of those only who ask for what is in its filespace.
    if (!known && isUnreadable(known.error()))
        return Names();
    ARCA_CHECK(known);
    Names names(std::in_place);
    for (const Filespace &one : *known)
        if (!one.deleted && (filespace.empty() || matchesPattern(one.name, filespace)))
            names->push_back({one.name, highLevel, lowLevel});
    return names;
}

Result<std::optional<Versions>> versionsOf(NodeSpace &space, const ObjectName &name)
{
    for (int look = 1;; ++look) {
        Versions versions;
        // In this order: a piece that becomes inactive is in its new place before it leaves the
        // other.
        take(space.find(name), name, versions);
        ARCA_TRY(const auto blobNames, space.inactiveBlobsOf(name));
        if (blobNames.size() > kMostVersions)
            return std::optional<Versions>();
        for (const std::string &blobName : blobNames)
            take(readInactive(space, blobName), name, versions);
        std::ranges::sort(versions.pieces, {}, [](const PieceInfo &piece) {
            return std::tuple(piece.insertedAt, piece.id);
        });
        if (look == kMaxLooks || !changedMeanwhile(versions))
            return std::optional(std::move(versions));
    }
}

} // namespace arca::store
