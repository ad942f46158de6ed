// Adding up. Blobs are opened as they are listed, so that no list of them is kept.
#include "client/store/upkeep/statistics.h"

#include "client/store/marks/damage.h"
#include "client/store/marks/quarantine.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::int64_t kDay = 86400;

/// Nothing when it is no piece that shows. Judged by its blob: to find it by its identifier, the
/// names of a 256th part of all pieces would be listed.
Result<std::optional<PieceInfo>> shownPiece(NodeSpace &space, const std::string &blobName)
{
    ARCA_TRY(const auto blob, space.domain().blobs().open(blobName));
    ARCA_TRY(auto shown, space.readShown(*blob, blobName));
    if (!shown)
        return shown;
    ARCA_TRY(const auto filespace, space.filespace(shown->description.name.filespace));
    return filespace ? std::move(shown) : std::optional<PieceInfo>();
}

void addPiece(NodeSpace &space, const std::string &blobName, Statistics &sums)
{
    const auto piece = shownPiece(space, blobName);
    if (!piece) {
        sums.unreadable += piece.error().kind != ErrorKind::notFound ? 1 : 0;
    } else if (*piece) {
        const PieceTotals &totals = (*piece)->totals;
        sums.all.add(totals);
        sums.inactivePieces += (*piece)->isActive() ? 0 : 1;
        sums.days[(*piece)->insertedAt / kDay].add(totals);
        sums.manifestBytes += totals.manifestBytes;
        sums.newest = std::max(sums.newest, (*piece)->insertedAt);
    }
}

void addPack(NodeSpace &space, const engine::PackName &which, Statistics &sums)
{
    const auto pack = space.domain().packs().open(which);
    if (pack) {
        ++sums.packs;
        sums.packBytes += (*pack)->size();
    } else {
        sums.unreadable += pack.error().kind != ErrorKind::notFound ? 1 : 0;
    }
}

Result<void> countDamage(const engine::Domain &domain, Statistics &sums)
{
    const DamageRecords records(domain);
    ARCA_TRY(const engine::DamagedParts parts, records.all());
    sums.damagedParts = parts.all().size();
    for (const engine::DamagedPart &part : parts.all()) {
        const auto bytes = blob::readWhole(domain.blobs(), records.nameOf(part), kMaxRecordBytes);
        const auto record = bytes ? decodeDamage(*bytes) : Result<DamageRecord>(bytes.error());
        if (record)
            sums.lastDamage = std::max(sums.lastDamage, record->foundAt);
    }
    const Quarantine quarantine(domain);
    return domain.blobs().list(quarantine.prefix(), [&](const std::string &name) {
        sums.quarantined += quarantine.isManifest(name) ? 1 : 0;
        return true;
    });
}

/// Until one of them answers false.
Result<void> visitAll(NodeSpace &space, const std::function<bool(const std::string &)> &piece,
                      const std::function<bool(const engine::PackName &)> &pack)
{
    engine::Domain &domain = space.domain();
    bool goOn = true;
    for (const char *place : {"coming/", "pieces/", "inactive/"})
        if (goOn)
            ARCA_CHECK(
                domain.blobs().list(place + domain.nodeKey() + "/",
                                    [&](const std::string &name) { return goOn = piece(name); }));
    return goOn ? domain.packs().list(pack) : Result<void>();
}

} // namespace

void PieceSums::add(const PieceTotals &totals)
{
    ++pieces;
    streamBytes += totals.streamBytes;
    zeroBytes += totals.zeroBytes;
    newBytes += totals.newBytes;
    storedBytes += totals.storedBytes;
    duplicateBytes +=
        totals.streamBytes - std::min(totals.streamBytes, totals.zeroBytes + totals.newBytes);
}

Result<Statistics> gatherStatistics(NodeSpace &space, const Progress &progress)
{
    Statistics sums;
    std::uint64_t done = 0, planned = 0;
    // Names are counted in a small part of the time that it takes to open what they lead to.
    if (progress)
        ARCA_CHECK(visitAll(
            space, [&](const std::string &) { return ++planned != 0; },
            [&](const engine::PackName &) { return ++planned != 0; }));
    bool wanted = true;
    const auto goOn = [&] {
        ++done;
        return wanted = !progress || progress(std::min(done, planned), planned);
    };
    ARCA_CHECK(visitAll(
        space,
        [&](const std::string &blobName) {
            addPiece(space, blobName, sums);
            return goOn();
        },
        [&](const engine::PackName &which) {
            addPack(space, which, sums);
            return goOn();
        }));
    if (!wanted)
        return Error{ErrorKind::stopped, "nobody waits for the numbers any more"};
    ARCA_CHECK(countDamage(space.domain(), sums));
    return sums;
}

} // namespace arca::store
