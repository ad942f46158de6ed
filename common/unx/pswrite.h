// Writing on behalf of a host: no write of this library may end the process that it is a guest in.
//
// Every writer of libobk.so goes through here; scripts/check-writers holds the tree to that.
#ifndef KEEL_COMMON_UNX_PSWRITE_H
#define KEEL_COMMON_UNX_PSWRITE_H

#include <csignal>
#include <cstddef>
#include <sys/types.h>

/// Holds back, in the calling thread and for the length of a block, the two signals that a write
/// raises: SIGXFSZ at the limit on the size of files, SIGPIPE when nobody reads any more. The write
/// then fails with EFBIG or EPIPE. A signal that was raised meanwhile is taken away; one that was
/// pending before stays pending. errno survives the end of the block. Nests.
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

/// Writes all length bytes at the descriptor's own position, or at a position of the file. Returns
/// false with errno set otherwise; a part of the bytes may be written then. Holds the two signals
/// back itself.
bool psWriteAll(int descriptor, const void *data, std::size_t length) noexcept;
bool psWriteAllAt(int descriptor, const void *data, std::size_t length, off_t at) noexcept;

/// Appends length bytes to a file that was opened for appending, whole or not at all: what a full
/// disk or the limit on the size of files cuts is taken back. Returns false with errno set then.
/// Only for a file that no other process or thread appends to meanwhile.
bool psAppendWhole(int descriptor, const void *data, std::size_t length) noexcept;

#endif
