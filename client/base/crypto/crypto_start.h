// Starting libcrypto, which is linked in, hidden, and used by this room and those that seal keys.
//
// libcrypto makes its tables and its algorithms when they are first needed, and a step of that for
// which there was no memory stays half made for good: the process could never again compute a
// digest. So it is started here as a whole, with a reserve of memory for what the system refuses
// meanwhile.
#ifndef KEEL_CLIENT_BASE_CRYPTO_CRYPTO_START_H
#define KEEL_CLIENT_BASE_CRYPTO_CRYPTO_START_H

#include "client/base/result.h"

namespace arca
{

/// Starts libcrypto and fetches every algorithm that we use, in the first call that gets through;
/// later ones cost next to nothing. Call it before any other call of libcrypto. Returns false on
/// failure; a later call tries again. Any thread may call it, and each that calls libcrypto must:
/// in a child that was forked while another thread was starting libcrypto, or changing what it
/// keeps, it gives the thread another library context, which the child starts from nothing. A child
/// may use nothing that its parent made with libcrypto. No configuration file of the host is read
/// and no exit handler is left behind: the process is not ours. One for forks is, as the library
/// that has it is never unmapped.
bool cryptoReady() noexcept;

/// What a call of libcrypto that failed means: `internal` with this text. Throws std::bad_alloc
/// when this thread has found no memory for libcrypto since the last call of either function.
Error cryptoFailure(const char *text);

} // namespace arca

#endif
