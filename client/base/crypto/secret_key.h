// A key of 32 bytes that wipes itself. It cannot be copied or printed, and moving it leaves no copy
// behind. A key that is empty (made by default, or moved from) shows no bytes; a call that takes a
// key refuses an empty one as `internal` rather than work with a key that everybody knows. One
// thread uses a key at a time; view() and deriveKey() may be called from several threads as long as
// none of them moves the key.
#ifndef KEEL_CLIENT_BASE_CRYPTO_SECRET_KEY_H
#define KEEL_CLIENT_BASE_CRYPTO_SECRET_KEY_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <array>
#include <memory>
#include <string_view>

namespace arca
{

class SecretKey
{
public:
    static constexpr std::size_t kBytes = 32;

    SecretKey() = default;

    /// Returns a key from the system's generator. Errors: io.
    static Result<SecretKey> random();
    /// Returns a key that `fill` fills: it gets kBytes zero bytes and returns whether it succeeded.
    /// Errors: internal when it did not.
    template <class Fill> static Result<SecretKey> filledBy(Fill fill)
    {
        SecretKey key = zero();
        if (!fill(std::span<std::byte>(*key.bytes_)))
            return Error{ErrorKind::internal, "a key could not be made"};
        return key;
    }
    /// Returns a copy of `bytes`, which their owner wipes. Errors: internal when they are not
    /// kBytes.
    static Result<SecretKey> from(ByteView bytes);

    bool isEmpty() const { return !bytes_; }
    /// Returns the key in place, valid until it is moved or destroyed; empty for an empty key.
    ByteView view() const { return bytes_ ? ByteView(*bytes_) : ByteView(); }

private:
    using Array = std::array<std::byte, kBytes>;
    struct Wipe {
        void operator()(Array *bytes) const;
    };
    static SecretKey zero();

    std::unique_ptr<Array, Wipe> bytes_;
};

/// Returns a key for one purpose. From it neither `key` can be computed, nor a key derived under
/// another label or context. Each purpose has a label of its own, without a zero byte; the context
/// may be anything. Errors: internal, also when `key` is empty.
///
/// This is the expanding half of HKDF-SHA-256, HMAC(key, label 0x00 context 0x01). The extracting
/// half, which makes a key from unevenly distributed input, is not needed: every SecretKey is
/// uniform already.
Result<SecretKey> deriveKey(const SecretKey &key, std::string_view label, ByteView context = {});

} // namespace arca

#endif
