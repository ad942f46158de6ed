// Writes one piece: append the stream, finish it, commit it. Nothing shows before commit() and the
// whole piece after it; a writer that is dropped leaves nothing that shows. One thread uses it at a
// time.
#ifndef KEEL_CLIENT_STORE_PIECES_PIECE_WRITER_H
#define KEEL_CLIENT_STORE_PIECES_PIECE_WRITER_H

#include "client/engine/writing/stream_writer.h"
#include "client/store/pieces/manifest_writer.h"

namespace arca::store
{

class PieceWriter
{
public:
    /// `blobName` is where the manifest will be; the piece's identifier is `id`. `domain` must
    /// outlive the writer, which holds a claim until it goes. Errors: badArgument when the texts
    /// of `description` are too long.
    static Result<std::unique_ptr<PieceWriter>> begin(engine::Domain &domain,
                                                      const engine::Settings &settings,
                                                      std::string blobName, PieceId id,
                                                      PieceDescription description);

    /// Returns a finished piece with the stream of another one of the domain, without reading that:
    /// it refers to the same blocks, and has the other's totals and time of insertion. Only
    /// makeInactive() and commit() are left to call. Errors: conflict when reclaiming may delete
    /// some of the blocks; then store the stream again.
    static Result<std::unique_ptr<PieceWriter>> copyOf(engine::Domain &domain,
                                                       blob::BlobReader &original,
                                                       std::string blobName, PieceId id,
                                                       PieceDescription description);

    /// Takes the next bytes of the stream. After an error the piece is lost: drop the writer.
    Result<void> append(ByteView bytes) { return stream_->append(bytes); }

    /// Ends the stream and returns its totals; every block is durable then. append() is over. After
    /// an error the piece is lost.
    Result<PieceTotals> finish();

    /// After the end of the stream: the piece will be an inactive one, since `at` (seconds since
    /// 1970, UTC). Its blob name must be that of an inactive piece.
    Result<void> makeInactive(const SecretKey &manifestKey, std::int64_t at)
    {
        return manifest_->addInactiveNote(manifestKey, at);
    }

    /// After finish(), with only commit() to come: keeps no descriptor and no buffer until then.
    /// `claim` was begun before the piece and outlives it; see ParkingWriter::park(). After an
    /// error the piece is lost: drop the writer.
    Result<void> park(const blob::BlobWriter &claim) { return manifest_->park(claim); }

    /// Makes the finished piece durable and visible; only NodeSpace::claimName() says afterwards
    /// whether it has its name. Errors: exists when another piece has the name by now; after any
    /// other it is taken back, as far as that can be done.
    Result<void> commit() { return manifest_->commit(blobName_); }
    /// The same under another name, where the piece waits for its place.
    Result<void> commitAs(const std::string &blobName) { return manifest_->commit(blobName); }

    PieceId id() const { return id_; }
    const ObjectName &name() const { return name_; }
    const std::string &blobName() const { return blobName_; }

private:
    PieceWriter(const engine::Settings &settings, std::string blobName, PieceId id, ObjectName name)
        : settings_(settings), blobName_(std::move(blobName)), id_(id), name_(std::move(name))
    {
    }

    engine::Settings settings_;
    std::string blobName_;
    PieceId id_;
    ObjectName name_;
    std::unique_ptr<ManifestWriter> manifest_;
    /// After manifest_: its threads write into that. Null once the stream has ended.
    std::unique_ptr<engine::StreamWriter> stream_;
};

} // namespace arca::store

#endif
