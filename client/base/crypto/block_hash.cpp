// HMAC-SHA-256 with the work for the key done once. The interface of libcrypto that does without an
// allocation and a look-up per message is declared old, but a block takes only some five
// microseconds in all, and the other one would add a fifth to it.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "client/base/crypto/block_hash.h"

#include "client/base/crypto/hash.h"

#include <openssl/sha.h>

#include <algorithm>

namespace arca
{

struct BlockHasher::State {
    SHA256_CTX inner;
    SHA256_CTX outer;
};

namespace
{

void absorbKey(SHA256_CTX &context, ByteView key, std::byte pad)
{
    std::array<std::byte, SHA256_CBLOCK> block;
    block.fill(pad);
    for (std::size_t i = 0; i < key.size(); ++i)
        block[i] ^= key[i];
    SHA256_Init(&context);
    SHA256_Update(&context, block.data(), block.size());
    wipe(block);
}

} // namespace

BlockHasher::BlockHasher(ByteView key32) : state_(std::make_unique<State>())
{
    const ByteView key = key32.first(32);
    absorbKey(state_->inner, key, std::byte{0x36});
    absorbKey(state_->outer, key, std::byte{0x5c});
}

BlockHasher::~BlockHasher()
{
    wipe(std::as_writable_bytes(std::span(state_.get(), 1)));
}

BlockId BlockHasher::operator()(ByteView block) const
{
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest;
    SHA256_CTX context = state_->inner;
    SHA256_Update(&context, block.data(), block.size());
    SHA256_Final(digest.data(), &context);
    context = state_->outer;
    SHA256_Update(&context, digest.data(), digest.size());
    SHA256_Final(digest.data(), &context);
    BlockId id;
    std::copy_n(reinterpret_cast<const std::byte *>(digest.data()), id.size(), id.begin());
    return id;
}

} // namespace arca
