// A node's part of a repository.
//
//   pieces/<node key>/<xx>/<name hash>   one blob a piece; xx are the hash's first two digits
//   coming/<node key>/<xx>/<name hash>.<change>
//                                        a piece that comes in the place of another: coming_piece.h
//   inactive/<node key>/<xx>/<identifier>.<change>
//                                        a piece that was made inactive: the same bytes with a note
//                                        behind; xx are the first two digits of the identifier.
//                                        Up to layout 3 the change is not in the name
//   removed/<node key>/<xx>/<identifier>-<time>
//                                        a removed piece: removed_piece.h
//   filespaces/<node key>/<name hash>/   the numbered record of a filespace
//   objects/<node key>/<identifier>/     what became of a piece: object_record.h
//
// There is no catalogue to fall behind: the name hash (32 digits) leads from a name to its blob,
// and the upper half of an identifier is the beginning of that hash, so an identifier leads to a
// handful of blobs at most, whose headers tell which one is meant. Names and node in the header are
// compared with what was asked for, so that no hash and no misplaced blob has to be trusted.
#include "client/store/space/node_space.h"

#include "client/base/text.h"
#include "client/store/changes/coming_piece.h"
#include "client/store/keys/node_record.h"
#include "client/store/pieces/manifest_place.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace arca::store
{

namespace
{

constexpr std::size_t kHashBytesInNames = 16;

std::string digitsOf(const Sha256 &hash)
{
    return toHex(ByteView(hash).first(kHashBytesInNames));
}

/// The upper half of the identifiers of all pieces of a name.
PieceId upperHalfOf(const Sha256 &nameHash)
{
    PieceId high = 0;
    for (std::size_t i = 0; i < 4; ++i)
        high = high << 8 | std::to_integer<PieceId>(nameHash[i]);
    return high;
}

bool isIdUnder(const Sha256 &nameHash, PieceId id)
{
    return id >> 32 == upperHalfOf(nameHash);
}

Error unknownId(PieceId id)
{
    return {ErrorKind::notFound, "no object has the identifier " + toHex(id)};
}

} // namespace

Result<PieceId> NodeSpace::newId(const Sha256 &nameHash)
{
    Bytes random(4);
    PieceId low = 0;
    while (low == 0) {
        ARCA_CHECK(fillRandom(random));
        low = ByteReader(random).u32();
    }
    return upperHalfOf(nameHash) << 32 | low;
}

Result<std::string> nodeKey(const std::string &node)
{
    return spaceKeyOf(node, 0);
}

NodeSpace::NodeSpace(blob::BlobStore &store, std::string node, std::uint32_t incarnation,
                     std::string key, SecretKey dataKey, std::unique_ptr<engine::Domain> domain)
    : store_(store), node_(std::move(node)), incarnation_(incarnation), key_(std::move(key)),
      dataKey_(std::move(dataKey)), domain_(std::move(domain))
{
}

Result<std::unique_ptr<NodeSpace>> NodeSpace::open(blob::BlobStore &store, std::string node,
                                                   SecretKey dataKey, engine::RecordForm records,
                                                   HostCache cache, std::uint32_t incarnation)
{
    ARCA_TRY(std::string key, spaceKeyOf(node, incarnation));
    ARCA_TRY(auto domain, engine::Domain::open(store, key, dataKey, records, std::move(cache)));
    return std::unique_ptr<NodeSpace>(new NodeSpace(store, std::move(node), incarnation,
                                                    std::move(key), std::move(dataKey),
                                                    std::move(domain)));
}

Result<Sha256> NodeSpace::hashOf(const ObjectName &name) const
{
    // Keyed, so that nobody else can tell from a blob's name whether a certain piece is there.
    ByteWriter parts;
    for (const std::string *part : {&node_, &name.filespace, &name.highLevel, &name.lowLevel}) {
        parts.u64(part->size());
        parts.raw(viewOf(*part));
    }
    return hmacSha256(domain_->nameKey().view(), parts.view());
}

std::string NodeSpace::blobNameOf(const Sha256 &nameHash) const
{
    const std::string digits = digitsOf(nameHash);
    return "pieces/" + key_ + "/" + digits.substr(0, 2) + "/" + digits;
}

std::string NodeSpace::prefixOf(PieceId id) const
{
    const std::string digits = toHex(id).substr(0, 8);
    return "pieces/" + key_ + "/" + digits.substr(0, 2) + "/" + digits;
}

std::string NodeSpace::inactiveNameOf(PieceId id) const
{
    const std::string digits = toHex(id);
    return "inactive/" + key_ + "/" + digits.substr(0, 2) + "/" + digits;
}

std::string NodeSpace::copyNameOf(PieceId id, ChangeId change) const
{
    return inactiveNameOf(id) + (namesCarryChanges() ? "." + toHex(change) : std::string());
}

Result<Manifest> NodeSpace::readOwn(blob::BlobReader &blob, const std::string &blobName) const
{
    auto manifest = readManifest(blob, domain_->manifestKey());
    if (!manifest)
        return inContext(std::move(manifest).error(), "the stored piece in " + blobName);
    const PieceDescription &piece = manifest->info.description;
    ARCA_TRY(const Sha256 hash, hashOf(piece.name));
    const PieceId id = manifest->info.id;
    const auto removed = parseRemovedName(key_, blobName);
    const bool inPlace =
        removed ? removed->id == id && isIdUnder(hash, id)
        : manifest->info.isActive()
            ? (waitsForChange(blobName) ? activeNameOf(blobName) : blobName) == blobNameOf(hash)
            : blobName.substr(0, blobName.find('.')) == inactiveNameOf(id) && isIdUnder(hash, id);
    if (piece.node != node_ || !inPlace)
        return Error{ErrorKind::damaged,
                     "the stored piece in " + blobName + " is another one than its place says"};
    known_.prove(id, digitsOf(hash));
    return manifest;
}

Result<NodeSpace::Place> NodeSpace::freePlace(const ObjectName &name,
                                              std::span<const PieceId> replaced)
{
    ARCA_TRY(const Sha256 hash, hashOf(name));
    Place place{blobNameOf(hash)};
    ARCA_TRY(const bool taken, isTaken(place.blobName, replaced));
    if (taken)
        return Error{ErrorKind::exists,
                     "the object " + printable(name.joined()) + " exists already"};
    ARCA_TRY(place.id, newId(hash));
    known_.prove(place.id, digitsOf(hash));
    return place;
}

Result<std::unique_ptr<PieceWriter>> NodeSpace::beginPiece(PieceDescription description,
                                                           std::span<const PieceId> replaced)
{
    description.node = node_;
    ARCA_TRY(const Place place, freePlace(description.name, replaced));
    return PieceWriter::begin(*domain_, settings_, place.blobName, place.id,
                              std::move(description));
}

Result<std::optional<PieceInfo>> NodeSpace::find(const ObjectName &name)
{
    ARCA_TRY(const Sha256 hash, hashOf(name));
    const std::string blobName = blobNameOf(hash);
    ARCA_TRY(auto shown, findNamed(blobName));
    // The name that was asked for, compared with the sealed one, not only their hashes.
    if (shown && (shown->description.name.filespace != name.filespace ||
                  shown->description.name.highLevel != name.highLevel ||
                  shown->description.name.lowLevel != name.lowLevel))
        return Error{ErrorKind::damaged, "the stored piece in " + blobName + " is not " +
                                             printable(name.joined()) + " but another one"};
    return shown;
}

Result<std::optional<PieceInfo>> NodeSpace::readShown(blob::BlobReader &blob,
                                                      const std::string &blobName)
{
    ARCA_TRY(Manifest manifest, readOwn(blob, blobName));
    PieceInfo info = std::move(manifest.info);
    ARCA_TRY(const auto record, recordIfShown(info, blobName));
    if (!record)
        return std::optional<PieceInfo>();
    record->applyTo(info);
    return std::optional<PieceInfo>(std::move(info));
}

/// What the blobs of inactive pieces of that name begin with.
std::string NodeSpace::inactivePrefixOf(const Sha256 &nameHash) const
{
    const std::string first = inactiveNameOf(upperHalfOf(nameHash) << 32);
    return first.substr(0, first.size() - 8);
}

Result<std::vector<std::string>> NodeSpace::inactiveBlobsOf(const ObjectName &name)
{
    ARCA_TRY(const Sha256 hash, hashOf(name));
    std::vector<std::string> blobNames;
    ARCA_CHECK(store_.list(inactivePrefixOf(hash), [&](const std::string &blobName) {
        blobNames.push_back(blobName);
        return true;
    }));
    return blobNames;
}

Result<std::vector<PieceInfo>> NodeSpace::inactiveOf(const ObjectName &name,
                                                     std::optional<Error> *passedOver,
                                                     blob::ListedDirectory *inactive)
{
    std::vector<std::string> candidates;
    if (inactive != nullptr) {
        ARCA_TRY(const Sha256 hash, hashOf(name));
        ARCA_TRY(const auto listed, inactive->under(inactivePrefixOf(hash)));
        candidates.assign(listed.begin(), listed.end());
    } else {
        ARCA_TRY(candidates, inactiveBlobsOf(name));
    }
    std::vector<PieceInfo> found;
    for (const std::string &blobName : candidates) {
        auto shown = findAt(blobName);
        if (!shown && isUnreadable(shown.error())) {
            if (passedOver != nullptr && !*passedOver)
                *passedOver = std::move(shown).error();
            continue;
        }
        ARCA_CHECK(shown);
        if (*shown && (*shown)->description.name == name)
            found.push_back(std::move(**shown));
    }
    std::sort(found.begin(), found.end(), [](const PieceInfo &a, const PieceInfo &b) {
        return std::tie(a.inactiveAt, a.insertedAt, a.id) >
               std::tie(b.inactiveAt, b.insertedAt, b.id);
    });
    return found;
}

Result<NodeSpace::Located> NodeSpace::locate(PieceId id, Unclear unclear)
{
    // In this order: a piece is in its place before it leaves coming/.
    ARCA_TRY(const auto coming, comingUnder(prefixOf(id)));
    auto waiting = locateAmong(coming, id, unclear);
    if (waiting)
        return waiting;
    auto located = locateInPlace(id, unclear);
    return !located && waiting.error().kind != ErrorKind::notFound ? std::move(waiting)
                                                                   : std::move(located);
}

/// Under pieces/. A directory is listed only when it must be: see KnownPlaces.
Result<NodeSpace::Located> NodeSpace::locateInPlace(PieceId id, Unclear unclear)
{
    const std::string prefix = prefixOf(id);
    if (const auto digits = known_.provenOf(id)) {
        const std::string name = prefix.substr(0, prefix.rfind('/') + 1) + *digits;
        return locateAmong({&name, 1}, id, unclear);
    }
    if (auto located = locateAmong(knownUnder(prefix), id, unclear))
        return located;
    ARCA_TRY(const auto names, listAndKnow(prefix));
    return locateAmong(names, id, unclear);
}

Result<std::vector<std::string>> NodeSpace::listAndKnow(const std::string &prefix)
{
    const std::string directory = prefix.substr(0, prefix.rfind('/') + 1);
    std::vector<std::string> found, lasts;
    ARCA_CHECK(store_.list(directory, [&](const std::string &name) {
        if (name.starts_with(prefix))
            found.push_back(name);
        lasts.push_back(name.substr(directory.size()));
        return true;
    }));
    known_.keepListed(directory, lasts);
    return found;
}

std::vector<std::string> NodeSpace::knownUnder(const std::string &prefix) const
{
    constexpr std::size_t kIdDigits = 2 * sizeof(PieceId);
    const std::size_t slash = prefix.rfind('/') + 1;
    const std::string directory = prefix.substr(0, slash);
    std::vector<std::string> names;
    for (std::string &digits : known_.listedUnder(directory, prefix.substr(slash))) {
        if (prefix.starts_with(placePrefix(ManifestPlace::inactive, key_)))
            digits.insert(kIdDigits, ".");
        names.push_back(directory + digits);
    }
    return names;
}

/// Under a prefix lie other pieces, too: a later one of the same name, or one whose name hash
/// begins alike. Damage of theirs is no damage of the piece.
Result<NodeSpace::Located> NodeSpace::locateAmong(std::span<const std::string> names, PieceId id,
                                                  Unclear unclear)
{
    std::optional<Error> failure;
    for (const std::string &name : names) {
        auto blob = store_.open(name);
        if (!blob) {
            if (blob.error().kind != ErrorKind::notFound)
                failure = std::move(blob).error();
            continue; // removed since the listing
        }
        auto claimed = peekIdentifier(**blob);
        if (!claimed) // a read that failed in passing makes no header damaged
            claimed = peekIdentifier(**blob);
        const bool passedOver =
            unclear == Unclear::another && !claimed && claimed.error().kind == ErrorKind::damaged;
        if (passedOver || (claimed && *claimed != id))
            continue;
        auto manifest = readOwn(**blob, name);
        if (!manifest)
            failure = std::move(manifest).error();
        else if (manifest->info.id == id)
            return Located{name, std::move(blob).value(), std::move(manifest->info)};
    }
    return failure ? *failure : unknownId(id);
}

Result<NodeSpace::Located> NodeSpace::locateInactive(PieceId id)
{
    const std::string prefix = inactiveNameOf(id);
    if (auto located = locateCopy(knownUnder(prefix), id))
        return located;
    ARCA_TRY(const auto copies, listAndKnow(prefix));
    return locateCopy(copies, id);
}

Result<NodeSpace::Located> NodeSpace::locateCopy(std::span<const std::string> copies, PieceId id)
{
    std::optional<Error> failure;
    for (const std::string &name : copies) {
        const ChangeId change = changeIn(name);
        auto holds = change == 0 ? Result<bool>(true) : holdsCopy(change);
        if (holds && !*holds)
            continue;
        auto blob = holds ? store_.open(name) : std::move(holds).error();
        if (!blob) {
            if (blob.error().kind != ErrorKind::notFound) // else removed since the listing
                failure = std::move(blob).error();
            continue;
        }
        auto manifest = readOwn(**blob, name);
        if (!manifest)
            failure = std::move(manifest).error();
        else if (manifest->info.id == id)
            return Located{name, std::move(blob).value(), std::move(manifest->info)};
    }
    return failure ? *failure : unknownId(id);
}

Result<NodeSpace::Located> NodeSpace::locateAnywhere(PieceId id)
{
    // Of an inactive piece nothing is left in the other place, or what is left does not hold.
    if (auto known = locateCopy(knownUnder(inactiveNameOf(id)), id))
        return known;
    // In this order: a piece is in its inactive place before it leaves the other one.
    auto located = locate(id);
    if (located || (located.error().kind != ErrorKind::notFound && !isUnreadable(located.error())))
        return located;
    auto inactive = locateInactive(id);
    if (inactive || inactive.error().kind != ErrorKind::notFound)
        return inactive;
    return located;
}

Result<PieceInfo> NodeSpace::find(PieceId id)
{
    ARCA_TRY(Located located, locateShown(id));
    return std::move(located.info);
}

Result<std::unique_ptr<PieceReader>> NodeSpace::openPiece(PieceId id)
{
    // The claim comes first: what is found after it stays readable to the end.
    auto claim = domain_->beginBlob();
    if (!claim && claim.error().kind != ErrorKind::readOnly &&
        claim.error().kind != ErrorKind::denied && claim.error().kind != ErrorKind::full)
        return std::move(claim).error();
    ARCA_TRY(Located located, locateShown(id));
    return PieceReader::open(*domain_, settings_, claim ? std::move(claim).value() : nullptr,
                             std::move(located.blob),
                             isOwn_ ? std::optional(DamageRecords(*domain_)) : std::nullopt);
}

} // namespace arca::store
