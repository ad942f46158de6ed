// A key of 32 bytes that wipes itself. It cannot be copied or printed, and moving it leaves no copy
// behind. A key that is empty (made by default, or moved from) shows no bytes; whatever takes a key
// refuses it as `internal` rather than work with one that everybody knows. Values belong to one
// thread; view() and deriveKey() may be called from several as long as nobody moves the key.
#ifndef KEEL_CLIENT_BASE_SECRET_KEY_H
#define KEEL_CLIENT_BASE_SECRET_KEY_H

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

    /// Of the system's generator.
    static Result<SecretKey> random();
    /// Filled by `fill`, which gets kBytes zero bytes and answers whether it succeeded.
    template <class Fill> static Result<SecretKey> filledBy(Fill fill)
    {
        SecretKey key = zero();
        if (!fill(std::span<std::byte>(*key.bytes_)))
            return Error{ErrorKind::internal, "a key could not be made"};
        return key;
    }
    /// A copy of bytes that lie elsewhere and are wiped there by their owner; `internal` when they
    /// are not kBytes.
    static Result<SecretKey> from(ByteView bytes);

    bool isEmpty() const { return !bytes_; }
    ByteView view() const { return bytes_ ? ByteView(*bytes_) : ByteView(); }

private:
    using Array = std::array<std::byte, kBytes>;
    struct Wipe {
        void operator()(Array *bytes) const;
    };
    static SecretKey zero();

    std::unique_ptr<Array, Wipe> bytes_;
};

/// A key for one purpose from a key for many: whoever has it learns nothing of `key`, nor of what
/// was derived under another label or context. One label a purpose, in our own words, without a
/// zero byte; the context may be anything.
///
/// This is the expanding half of HKDF-SHA-256, HMAC(key, label 0x00 context 0x01). The extracting
/// half, which makes a key of unevenly distributed input, has nothing to do here: every SecretKey
/// is uniform already.
Result<SecretKey> deriveKey(const SecretKey &key, std::string_view label, ByteView context = {});

} // namespace arca

#endif
