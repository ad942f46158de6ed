// 64-bit numbers as texts.
#include "common/cu/cu64.h"

#include <charconv>

char *cuU64ToText(std::uint64_t value, char *out, int base) noexcept
{
    const auto end =
        std::to_chars(out, out + cu64TextSize - 1, value, base >= 2 && base <= 16 ? base : 10);
    *end.ptr = '\0';
    return out;
}
