// The nodes that a repository knows, and how each proves who it is. The repository keeps no
// password, only what a password is checked against, and the keys of the node sealed under it.
// Trying passwords one after the other is slow.
#ifndef KEEL_CLIENT_STORE_NODE_REGISTRY_H
#define KEEL_CLIENT_STORE_NODE_REGISTRY_H

#include "client/store/node_record.h"
#include "client/store/record.h"

#include <string>

namespace arca::store
{

class NodeRegistry
{
public:
    explicit NodeRegistry(blob::BlobStore &store) : store_(store) {}

    /// `badArgument` for a name that no session could be started with: empty, with control
    /// characters, or with blanks at its ends.
    static Result<void> expectName(const std::string &node);
    Result<bool> isRegistered(const std::string &node);
    /// What others seal to; nothing when the node is not registered.
    Result<std::optional<PublicKey>> identityOf(const std::string &node);
    /// Makes its keys. `exists` when it is registered already, `notFound` when the repository has
    /// no recovery key yet, `badArgument` as expectName().
    Result<void> registerNode(const std::string &node, std::string_view password);
    /// The keys of the node; `authentication` when it is not registered or the password is not its
    /// own.
    Result<NodeKeys> authenticate(const std::string &node, std::string_view password);
    /// Replaces the password and leaves the keys as they are; `authentication` when `oldPassword`
    /// is wrong.
    Result<void> changePassword(const std::string &node, std::string_view oldPassword,
                                std::string_view newPassword);

    /// The keys of a node by the repository's recovery key; `authentication`.
    Result<NodeKeys> recover(const std::string &node, const SecretKey &recoveryKey);
    /// A new password for a node that lost its own.
    Result<void> recover(const std::string &node, const SecretKey &recoveryKey,
                         std::string_view newPassword);

private:
    struct Found {
        NumberedRecord place;
        std::uint32_t number = 0;         // of the newest state, also when the node was removed
        std::optional<NodeRecord> record; // nothing when the node is not registered
    };
    Result<Found> look(const std::string &node);
    /// `authentication` when it is not registered.
    Result<Found> find(const std::string &node); // with a record

    blob::BlobStore &store_;
};

} // namespace arca::store

#endif
