// The nodes that a repository knows, and how each proves who it is. The repository keeps no
// password, only what a password is checked against, and the keys of the node sealed under it.
// Trying passwords one after the other is slow: a check of one that a person chose may wait 2 s for
// its turn, and a wrong one costs half a second more. Passwords are not kept; the caller wipes its
// own. Changes are durable on return. Errors of all calls: damaged, newerFormat.
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
    /// `layout`: of the repository; 0 is enough for a caller that neither writes nor authenticates.
    explicit NodeRegistry(blob::BlobStore &store, std::uint32_t layout = 0)
        : store_(store), layout_(layout)
    {
    }

    /// Errors: badArgument for a name that no session could be started with: empty, with control
    /// characters, or with blanks at its ends. The length is not looked at.
    static Result<void> expectName(const std::string &node);
    Result<bool> isRegistered(const std::string &node);
    /// Returns what others seal to; nothing when the node is not registered.
    Result<std::optional<PublicKey>> identityOf(const std::string &node);
    /// Registers a node with new keys. Errors: exists when it is registered already, or something
    /// is left of a removed node of that name; notFound when the repository has no recovery key
    /// yet; badArgument as expectName().
    Result<void> registerNode(const std::string &node, std::string_view password);
    /// Returns the incarnation of the node that has the name now, or had it last; 0 when none had.
    Result<std::uint32_t> incarnationOf(const std::string &node);
    /// Returns the keys of the node. Writes a record of an earlier form in that of today, where it
    /// can. Errors: authentication when it is not registered or the password is not its own;
    /// damaged also when the node was registered in a repository of a later layout than this one
    /// says it has.
    Result<NodeKeys> authenticate(const std::string &node, std::string_view password);
    /// Replaces the password and leaves the keys as they are; open sessions go on. After an error
    /// other than these either password may be the valid one. Errors: authentication when
    /// `oldPassword` is wrong, conflict when the record was changed at the same time.
    Result<void> changePassword(const std::string &node, std::string_view oldPassword,
                                std::string_view newPassword);

    /// Returns the keys of a node by the repository's recovery key. Errors: authentication when it
    /// does not open them or the node is not registered.
    Result<NodeKeys> recover(const std::string &node, const SecretKey &recoveryKey);
    /// Sets a new password for a node that lost its own. Both calls answer damaged for keys that do
    /// not open what the node has stored. Errors: as above, and conflict.
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
