// Files of the host: opening them so that nothing leaks into its children and nothing can hang,
// and appending whole lines to a log that several processes write.
#ifndef KEEL_COMMON_UNX_PSFILE_H
#define KEEL_COMMON_UNX_PSFILE_H

#include <cstddef>
#include <cstdio>

/// Opens a file as fopen does, close-on-exec and created with mode 0600. Null with errno set when
/// it cannot be opened, and when it is nothing that can be read to an end or written without
/// waiting: a directory, a pipe, a socket, or, for reading, a device other than the null device.
/// What the line reader wants to know of the file's encoding comes back in encoding (0: bytes as
/// they are) and flags (0); either may be null.
FILE *psFileOpen(const char *path, const char *mode, int *encoding, int *flags) noexcept;

/// The same with the flags of open(2), for callers that want a descriptor; -1 with errno set.
int psFileOpenDescriptor(const char *path, int openFlags) noexcept;

/// 1 when path names a directory in which the process may create files, else 0.
int psFileWritableDir(const char *path) noexcept;

/// 1 when length more bytes at position stay within the process's file size limit. Beyond that
/// limit a write raises a signal that ends the host, so ask before writing.
int psFileWithinLimit(off_t position, std::size_t length) noexcept;

/// Appends length bytes, a whole line with its newline, in one write under a lock on the whole
/// file (which other processes that append take as well) and a mutex (because that lock does not
/// hold against threads of the same process). The file is created with mode 0600 and may be
/// reached through a link. A line that does not fit on the disk is taken back. Says nothing when it
/// fails: it is itself what errors are reported through. An empty path does nothing.
void psAppendLocked(const char *path, const char *line, std::size_t length) noexcept;

#endif
