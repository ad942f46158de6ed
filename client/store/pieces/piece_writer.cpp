// A piece on its way in. The order matters: first the manifest is begun, which claims what the
// stream will count on, then the marks of reclaiming and the records of damage are read, then
// the stream begins.
#include "client/store/pieces/piece_writer.h"

#include "client/store/marks/damage.h"
#include "client/store/marks/marked_packs.h"

#include <ctime>

namespace arca::store
{

Result<std::unique_ptr<PieceWriter>> PieceWriter::begin(engine::Domain &domain,
                                                        const engine::Settings &settings,
                                                        std::string blobName, PieceId id,
                                                        PieceDescription description)
{
    std::unique_ptr<PieceWriter> writer(
        new PieceWriter(settings, std::move(blobName), id, description.name));
    ARCA_TRY(writer->manifest_, ManifestWriter::begin(domain, settings.cipher, id, description));
    engine::AvoidedPacks avoided;
    ARCA_TRY(const CurrentMark current, currentMark(domain));
    avoided.marked = current.mark.packIds();
    ARCA_TRY(avoided.damaged, DamageRecords(domain).all());
    ARCA_TRY(writer->stream_,
             engine::StreamWriter::begin(domain, std::move(avoided), settings, *writer->manifest_));
    return writer;
}

Result<std::unique_ptr<PieceWriter>> PieceWriter::copyOf(engine::Domain &domain,
                                                         blob::BlobReader &original,
                                                         std::string blobName, PieceId id,
                                                         PieceDescription description)
{
    ARCA_TRY(const Manifest from, readManifest(original, domain.manifestKey()));
    std::unique_ptr<PieceWriter> writer(
        new PieceWriter({}, std::move(blobName), id, description.name));
    const Cipher cipher = from.info.totals.cipher;
    ARCA_TRY(writer->manifest_, ManifestWriter::begin(domain, cipher, id, description));
    ARCA_TRY(const CurrentMark current, currentMark(domain));
    ManifestRuns runs(original, from);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            break;
        if (run->blocks != 0 && current.mark.packs.contains(run->pack))
            return Error{ErrorKind::conflict, "blocks of the piece are being reclaimed"};
        ARCA_CHECK(writer->manifest_->take(*run));
    }
    ARCA_CHECK(writer->manifest_->finish({from.info.totals, from.info.insertedAt}));
    return writer;
}

Result<PieceTotals> PieceWriter::finish()
{
    ARCA_TRY(const engine::StreamTotals stream, stream_->finish());
    ManifestEnd end;
    end.totals.streamBytes = stream.streamBytes;
    end.totals.zeroBytes = stream.zeroBytes;
    end.totals.newBytes = stream.newBytes;
    end.totals.storedBytes = stream.storedBytes;
    end.totals.digest = stream.digest;
    end.totals.deduplicated = settings_.deduplication;
    end.totals.compressed = settings_.compressionLevel != 0;
    end.totals.cipher = settings_.cipher;
    end.insertedAt = std::time(nullptr);
    ARCA_TRY(end.totals.manifestBytes, manifest_->finish(end));
    stream_.reset(); // its threads and memory are not needed for the commit
    return end.totals;
}

} // namespace arca::store
