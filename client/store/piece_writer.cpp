// Writing a piece segment by segment, each with its checksum behind it.
#include "client/store/piece_writer.h"

#include <algorithm>
#include <ctime>

namespace arca::store
{

PieceWriter::PieceWriter(std::unique_ptr<blob::BlobWriter> blob, std::string blobName,
                         PieceHeader header)
    : blob_(std::move(blob)), blobName_(std::move(blobName)), header_(std::move(header))
{
    segment_.reserve(header_.segmentBytes + kSegmentCheckBytes);
}

Result<std::unique_ptr<PieceWriter>> PieceWriter::begin(blob::BlobStore &store,
                                                        std::string blobName, PieceId id,
                                                        PieceDescription description)
{
    PieceHeader header;
    header.id = id;
    header.description = std::move(description);
    const Bytes encoded = encodeHeader(header);
    if (encoded.size() > kMaxHeaderBytes)
        return Error{ErrorKind::badArgument, "the names of a piece are too long"};
    ARCA_TRY(auto blob, store.begin());
    std::unique_ptr<PieceWriter> writer(
        new PieceWriter(std::move(blob), std::move(blobName), std::move(header)));
    ARCA_CHECK(writer->put(encoded));
    return writer;
}

Result<void> PieceWriter::append(ByteView bytes)
{
    streamBytes_ += bytes.size();
    digest_.update(bytes);
    while (!bytes.empty()) {
        const auto part =
            bytes.first(std::min(bytes.size(), header_.segmentBytes - segment_.size()));
        segment_.insert(segment_.end(), part.begin(), part.end());
        bytes = bytes.subspan(part.size());
        if (segment_.size() == header_.segmentBytes)
            ARCA_CHECK(endSegment());
    }
    return {};
}

Result<void> PieceWriter::endSegment()
{
    ByteWriter check;
    check.u64(checksum64(segment_, segmentSeed(header_.id, segments_)));
    segment_.insert(segment_.end(), check.view().begin(), check.view().end());
    ARCA_CHECK(put(segment_));
    segment_.clear();
    ++segments_;
    return {};
}

Result<PieceTotals> PieceWriter::finish()
{
    if (!segment_.empty())
        ARCA_CHECK(endSegment());
    PieceTrailer trailer;
    trailer.id = header_.id;
    trailer.streamBytes = streamBytes_;
    trailer.digest = digest_.value();
    trailer.insertedAt = std::time(nullptr);
    trailer.segments = segments_;
    trailer.headerChecksum = header_.checksum;
    ARCA_CHECK(put(encodeTrailer(trailer)));
    return PieceTotals{streamBytes_, storedBytes_, trailer.digest};
}

Result<void> PieceWriter::commit()
{
    return blob_->commit(blobName_);
}

Result<void> PieceWriter::put(ByteView bytes)
{
    storedBytes_ += bytes.size();
    return blob_->append(bytes);
}

} // namespace arca::store
