// Pages of the manual, in the macros of man(7).
#ifndef KEEL_TOOLS_COMMON_COMMAND_MANUAL_H
#define KEEL_TOOLS_COMMON_COMMAND_MANUAL_H

#include "tools/common/command/outline.h"

namespace tools
{

/// Returns the page of a verb, or of the program itself, in section 1. `version` is what --version
/// prints.
[[nodiscard]] std::string manualPage(const OutlineVerb &verb, const OutlineVerb &program,
                                     const std::string &version);

} // namespace tools

#endif
