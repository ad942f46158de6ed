// Secrets from a person: typed without echo on the terminal, or the next line of standard input.
// All throw UsageError when there is no terminal to ask on, and fail with badArgument for no line,
// one that is empty or too long (in bytes) and one with control characters; the text never holds
// what was typed. A line that was refused is wiped here. One thread.
#ifndef KEEL_TOOLS_ARCA_SECRETS_H
#define KEEL_TOOLS_ARCA_SECRETS_H

#include "client/base/crypto/secret_key.h"

#include <string>

namespace arca::tool
{

/// Returns a new password of 1 to 64 characters, which the caller wipes. On a terminal it is asked
/// for twice. Errors: badArgument, also when the two differ.
Result<std::string> newPassword(const std::string &node, bool fromStandardInput);

/// Returns the node's present password as typed, which the caller wipes and proves.
Result<std::string> password(const std::string &node, bool fromStandardInput);

/// Returns a passphrase to seal a text under, of 10 to 250 characters: anybody who has the sealed
/// text can try to guess it. On a terminal it is asked for twice. The caller wipes it.
Result<std::string> newPassphrase(bool fromStandardInput);
/// Returns the passphrase of a sealed text as typed, which the caller wipes.
Result<std::string> passphrase(bool fromStandardInput);

/// Returns the recovery key that was typed. Errors: badArgument, also when it is no recovery key.
Result<SecretKey> recoveryKey(bool fromStandardInput);

} // namespace arca::tool

#endif
