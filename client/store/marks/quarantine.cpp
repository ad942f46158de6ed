// Setting aside, and the lists of packs: see the header.
#include "client/store/marks/quarantine.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/blob/blob_store.h"
#include "client/store/records/record.h"
#include "client/store/records/record_forms.h"

#include <algorithm>

namespace arca::store
{

namespace
{

using engine::PackId;

constexpr std::string_view kKind = form::heldPacks.kind;
constexpr std::uint32_t kVersion = form::heldPacks.newest;
constexpr std::string_view kList = ".packs";
constexpr std::size_t kCopyBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxListBytes = std::size_t{1} << 30;

/// Hands every byte of the blob to `take`.
template <class Take> Result<void> readAll(blob::BlobReader &blob, Take take)
{
    Bytes buffer(kCopyBytes);
    for (std::uint64_t offset = 0; offset < blob.size();) {
        ARCA_TRY(const std::size_t got, blob.read(offset, buffer));
        if (got == 0)
            return Error{ErrorKind::io, "the blob was cut while it was read"};
        ARCA_CHECK(take(ByteView(buffer).first(got)));
        offset += got;
    }
    return {};
}

/// "pieces/<node key>/<xx>/<digits>" is told apart from others of the same digits.
std::string shortNameOf(const std::string &blobName)
{
    return blobName.substr(0, blobName.find('/')) + "-" + blobName.substr(blobName.rfind('/') + 1);
}

} // namespace

Bytes encodeHeldPacks(const std::set<PackId> &packs)
{
    ByteWriter payload;
    for (const PackId &pack : packs)
        payload.raw(pack);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<std::set<PackId>> decodeHeldPacks(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    if (payload.size() % sizeof(PackId) != 0)
        return Error{ErrorKind::damaged, "the list of packs that are held is damaged"};
    ByteReader reader(payload);
    std::set<PackId> packs;
    while (reader.remaining() != 0) {
        PackId pack{};
        reader.copyInto(pack);
        packs.insert(pack);
    }
    return packs;
}

bool Quarantine::isManifest(std::string_view blobName) const
{
    return blobName.starts_with(prefix_) && !blobName.ends_with(kList);
}

Result<std::set<PackId>> Quarantine::packsNow() const
{
    std::set<PackId> packs;
    ARCA_CHECK(packs_.list([&](const engine::PackName &pack) {
        packs.insert(pack.id);
        return true;
    }));
    return packs;
}

Result<std::string> Quarantine::digestOf(blob::BlobReader &blob) const
{
    StreamDigest digest;
    ARCA_CHECK(readAll(blob, [&](ByteView bytes) -> Result<void> {
        digest.update(bytes);
        return {};
    }));
    return toHex(digest.value());
}

Result<std::set<PackId>> Quarantine::packsHeldFor(blob::BlobReader &manifest, bool write)
{
    ARCA_TRY(const std::string digest, digestOf(manifest));
    const std::string name = prefix_ + digest + std::string(kList);
    auto known = blob::readWhole(blobs_, name, kMaxListBytes);
    if (!known && known.error().kind == ErrorKind::notFound) {
        ARCA_TRY(const std::set<PackId> now, packsNow());
        if (!write)
            return now;
        auto put = blob::putWhole(blobs_, name, encodeHeldPacks(now));
        if (!put && put.error().kind != ErrorKind::exists)
            return std::move(put).error();
        known = blob::readWhole(blobs_, name, kMaxListBytes);
    }
    if (!known && known.error().kind != ErrorKind::damaged)
        return std::move(known).error();
    auto held = known ? decodeHeldPacks(*known) : Result<std::set<PackId>>(known.error());
    return held ? held : packsNow();
}

Result<bool> Quarantine::has(const std::string &name) const
{
    const auto there = blobs_.open(name);
    if (!there && there.error().kind != ErrorKind::notFound)
        return there.error();
    return static_cast<bool>(there);
}

Result<void> Quarantine::keep(const std::string &name, blob::BlobReader &manifest)
{
    ARCA_CHECK(packsHeldFor(manifest, true));
    ARCA_TRY(const std::string digest, digestOf(manifest));
    for (const bool again : {false, true}) {
        ARCA_TRY(const auto copy, blobs_.begin());
        ARCA_CHECK(readAll(manifest, [&](ByteView bytes) { return copy->append(bytes); }));
        auto committed = copy->commit(name);
        if (!committed && committed.error().kind != ErrorKind::exists)
            return committed;
        // What was copied must be what was there, or the list of its packs is another's.
        ARCA_TRY(const auto there, blobs_.open(name));
        ARCA_TRY(std::string copied, digestOf(*there));
        if (copied != digest) { // a read that failed in passing makes no copy wrong
            ARCA_TRY(copied, digestOf(*there));
        }
        if (copied == digest)
            return blobs_.sync(name);
        if (again)
            break;
        // It is in the way of a right one for ever. What came into its place meanwhile stays.
        auto gone = blobs_.remove(name, *there);
        if (!gone && gone.error().kind != ErrorKind::notFound)
            return gone;
    }
    return Error{ErrorKind::io, "a blob reads differently each time, so " + name +
                                    " may not be what was set aside"};
}

Result<std::string> Quarantine::setAside(const std::string &blobName, blob::BlobReader &judged)
{
    // While the manifest changes its place, no run of reclaiming may miss it in both.
    ARCA_TRY(const auto claim, blobs_.begin());
    ARCA_TRY(const std::string digest, digestOf(judged));
    const std::string name = prefix_ + digest + "." + shortNameOf(blobName);
    ARCA_CHECK(keep(name, judged));
    ARCA_CHECK(blobs_.remove(blobName, judged));
    ARCA_TRY(const bool kept, has(name));
    if (!kept)
        ARCA_CHECK(keep(name, judged));
    return name;
}

Result<void> Quarantine::remove(const std::string &blobName)
{
    ARCA_TRY(const auto blob, blobs_.open(blobName));
    return blobs_.remove(blobName, *blob);
}

/// The manifest first: its list alone holds nothing.
Result<void> Quarantine::giveUp(const std::string &blobName)
{
    if (!isManifest(blobName))
        return Error{ErrorKind::notFound, "no manifest was set aside as " + printable(blobName)};
    ARCA_CHECK(remove(blobName));
    const std::string stem = blobName.substr(0, prefix_.size() + sizeof(Digest128) * 2);
    bool others = false;
    ARCA_CHECK(blobs_.list(stem + ".", [&](const std::string &name) {
        others = others || isManifest(name);
        return true;
    }));
    if (!others)
        (void)remove(stem + std::string(kList));
    return {};
}

} // namespace arca::store
