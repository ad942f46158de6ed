// From a password to keys: scrypt, with a cost that is stored beside what is derived.
#ifndef KEEL_CLIENT_BASE_PASSWORD_H
#define KEEL_CLIENT_BASE_PASSWORD_H

#include "client/base/hash.h"
#include "client/base/secret_key.h"

#include <string>
#include <string_view>

namespace arca
{

struct PasswordCost {
    std::uint64_t n = 0; // a power of two
    std::uint32_t r = 0;
    std::uint32_t p = 0;
};

/// High for what people choose, low for what generatePassword() made.
PasswordCost costFor(std::string_view password);

/// Whether a password of that cost may be a chosen one, which somebody could guess.
bool isGuessable(PasswordCost cost);

/// Two that tell nothing of each other: one to compare, one to seal keys under.
struct PasswordKeys {
    Sha256 verifier;
    SecretKey wrapping;
};

/// A cost from outside may be absurd; beyond 64 MiB of memory it is refused as `damaged`.
Result<PasswordKeys> derivePasswordKeys(std::string_view password, ByteView salt,
                                        PasswordCost cost);

/// 256 random bits as 64 hexadecimal digits.
Result<std::string> generatePassword();

} // namespace arca

#endif
