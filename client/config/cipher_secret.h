// The secret that goes into the keys of password files: 32 random bytes in a file of mode 0600
// beside the option file, with the option file's name and ".secret". Any thread may ask for it.
#ifndef KEEL_CLIENT_CONFIG_CIPHER_SECRET_H
#define KEEL_CLIENT_CONFIG_CIPHER_SECRET_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <string>

namespace arca::config
{

/// Returns the secret, which the caller wipes. A file that is not there is made, durably; of
/// several processes that make it at once all get the same secret. Errors: damaged when the file
/// has another length; io, denied, full and the like when it can neither be read nor made.
Result<Bytes> cipherSecret(const std::string &optionFile);

} // namespace arca::config

#endif
