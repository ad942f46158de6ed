// The locks of libcrypto, which is linked in: all that it asks of the system's threads is answered
// here in its place. Its own locks stay taken for ever in a forked child when a thread of the
// parent held them, and the child would hang; its values of each thread need keys of the system's,
// of which a host may have none left.
#ifndef KEEL_CLIENT_BASE_CRYPTO_CRYPTO_LOCKS_H
#define KEEL_CLIENT_BASE_CRYPTO_CRYPTO_LOCKS_H

namespace arca
{

/// In a forked child, before it calls libcrypto: whether a thread of the parent held a lock for
/// writing, or was about to. What that lock guards may be half changed in the child then.
bool cryptoIsChanging() noexcept;

/// For a forked child, before it calls libcrypto: each lock that exists is free from then on, and
/// nothing is being changed. Takes no lock.
void freeCryptoLocks() noexcept;

} // namespace arca

#endif
