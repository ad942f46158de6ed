// What one node keeps in a repository: its pieces, its filespaces, its log. Nothing of another node
// can be reached through it. One thread uses it at a time; it must not outlive its repository.
#ifndef KEEL_CLIENT_STORE_NODE_SPACE_H
#define KEEL_CLIENT_STORE_NODE_SPACE_H

#include "client/base/secret_key.h"
#include "client/store/filespace.h"
#include "client/store/piece_reader.h"
#include "client/store/piece_writer.h"

#include <functional>
#include <optional>

namespace arca::store
{

class NodeSpace
{
public:
    /// `dataKey` is the key of that node, under which all it keeps is sealed.
    static Result<std::unique_ptr<NodeSpace>> open(blob::BlobStore &store, std::string node,
                                                   SecretKey dataKey);

    const std::string &node() const { return node_; }
    const SecretKey &dataKey() const { return dataKey_; }

    /// Begins a piece under a name that is free now; `exists`. Whether it is still free is decided
    /// at the commit. description.node is filled in.
    Result<std::unique_ptr<PieceWriter>> beginPiece(PieceDescription description);

    /// The piece of exactly that name; nothing when there is none.
    Result<std::optional<PieceInfo>> find(const ObjectName &name);

    /// `notFound` when no piece has that identifier.
    Result<PieceInfo> find(PieceId id);
    Result<std::unique_ptr<PieceReader>> openPiece(PieceId id);

    /// Removes the piece, durably. `notFound` also when it was removed, or replaced, meanwhile.
    Result<void> remove(PieceId id);

    /// Nothing when it was never registered.
    Result<std::optional<Filespace>> filespace(const std::string &name);
    /// `exists` when it is registered already.
    Result<void> registerFilespace(const Filespace &filespace);
    /// Applies `change` to what is registered, also when others change it at the same time.
    /// `notFound`.
    Result<void> updateFilespace(const std::string &name,
                                 const std::function<void(Filespace &)> &change);

private:
    struct Located {
        std::string blobName;
        std::unique_ptr<blob::BlobReader> blob;
        PieceInfo info;
    };

    NodeSpace(blob::BlobStore &store, std::string node, std::string key, SecretKey dataKey);
    Result<Sha256> hashOf(const ObjectName &name) const;
    std::string blobNameOf(const Sha256 &nameHash) const;
    std::string prefixOf(PieceId id) const;
    Result<Located> locate(PieceId id);
    Result<PieceFrame> readOwnFrame(blob::BlobReader &blob, const std::string &blobName) const;
    Result<NumberedRecord> filespaceRecord(const std::string &name);

    blob::BlobStore &store_;
    std::string node_;
    std::string key_; // of the node, in blob names
    SecretKey dataKey_;
};

/// The component of blob names that stands for a node.
Result<std::string> nodeKey(const std::string &node);

} // namespace arca::store

#endif
