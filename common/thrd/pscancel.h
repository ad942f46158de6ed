// Keeps a cancellation of the calling thread out of a call.
//
// A host may cancel its threads at any moment. Acted upon within one of our calls, a cancellation
// would unwind through code that lets nothing past, which ends the process, and would leave behind
// what the call holds. So it waits until the call is over.
#ifndef KEEL_COMMON_THRD_PSCANCEL_H
#define KEEL_COMMON_THRD_PSCANCEL_H

#include <pthread.h>

/// For the length of a block. Nests.
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
