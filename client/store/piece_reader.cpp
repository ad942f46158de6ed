// Reading a piece segment by segment, each compared with its checksum before a byte of it goes out.
#include "client/store/piece_reader.h"

#include <algorithm>

namespace arca::store
{

namespace
{

// Far enough ahead to keep a disk busy while the caller works on what it got, asked for in steps.
constexpr std::uint64_t kReadAhead = std::uint64_t{16} << 20;
constexpr std::uint64_t kReadAheadStep = std::uint64_t{4} << 20;

Error damaged(const PieceInfo &info, const std::string &what)
{
    return {ErrorKind::damaged, "the stored piece " + info.description.name.joined() +
                                    " is damaged (" + what + "); it cannot be restored"};
}

} // namespace

PieceReader::PieceReader(std::unique_ptr<blob::BlobReader> blob, const PieceFrame &frame)
    : blob_(std::move(blob)), info_(frame.info(blob_->size())),
      segmentBytes_(frame.header.segmentBytes), nextOffset_(frame.header.length)
{
}

Result<std::unique_ptr<PieceReader>> PieceReader::open(std::unique_ptr<blob::BlobReader> blob)
{
    ARCA_TRY(const PieceFrame frame, readFrame(*blob));
    blob->readAhead(0, kReadAhead);
    return std::unique_ptr<PieceReader>(new PieceReader(std::move(blob), frame));
}

Result<std::size_t> PieceReader::read(std::span<std::byte> into)
{
    std::size_t filled = 0;
    while (filled < into.size() && !atEnd()) {
        if (segment_.empty())
            ARCA_CHECK(loadSegment());
        const auto part = segment_.first(std::min(segment_.size(), into.size() - filled));
        std::copy(part.begin(), part.end(), into.begin() + static_cast<std::ptrdiff_t>(filled));
        segment_ = segment_.subspan(part.size());
        filled += part.size();
        delivered_ += part.size();
    }
    return filled;
}

Result<void> PieceReader::loadSegment()
{
    const auto length = static_cast<std::size_t>(
        std::min<std::uint64_t>(segmentBytes_, info_.totals.streamBytes - loaded_));
    buffer_.resize(length + kSegmentCheckBytes);
    ARCA_TRY(const std::size_t got, blob_->read(nextOffset_, buffer_));
    if (got != buffer_.size())
        return damaged(info_, "it was cut while it was read");
    if (nextOffset_ / kReadAheadStep != (nextOffset_ + got) / kReadAheadStep)
        blob_->readAhead(nextOffset_ + kReadAhead, kReadAheadStep + kMaxSegmentBytes);

    const ByteView segment = ByteView(buffer_).first(length);
    const std::uint64_t check = ByteReader(ByteView(buffer_).subspan(length)).u64();
    if (check != checksum64(segment, segmentSeed(info_.id, nextIndex_)))
        return damaged(info_, "the checksum of segment " + std::to_string(nextIndex_) + " differs");
    digest_.update(segment);
    loaded_ += length;
    if (loaded_ == info_.totals.streamBytes && digest_.value() != info_.totals.digest)
        return damaged(info_, "the digest of the whole differs");
    segment_ = segment;
    nextOffset_ += got;
    ++nextIndex_;
    return {};
}

} // namespace arca::store
