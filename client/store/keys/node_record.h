// The record of a node: what its password is checked against, and its keys, sealed under the
// password and to the repository's recovery key. A new password wraps the same keys again; nothing
// that was sealed under them changes, and neither does what the recovery key opens.
//
// The payload (kind "ARCANODE", version 4):
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
//        -     4  layout of the repository
//        -     4  incarnation of the node: see below
//        -    32  proof: HMAC-SHA-256 of all before it under the key "record of the node" of the
//                 data key
//
// Version 2 ends with the name. Repositories of a layout before 4 get only that, as older releases
// read it; elsewhere the next logon replaces it.
//
// A node that was removed has a last record (version 3): 0 in the place of the first field, then
// the name; version 4 when its incarnation, which follows, is not 0. It stays, and a node that gets
// the name later continues the numbers of the states after it: a change of the removed node's
// password finds its number taken, however late it comes.
//
// The incarnation is 0 for the first node of a name, and for a later one the number of the state
// that says that the node before was removed. What an incarnation keeps lies in directories of its
// own, so what is done late for a node that was removed never concerns a later one of its name.
//
// The context of each sealed key is "ARCANODE", what it is ("data key", "identity") and the name of
// the node, each as a 16-bit length and as many bytes. Under the wrapping key, since version 4, the
// layout and the incarnation follow (4 bytes each): without the password nothing can say that the
// repository has another layout. (Sealed keys: client/store/keys/key_box.h.)
//
// Everybody can seal something to the recovery key. The proof says that what is sealed to it in
// this record is what the node sealed there, or what was there when the record got version 4.
#ifndef KEEL_CLIENT_STORE_KEYS_NODE_RECORD_H
#define KEEL_CLIENT_STORE_KEYS_NODE_RECORD_H

#include "client/base/crypto/password.h"
#include "client/store/keys/key_box.h"

#include <string>

namespace arca::store
{

/// What a node has once it has proved who it is.
struct NodeKeys {
    SecretKey data;     // all that the node keeps is sealed under keys derived from it
    SecretKey identity; // X25519: opens what others seal to the node
    std::uint32_t incarnation = 0;
    bool proven = true; // false: the proof of the record does not hold
};

/// Returns random keys.
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
    std::uint32_t layout = 0; // 0: the record does not say it, as before version 4
    std::uint32_t incarnation = 0;
    Sha256 proof{};
    bool removed = false; // then only the name and the incarnation are set

    /// Seals the keys under a new password; slow when a person may have chosen it (password.h). The
    /// proof, where there is one, is made again, unless `keys` say that it did not hold: then it
    /// goes on not to hold. After an error the record is of no use.
    Result<void> wrap(std::string_view password, const NodeKeys &keys);
};

/// What a record says besides keys.
struct NodePlace {
    std::string node;
    std::uint32_t layout = 0; // 0: is not to be said
    std::uint32_t incarnation = 0;
};

/// Makes the record of a new node. `recovery`: the public half of the repository's recovery key.
Result<NodeRecord> makeNodeRecord(const NodePlace &place, std::string_view password,
                                  const NodeKeys &keys, const PublicKey &recovery);
/// Returns false when the record has a proof that this data key did not make.
Result<bool> isProven(const NodeRecord &record, const SecretKey &dataKey);
/// Returns the sentence to tell the node then.
std::string unprovenText(const std::string &node);
/// Returns the keys of `node`; NodeKeys::proven says whether the proof holds. As slow as wrap().
/// Errors: authentication when the password, or the record, is not its own; damaged.
Result<NodeKeys> openNodeRecord(const NodeRecord &record, const std::string &node,
                                std::string_view password);
/// The same by the recovery key. Errors: authentication when it does not open them, damaged when
/// the proof does not hold.
Result<NodeKeys> recoverNodeRecord(const NodeRecord &record, const std::string &node,
                                   const SecretKey &recoveryKey);

/// Without its record a node is looked for in the incarnations up to this one: far more than the
/// states of a record that is replaced now and then.
constexpr std::uint32_t kLastSearched = 64;
/// Returns the component of blob names (32 digits) that stands for what an incarnation of a node
/// keeps.
Result<std::string> spaceKeyOf(const std::string &node, std::uint32_t incarnation);

/// The whole envelope. decodeNodeRecord() checks no proof. Errors: damaged, newerFormat.
Bytes encodeNodeRecord(const NodeRecord &record);
Result<NodeRecord> decodeNodeRecord(ByteView bytes);

} // namespace arca::store

#endif
