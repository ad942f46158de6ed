// Opening and making a repository. The blob "format" (kind "ARCAREPO", version 4) marks it;
// payload:
//
//   offset  size
//        0    16  what tells this repository from every other, random
//       16     8  when it was made, seconds since 1970, UTC
//
// A change of the layout that an older release would misread raises the version of that record.
// Version 1 kept nothing under keys, and is not read any more. Version 2 had no inactive pieces,
// and gets none. Up to version 3 records carry no proof of who wrote them (record_seal.h).
//
// The versions of manifests and packs are bound to it. Nothing proves their headers where they are
// read first, so an unknown version there is damage like any other flipped bit: taken for a newer
// release's, one bit would stop the node. A release that writes another version must do so only in
// repositories whose marker has a later version, and must not change the marker of one that a
// session may have open: an older release would set the new manifests aside.
//
// No key is shared by all nodes, so the records of the repository, its management classes, are
// bound to their place and to this repository only: the key of their digest is SHA-256 of
// "records of the repository" and its identifier, which who can read the marker can make, too.
#include "client/store/nodes/repository.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/blob/directory/location.h"
#include "client/store/records/defaults.h"

#include <ctime>

namespace arca::store
{

namespace
{

constexpr std::string_view kMarker = "format";
constexpr std::string_view kKind = "ARCAREPO";
constexpr std::uint32_t kVersion = 4;
constexpr std::uint32_t kOldestVersion = 2;
constexpr std::size_t kUuidBytes = 16;

} // namespace

Repository::Repository(std::unique_ptr<blob::BlobStore> store, std::string shownName,
                       std::string uuid, std::uint32_t layout, SecretKey classKey)
    : store_(std::move(store)), shownName_(std::move(shownName)), uuid_(std::move(uuid)),
      layout_(layout), classKey_(std::move(classKey))
{
}

Result<std::unique_ptr<Repository>> Repository::open(const std::string &location)
{
    ARCA_TRY(const blob::Location place, blob::Location::parse(location));
    ARCA_TRY(auto store, blob::openStore(place));
    return open(std::move(store), place.directory);
}

Result<std::unique_ptr<Repository>> Repository::open(std::unique_ptr<blob::BlobStore> store,
                                                     const std::string &shownName)
{
    auto marker = blob::readWhole(*store, std::string(kMarker), kMaxRecordBytes);
    if (!marker && marker.error().kind == ErrorKind::notFound)
        return Error{ErrorKind::noRepository, "there is no repository in " + shownName};
    ARCA_TRY(const Bytes bytes, std::move(marker));
    auto payload = unframeRecord(bytes, kKind, kVersion, kOldestVersion);
    if (!payload && payload.error().kind == ErrorKind::olderFormat)
        return Error{ErrorKind::olderFormat,
                     "the repository in " + shownName +
                         " has the layout of an older release, which this one does not read; " +
                         "make a new one in another directory"};
    if (!payload)
        return inContext(std::move(payload).error(), "the repository in " + shownName);
    ByteReader reader(*payload);
    std::string uuid = toHex(reader.raw(kUuidBytes));
    if (!reader.ok())
        return Error{ErrorKind::damaged, "the format marker of " + shownName + " is damaged"};
    ARCA_TRY(const Sha256 bound, sha256({viewOf("records of the repository"), viewOf(uuid)}));
    ARCA_TRY(SecretKey classKey, SecretKey::from(bound));
    return std::unique_ptr<Repository>(new Repository(std::move(store), shownName, std::move(uuid),
                                                      ByteReader(ByteView(bytes).subspan(8)).u32(),
                                                      std::move(classKey)));
}

Result<std::unique_ptr<Repository>> Repository::create(const std::string &location)
{
    ARCA_TRY(const blob::Location place, blob::Location::parse(location));
    ARCA_TRY(auto store, blob::prepareStore(place));
    return create(std::move(store), place.directory);
}

Result<std::unique_ptr<Repository>> Repository::create(std::unique_ptr<blob::BlobStore> store,
                                                       const std::string &shownName)
{
    std::array<std::byte, kUuidBytes> uuid;
    ARCA_CHECK(fillRandom(uuid));
    ByteWriter payload;
    payload.raw(uuid);
    payload.u64(static_cast<std::uint64_t>(std::time(nullptr)));
    ARCA_CHECK(
        blob::putWhole(*store, std::string(kMarker), frameRecord(kKind, kVersion, payload.view())));
    ARCA_TRY(auto made, open(std::move(store), shownName));
    ARCA_CHECK(made->writeDefaults());
    return made;
}

Result<void> Repository::writeDefaults()
{
    if (recordForm() != engine::RecordForm::keyed)
        return {};
    ARCA_TRY(const bool noted, areDefaultsNoted(*store_));
    if (noted)
        return {};
    ARCA_CHECK(grace().writeDefault());
    ARCA_CHECK(policy().writeDefault());
    return noteDefaults(*store_);
}

Result<NodeKeys> Repository::authenticate(const std::string &node, std::string_view password)
{
    auto keys = nodes().authenticate(node, password);
    if (!keys && keys.error().kind == ErrorKind::authentication)
        keys.error().text += " (repository " + shownName_ + ")";
    return keys;
}

Result<std::unique_ptr<NodeSpace>> Repository::logOn(const std::string &node,
                                                     std::string_view password)
{
    ARCA_TRY(NodeKeys keys, authenticate(node, password));
    return spaceOf(node, std::move(keys.data), keys.incarnation);
}

Result<std::unique_ptr<NodeSpace>> Repository::spaceOf(const std::string &node, SecretKey dataKey,
                                                       std::uint32_t incarnation)
{
    return NodeSpace::open(*store_, node, std::move(dataKey), recordForm(), cache_, incarnation);
}

} // namespace arca::store
