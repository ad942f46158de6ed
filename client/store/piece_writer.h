// Writes one piece: append the stream, finish it, commit it. Nothing shows before commit() and the
// whole piece after it; a writer that is dropped leaves nothing. Belongs to one thread.
#ifndef KEEL_CLIENT_STORE_PIECE_WRITER_H
#define KEEL_CLIENT_STORE_PIECE_WRITER_H

#include "client/blob/blob_store.h"
#include "client/store/piece_format.h"

namespace arca::store
{

class PieceWriter
{
public:
    /// `blobName` is where the piece will be; its identifier is `id`.
    static Result<std::unique_ptr<PieceWriter>> begin(blob::BlobStore &store, std::string blobName,
                                                      PieceId id, PieceDescription description);

    /// Takes the next bytes of the stream. After an error the piece is lost: drop the writer.
    Result<void> append(ByteView bytes);

    /// Ends the stream and tells what it came to. append() is over.
    Result<PieceTotals> finish();

    /// Makes the finished piece durable and visible. `exists` when another piece has the name by
    /// now.
    Result<void> commit();

    PieceId id() const { return header_.id; }
    const ObjectName &name() const { return header_.description.name; }
    std::uint64_t streamBytes() const { return streamBytes_; }

private:
    PieceWriter(std::unique_ptr<blob::BlobWriter> blob, std::string blobName, PieceHeader header);
    Result<void> endSegment();
    Result<void> put(ByteView bytes);

    std::unique_ptr<blob::BlobWriter> blob_;
    std::string blobName_;
    PieceHeader header_;
    StreamDigest digest_;
    Bytes segment_; // what of the current segment has come; one segment of memory a writer
    std::uint64_t segments_ = 0;
    std::uint64_t streamBytes_ = 0;
    std::uint64_t storedBytes_ = 0;
};

} // namespace arca::store

#endif
