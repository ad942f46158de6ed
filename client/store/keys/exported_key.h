// What lets another host be a node: the node's password as its client keeps it, sealed under a
// passphrase, as text that may travel on any way.
//
// Three lines and more of text: "ARCA key of a node, sealed; arca key import takes it", then
// hexadecimal digits, 64 a line, of a record of kind "ARCAKEYX", version 1:
//
//   offset  size
//        0     8  N of scrypt   8  4  r   12  4  p
//       16    16  salt
//       32     n  sealed by AES-256-GCM (the last 16 bytes are the tag) under the wrapping key that
//                 scrypt makes of passphrase and salt: repository, node and password, each a 16-bit
//                 length and as many bytes. The bytes before are authenticated with it.
//
// A salt is used once, so its key seals nothing else.
#ifndef KEEL_CLIENT_STORE_KEYS_EXPORTED_KEY_H
#define KEEL_CLIENT_STORE_KEYS_EXPORTED_KEY_H

#include "client/base/crypto/password.h"

#include <array>
#include <string>

namespace arca::store
{

struct ExportedKey {
    std::string repository; // its identifier
    std::string node;
    std::string password; // the owner wipes it
};

struct SealedExport {
    PasswordCost cost;
    std::array<std::byte, 16> salt{};
    Bytes sealed;
};

/// Both are slow on purpose (scrypt): a reader of the text can try passphrases. They
/// keep nothing of key and passphrase, which the caller wipes.
Result<SealedExport> sealExport(const ExportedKey &key, std::string_view passphrase);
/// Errors: authentication when the passphrase is another one, or the text was changed; badArgument,
/// damaged.
Result<ExportedKey> openExport(const SealedExport &sealed, std::string_view passphrase);

std::string writtenExport(const SealedExport &sealed);
/// Reads what writtenExport() wrote; text before its title and blanks are passed over. Errors:
/// badArgument when the text is no such thing or longer than 64 KiB, newerFormat.
Result<SealedExport> readExport(std::string_view text);

} // namespace arca::store

#endif
