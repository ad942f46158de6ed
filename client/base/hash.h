// Digests and randomness. Three tools for three jobs: a cryptographic digest where a name must not
// be forged, a fast checksum where a fault of the medium must be noticed, and the system's
// generator where a value must not be guessed. All of it may be called from any thread.
#ifndef KEEL_CLIENT_BASE_HASH_H
#define KEEL_CLIENT_BASE_HASH_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <array>
#include <memory>

namespace arca
{

using Sha256 = std::array<std::byte, 32>;
using Digest128 = std::array<std::byte, 16>;

/// SHA-256 of the parts, each preceded by its length so that no two lists give the same input.
Result<Sha256> sha256(std::initializer_list<ByteView> parts);
Result<Sha256> hmacSha256(ByteView key, ByteView message);

/// In constant time, so that how much of a secret was right cannot be measured.
bool equalSecrets(ByteView a, ByteView b);

/// Overwrites in a way that the compiler cannot drop.
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

Result<void> fillRandom(std::span<std::byte> bytes);

/// XXH3, 64 bits: notices faults of the medium, not forgers.
std::uint64_t checksum64(ByteView bytes, std::uint64_t seed = 0);

/// XXH3, 128 bits, over a stream.
class StreamDigest
{
public:
    StreamDigest();
    ~StreamDigest();
    StreamDigest(StreamDigest &&) noexcept;
    StreamDigest &operator=(StreamDigest &&) noexcept;

    void update(ByteView bytes);
    Digest128 value() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace arca

#endif
