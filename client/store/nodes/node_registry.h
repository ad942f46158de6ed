// The nodes that a repository knows, and how each proves who it is. The repository keeps no
// password, only what a password is checked against, and the keys of the node sealed under it.
// Trying passwords one after the other is slow.
#ifndef KEEL_CLIENT_STORE_NODES_NODE_REGISTRY_H
#define KEEL_CLIENT_STORE_NODES_NODE_REGISTRY_H

#include "client/store/keys/node_record.h"
#include "client/store/records/numbered_record.h"

#include <string>

namespace arca::store
{

class NodeRegistry
{
public:
    /// `layout`: of the repository; 0: nothing is written, and nobody proves himself.
    explicit NodeRegistry(blob::BlobStore &store, std::uint32_t layout = 0)
        : store_(store), layout_(layout)
    {
    }

    /// `badArgument` for a name that no session could be started with: empty, with control
    /// characters, or with blanks at its ends.
    static Result<void> expectName(const std::string &node);
    Result<bool> isRegistered(const std::string &node);
    /// What others seal to; nothing when the node is not registered.
    Result<std::optional<PublicKey>> identityOf(const std::string &node);
    /// Makes its keys. `exists` when it is registered already, `notFound` when the repository has
    /// no recovery key yet, `badArgument` as expectName().
    Result<void> registerNode(const std::string &node, std::string_view password);
    /// The incarnation of the node that has the name now, or had it last.
    Result<std::uint32_t> incarnationOf(const std::string &node);
    /// The keys of the node; `authentication` when it is not registered or the password is not its
    /// own, `damaged` when the node was registered in a repository of a later layout than this one
    /// says it has. Gives a record of before the form of today, as well as that can be done.
    Result<NodeKeys> authenticate(const std::string &node, std::string_view password);
    /// Replaces the password and leaves the keys as they are; `authentication` when `oldPassword`
    /// is wrong.
    Result<void> changePassword(const std::string &node, std::string_view oldPassword,
                                std::string_view newPassword);

    /// The keys of a node by the repository's recovery key; `authentication`.
    Result<NodeKeys> recover(const std::string &node, const SecretKey &recoveryKey);
    /// A new password for a node that lost its own. Both refuse keys that do not open what the node
    /// has stored, `damaged`.
    Result<void> recover(const std::string &node, const SecretKey &recoveryKey,
                         std::string_view newPassword);

private:
    struct Found {
        NumberedRecord place;
        std::uint32_t number = 0;         // of the newest state, also when the node was removed
        std::uint32_t incarnation = 0;    // as well
        std::optional<NodeRecord> record; // nothing when the node is not registered
    };
    Result<Found> look(const std::string &node);
    /// `authentication` when it is not registered.
    Result<Found> find(const std::string &node); // with a record
    Result<void> expectLayout(const NodeRecord &record) const;
    Result<void> replace(Found &found);
    void renew(Found &found, std::string_view password, const NodeKeys &keys);
    Result<NodeKeys> recovered(const Found &found, const SecretKey &recoveryKey);

    blob::BlobStore &store_;
    std::uint32_t layout_;
};

} // namespace arca::store

#endif
