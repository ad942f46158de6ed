// Keys that are stored: sealed under another key, or sealed to a public key so that only the holder
// of its private half opens them. Whatever is opened is what was sealed: AES-256-GCM notices every
// change, and the context says where the box belongs, so that one that was moved does not open.
//
//   SealedKey, 60 bytes               SealedToPublic, 92 bytes
//   offset  size                      offset  size
//        0    12  nonce, random            0    32  public half of a pair made for this box alone
//       12    32  the key, encrypted      32    60  the key as a SealedKey under the key that both
//       44    16  tag                               halves agree on
//
// Two parties agree by X25519; the key is HKDF-SHA-256 of what they agree on, with no salt and the
// information "arca key box", the pair's public half and the public key that the box is for.
#ifndef KEEL_CLIENT_STORE_KEYS_KEY_BOX_H
#define KEEL_CLIENT_STORE_KEYS_KEY_BOX_H

#include "client/base/crypto/secret_key.h"

namespace arca::store
{

using PublicKey = std::array<std::byte, 32>; // X25519
using SealedKey = std::array<std::byte, 60>;
using SealedToPublic = std::array<std::byte, 92>;

/// Seals `key`. Fails only when the cipher library does, or a key is empty.
Result<SealedKey> sealKey(const SecretKey &under, const SecretKey &key, ByteView context);
/// Errors: damaged when the box is not what was sealed under that key and context.
Result<SecretKey> openKey(const SecretKey &under, const SealedKey &box, ByteView context);

/// Any 32 bytes are a private key.
Result<PublicKey> publicHalfOf(const SecretKey &privateKey);

/// Errors: damaged when `receiver` is no key that anything could be sealed to.
Result<SealedToPublic> sealKeyTo(const PublicKey &receiver, const SecretKey &key, ByteView context);
/// Errors: damaged when the box is not what was sealed to that key with that context.
Result<SecretKey> openKeyWith(const SecretKey &privateKey, const SealedToPublic &box,
                              ByteView context);

} // namespace arca::store

#endif
