// Digests and randomness. Three tools for three jobs: a cryptographic digest where a name must not
// be forged, a fast checksum where a fault of the medium must be noticed, and the system's
// generator where a value must not be guessed. Any thread may call all of it, but a StreamDigest is
// one thread's.
#ifndef KEEL_CLIENT_BASE_CRYPTO_HASH_H
#define KEEL_CLIENT_BASE_CRYPTO_HASH_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <array>
#include <memory>

namespace arca
{

using Sha256 = std::array<std::byte, 32>;
using Digest128 = std::array<std::byte, 16>;

/// Returns the SHA-256 of the parts, each preceded by its length (64 bits, little-endian), so that
/// no two lists give the same input. Errors: internal.
Result<Sha256> sha256(std::initializer_list<ByteView> parts);
/// Returns the HMAC under a key of any length. Errors: internal.
Result<Sha256> hmacSha256(ByteView key, ByteView message);

/// Compares in a time that depends on the length alone, so that nobody can measure how much of a
/// secret was right. Different lengths are unequal at once.
bool equalSecrets(ByteView a, ByteView b);

/// Overwrites with zeros in a way that the compiler cannot drop. A text is empty afterwards, and
/// all the memory that it held is wiped.
void wipe(std::span<std::byte> bytes);
void wipe(std::string &text);

/// Wipes a text on every way out of a block.
class WipedAtEnd
{
public:
    explicit WipedAtEnd(std::string &text) : text_(text) {}
    WipedAtEnd(const WipedAtEnd &) = delete;
    WipedAtEnd &operator=(const WipedAtEnd &) = delete;
    ~WipedAtEnd() { wipe(text_); }

private:
    std::string &text_;
};

/// Fills `bytes` from the system's generator. After a failure they hold anything. Errors: io.
Result<void> fillRandom(std::span<std::byte> bytes);

/// XXH3, 64 bits: notices faults of the medium, and stops no forger.
std::uint64_t checksum64(ByteView bytes, std::uint64_t seed = 0);

/// XXH3, 128 bits, over a stream. Throws std::bad_alloc when it is made; one that was moved from
/// may only be destroyed or assigned to.
class StreamDigest
{
public:
    StreamDigest();
    ~StreamDigest();
    StreamDigest(StreamDigest &&) noexcept;
    StreamDigest &operator=(StreamDigest &&) noexcept;

    void update(ByteView bytes);
    /// Returns the digest of what was given so far; more may follow.
    Digest128 value() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace arca

#endif
