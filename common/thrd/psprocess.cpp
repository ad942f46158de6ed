// The identity of a process: see the header.
#include "common/thrd/psprocess.h"

#include <atomic>
#include <pthread.h>
#include <unistd.h>

namespace
{
constinit std::atomic<unsigned> forks{0};
} // namespace

int psProcessSelf() noexcept
{
    // Process numbers are below 2^22 where they are largest.
    constexpr unsigned numberBits = 22, positive = 0x7fffffff;
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    (void)pthread_once(&once, [] { (void)pthread_atfork(nullptr, nullptr, [] { ++forks; }); });
    return static_cast<int>(((forks << numberBits) ^ static_cast<unsigned>(getpid())) & positive);
}
