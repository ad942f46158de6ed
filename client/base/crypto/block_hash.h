// The identity of a block: HMAC-SHA-256 (RFC 2104) under a key, its first 128 bits. Without the key
// nobody can make two blocks of one identity, or learn from an identity which block has it.
#ifndef KEEL_CLIENT_BASE_CRYPTO_BLOCK_HASH_H
#define KEEL_CLIENT_BASE_CRYPTO_BLOCK_HASH_H

#include "client/base/bytes.h"

#include <array>
#include <memory>

namespace arca
{

using BlockId = std::array<std::byte, 16>;

/// Holds the key in the form that hashing needs, and wipes it in the end. Any thread may hash with
/// it, several at once.
class BlockHasher
{
public:
    /// Takes the first 32 bytes of `key32`, which must not have fewer.
    explicit BlockHasher(ByteView key32);
    ~BlockHasher();
    BlockHasher(const BlockHasher &) = delete;
    BlockHasher &operator=(const BlockHasher &) = delete;

    /// Returns the identity of `block`, of any length. Cannot fail.
    BlockId operator()(ByteView block) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace arca

#endif
