// From a password to keys: scrypt (RFC 7914), with a cost that is stored beside what is derived.
// Any thread may call these.
#ifndef KEEL_CLIENT_BASE_CRYPTO_PASSWORD_H
#define KEEL_CLIENT_BASE_CRYPTO_PASSWORD_H

#include "client/base/crypto/hash.h"
#include "client/base/crypto/secret_key.h"

#include <string>
#include <string_view>

namespace arca
{

struct PasswordCost {
    std::uint64_t n = 0; // a power of two
    std::uint32_t r = 0;
    std::uint32_t p = 0;
};

/// Returns a high cost (16 MiB of memory) for what people choose, a low one for 64 hexadecimal
/// digits, as generatePassword() makes them.
PasswordCost costFor(std::string_view password);

/// Returns true when a person may have chosen the password of that cost, so that it can be guessed.
bool isGuessable(PasswordCost cost);

/// Two keys, neither of which can be computed from the other.
struct PasswordKeys {
    Sha256 verifier;    // to compare
    SecretKey wrapping; // to seal keys under
};

/// Derives both. `cost` may come from outside: a cost beyond 64 MiB of memory, or one that scrypt
/// does not allow, is refused before any work. The caller wipes `password`. Errors: damaged (the
/// cost), internal.
Result<PasswordKeys> derivePasswordKeys(std::string_view password, ByteView salt,
                                        PasswordCost cost);

/// Returns 256 random bits as 64 hexadecimal digits; the caller wipes them. Errors: io.
Result<std::string> generatePassword();

} // namespace arca

#endif
