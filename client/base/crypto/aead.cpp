// AES-GCM by libcrypto. Nonce on the wire of GCM (12 bytes): kind, then number, little-endian.
#include "client/base/crypto/aead.h"

#include "client/base/crypto/crypto_start.h"
#include "client/base/crypto/hash.h"

#include <openssl/evp.h>

#include <algorithm>
#include <memory>

namespace arca
{

namespace
{

using Context = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

// One call of libcrypto takes an int; portions stay far below it.
constexpr std::size_t kLargest = std::size_t{1} << 30;

const unsigned char *octets(ByteView bytes)
{
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

unsigned char *octets(std::span<std::byte> bytes)
{
    return reinterpret_cast<unsigned char *>(bytes.data());
}

Error failure()
{
    return cryptoFailure("the cipher library failed");
}

/// Null when the library fails.
Context prepare(Cipher cipher, ByteView key, Nonce nonce, ByteView associated, bool sealing)
{
    ByteWriter iv;
    iv.u32(nonce.kind);
    iv.u64(nonce.number);
    Context context(cryptoReady() ? EVP_CIPHER_CTX_new() : nullptr, &EVP_CIPHER_CTX_free);
    const EVP_CIPHER *const kind = cipher == Cipher::aes128 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
    int done = 0;
    if (!context ||
        EVP_CipherInit_ex(context.get(), kind, nullptr, octets(key), octets(iv.view()),
                          sealing ? 1 : 0) != 1 ||
        EVP_CipherUpdate(context.get(), nullptr, &done, octets(associated),
                         static_cast<int>(associated.size())) != 1)
        context.reset();
    return context;
}

/// Ciphers, or only authenticates and copies.
bool transform(EVP_CIPHER_CTX *context, Cipher cipher, ByteView from, std::span<std::byte> to)
{
    int done = 0;
    if (from.empty())
        return true;
    if (cipher != Cipher::none)
        return EVP_CipherUpdate(context, octets(to), &done, octets(from),
                                static_cast<int>(from.size())) == 1;
    std::copy(from.begin(), from.end(), to.begin());
    return EVP_CipherUpdate(context, nullptr, &done, octets(from), static_cast<int>(from.size())) ==
           1;
}

} // namespace

Aead::Aead(Cipher cipher, ByteView key) : cipher_(cipher)
{
    std::copy_n(key.begin(), key_.size(), key_.begin());
}

Aead::~Aead()
{
    wipe(key_);
}

Result<void> Aead::seal(Nonce nonce, ByteView associated, ByteView plain,
                        std::span<std::byte> sealed) const
{
    if (plain.size() > kLargest || sealed.size() != plain.size() + kTagBytes)
        return failure();
    const Context context = prepare(cipher_, key_, nonce, associated, true);
    std::array<unsigned char, 16> rest;
    int done = 0;
    if (!context || !transform(context.get(), cipher_, plain, sealed) ||
        EVP_CipherFinal_ex(context.get(), rest.data(), &done) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, kTagBytes,
                            octets(sealed.last(kTagBytes))) != 1)
        return failure();
    return {};
}

Result<void> Aead::open(Nonce nonce, ByteView associated, ByteView sealed,
                        std::span<std::byte> plain) const
{
    if (sealed.size() < kTagBytes || plain.size() != sealed.size() - kTagBytes ||
        sealed.size() > kLargest)
        return Error{ErrorKind::damaged, "a sealed part has an impossible length"};
    const Context context = prepare(cipher_, key_, nonce, associated, false);
    std::array<std::byte, kTagBytes> tag;
    std::copy_n(sealed.end() - kTagBytes, kTagBytes, tag.begin());
    std::array<unsigned char, 16> rest;
    int done = 0;
    if (!context || !transform(context.get(), cipher_, sealed.first(plain.size()), plain) ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, kTagBytes, tag.data()) != 1)
        return failure();
    if (EVP_CipherFinal_ex(context.get(), rest.data(), &done) != 1)
        return Error{ErrorKind::damaged, "a sealed part is not what was written"};
    return {};
}

} // namespace arca
