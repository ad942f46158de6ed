// Authenticated encryption: AES-GCM (NIST SP 800-38D), or its authentication alone where anybody
// may read the content but must not change it. Any thread may call all of it, also several at once
// with one Aead. Nothing is logged here: every failure is only returned.
#ifndef KEEL_CLIENT_BASE_CRYPTO_AEAD_H
#define KEEL_CLIENT_BASE_CRYPTO_AEAD_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <array>

namespace arca
{

enum class Cipher : std::uint32_t {
    none = 0, // in clear, authenticated
    aes128 = 1,
    aes256 = 2,
};

constexpr std::size_t kTagBytes = 16;

/// Must never be used twice under one key: GCM is broken then. The kind and the number of a part
/// keep it in its place: a part that was moved elsewhere in a blob does not open.
struct Nonce {
    std::uint32_t kind = 0;
    std::uint64_t number = 0;
};

/// One key with its cipher. It keeps a copy of the key and wipes that in the end, as each copy of
/// the object does.
class Aead
{
public:
    /// `key` must have 32 bytes, of which AES-128 takes the first 16. Cipher::none authenticates
    /// with all 32.
    Aead(Cipher cipher, ByteView key);
    Aead(const Aead &) = default;
    Aead &operator=(const Aead &) = default;
    ~Aead();

    Cipher cipher() const { return cipher_; }

    /// Fills `sealed` with the enciphered bytes and then the tag. `sealed` must have exactly
    /// plain.size() + kTagBytes bytes, must not overlap `plain`, and `plain` has at most 1 GiB.
    /// `associated` is authenticated and not stored. After a failure `sealed` holds anything.
    /// Errors: internal.
    Result<void> seal(Nonce nonce, ByteView associated, ByteView plain,
                      std::span<std::byte> sealed) const;
    /// Fills `plain`, which must have exactly sealed.size() - kTagBytes bytes. After a failure what
    /// `plain` holds must not be used: it was not proved. Errors: damaged when any bit of the
    /// bytes, the nonce or `associated` differs from what was sealed, or a length is wrong;
    /// internal.
    Result<void> open(Nonce nonce, ByteView associated, ByteView sealed,
                      std::span<std::byte> plain) const;

private:
    Cipher cipher_;
    std::array<std::byte, 32> key_;
};

} // namespace arca

#endif
