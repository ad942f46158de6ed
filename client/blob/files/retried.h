// A system call that a signal may interrupt.
#ifndef KEEL_CLIENT_BLOB_FILES_RETRIED_H
#define KEEL_CLIENT_BLOB_FILES_RETRIED_H

#include <cerrno>

namespace arca::blob
{

/// Calls until the answer is anything but EINTR, and returns it.
template <class Call> auto retried(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

} // namespace arca::blob

#endif
