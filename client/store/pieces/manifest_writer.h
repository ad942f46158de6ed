// Writes a manifest while the stream it describes is stored: runs come in, chunks go out. Nothing
// shows before commit(). While it lives it is the claim of its stream: packs that reclaiming marks
// from now on are not taken away before it is gone. Belongs to one thread at a time. After an error
// of any call drop it: then nothing shows.
#ifndef KEEL_CLIENT_STORE_PIECES_MANIFEST_WRITER_H
#define KEEL_CLIENT_STORE_PIECES_MANIFEST_WRITER_H

#include "client/engine/duplicates/domain.h"
#include "client/store/pieces/manifest_format.h"

namespace arca::store
{

class ManifestWriter final : public engine::RunSink
{
public:
    /// Errors: badArgument when the texts of `description` come to more than 16 KiB.
    static Result<std::unique_ptr<ManifestWriter>> begin(const engine::Domain &domain,
                                                         Cipher cipher, PieceId id,
                                                         const PieceDescription &description);

    Result<void> take(const engine::Run &run) override;

    /// After the last run. Returns the length of the manifest in bytes.
    Result<std::uint64_t> finish(const ManifestEnd &end);
    /// After finish(): keeps no descriptor and no buffer until commit(); see ParkingWriter::park().
    Result<void> park(const blob::BlobWriter &claim);
    /// After finish(): makes the piece an inactive one, since `at` (seconds since 1970, UTC).
    Result<void> addInactiveNote(const SecretKey &manifestKey, std::int64_t at);
    /// Makes the manifest durable and visible under that name. After an error other than exists the
    /// piece is taken back, as far as that can be done. Errors: exists when the name is taken.
    Result<void> commit(const std::string &blobName)
    {
        return blob_->commit(blobName, blob::Unsure::takeBack);
    }

private:
    ManifestWriter(std::unique_ptr<blob::BlobWriter> blob, const ManifestHeader &header,
                   const Aead &cipher);
    Result<void> put(ByteView bytes);
    Result<void> putSealed(Nonce nonce, ByteView associated, ByteView plain);
    Result<void> endChunk();

    std::unique_ptr<blob::BlobWriter> blob_;
    ManifestHeader header_;
    Bytes headerBytes_;
    Aead cipher_;
    std::vector<engine::Run> runs_; // of the chunk that is being filled
    std::uint32_t chunks_ = 0;
    std::uint64_t offset_ = 0;
};

/// The runs of a stored piece, in order. It refers to the blob and the manifest of its caller.
/// After an error (damaged, what reading says) drop it.
class ManifestRuns final : public engine::RunSource
{
public:
    ManifestRuns(blob::BlobReader &blob, const Manifest &manifest)
        : blob_(blob), manifest_(manifest), offset_(manifest.chunksOffset)
    {
    }
    Result<std::optional<engine::Run>> next() override;

private:
    Result<void> loadChunk();

    blob::BlobReader &blob_;
    const Manifest &manifest_;
    std::uint64_t offset_;
    std::uint32_t chunk_ = 0;
    std::vector<engine::Run> runs_;
    std::size_t at_ = 0;
};

} // namespace arca::store

#endif
