// The names of the trace classes.
#ifndef KEEL_COMMON_UT_TRACECLASSES_H
#define KEEL_COMMON_UT_TRACECLASSES_H

#include <cstdint>
#include <string_view>

/// Returns the bits of the class, or of all classes of the aggregate, of that name; 0 for an
/// unknown name. Case does not matter, nor does a leading TR_.
std::uint64_t trClassBits(std::string_view name) noexcept;

#endif
