// Secrets from a person: typed without echo on the terminal, or the next line of standard input.
#ifndef KEEL_TOOLS_ARCA_SECRETS_H
#define KEEL_TOOLS_ARCA_SECRETS_H

#include "client/base/secret_key.h"

#include <string>

namespace arca::tool
{

/// Asked for twice on a terminal. 1 to 64 characters; `badArgument` when it is not, or when the two
/// do not agree, or when there is no terminal to ask on. The caller wipes it.
Result<std::string> newPassword(const std::string &node, bool fromStandardInput);

/// The one that the node has. The caller wipes it.
Result<std::string> password(const std::string &node, bool fromStandardInput);

/// For what is sealed under it: at least 10 characters, as whoever has the sealed text may try. The
/// caller wipes it.
Result<std::string> newPassphrase(bool fromStandardInput);
/// The one that was chosen then. The caller wipes it.
Result<std::string> passphrase(bool fromStandardInput);

/// `badArgument` when what was typed is no recovery key, or when there is no terminal.
Result<SecretKey> recoveryKey(bool fromStandardInput);

} // namespace arca::tool

#endif
