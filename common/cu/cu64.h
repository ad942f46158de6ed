// 64-bit numbers: their texts, and their two halves as the storage client's records carry them.
#ifndef KEEL_COMMON_CU_CU64_H
#define KEEL_COMMON_CU_CU64_H

#include <cstddef>
#include <cstdint>

/// Room for the longest text of a number (base 2) with its terminator.
constexpr std::size_t cu64TextSize = 65;

/// Writes value in the given base, 2 to 16 (any other base counts as 10), with lower-case letters,
/// terminated. Returns out, which the caller provides with room for cu64TextSize characters.
char *cuU64ToText(std::uint64_t value, char *out, int base) noexcept;

constexpr std::uint32_t cuHigh32(std::uint64_t value) noexcept
{
    return static_cast<std::uint32_t>(value >> 32);
}

constexpr std::uint32_t cuLow32(std::uint64_t value) noexcept
{
    return static_cast<std::uint32_t>(value & 0xFFFFFFFFU);
}

constexpr std::uint64_t cuMake64(std::uint32_t high, std::uint32_t low) noexcept
{
    return static_cast<std::uint64_t>(high) << 32 | low;
}

#endif
