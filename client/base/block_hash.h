// The identity of a block: HMAC-SHA-256 (RFC 2104) under a key, its first 128 bits. Whoever has no
// key can neither make two blocks of one identity nor tell from an identity which block it is.
#ifndef KEEL_CLIENT_BASE_BLOCK_HASH_H
#define KEEL_CLIENT_BASE_BLOCK_HASH_H

#include "client/base/bytes.h"

#include <array>
#include <memory>

namespace arca
{

using BlockId = std::array<std::byte, 16>;

/// The key, ready for use; any thread may hash with it. It is wiped in the end.
class BlockHasher
{
public:
    explicit BlockHasher(ByteView key32);
    ~BlockHasher();
    BlockHasher(const BlockHasher &) = delete;
    BlockHasher &operator=(const BlockHasher &) = delete;

    BlockId operator()(ByteView block) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace arca

#endif
