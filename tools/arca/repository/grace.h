// The grace time of a repository as people type and read it.
#ifndef KEEL_TOOLS_ARCA_REPOSITORY_GRACE_H
#define KEEL_TOOLS_ARCA_REPOSITORY_GRACE_H

#include "client/base/result.h"

#include <cstdint>
#include <string>

namespace arca::tool
{

/// Returns seconds from "0", "40s", "90m", "12h", "7d" or "8w", at most 100 years. Throws
/// UsageError, whose text names `option`.
std::int64_t graceFrom(const std::string &text, const std::string &option);

/// Returns "7 days", "90 minutes": the largest unit up to days that needs no fraction. For 0 a
/// clause that says what no time means.
std::string graceText(std::int64_t seconds);

} // namespace arca::tool

#endif
