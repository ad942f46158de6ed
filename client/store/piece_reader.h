// Reads the stream of one piece from its beginning. No byte is handed out before its segment was
// found to be what was written, and the end is reported only when the whole stream was. Belongs to
// one thread; a piece that is removed meanwhile can still be read to its end.
#ifndef KEEL_CLIENT_STORE_PIECE_READER_H
#define KEEL_CLIENT_STORE_PIECE_READER_H

#include "client/store/piece_format.h"

namespace arca::store
{

class PieceReader
{
public:
    /// `damaged` when frame and length do not fit.
    static Result<std::unique_ptr<PieceReader>> open(std::unique_ptr<blob::BlobReader> blob);

    const PieceInfo &info() const { return info_; }

    /// Fills `into`; less only at the end of the stream. The last bytes come only after length and
    /// digest of the whole stream were compared. `damaged`: drop the reader.
    Result<std::size_t> read(std::span<std::byte> into);

    /// Whether everything was read, and found right.
    bool atEnd() const { return delivered_ == info_.totals.streamBytes; }

private:
    PieceReader(std::unique_ptr<blob::BlobReader> blob, const PieceFrame &frame);
    Result<void> loadSegment();

    std::unique_ptr<blob::BlobReader> blob_;
    PieceInfo info_;
    std::size_t segmentBytes_;
    std::uint64_t nextOffset_; // in the blob, of the segment to load next
    std::uint64_t nextIndex_ = 0;
    std::uint64_t loaded_ = 0; // bytes of the stream in segments loaded so far
    std::uint64_t delivered_ = 0;
    StreamDigest digest_;
    Bytes buffer_;
    ByteView segment_; // what of the loaded segment was not handed out yet
};

} // namespace arca::store

#endif
