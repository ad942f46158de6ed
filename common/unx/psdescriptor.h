// Descriptors that the host cannot mistake for its own input and output. A host may have closed
// descriptor 0, 1 or 2, and the system gives the lowest free number to the next open; what the
// host then prints would go into our file. Both libraries open their files so. Any thread may call.
#ifndef KEEL_COMMON_UNX_PSDESCRIPTOR_H
#define KEEL_COMMON_UNX_PSDESCRIPTOR_H

#include <sys/types.h>

/// Holds the free ones of descriptors 0 to 2 for the length of a block, in which files are opened.
/// To the host they behave as if they were closed: reading and writing fail. The end of the block
/// frees them, keeps errno, and leaves what the host itself has put there meanwhile.
class psStandardHeld
{
public:
    psStandardHeld() noexcept;
    ~psStandardHeld();
    psStandardHeld(const psStandardHeld &) = delete;
    psStandardHeld &operator=(const psStandardHeld &) = delete;

private:
    bool held[3] = {};
    dev_t device = 0;
    ino_t inode = 0;
};

/// Returns a descriptor above 2 for the same open file, which the caller closes. One that is above
/// 2 already is returned as it is; from a lower one it makes a close-on-exec copy and closes
/// `descriptor`, also on failure: then it returns -1 with errno. -1 is returned as it is. A
/// `descriptor` below 3 must be close-on-exec: one that is not is taken for the host's and stays.
/// Between open(2) and this the host may print into the file: psStandardHeld keeps it from that.
int psAboveStandard(int descriptor) noexcept;

#endif
