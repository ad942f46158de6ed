// Authenticated encryption: AES-GCM (NIST SP 800-38D), or its authentication alone where the
// content may be read by anybody but must still not be changed. All of it may be called from any
// thread.
#ifndef KEEL_CLIENT_BASE_AEAD_H
#define KEEL_CLIENT_BASE_AEAD_H

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

/// Never twice the same under one key. What it is made of keeps the parts of a blob in their
/// places.
struct Nonce {
    std::uint32_t kind = 0;
    std::uint64_t number = 0;
};

/// One key with its cipher.
class Aead
{
public:
    /// `key`: 32 bytes, of which AES-128 takes the first 16.
    Aead(Cipher cipher, ByteView key);
    Aead(const Aead &) = default;
    Aead &operator=(const Aead &) = default;
    ~Aead();

    Cipher cipher() const { return cipher_; }

    /// `sealed` has room for plain and tag, and does not overlap `plain`.
    Result<void> seal(Nonce nonce, ByteView associated, ByteView plain,
                      std::span<std::byte> sealed) const;
    /// `plain` has room for `sealed` without its tag. `damaged` unless every bit is what was
    /// sealed; what `plain` holds then must not be used.
    Result<void> open(Nonce nonce, ByteView associated, ByteView sealed,
                      std::span<std::byte> plain) const;

private:
    Cipher cipher_;
    std::array<std::byte, 32> key_;
};

} // namespace arca

#endif
