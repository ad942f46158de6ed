// What std::random_device takes from the C library since 2.36, for those without. In programs only.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sys/random.h>

extern "C" {

__attribute__((visibility("hidden"))) std::uint32_t arc4random() noexcept
{
    std::uint32_t number = 0;
    while (getrandom(&number, sizeof number, 0) != sizeof number)
        if (errno != EINTR)
            std::abort(); // as there: no answer would be worse than none
    return number;
}
}
