// The packs of one domain: the blobs of one node, all sealed under keys that come from its data
// key.
//
//   packs/<node key>/<xx>/<identifier>.<revision>
//
// The identifier has 32 digits; xx spreads the packs of one stream over 256 directories.
#ifndef KEEL_CLIENT_ENGINE_PACKS_PACK_STORE_H
#define KEEL_CLIENT_ENGINE_PACKS_PACK_STORE_H

#include "client/blob/blob_store.h"
#include "client/engine/packs/frame.h"

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>

namespace arca::engine
{

/// Which blob holds a pack.
struct PackName {
    PackId id{};
    std::uint32_t revision = 1;

    bool operator==(const PackName &) const = default;
};

/// A pack that was opened: its frame is right, its index not yet read. Belongs to one thread, but
/// for read().
class OpenPack
{
public:
    OpenPack(blob::BlobStore &blobs, std::unique_ptr<blob::BlobReader> blob, std::string name,
             PackName which, Bytes headerBytes, Bytes trailerBytes, const PackTrailer &trailer,
             const Aead &cipher);

    const PackName &which() const { return which_; }
    const std::string &blobName() const { return name_; }
    const Aead &cipher() const { return cipher_; }
    std::uint64_t size() const { return size_; }
    /// With those that were dropped.
    std::uint32_t blocks() const { return trailer_.blocks; }

    /// `damaged` unless it is what was written.
    Result<PackIndex> readIndex() const;
    /// Fewer bytes only at its end. Any number of threads at once.
    Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) const;
    /// A hint that all of it will be read soon.
    void readAhead() const { blob_->readAhead(0, size_); }
    /// Does not hold the blob open until more is read. Somebody's claim has to keep it.
    void close();

private:
    blob::BlobStore &blobs_;
    mutable std::mutex mutex_; // guards the next
    mutable std::shared_ptr<blob::BlobReader> blob_;
    std::uint64_t size_;
    std::string name_;
    PackName which_;
    Bytes headerBytes_;
    Bytes trailerBytes_;
    PackTrailer trailer_;
    Aead cipher_;
};

/// Writes one pack. Nothing shows before commit(); dropped, it leaves nothing. Belongs to one
/// thread.
class PackWriter
{
public:
    /// `blocks` are those in the frame, in its order.
    Result<void> append(const SealedFrame &frame, std::span<const BlockEntry> blocks);
    /// Durable when it returns.
    Result<void> commit();

    std::uint64_t storedBytes() const { return offset_; }
    const PackIndex &index() const { return index_; }

private:
    friend class PackStore;
    PackWriter(std::unique_ptr<blob::BlobWriter> blob, std::string name, PackHeader header,
               const Aead &cipher);
    Result<void> put(ByteView bytes);
    Result<void> seal();

    std::unique_ptr<blob::BlobWriter> blob_;
    std::string name_;
    PackHeader header_;
    Aead cipher_;
    PackIndex index_;
    std::uint64_t offset_ = 0;
    bool sealed_ = false; // index and trailer are written
};

/// Any thread may use it.
class PackStore
{
public:
    /// `packKey` (32 bytes) is kept by reference.
    PackStore(blob::BlobStore &blobs, const std::string &nodeKey, ByteView packKey)
        : blobs_(blobs), nodeKey_(nodeKey), prefix_("packs/" + nodeKey + "/"), packKey_(packKey)
    {
    }

    blob::BlobStore &blobs() const { return blobs_; }
    ByteView packKey() const { return packKey_; }

    /// The salt is the caller's so that frames can be sealed before the pack is begun.
    Result<std::unique_ptr<PackWriter>> begin(const PackName &which,
                                              const PackHeader &header) const;
    /// Ends the pack that `writer` writes and opens it before it has a name. Commit it, or drop it,
    /// when that is gone; append nothing more.
    Result<std::unique_ptr<OpenPack>> readBack(PackWriter &writer, const PackName &which) const;
    /// A header with a new salt.
    static Result<PackHeader> newHeader(const PackId &id, Cipher cipher);

    /// The newest revision of it. `notFound`, `damaged`.
    Result<std::unique_ptr<OpenPack>> open(const PackId &id) const;
    Result<std::unique_ptr<OpenPack>> open(const PackName &which) const;

    /// The revision that open() by identifier leads to; nothing when there is none, or when that
    /// cannot be told.
    std::optional<std::uint32_t> revisionToRead(const PackId &id) const;

    /// Every revision of every pack, in no order; `visit` answers false to stop.
    Result<void> list(const std::function<bool(const PackName &)> &visit) const;
    std::string blobNameOf(const PackName &which) const;
    /// Empty when there is none.
    Result<std::set<std::uint32_t>> revisionsOf(const PackId &id) const;
    /// Which pack the last component of a blob's name stands for; nothing when it is none.
    std::optional<PackName> nameFrom(std::string_view blobName) const;

private:
    Result<std::unique_ptr<OpenPack>> openBlob(std::unique_ptr<blob::BlobReader> blob,
                                               const PackName &which) const;

    blob::BlobStore &blobs_;
    std::string nodeKey_;
    std::string prefix_;
    ByteView packKey_;
};

} // namespace arca::engine

#endif
