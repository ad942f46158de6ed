// Keeps a cancellation of the calling thread out of a call.
//
// A host may cancel its threads at any moment. Acted upon within one of our calls, a cancellation
// would unwind through noexcept functions, which ends the process, and leave locks held. So the
// cancellation stays pending until the call is over.
#ifndef KEEL_COMMON_THRD_PSCANCEL_H
#define KEEL_COMMON_THRD_PSCANCEL_H

#include <pthread.h>

/// Disables cancellation of the calling thread for the length of a block and then restores what was
/// set before. Nests.
class psNoCancel
{
public:
    psNoCancel() noexcept { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~psNoCancel() { (void)pthread_setcancelstate(before, nullptr); }
    psNoCancel(const psNoCancel &) = delete;
    psNoCancel &operator=(const psNoCancel &) = delete;

private:
    int before = PTHREAD_CANCEL_ENABLE;
};

#endif
