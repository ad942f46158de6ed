// From the quarantine to the plain name: see the header.
#include "client/store/quarantine_return.h"

#include "client/base/text.h"
#include "client/store/marked_packs.h"
#include "client/store/quarantine.h"
#include "client/store/stored_manifests.h"

#include <ctime>
#include <optional>

namespace arca::store
{

namespace
{

constexpr std::size_t kCopyBytes = std::size_t{1} << 20;

class Return
{
public:
    Return(NodeSpace &space, bool dryRun)
        : space_(space), domain_(space.domain()), blobs_(domain_.blobs()), quarantine_(domain_),
          dryRun_(dryRun)
    {
    }

    /// Returns nothing when it cannot be read, or is none that was set aside by its place.
    Result<std::optional<SetAside>> bringBack(const std::string &blobName);

private:
    std::string plainNameOf(const std::string &blobName) const;
    Result<Manifest> readAll(blob::BlobReader &blob, const std::string &plain,
                             std::set<engine::PackId> &packs) const;
    Result<void> write(blob::BlobReader &blob, const Manifest &manifest, SetAside &aside);
    Result<void> writeAs(blob::BlobReader &blob, const Manifest &manifest, bool inactive,
                         const std::string &name);
    Result<bool> isThere(const std::string &name, PieceId id) const;

    NodeSpace &space_;
    engine::Domain &domain_;
    blob::BlobStore &blobs_;
    Quarantine quarantine_;
    const bool dryRun_;
};

/// The digest is followed by a dot, the place, a dash and the last part of the name that it had.
std::string Return::plainNameOf(const std::string &blobName) const
{
    const auto dot = blobName.find('.', quarantine_.prefix().size());
    const auto dash = blobName.find('-', dot == std::string::npos ? 0 : dot);
    if (dot == std::string::npos || dash == std::string::npos)
        return {};
    const std::string last = blobName.substr(dash + 1);
    return blobName.substr(dot + 1, dash - dot - 1) + "/" + domain_.nodeKey() + "/" +
           last.substr(0, 2) + "/" + last;
}

/// Every run of it, too; `packs` receives what it needs.
Result<Manifest> Return::readAll(blob::BlobReader &blob, const std::string &plain,
                                 std::set<engine::PackId> &packs) const
{
    ARCA_TRY(Manifest manifest, space_.readOwn(blob, plain));
    ManifestRuns runs(blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return manifest;
        if (run->blocks != 0)
            packs.insert(run->pack);
    }
}

Result<std::optional<SetAside>> Return::bringBack(const std::string &blobName)
{
    const std::string plain = plainNameOf(blobName);
    // The claim comes first, then the marks.
    std::unique_ptr<blob::BlobWriter> claim;
    if (!dryRun_) {
        ARCA_TRY(claim, blobs_.begin());
    }
    ARCA_TRY(const CurrentMark current, currentMark(domain_));
    const auto blob = blobs_.open(blobName);
    std::set<engine::PackId> packs;
    const auto manifest = blob ? readAll(**blob, plain, packs) : Result<Manifest>(blob.error());
    if (!manifest &&
        (isUnreadable(manifest.error()) || manifest.error().kind == ErrorKind::notFound))
        return std::optional<SetAside>();
    ARCA_CHECK(manifest);
    const ObjectName &name = manifest->info.description.name;
    SetAside aside{blobName, name.joined(), plain, {}};
    ARCA_TRY(const auto filespace, space_.filespace(name.filespace));
    if (!filespace)
        aside.reason = "its filespace " + printable(name.filespace) + " is not registered any more";
    for (const engine::PackId &pack : packs)
        if (current.mark.packs.contains(pack))
            aside.reason =
                "packs that it needs are being reclaimed; run it again after arca reclaim";
    if (aside.reason.empty() && !dryRun_)
        ARCA_CHECK(write(**blob, *manifest, aside));
    if (!aside.reason.empty())
        aside.now.clear();
    return std::optional(std::move(aside));
}

Result<void> Return::write(blob::BlobReader &blob, const Manifest &manifest, SetAside &aside)
{
    auto written = writeAs(blob, manifest, false, aside.now);
    if (!written && written.error().kind == ErrorKind::exists && manifest.info.isActive() &&
        space_.keepsRemoved()) {
        const std::string digits = toHex(manifest.info.id);
        aside.now = "inactive/" + domain_.nodeKey() + "/" + digits.substr(0, 2) + "/" + digits;
        written = writeAs(blob, manifest, true, aside.now);
    }
    if (!written && written.error().kind == ErrorKind::exists) {
        aside.reason = "another blob has its name by now, " + aside.now;
        return {};
    }
    ARCA_CHECK(written);
    return quarantine_.giveUp(aside.blobName);
}

/// Fine when the piece is there already.
Result<void> Return::writeAs(blob::BlobReader &blob, const Manifest &manifest, bool inactive,
                             const std::string &name)
{
    ARCA_TRY(const auto copy, blobs_.begin());
    Bytes buffer(kCopyBytes);
    for (std::uint64_t offset = 0; offset < blob.size();) {
        ARCA_TRY(const std::size_t got, blob.read(offset, buffer));
        if (got == 0)
            return Error{ErrorKind::io, "a blob of the quarantine was cut while it was read"};
        ARCA_CHECK(copy->append(ByteView(buffer).first(got)));
        offset += got;
    }
    if (inactive) {
        ARCA_TRY(const Bytes note,
                 encodeInactiveNote(domain_.manifestKey(), manifest.info.id, std::time(nullptr)));
        ARCA_CHECK(copy->append(note));
    }
    auto committed = copy->commit(name);
    if (!committed && committed.error().kind != ErrorKind::exists)
        return committed;
    ARCA_TRY(const bool there, isThere(name, manifest.info.id));
    return there ? blobs_.sync(name) : Error{ErrorKind::exists, "the name " + name + " is in use"};
}

/// As what was written is soon the only one, it is read whole.
Result<bool> Return::isThere(const std::string &name, PieceId id) const
{
    ARCA_TRY(const auto blob, blobs_.open(name));
    std::set<engine::PackId> packs;
    const auto manifest = readAll(*blob, name, packs);
    return manifest && manifest->info.id == id;
}

} // namespace

Result<void> bringBackReadable(NodeSpace &space, bool dryRun,
                               const std::function<void(const SetAside &)> &visit)
{
    const Quarantine quarantine(space.domain());
    std::vector<std::string> names;
    ARCA_CHECK(space.domain().blobs().list(quarantine.prefix(), [&](const std::string &name) {
        if (quarantine.isManifest(name))
            names.push_back(name);
        return true;
    }));
    for (const std::string &name : names) {
        ARCA_TRY(const auto aside, Return(space, dryRun).bringBack(name));
        if (aside)
            visit(*aside);
    }
    return {};
}

} // namespace arca::store
