// The record of a node: what its password is checked against, and its keys, sealed under the
// password and to the repository's recovery key. A new password wraps the same keys anew; nothing
// that was sealed under them changes, and neither does what the recovery key opens.
//
// The payload (kind "ARCANODE", version 2):
//
//   offset  size
//        0     2  how keys are made of the password: 1 = scrypt, 64 bytes; the first 32 are the
//                 verifier, the others the wrapping key
//        2     8  N of scrypt   10  4  r   14  4  p
//       18    16  salt
//       34    32  verifier
//       66    32  the identity's public half, X25519
//       98    60  the data key as a SealedKey under the wrapping key
//      158    60  the identity's private half, as well
//      218    92  the data key as a SealedToPublic for the repository's recovery key
//      310    92  the identity's private half, as well
//      402     -  name of the node: 16-bit length and as many bytes
//
// A node that was removed has a last record (version 3): 0 in the place of the first field, then
// the name. It stays, and a node that gets the name later continues the numbers of the states after
// it: a change of the removed node's password finds its number taken, however late it comes.
//
// The context of each sealed key is "ARCANODE", what it is ("data key", "identity") and the name of
// the node, each as a 16-bit length and as many bytes. (Sealed keys: client/store/key_box.h.)
#ifndef KEEL_CLIENT_STORE_NODE_RECORD_H
#define KEEL_CLIENT_STORE_NODE_RECORD_H

#include "client/base/password.h"
#include "client/store/key_box.h"

#include <string>

namespace arca::store
{

/// What a node has once it has proved who it is.
struct NodeKeys {
    SecretKey data;     // all that the node keeps is sealed under keys derived from it
    SecretKey identity; // X25519: opens what others seal to the node
};

Result<NodeKeys> newNodeKeys();

struct NodeRecord {
    PasswordCost cost;
    std::array<std::byte, 16> salt{};
    Sha256 verifier{};
    PublicKey identity{};
    SealedKey sealedData{};
    SealedKey sealedIdentity{};
    SealedToPublic recoverableData{};
    SealedToPublic recoverableIdentity{};
    std::string node;
    bool removed = false; // then only the name is set

    /// Seals the keys under a new password.
    Result<void> wrap(std::string_view password, const NodeKeys &keys);
};

/// `recovery`: the public half of the repository's recovery key.
Result<NodeRecord> makeNodeRecord(const std::string &node, std::string_view password,
                                  const NodeKeys &keys, const PublicKey &recovery);
/// The keys of `node`: `authentication` when the password, or the record, is not its own.
Result<NodeKeys> openNodeRecord(const NodeRecord &record, const std::string &node,
                                std::string_view password);
/// The same by the recovery key: `authentication` when it does not open them.
Result<NodeKeys> recoverNodeRecord(const NodeRecord &record, const std::string &node,
                                   const SecretKey &recoveryKey);

Bytes encodeNodeRecord(const NodeRecord &record);
Result<NodeRecord> decodeNodeRecord(ByteView bytes);

} // namespace arca::store

#endif
