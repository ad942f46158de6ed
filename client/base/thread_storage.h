// The thread-local storage that the library has in a thread. The system allocates it when the
// thread first touches it, and ends the process when that fails. So it is touched while memory is
// known to be there, and not when the first exception of the thread is thrown for want of it.
#ifndef KEEL_CLIENT_BASE_THREAD_STORAGE_H
#define KEEL_CLIENT_BASE_THREAD_STORAGE_H

namespace arca
{

/// Makes the storage of the calling thread. Returns false when there is no memory for it; touch
/// nothing that is thread-local then, and throw nothing.
bool prepareThreadStorage() noexcept;

} // namespace arca

#endif
