// The secret that goes into the keys of password files: 32 random bytes in a file of mode 0600
// beside the option file, named like it with ".secret" behind. Made when it is first needed.
#ifndef KEEL_CLIENT_CONFIG_CIPHER_SECRET_H
#define KEEL_CLIENT_CONFIG_CIPHER_SECRET_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <string>

namespace arca::config
{

/// Errors: it can neither be read nor made, or is no such file. The caller wipes it.
Result<Bytes> cipherSecret(const std::string &optionFile);

} // namespace arca::config

#endif
