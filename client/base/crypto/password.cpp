// Passwords: see the header.
#include "client/base/crypto/password.h"

#include "client/base/crypto/crypto_start.h"
#include "client/base/text.h"

#include <openssl/evp.h>

#include <algorithm>
#include <bit>

namespace arca
{

namespace
{
constexpr std::size_t kGeneratedDigits = 64;
constexpr std::uint64_t kMaxMemory = std::uint64_t{64} << 20;
constexpr std::uint64_t kGeneratedN = 16;
} // namespace

PasswordCost costFor(std::string_view password)
{
    // Typed or generated: 64 hexadecimal digits are too many to guess.
    if (password.size() == kGeneratedDigits && fromHex(password))
        return {kGeneratedN, 8, 1};
    return {std::uint64_t{1} << 14, 8, 1};
}

bool isGuessable(PasswordCost cost)
{
    return cost.n > kGeneratedN;
}

Result<PasswordKeys> derivePasswordKeys(std::string_view password, ByteView salt, PasswordCost cost)
{
    const bool sensible = std::has_single_bit(cost.n) && cost.n > 1 && cost.r >= 1 &&
                          cost.r <= 64 && cost.p >= 1 && cost.p <= 16 &&
                          cost.n <= kMaxMemory / (128 * cost.r);
    if (!sensible)
        return Error{ErrorKind::damaged, "the cost of a password check is out of bounds"};
    std::array<std::byte, sizeof(Sha256) + SecretKey::kBytes> derived;
    if (!cryptoReady() ||
        EVP_PBE_scrypt(password.data(), password.size(),
                       reinterpret_cast<const unsigned char *>(salt.data()), salt.size(), cost.n,
                       cost.r, cost.p, kMaxMemory * 2,
                       reinterpret_cast<unsigned char *>(derived.data()), derived.size()) != 1)
        return cryptoFailure("the password check failed");
    PasswordKeys keys;
    std::copy_n(derived.begin(), keys.verifier.size(), keys.verifier.begin());
    auto wrapping = SecretKey::from(ByteView(derived).last(SecretKey::kBytes));
    wipe(derived);
    ARCA_TRY(keys.wrapping, std::move(wrapping));
    return keys;
}

Result<std::string> generatePassword()
{
    Bytes random(kGeneratedDigits / 2);
    ARCA_CHECK(fillRandom(random));
    std::string digits = toHex(random);
    wipe(random);
    return digits;
}

} // namespace arca
