// The grace time of a repository as people type and read it.
#ifndef KEEL_TOOLS_ARCA_GRACE_H
#define KEEL_TOOLS_ARCA_GRACE_H

#include "client/base/result.h"

#include <cstdint>
#include <string>

namespace arca::tool
{

/// Returns seconds from "0", "90m", "12h", "7d" or "8w". Errors: badArgument, which names `option`.
Result<std::int64_t> graceFrom(const std::string &text, const std::string &option);

/// "7 days", "90 minutes", "none": in the largest unit that needs no fraction.
std::string graceText(std::int64_t seconds);

} // namespace arca::tool

#endif
