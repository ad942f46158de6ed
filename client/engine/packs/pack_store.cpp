// Writing, opening and listing packs.
#include "client/engine/packs/pack_store.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"

#include <algorithm>
#include <charconv>

namespace arca::engine
{

OpenPack::OpenPack(blob::BlobStore &blobs, std::unique_ptr<blob::BlobReader> blob, std::string name,
                   PackName which, Bytes headerBytes, Bytes trailerBytes,
                   const PackTrailer &trailer, const Aead &cipher)
    : blobs_(blobs), blob_(std::move(blob)), size_(blob_->size()), name_(std::move(name)),
      which_(which), headerBytes_(std::move(headerBytes)), trailerBytes_(std::move(trailerBytes)),
      trailer_(trailer), cipher_(cipher)
{
}

Result<std::size_t> OpenPack::read(std::uint64_t offset, std::span<std::byte> into) const
{
    std::shared_ptr<blob::BlobReader> blob;
    {
        const std::lock_guard hold(mutex_);
        blob = blob_;
    }
    // Closed to keep the number of open files low. Kept open from here on, the blob would not be
    // in the count that bounds them.
    if (!blob) {
        ARCA_TRY(blob, blobs_.open(name_));
    }
    return blob->read(offset, into);
}

void OpenPack::close()
{
    const std::lock_guard hold(mutex_);
    blob_.reset();
}

Result<PackIndex> OpenPack::readIndex() const
{
    Bytes sealed(trailer_.indexBytes);
    ARCA_TRY(const std::size_t got, read(trailer_.indexOffset, sealed));
    Bytes plain(sealed.size() - kTagBytes);
    auto opened = got == sealed.size()
                      ? cipher_.open(indexNonce(), indexAssociated(headerBytes_, trailerBytes_),
                                     sealed, plain)
                      : Error{ErrorKind::damaged, "it was cut while it was read"};
    if (!opened)
        return inContext(std::move(opened).error(), "the pack " + name_);
    auto index = parsePackIndex(plain, trailer_);
    if (!index)
        return inContext(std::move(index).error(), "the pack " + name_);
    return index;
}

PackWriter::PackWriter(std::unique_ptr<blob::BlobWriter> blob, std::string name, PackHeader header,
                       const Aead &cipher)
    : blob_(std::move(blob)), name_(std::move(name)), header_(header), cipher_(cipher)
{
}

Result<void> PackWriter::put(ByteView bytes)
{
    offset_ += bytes.size();
    return blob_->append(bytes);
}

Result<void> PackWriter::append(const SealedFrame &frame, std::span<const BlockEntry> blocks)
{
    index_.frames.push_back({offset_, static_cast<std::uint32_t>(frame.bytes.size()),
                             frame.rawBytes, frame.method,
                             static_cast<std::uint32_t>(blocks.size())});
    index_.blocks.insert(index_.blocks.end(), blocks.begin(), blocks.end());
    return put(frame.bytes);
}

Result<void> PackWriter::seal()
{
    if (sealed_)
        return {};
    const Bytes plain = encodePackIndex(index_);
    PackTrailer trailer;
    trailer.indexOffset = offset_;
    trailer.indexBytes = static_cast<std::uint32_t>(plain.size() + kTagBytes);
    trailer.frames = static_cast<std::uint32_t>(index_.frames.size());
    trailer.blocks = static_cast<std::uint32_t>(index_.blocks.size());
    const Bytes trailerBytes = encodePackTrailer(header_, trailer);
    Bytes sealed(trailer.indexBytes);
    ARCA_CHECK(cipher_.seal(indexNonce(), indexAssociated(encodePackHeader(header_), trailerBytes),
                            plain, sealed));
    ARCA_CHECK(put(sealed));
    ARCA_CHECK(put(trailerBytes));
    sealed_ = true;
    return {};
}

Result<void> PackWriter::commit()
{
    ARCA_CHECK(seal());
    return blob_->commit(name_);
}

std::string PackStore::blobNameOf(const PackName &which) const
{
    const std::byte spread = which.id[0] ^ which.id[12];
    return prefix_ + toHex(ByteView(&spread, 1)) + "/" + toHex(which.id) + "." +
           std::to_string(which.revision);
}

Result<PackHeader> PackStore::newHeader(const PackId &id, Cipher cipher)
{
    PackHeader header;
    header.cipher = cipher;
    header.id = id;
    ARCA_CHECK(fillRandom(header.salt));
    return header;
}

Result<std::unique_ptr<PackWriter>> PackStore::begin(const PackName &which,
                                                     const PackHeader &header) const
{
    ARCA_TRY(auto blob, blobs_.begin(nodeKey_));
    ARCA_TRY(const Aead cipher, packCipher(packKey_, header));
    std::unique_ptr<PackWriter> writer(
        new PackWriter(std::move(blob), blobNameOf(which), header, cipher));
    ARCA_CHECK(writer->put(encodePackHeader(header)));
    return writer;
}

Result<std::unique_ptr<OpenPack>> PackStore::open(const PackName &which) const
{
    ARCA_TRY(auto blob, blobs_.open(blobNameOf(which)));
    return openBlob(std::move(blob), which);
}

Result<std::unique_ptr<OpenPack>> PackStore::readBack(PackWriter &writer,
                                                      const PackName &which) const
{
    ARCA_CHECK(writer.seal());
    ARCA_TRY(auto blob, writer.blob_->readBack());
    return openBlob(std::move(blob), which);
}

Result<std::unique_ptr<OpenPack>> PackStore::openBlob(std::unique_ptr<blob::BlobReader> blob,
                                                      const PackName &which) const
{
    const std::string name = blobNameOf(which);
    const std::uint64_t size = blob->size();
    const auto inPack = [&](Error failure) {
        return inContext(std::move(failure), "the pack " + name);
    };
    if (size < kPackHeaderBytes + kPackTrailerBytes)
        return inPack({ErrorKind::damaged, "it is shorter than its frame"});
    Bytes headerBytes(kPackHeaderBytes);
    Bytes trailerBytes(kPackTrailerBytes);
    ARCA_CHECK(blob->read(0, headerBytes));
    ARCA_CHECK(blob->read(size - kPackTrailerBytes, trailerBytes));
    auto header = parsePackHeader(headerBytes);
    if (!header)
        return inPack(std::move(header).error());
    auto trailer = parsePackTrailer(headerBytes, trailerBytes, size);
    if (!trailer)
        return inPack(std::move(trailer).error());
    if (header->id != which.id)
        return inPack({ErrorKind::damaged, "it is another one than its place says"});
    ARCA_TRY(const Aead cipher, packCipher(packKey_, *header));
    return std::make_unique<OpenPack>(blobs_, std::move(blob), name, which, std::move(headerBytes),
                                      std::move(trailerBytes), *trailer, cipher);
}

Result<std::set<std::uint32_t>> PackStore::revisionsOf(const PackId &id) const
{
    const std::string first = blobNameOf({id, 1});
    const std::string stem = first.substr(0, first.size() - 1);
    std::set<std::uint32_t> found;
    ARCA_CHECK(blobs_.list(stem, [&](const std::string &name) {
        std::uint32_t revision = 0;
        const char *const end = name.data() + name.size();
        const auto parsed = std::from_chars(name.data() + stem.size(), end, revision);
        if (parsed.ec == std::errc() && parsed.ptr == end)
            found.insert(revision);
        return true;
    }));
    return found;
}

Result<std::unique_ptr<OpenPack>> PackStore::open(const PackId &id) const
{
    auto pack = open(PackName{id, 1});
    // A revision may be replaced by the next between looking and opening, but not endlessly.
    for (int attempt = 0; attempt < 10 && !pack && pack.error().kind == ErrorKind::notFound;
         ++attempt) {
        ARCA_TRY(const auto revisions, revisionsOf(id));
        if (revisions.empty())
            break;
        pack = open(PackName{id, *revisions.rbegin()});
    }
    return pack;
}

std::optional<std::uint32_t> PackStore::revisionToRead(const PackId &id) const
{
    const auto revisions = revisionsOf(id);
    if (!revisions || revisions->empty())
        return std::nullopt;
    return revisions->contains(1) ? 1 : *revisions->rbegin();
}

std::optional<PackName> PackStore::nameFrom(std::string_view blobName) const
{
    const std::string_view file = blobName.substr(blobName.rfind('/') + 1);
    const auto dot = file.find('.');
    PackName which;
    const auto id = fromHex(file.substr(0, dot));
    if (dot == std::string_view::npos || !id || id->size() != which.id.size())
        return std::nullopt;
    std::copy(id->begin(), id->end(), which.id.begin());
    const char *const end = file.data() + file.size();
    const auto parsed = std::from_chars(file.data() + dot + 1, end, which.revision);
    if (parsed.ec != std::errc() || parsed.ptr != end)
        return std::nullopt;
    return which;
}

Result<void> PackStore::list(const std::function<bool(const PackName &)> &visit) const
{
    return blobs_.list(prefix_, [&](const std::string &name) {
        const auto which = nameFrom(name);
        return !which || visit(*which);
    });
}

} // namespace arca::engine
