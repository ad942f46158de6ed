// Sealed keys by libcrypto: see the header.
#include "client/store/keys/key_box.h"

#include "client/base/crypto/crypto_start.h"
#include "client/base/crypto/hash.h"

#include <openssl/evp.h>
#include <openssl/kdf.h>

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::size_t kNonceBytes = 12;
constexpr std::size_t kTagBytes = 16;
constexpr std::string_view kAgreement = "arca key box";

template <auto Release> struct Free {
    template <class T> void operator()(T *object) const { Release(object); }
};
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, Free<EVP_CIPHER_CTX_free>>;
using Pkey = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using PkeyContext = std::unique_ptr<EVP_PKEY_CTX, Free<EVP_PKEY_CTX_free>>;

const unsigned char *octets(ByteView bytes)
{
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

unsigned char *room(std::span<std::byte> bytes)
{
    return reinterpret_cast<unsigned char *>(bytes.data());
}

Error failed()
{
    return cryptoFailure("the cipher library failed");
}

Error doesNotOpen()
{
    (void)failed(); // which throws when it was for want of memory
    return {ErrorKind::damaged, "a sealed key is damaged"};
}

/// AES-256-GCM with key, nonce and context in place, in either direction; null when the library
/// fails.
Cipher cipherFor(const SecretKey &key, ByteView nonce, ByteView context, bool sealing)
{
    Cipher cipher(cryptoReady() ? EVP_CIPHER_CTX_new() : nullptr);
    int length = 0;
    if (!cipher || key.isEmpty() ||
        EVP_CipherInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, octets(key.view()),
                          octets(nonce), sealing ? 1 : 0) != 1 ||
        EVP_CipherUpdate(cipher.get(), nullptr, &length, octets(context),
                         static_cast<int>(context.size())) != 1)
        return nullptr;
    return cipher;
}

/// What both halves agree on, of all zeros when the public one is a trick.
Result<SecretKey> agreement(const SecretKey &privateKey, const PublicKey &publicKey)
{
    if (!cryptoReady())
        return failed();
    const Pkey mine(EVP_PKEY_new_raw_private_key(
        EVP_PKEY_X25519, nullptr, octets(privateKey.view()), privateKey.view().size()));
    const Pkey theirs(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_X25519, nullptr, octets(publicKey), publicKey.size()));
    const PkeyContext context(mine ? EVP_PKEY_CTX_new(mine.get(), nullptr) : nullptr);
    if (!theirs || !context || EVP_PKEY_derive_init(context.get()) != 1 ||
        EVP_PKEY_derive_set_peer(context.get(), theirs.get()) != 1)
        return failed();
    auto shared = SecretKey::filledBy([&](std::span<std::byte> bytes) {
        std::size_t length = bytes.size();
        return EVP_PKEY_derive(context.get(), room(bytes), &length) == 1 && length == bytes.size();
    });
    if (!shared) // the library refuses public halves with which every private one agrees on zeros
        return doesNotOpen();
    return shared;
}

/// The key of one box.
Result<SecretKey> boxKey(const SecretKey &privateKey, const PublicKey &other,
                         const PublicKey &ephemeral, const PublicKey &receiver)
{
    ARCA_TRY(const SecretKey shared, agreement(privateKey, other));
    ByteWriter information;
    information.raw(viewOf(kAgreement));
    information.raw(ephemeral);
    information.raw(receiver);
    const PkeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr));
    return SecretKey::filledBy([&](std::span<std::byte> key) {
        std::size_t length = key.size();
        return context && EVP_PKEY_derive_init(context.get()) == 1 &&
               EVP_PKEY_CTX_set_hkdf_md(context.get(), EVP_sha256()) == 1 &&
               EVP_PKEY_CTX_set1_hkdf_key(context.get(), octets(shared.view()),
                                          static_cast<int>(shared.view().size())) == 1 &&
               EVP_PKEY_CTX_add1_hkdf_info(context.get(), octets(information.view()),
                                           static_cast<int>(information.size())) == 1 &&
               EVP_PKEY_derive(context.get(), room(key), &length) == 1;
    });
}

} // namespace

Result<SealedKey> sealKey(const SecretKey &under, const SecretKey &key, ByteView context)
{
    SealedKey box;
    const std::span<std::byte> bytes(box);
    ARCA_CHECK(fillRandom(bytes.first(kNonceBytes)));
    const Cipher cipher = cipherFor(under, bytes.first(kNonceBytes), context, true);
    int length = 0;
    if (!cipher || key.isEmpty() ||
        EVP_CipherUpdate(cipher.get(), room(bytes.subspan(kNonceBytes)), &length,
                         octets(key.view()), SecretKey::kBytes) != 1 ||
        length != SecretKey::kBytes ||
        EVP_CipherFinal_ex(cipher.get(), room(bytes.last(kTagBytes)), &length) != 1 ||
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, kTagBytes,
                            bytes.last(kTagBytes).data()) != 1)
        return failed();
    return box;
}

Result<SecretKey> openKey(const SecretKey &under, const SealedKey &box, ByteView context)
{
    const ByteView bytes(box);
    const Cipher cipher = cipherFor(under, bytes.first(kNonceBytes), context, false);
    std::array<std::byte, kTagBytes> tag;
    std::copy_n(bytes.last(kTagBytes).begin(), kTagBytes, tag.begin());
    if (!cipher ||
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, kTagBytes, tag.data()) != 1)
        return failed();
    auto key = SecretKey::filledBy([&](std::span<std::byte> into) {
        int length = 0;
        return EVP_CipherUpdate(cipher.get(), room(into), &length,
                                octets(bytes.subspan(kNonceBytes)), SecretKey::kBytes) == 1 &&
               length == SecretKey::kBytes &&
               EVP_CipherFinal_ex(cipher.get(), room(tag), &length) == 1;
    });
    if (!key)
        return doesNotOpen();
    return key;
}

Result<PublicKey> publicHalfOf(const SecretKey &privateKey)
{
    if (!cryptoReady())
        return failed();
    const Pkey pair(EVP_PKEY_new_raw_private_key(
        EVP_PKEY_X25519, nullptr, octets(privateKey.view()), privateKey.view().size()));
    PublicKey half;
    std::size_t length = half.size();
    if (!pair || EVP_PKEY_get_raw_public_key(pair.get(), room(half), &length) != 1)
        return failed();
    return half;
}

Result<SealedToPublic> sealKeyTo(const PublicKey &receiver, const SecretKey &key, ByteView context)
{
    ARCA_TRY(const SecretKey ephemeral, SecretKey::random());
    ARCA_TRY(const PublicKey half, publicHalfOf(ephemeral));
    ARCA_TRY(const SecretKey under, boxKey(ephemeral, receiver, half, receiver));
    ARCA_TRY(const SealedKey sealed, sealKey(under, key, context));
    SealedToPublic box;
    std::copy(sealed.begin(), sealed.end(), std::copy(half.begin(), half.end(), box.begin()));
    return box;
}

Result<SecretKey> openKeyWith(const SecretKey &privateKey, const SealedToPublic &box,
                              ByteView context)
{
    PublicKey half;
    SealedKey sealed;
    std::copy_n(box.begin(), half.size(), half.begin());
    std::copy_n(box.begin() + half.size(), sealed.size(), sealed.begin());
    ARCA_TRY(const PublicKey receiver, publicHalfOf(privateKey));
    ARCA_TRY(const SecretKey under, boxKey(privateKey, half, half, receiver));
    return openKey(under, sealed, context);
}

} // namespace arca::store
