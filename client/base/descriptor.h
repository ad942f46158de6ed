// Descriptors that the host cannot mistake for its own input and output. A host may have closed
// descriptor 0, 1 or 2, and the system gives the lowest free number to the next open; what the
// host then prints would go into our file. Any thread may call these.
#ifndef KEEL_CLIENT_BASE_DESCRIPTOR_H
#define KEEL_CLIENT_BASE_DESCRIPTOR_H

#include <sys/types.h>

namespace arca
{

/// Like open(2), with O_CLOEXEC and O_NOCTTY added and interruptions retried. Returns a descriptor
/// above 2, which the caller closes, or -1 with errno. As long as the call lasts, a descriptor that
/// can neither be read nor written holds each free number up to 2, so that nothing the host prints
/// meanwhile reaches the file; afterwards the number is free again. What the host itself puts there
/// meanwhile, a new standard output for example, stays. A file that it makes can be read and
/// written by its owner whatever the host's umask says.
int openAbove(const char *path, int flags, mode_t mode = 0600);
/// The same, where a relative path begins at `directory`, as with openat(2).
int openAboveAt(int directory, const char *path, int flags, mode_t mode = 0600);

/// Like mkdirat(2); the directory gets the mode 0700 whatever the host's umask says. When that
/// fails, no directory is left.
int makeDirectoryAt(int directory, const char *path);

/// psAboveStandard (psdescriptor.h), for what an open of the caller's own returned.
int moveAbove(int descriptor);

} // namespace arca

#endif
