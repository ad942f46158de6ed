// Files of the host: opening them so that nothing leaks into its children, nothing can hang and
// nothing takes the place of its standard streams; and appending whole lines to a log that several
// processes write.
//
// Every descriptor that comes from here is above 2 and closes on exec. A host may have closed 0, 1
// or 2; a file of ours in such a place would receive the host's next line of output.
#ifndef KEEL_COMMON_UNX_PSFILE_H
#define KEEL_COMMON_UNX_PSFILE_H

#include <cstddef>
#include <cstdio>
#include <sys/types.h>

/// Opens a file as fopen does, close-on-exec and created with mode 0600. Null with errno set when
/// it cannot be opened. Only regular files and the null device open: a pipe could wait for its
/// other end, a device could do anything. For writing, a link is followed only when it belongs to
/// root or to the user of the process, so that nobody else can prepare one that leads to a file of
/// the host; for reading, any link is. Nothing is emptied before it is known to be a file.
/// What the line reader wants to know of the file's encoding comes back in encoding (0: bytes as
/// they are) and flags (0); either may be null. What root makes in another user's directory belongs
/// to that user, whose programs write there, too.
FILE *psFileOpen(const char *path, const char *mode, int *encoding, int *flags) noexcept;

/// The same with the flags of open(2), for callers that want a descriptor; -1 with errno set. With
/// O_NOFOLLOW no link is followed. mode is what a new file gets.
int psFileOpenDescriptor(const char *path, int openFlags, mode_t mode = 0600) noexcept;

/// The directory, for fchmodat and the like; -1 with errno set.
int psFileOpenDirectory(const char *path) noexcept;

/// Moves a descriptor above 2, as a close-on-exec copy in place of it, which is closed. -1 with
/// errno set when there is no room, and it is closed then, too. Others come back as they are.
int psFileAboveStandard(int descriptor) noexcept;

/// A new file from a template that ends in XXXXXX, which its name replaces; -1 with errno set.
int psFileTemporary(char *path) noexcept;

/// A pipe, [0] to read from. False with errno set, and nothing is open.
bool psPipe(int ends[2]) noexcept;

/// 1 when path names a directory in which the process may create files, else 0. The effective user
/// counts, as it does when a file is created: a database's programs may be set-user-ID.
int psFileWritableDir(const char *path) noexcept;

/// 1 when length more bytes at position stay within the process's file size limit.
int psFileWithinLimit(off_t position, std::size_t length) noexcept;

/// Locks the whole file against other processes (type F_WRLCK), trying for about a second: a
/// holder that is stopped or hangs must not hold up the host. 0 or errno; EAGAIN when the lock is
/// held elsewhere all that time.
int psFileLock(int descriptor) noexcept;
void psFileUnlock(int descriptor) noexcept;

/// Appends length bytes, a whole line with its newline, in one write under a lock on the whole
/// file (which other processes that append take as well) and a mutex (because that lock does not
/// hold against threads of the same process). While another process keeps the lock for longer than
/// psFileLock tries, the line is appended without it. The file is created with mode 0600. A line
/// that does not fit on the disk is taken back. Says nothing when it fails: it is itself what
/// errors are reported through. An empty path does nothing.
void psAppendLocked(const char *path, const char *line, std::size_t length) noexcept;

#endif
