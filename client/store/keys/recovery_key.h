// The recovery key of a repository: a pair of X25519 halves. The keys of every node are sealed to
// the public one when the node is registered, so that the private one opens them when the node's
// password is lost. The private half is shown once, for keeping away from the machine, and kept
// nowhere.
//
// keys/recovery/ is the numbered record of the public half. Its payload (kind "ARCARCVR", version
// 1):
//
//   offset  size
//        0     2  what it is: 1 = X25519
//        2    32  the public half
//       34     8  when it was made, seconds since 1970, UTC
#ifndef KEEL_CLIENT_STORE_KEYS_RECOVERY_KEY_H
#define KEEL_CLIENT_STORE_KEYS_RECOVERY_KEY_H

#include "client/blob/blob_store.h"
#include "client/store/keys/key_box.h"

#include <optional>

namespace arca::store
{

/// Returns nothing when the repository has no recovery key yet. Errors: damaged, newerFormat.
Result<std::optional<PublicKey>> recoveryHalf(blob::BlobStore &store);
/// Makes this the repository's recovery key, durably. After another error than exists it may be.
/// Errors: exists when the repository has one.
Result<void> publishRecoveryHalf(blob::BlobStore &store, const PublicKey &half);

Bytes encodeRecoveryHalf(const PublicKey &half, std::uint64_t made);
Result<PublicKey> decodeRecoveryHalf(ByteView bytes);

/// Returns the private half as people write it down: nine groups of eight hexadecimal digits, the
/// last one a check of those before it (SHA-256, its first four bytes). The caller wipes it.
Result<std::string> writtenRecoveryKey(const SecretKey &key);
/// Reads what a person typed, in any case, with blanks, tabs or hyphens anywhere; a line end is
/// refused. The caller wipes `typed`. Errors: badArgument with a sentence that says what is wrong
/// with it and repeats nothing of it.
Result<SecretKey> typedRecoveryKey(std::string_view typed);

} // namespace arca::store

#endif
