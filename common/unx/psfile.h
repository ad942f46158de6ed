// Files of the host: opening them so that no descriptor leaks into the host's children, no open can
// hang, and no file takes the place of a standard stream; and appending whole lines to a log that
// several processes write.
//
// Any thread may call any of these. What they open belongs to the caller, who closes it. Every
// descriptor from here is above 2 from the beginning (psdescriptor.h) and closes on exec. Nothing
// here syncs.
#ifndef KEEL_COMMON_UNX_PSFILE_H
#define KEEL_COMMON_UNX_PSFILE_H

#include <cstddef>
#include <cstdio>
#include <sys/types.h>

/// Opens a file with a mode of fopen ("r", "w", "a", with "+"); a new file gets mode 0600. Returns
/// null with errno set when it cannot be opened. Only regular files and the null device are opened:
/// a pipe could wait for its other end, and opening a device may act on it. For writing, a link is
/// followed only when it belongs to root or to the effective user, so that no other user can
/// prepare one that leads to a file of the host; for reading, any link is followed. A file is
/// emptied only after these checks. What root creates in another user's directory is given to that
/// user, whose programs write there too. A new file can be read and written by its owner, whatever
/// the host's umask says. encoding and flags, which may be null, receive what the
/// line reader asks for: 0 and 0, the bytes as they are.
FILE *psFileOpen(const char *path, const char *mode, int *encoding, int *flags) noexcept;

/// As psFileOpen, with the flags of open(2) and the mode of a new file. Returns a descriptor, or -1
/// with errno set. With O_NOFOLLOW no link is followed.
int psFileOpenDescriptor(const char *path, int openFlags, mode_t mode = 0600) noexcept;

/// Opens a directory for reading, for fchmodat and the like, and follows links. Returns -1 with
/// errno set on failure.
int psFileOpenDirectory(const char *path) noexcept;

/// Creates a new file with mode 0600 from a template that ends in XXXXXX, and writes its name over
/// the template. Returns -1 with errno set on failure; an empty file of that name may be left when
/// no descriptor above 2 was free.
int psFileTemporary(char *path) noexcept;

/// Makes a pipe; ends[0] is to be read from. Returns false with errno set, and nothing is open.
bool psPipe(int ends[2]) noexcept;

/// Returns 1 when path names a directory in which the process may create files, else 0. The
/// effective user counts, as it does when a file is created: a database's programs may be
/// set-user-ID.
int psFileWritableDir(const char *path) noexcept;

/// Locks the whole file against other processes (fcntl, F_WRLCK), trying for about a second: a
/// holder that is stopped or hangs must not hold up the host. Returns 0 or an errno value; EAGAIN
/// when another process held the lock all that time. The lock does not hold against threads of this
/// process, and closing any descriptor of the file releases it: the caller holds a mutex as well.
int psFileLock(int descriptor) noexcept;
/// Releases the lock; without one it does nothing.
void psFileUnlock(int descriptor) noexcept;

/// Appends length bytes, a whole line with its newline, under psFileLock (which other processes
/// that append take as well) and a mutex of its own. When another process keeps the lock for longer
/// than psFileLock tries, or the file system has no locks, the line is appended without it. A new
/// file gets mode 0600. A line that the disk or the file size limit cuts is taken back, unless the
/// lock was missing: then a part may stay. The line is lost silently when the file does not open,
/// because errors are themselves reported through this call. Keeps errno. An empty path does
/// nothing.
void psAppendLocked(const char *path, const char *line, std::size_t length) noexcept;

#endif
