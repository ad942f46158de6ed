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

/// A pack that was opened: header and trailer are right, its index not yet read. Belongs to one
/// thread, but for read(). Must not outlive the blob store.
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
    /// Returns their number, with those that were dropped.
    std::uint32_t blocks() const { return trailer_.blocks; }

    /// Errors: damaged unless the index is what was written; as read().
    Result<PackIndex> readIndex() const;
    /// Reads sealed bytes, fewer only at the end of the pack. Any number of threads at once.
    /// Errors: notFound after close() when the revision is gone, what reading says.
    Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) const;
    /// A hint that all of it will be read soon. Not after close().
    void readAhead() const { blob_->readAhead(0, size_); }
    /// Holds the blob open no longer: each later read() opens it by its name. A claim has to keep
    /// it, or read() may find it gone.
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

/// Writes one pack. Nothing shows before commit(); dropped, it leaves nothing. After an error drop
/// it. Belongs to one thread.
class PackWriter
{
public:
    /// Appends the next frame. `blocks` are those in it, in its order, dropped ones too.
    Result<void> append(const SealedFrame &frame, std::span<const BlockEntry> blocks);
    /// Ends the pack; durable when it returns. Errors: exists when the name is taken. After another
    /// error the name may lead to the whole pack.
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

    /// Begins a pack, which is a claim until it is committed or dropped. The salt is the caller's
    /// so that frames can be sealed before the pack is begun.
    Result<std::unique_ptr<PackWriter>> begin(const PackName &which,
                                              const PackHeader &header) const;
    /// Ends the pack that `writer` writes and opens it before it has a name. Commit it, or drop it,
    /// when that is gone; append nothing more.
    Result<std::unique_ptr<OpenPack>> readBack(PackWriter &writer, const PackName &which) const;
    /// Returns a header with a new salt.
    static Result<PackHeader> newHeader(const PackId &id, Cipher cipher);

    /// Opens revision 1 while that is there, else the newest one. Errors: notFound, damaged.
    Result<std::unique_ptr<OpenPack>> open(const PackId &id) const;
    /// Opens that revision only. Errors: the same.
    Result<std::unique_ptr<OpenPack>> open(const PackName &which) const;

    /// Returns the revision that open() by identifier leads to; nothing when there is none, or when
    /// listing fails.
    std::optional<std::uint32_t> revisionToRead(const PackId &id) const;

    /// Visits every revision of every pack, in no order; `visit` answers false to stop. Blobs with
    /// other names are passed over.
    Result<void> list(const std::function<bool(const PackName &)> &visit) const;
    std::string blobNameOf(const PackName &which) const;
    /// Returns the revisions that are there; empty when there is none.
    Result<std::set<std::uint32_t>> revisionsOf(const PackId &id) const;
    /// Returns the pack that the last component of a blob's name stands for; nothing when it is
    /// none. The components before are not looked at: compare with blobNameOf().
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
