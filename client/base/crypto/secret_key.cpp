// Keys that wipe themselves: see the header.
#include "client/base/crypto/secret_key.h"

#include "client/base/crypto/hash.h"

#include <algorithm>

namespace arca
{

void SecretKey::Wipe::operator()(Array *bytes) const
{
    wipe(*bytes);
    delete bytes;
}

SecretKey SecretKey::zero()
{
    SecretKey key;
    key.bytes_.reset(new Array{});
    return key;
}

Result<SecretKey> SecretKey::random()
{
    SecretKey key = zero();
    ARCA_CHECK(fillRandom(*key.bytes_));
    return key;
}

Result<SecretKey> SecretKey::from(ByteView bytes)
{
    return filledBy([&](std::span<std::byte> key) {
        if (bytes.size() != key.size())
            return false;
        std::copy(bytes.begin(), bytes.end(), key.begin());
        return true;
    });
}

Result<SecretKey> deriveKey(const SecretKey &key, std::string_view label, ByteView context)
{
    if (key.isEmpty())
        return Error{ErrorKind::internal, "a key was to be derived from none"};
    constexpr std::byte kEndOfLabel{0x00};
    constexpr std::byte kFirstBlock{0x01};
    ByteWriter message;
    message.raw(viewOf(label));
    message.raw({&kEndOfLabel, 1});
    message.raw(context);
    message.raw({&kFirstBlock, 1});
    ARCA_TRY(Sha256 derived, hmacSha256(key.view(), message.view()));
    auto made = SecretKey::from(derived);
    wipe(derived);
    return made;
}

} // namespace arca
