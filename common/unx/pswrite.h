// Writing on behalf of a host: no write of this library may end the host's process by a signal.
//
// Every writer of libobk.so uses this unit; scripts/check-writers checks that. Any thread may call.
#ifndef KEEL_COMMON_UNX_PSWRITE_H
#define KEEL_COMMON_UNX_PSWRITE_H

#include <csignal>
#include <cstddef>
#include <sys/types.h>

/// Blocks, in the calling thread and for the length of a block, the two signals that a write
/// raises: SIGXFSZ at the limit on the size of files, SIGPIPE when the reader has closed the pipe.
/// The write then fails with EFBIG or EPIPE. A signal that was raised meanwhile is discarded; one
/// that was pending before stays pending. The end of the block keeps errno. Nests.
class psWriteGuard
{
public:
    psWriteGuard() noexcept;
    ~psWriteGuard();
    psWriteGuard(const psWriteGuard &) = delete;
    psWriteGuard &operator=(const psWriteGuard &) = delete;

private:
    sigset_t maskBefore;
    sigset_t pendingBefore;
    bool held;
};

/// Returns 1 when length more bytes at position stay within the process's file size limit, else 0.
int psWithinFileLimit(off_t position, std::size_t length) noexcept;

/// Both write all length bytes, at the descriptor's position or at position `at` of the file, and
/// return true; a short write is continued. They return false with errno set on failure; a part of
/// the bytes may be written then. Each blocks the two signals itself; nothing is synced.
bool psWriteAll(int descriptor, const void *data, std::size_t length) noexcept;
bool psWriteAllAt(int descriptor, const void *data, std::size_t length, off_t at) noexcept;

/// Appends length bytes to a file that was opened for appending, whole or not at all: what a full
/// disk or the limit on the size of files cuts is taken back by truncating the file to its former
/// size. Returns false with errno set then. The caller holds a lock that keeps every other process
/// and thread from appending meanwhile; their lines would be cut off too.
bool psAppendWhole(int descriptor, const void *data, std::size_t length) noexcept;

#endif
