// Chunks of runs, out and in.
#include "client/store/pieces/manifest_writer.h"

#include "client/blob/parking.h"

namespace arca::store
{

namespace
{

constexpr std::size_t kRunsInChunk = 16 * 1024; // bounds the memory, and what a chunk comes to

} // namespace

ManifestWriter::ManifestWriter(std::unique_ptr<blob::BlobWriter> blob, const ManifestHeader &header,
                               const Aead &cipher)
    : blob_(std::move(blob)), header_(header), headerBytes_(encodeManifestHeader(header)),
      cipher_(cipher)
{
}

Result<std::unique_ptr<ManifestWriter>> ManifestWriter::begin(const engine::Domain &domain,
                                                              Cipher cipher, PieceId id,
                                                              const PieceDescription &description)
{
    const Bytes plain = encodeDescription(description);
    if (plain.size() + kTagBytes > kMaxDescriptionBytes)
        return Error{ErrorKind::badArgument, "the names of a piece are too long"};
    ManifestHeader header;
    header.cipher = cipher;
    header.id = id;
    header.descriptionBytes = static_cast<std::uint32_t>(plain.size() + kTagBytes);
    ARCA_CHECK(fillRandom(header.salt));
    ARCA_TRY(const Aead sealing, manifestCipher(domain.manifestKey(), header));
    ARCA_TRY(auto blob, domain.beginBlob());
    std::unique_ptr<ManifestWriter> writer(new ManifestWriter(std::move(blob), header, sealing));
    ARCA_CHECK(writer->put(writer->headerBytes_));
    ARCA_CHECK(writer->putSealed(descriptionNonce(), writer->headerBytes_, plain));
    return writer;
}

Result<void> ManifestWriter::put(ByteView bytes)
{
    offset_ += bytes.size();
    return blob_->append(bytes);
}

Result<void> ManifestWriter::putSealed(Nonce nonce, ByteView associated, ByteView plain)
{
    Bytes sealed(plain.size() + kTagBytes);
    ARCA_CHECK(cipher_.seal(nonce, associated, plain, sealed));
    return put(sealed);
}

Result<void> ManifestWriter::take(const engine::Run &run)
{
    runs_.push_back(run);
    return runs_.size() < kRunsInChunk ? Result<void>() : endChunk();
}

Result<void> ManifestWriter::endChunk()
{
    ARCA_TRY(const Bytes plain, encodeRuns(runs_));
    runs_.clear();
    ByteWriter length;
    length.u32(static_cast<std::uint32_t>(plain.size() + kTagBytes));
    ARCA_CHECK(put(length.view()));
    return putSealed(chunkNonce(chunks_++), {}, plain);
}

Result<void> ManifestWriter::park(const blob::BlobWriter &claim)
{
    runs_ = {};
    return blob::parkIfPossible(*blob_, claim);
}

Result<void> ManifestWriter::addInactiveNote(const SecretKey &manifestKey, std::int64_t at)
{
    ARCA_TRY(const Bytes note, encodeInactiveNote(manifestKey, header_.id, at));
    return put(note);
}

Result<std::uint64_t> ManifestWriter::finish(const ManifestEnd &end)
{
    if (!runs_.empty())
        ARCA_CHECK(endChunk());
    const Bytes plain = encodeEnd(end);
    ManifestTail tail;
    tail.endOffset = offset_;
    tail.endBytes = static_cast<std::uint32_t>(plain.size() + kTagBytes);
    tail.chunks = chunks_;
    const Bytes tailBytes = encodeManifestTail(headerBytes_, header_, tail);
    ARCA_CHECK(putSealed(endNonce(), endAssociated(headerBytes_, tailBytes), plain));
    ARCA_CHECK(put(tailBytes));
    return offset_;
}

Result<std::optional<engine::Run>> ManifestRuns::next()
{
    while (at_ == runs_.size()) {
        if (chunk_ == manifest_.tail.chunks)
            return std::optional<engine::Run>();
        ARCA_CHECK(loadChunk());
    }
    return std::optional<engine::Run>(runs_[at_++]);
}

Result<void> ManifestRuns::loadChunk()
{
    const Error cut{ErrorKind::damaged, "a chunk of its runs was cut"};
    Bytes head(4);
    ARCA_TRY(const std::size_t got, blob_.read(offset_, head));
    const std::uint32_t length = ByteReader(head).u32();
    const std::uint64_t left = manifest_.tail.endOffset - offset_;
    if (got != head.size() || left < head.size() || length > left - head.size() ||
        length < kTagBytes || length > kMaxChunkBytes)
        return cut;
    Bytes sealed(length);
    ARCA_TRY(const std::size_t gotRuns, blob_.read(offset_ + head.size(), sealed));
    if (gotRuns != sealed.size())
        return cut;
    Bytes plain(length - kTagBytes);
    ARCA_CHECK(manifest_.cipher.open(chunkNonce(chunk_), {}, sealed, plain));
    ARCA_TRY(runs_, parseRuns(plain));
    at_ = 0;
    offset_ += head.size() + length;
    ++chunk_;
    return {};
}

} // namespace arca::store
