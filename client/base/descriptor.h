// Descriptors that the host cannot mistake for its own input and output. A host may have closed
// descriptor 0, 1 or 2, and the system gives the lowest free number to the next open; what the
// host then prints would go into our file. Any thread may call these.
#ifndef KEEL_CLIENT_BASE_DESCRIPTOR_H
#define KEEL_CLIENT_BASE_DESCRIPTOR_H

#include <sys/types.h>

namespace arca
{

/// Like open(2), with O_CLOEXEC and O_NOCTTY added and interruptions retried. Returns a descriptor
/// above 2, or -1 with errno. While a number up to 2 is free, it is held meanwhile by a descriptor
/// that can neither be read nor written, so that nothing the host prints in between reaches the
/// file; afterwards it is as free as before. What the host itself puts there meanwhile, a new
/// standard output for example, stays.
int openAbove(const char *path, int flags, mode_t mode = 0600);

/// Returns a descriptor above 2 for the same open file, close-on-exec, and closes `descriptor`
/// unless it is that. On failure returns -1 with errno; `descriptor` is closed then, too.
int moveAbove(int descriptor);

} // namespace arca

#endif
