// The locks of libcrypto, which is linked in: all that it asks of the system's threads is answered
// here in its place, because its own locks stay taken for ever in a forked child when a thread of
// the parent held them, and the child would hang.
#ifndef KEEL_CLIENT_BASE_CRYPTO_CRYPTO_LOCKS_H
#define KEEL_CLIENT_BASE_CRYPTO_CRYPTO_LOCKS_H

namespace arca
{

/// For a forked child, before it calls libcrypto: each lock that exists is free from then on.
/// Returns whether a thread of the parent held one for writing, or was about to: what that lock
/// guards may be half changed in the child. Takes no lock.
bool freeCryptoLocks() noexcept;

} // namespace arca

#endif
