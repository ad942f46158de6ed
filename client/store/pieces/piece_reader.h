// Reads the stream of one piece from its beginning. No byte is handed out before the frame it comes
// from was found to be what was written, and the end is reported only when the whole stream was.
// One thread uses it at a time. A piece that is removed meanwhile can still be read to its end: the
// reader holds a claim like that of a writer.
#ifndef KEEL_CLIENT_STORE_PIECES_PIECE_READER_H
#define KEEL_CLIENT_STORE_PIECES_PIECE_READER_H

#include "client/engine/duplicates/domain.h"
#include "client/engine/restoring/stream_reader.h"
#include "client/store/marks/damage.h"
#include "client/store/pieces/manifest_writer.h"

namespace arca::store
{

class PieceReader
{
public:
    /// `claim` was taken before the manifest was looked for; null when the repository cannot be
    /// written, where nothing is reclaimed either. `domain` must outlive the reader. When the
    /// stream meets damage, the damaged part is recorded in `damage`, if given, as well as that can
    /// be done. Errors: damaged when the manifest is.
    static Result<std::unique_ptr<PieceReader>> open(engine::Domain &domain,
                                                     const engine::Settings &settings,
                                                     std::unique_ptr<blob::BlobWriter> claim,
                                                     std::unique_ptr<blob::BlobReader> blob,
                                                     std::optional<DamageRecords> damage = {});

    const PieceInfo &info() const { return manifest_.info; }

    /// Fills `into` and returns the bytes read; less only at the end of the stream, 0 beyond it.
    /// The last bytes come only after length and digest of the whole stream were compared. After an
    /// error `into` may hold anything: drop the reader. Errors: damaged, what reading says.
    Result<std::size_t> read(std::span<std::byte> into);

    /// Returns true when everything was read, and found right.
    bool atEnd() const { return delivered_ == info().totals.streamBytes && ended_; }

private:
    PieceReader(std::unique_ptr<blob::BlobWriter> claim, std::unique_ptr<blob::BlobReader> blob,
                Manifest manifest, std::optional<DamageRecords> damage)
        : damage_(std::move(damage)), claim_(std::move(claim)), blob_(std::move(blob)),
          manifest_(std::move(manifest)), runs_(*blob_, manifest_)
    {
    }
    Result<std::size_t> readStream(std::span<std::byte> into);
    Result<void> checkEnd();
    Error damaged(const std::string &what) const;

    std::optional<DamageRecords> damage_;
    std::unique_ptr<blob::BlobWriter> claim_;
    std::unique_ptr<blob::BlobReader> blob_;
    Manifest manifest_;
    ManifestRuns runs_;
    std::unique_ptr<engine::StreamReader> stream_; // after runs_: its threads read from that
    std::uint64_t delivered_ = 0;
    bool ended_ = false;
    StreamDigest digest_;
};

} // namespace arca::store

#endif
